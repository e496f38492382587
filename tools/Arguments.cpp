// Command-line parsing: `xmltree COMMAND [options] FILE`, options before or
// after FILE, `--name VALUE` or `--name=VALUE`, `--` ends the options.

#include <cstdio>
#include <cstring>

#include "Options.h"

#ifndef XMLTREE_VERSION
#define XMLTREE_VERSION "unknown"
#endif

namespace {

enum CommandBit : unsigned {
    kFormat = 1u << 0,
    kCheck = 1u << 1,
    kText = 1u << 2,
    kFind = 1u << 3,
    kSort = 1u << 4,
    kStats = 1u << 5,
    kAll = 0x3f,
};

struct CommandInfo {
    const char* name;
    unsigned bit;
    const char* help;
};

const char kProgramHelp[] =
    "usage: xmltree COMMAND [options] FILE\n"
    "\n"
    "Reads an XML document from FILE (or standard input for '-'), forgivingly:\n"
    "malformed markup is passed over, never rejected. Input in UTF-16 with a\n"
    "byte-order mark or in the character set its declaration names is read as\n"
    "such; all output is UTF-8.\n"
    "\n"
    "commands:\n"
    "  format   write the document back, indented\n"
    "  check    list the places where the parser had to recover\n"
    "  text     write the text content of the document\n"
    "  find     write the elements that match a tag, content or attribute\n"
    "  sort     sort the children of an element and write the document\n"
    "  stats    count elements, attributes, depth and time the parse\n"
    "\n"
    "options:\n"
    "  -h, --help     this text, or a command's own with 'xmltree COMMAND --help'\n"
    "  --version      the version\n"
    "\n"
    "exit status: 0 success; 1 nothing found (find), recovery logged (check),\n"
    "or a document without any element; 2 usage or input/output error.\n";

const char kFormatHelp[] =
    "usage: xmltree format [options] FILE\n"
    "\n"
    "Writes the document as the library's writer makes it: the prolog first,\n"
    "one element per line, four blanks of indentation per level, CR LF line\n"
    "ends. The writer starts a document without prolog with an empty line; the\n"
    "tool drops that one line, so the output begins with the root element.\n"
    "The output is UTF-8, so a declaration naming another encoding is written\n"
    "with encoding=\"utf-8\" instead.\n"
    "\n"
    "options:\n"
    "  --keep-whitespace  keep whitespace around text (default: trim it)\n"
    "  --no-declaration   leave out the <?xml ...?> declaration\n"
    "  -o OUT             write to OUT instead of standard output; OUT is\n"
    "                     replaced only once the new text is complete, so it\n"
    "                     may be FILE itself\n";

const char kCheckHelp[] =
    "usage: xmltree check FILE\n"
    "\n"
    "Parses the document and lists every recovery the parser logged, one per\n"
    "line, as FILE:LINE:COLUMN: MESSAGE, followed by the element concerned\n"
    "when the parser names one. LINE counts line feeds from 1; COLUMN counts\n"
    "characters (not bytes) of the UTF-8 text from 1. The position is where\n"
    "the parser stood when it logged: for \"Error in closing tag\" the '<' that\n"
    "cut the closing tag short. Positions refer to the text after conversion to\n"
    "UTF-8. Messages of the character-set conversion come first, without a\n"
    "position.\n"
    "\n"
    "Exit status 0 when nothing was logged, 1 when something was.\n";

const char kTextHelp[] =
    "usage: xmltree text [options] FILE\n"
    "\n"
    "Writes the text content of every element, separated by blanks, level by\n"
    "level (breadth-first), followed by a line feed. An element without text\n"
    "still adds its blank, so the text may begin with blanks.\n"
    "\n"
    "options:\n"
    "  --tag T            only the text of elements tagged T\n"
    "  --skip 'a|b'       do not descend into elements tagged a or b (their own\n"
    "                     text is still taken)\n"
    "  --keep-whitespace  keep whitespace around text\n";

const char kFindHelp[] =
    "usage: xmltree find [options] FILE --tag T\n"
    "\n"
    "Writes every element tagged T (exact, case-sensitive) that passes the\n"
    "other tests, breadth-first: shallower elements before deeper ones.\n"
    "Patterns are case-sensitive wildcards over the whole text: '*' matches any\n"
    "run, '?' one byte.\n"
    "\n"
    "options:\n"
    "  --tag T               the tag (required)\n"
    "  --content PATTERN     the element's text matches PATTERN\n"
    "  --attr NAME=PATTERN   the attribute NAME matches PATTERN\n"
    "  --first               stop at the first match\n"
    "  --keep-whitespace     keep whitespace around text\n"
    "\n"
    "Exit status 1 when nothing matches.\n";

const char kSortHelp[] =
    "usage: xmltree sort [options] FILE --by KEY\n"
    "\n"
    "Sorts the children of the root (or of the first element tagged TAG,\n"
    "breadth-first) and writes the document as 'format' does.\n"
    "\n"
    "keys:\n"
    "  tag                  the child's tag\n"
    "  content              the child's text\n"
    "  attr:NAME            the child's attribute NAME, as text\n"
    "  attr-int:NAME        the child's attribute NAME, as an integer\n"
    "  field:TAG            the text of the child's first TAG child\n"
    "  field-int:TAG        the same, as an integer\n"
    "  field-attr:TAG:NAME  the attribute NAME of the child's first TAG child\n"
    "Text compares byte by byte (capitals before small letters); integers are\n"
    "read as atoi does (\"12abc\" is 12, \"abc\" is 0). A child without the key\n"
    "sorts as the empty text; a record without the field compares equal to all.\n"
    "\n"
    "options:\n"
    "  --by KEY             the key (required)\n"
    "  --desc               descending (default: ascending)\n"
    "  --ignore-case        compare text ignoring ASCII letter case (text keys)\n"
    "  --at TAG             sort the children of the first element tagged TAG\n"
    "  --keep-whitespace    keep whitespace around text\n"
    "  --no-declaration     leave out the <?xml ...?> declaration\n"
    "  -o OUT               write to OUT atomically, as 'format -o'\n";

const char kStatsHelp[] =
    "usage: xmltree stats FILE\n"
    "\n"
    "Counts elements and attributes, the maximum depth (the root is depth 1)\n"
    "and the bytes of text content; shows the declared encoding, whether a\n"
    "DOCTYPE and style sheets are present, the time taken to read and parse\n"
    "the file and the rate in MB/s (10^6 bytes of input per second).\n"
    "\n"
    "options:\n"
    "  --keep-whitespace  keep whitespace around text\n";

const CommandInfo kCommands[] = {
    {"format", kFormat, kFormatHelp}, {"check", kCheck, kCheckHelp}, {"text", kText, kTextHelp},
    {"find", kFind, kFindHelp},       {"sort", kSort, kSortHelp},    {"stats", kStats, kStatsHelp},
};

const CommandInfo* findCommand(const char* name) {
    for (const CommandInfo& c : kCommands) {
        if (std::strcmp(c.name, name) == 0) return &c;
    }
    return nullptr;
}

enum class OptId {
    kOutput,
    kKeepWhitespace,
    kNoDeclaration,
    kTag,
    kSkip,
    kContent,
    kAttr,
    kFirst,
    kBy,
    kDesc,
    kIgnoreCase,
    kAt,
};

struct OptionInfo {
    const char* name;
    OptId id;
    bool takesValue;
    unsigned commands;
};

const OptionInfo kOptions[] = {
    {"-o", OptId::kOutput, true, kFormat | kSort},
    {"--output", OptId::kOutput, true, kFormat | kSort},
    {"--keep-whitespace", OptId::kKeepWhitespace, false, kAll & ~kCheck},
    {"--no-declaration", OptId::kNoDeclaration, false, kFormat | kSort},
    {"--tag", OptId::kTag, true, kText | kFind},
    {"--skip", OptId::kSkip, true, kText},
    {"--content", OptId::kContent, true, kFind},
    {"--attr", OptId::kAttr, true, kFind},
    {"--first", OptId::kFirst, false, kFind},
    {"--by", OptId::kBy, true, kSort},
    {"--desc", OptId::kDesc, false, kSort},
    {"--ignore-case", OptId::kIgnoreCase, false, kSort},
    {"--at", OptId::kAt, true, kSort},
};

ArgAction usageError(const char* command, const char* what, const char* detail) {
    std::fprintf(stderr, "xmltree: %s%s\n", what, detail);
    std::fprintf(stderr, "Try 'xmltree %s%s--help'.\n", command ? command : "", command ? " " : "");
    return ArgAction::kUsageError;
}

bool applyOption(OptId id, const char* value, Options& o) {
    switch (id) {
        case OptId::kOutput:
            o.output = value;
            o.hasOutput = true;
            break;
        case OptId::kKeepWhitespace:
            o.keepWhitespace = true;
            break;
        case OptId::kNoDeclaration:
            o.noDeclaration = true;
            break;
        case OptId::kTag:
            o.tag = value;
            o.hasTag = true;
            break;
        case OptId::kSkip:
            o.skip = value;
            o.hasSkip = true;
            break;
        case OptId::kContent:
            o.content = value;
            o.hasContent = true;
            break;
        case OptId::kAttr: {
            const char* eq = std::strchr(value, '=');
            if (!eq || eq == value) return false;
            o.attrName.assign(value, eq);
            o.attrPattern = eq + 1;
            o.hasAttr = true;
            break;
        }
        case OptId::kFirst:
            o.first = true;
            break;
        case OptId::kBy:
            o.by = value;
            break;
        case OptId::kDesc:
            o.descending = true;
            break;
        case OptId::kIgnoreCase:
            o.ignoreCase = true;
            break;
        case OptId::kAt:
            o.at = value;
            o.hasAt = true;
            break;
    }
    return true;
}

// Splits "--name=value" into its name; returns the value or null.
const char* splitInlineValue(const char* arg, std::string& name) {
    const char* eq = (arg[0] == '-' && arg[1] == '-') ? std::strchr(arg, '=') : nullptr;
    if (!eq) {
        name = arg;
        return nullptr;
    }
    name.assign(arg, eq);
    return eq + 1;
}

// Handles one option at argv[i]; advances i past its value.
ArgAction takeOption(const CommandInfo& cmd, int argc, char** argv, int& i, Options& o) {
    std::string name;
    const char* value = splitInlineValue(argv[i], name);
    if (name == "-h" || name == "--help") {
        std::fputs(cmd.help, stdout);
        return ArgAction::kShowHelp;
    }
    for (const OptionInfo& opt : kOptions) {
        if (name != opt.name) continue;
        if (!(opt.commands & cmd.bit)) {
            return usageError(cmd.name, "option does not apply to this command: ", name.c_str());
        }
        if (opt.takesValue && !value) {
            if (i + 1 >= argc) return usageError(cmd.name, "option needs a value: ", name.c_str());
            value = argv[++i];
        } else if (!opt.takesValue && value) {
            return usageError(cmd.name, "option takes no value: ", name.c_str());
        }
        if (!applyOption(opt.id, value ? value : "", o)) {
            return usageError(cmd.name, "expected --attr NAME=PATTERN, got: ", value);
        }
        return ArgAction::kRun;
    }
    return usageError(cmd.name, "unknown option: ", name.c_str());
}

ArgAction checkRequired(const CommandInfo& cmd, const Options& o) {
    if (!o.hasInput) return usageError(cmd.name, "missing FILE (use '-' for standard input)", "");
    if (cmd.bit == kFind && !o.hasTag) return usageError(cmd.name, "find needs --tag T", "");
    if (cmd.bit == kSort && o.by.empty()) return usageError(cmd.name, "sort needs --by KEY", "");
    if (o.hasOutput && o.output.empty()) return usageError(cmd.name, "empty output path", "");
    if (o.hasOutput && o.output == "-") {
        return usageError(cmd.name, "-o needs a file; standard output is the default", "");
    }
    return ArgAction::kRun;
}

ArgAction parseCommandArgs(const CommandInfo& cmd, int argc, char** argv, Options& o) {
    bool optionsEnded = false;
    for (int i = 2; i < argc; ++i) {
        const char* arg = argv[i];
        bool isOption = !optionsEnded && arg[0] == '-' && arg[1] != '\0';
        if (isOption && std::strcmp(arg, "--") == 0) {
            optionsEnded = true;
            continue;
        }
        if (isOption) {
            ArgAction a = takeOption(cmd, argc, argv, i, o);
            if (a != ArgAction::kRun) return a;
            continue;
        }
        if (o.hasInput) return usageError(cmd.name, "more than one FILE: ", arg);
        o.input = arg;
        o.hasInput = true;
    }
    return checkRequired(cmd, o);
}

}  // namespace

const char* helpText(const std::string& command) {
    const CommandInfo* c = findCommand(command.c_str());
    return c ? c->help : kProgramHelp;
}

ArgAction parseArguments(int argc, char** argv, Options& o) {
    if (argc < 2) {
        std::fputs(kProgramHelp, stderr);
        return ArgAction::kUsageError;
    }
    const char* first = argv[1];
    if (std::strcmp(first, "--help") == 0 || std::strcmp(first, "-h") == 0 ||
        std::strcmp(first, "help") == 0) {
        const CommandInfo* c = argc > 2 ? findCommand(argv[2]) : nullptr;
        std::fputs(c ? c->help : kProgramHelp, stdout);
        return ArgAction::kShowHelp;
    }
    if (std::strcmp(first, "--version") == 0) {
        std::printf("xmltree %s\n", XMLTREE_VERSION);
        return ArgAction::kShowVersion;
    }
    const CommandInfo* cmd = findCommand(first);
    if (!cmd) return usageError(nullptr, "unknown command: ", first);
    o.command = cmd->name;
    return parseCommandArgs(*cmd, argc, argv, o);
}
