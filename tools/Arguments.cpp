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
    "  check    list what the parse did not keep, moved or recovered from\n"
    "  text     write the text content of the document\n"
    "  find     write the elements that match a tag, content or attribute\n"
    "  sort     sort the children of an element and write the document\n"
    "  stats    count elements, attributes, depth and time the parse\n"
    "\n"
    "options:\n"
    "  -h, --help     this text, or a command's own with 'xmltree COMMAND --help'\n"
    "  --version      the version\n"
    "\n"
    "exit status: 0 success; 1 nothing found (find), something listed (check),\n"
    "or a document without any element; 2 usage or input/output error, a parse\n"
    "that failed (out of memory), or -o refused.\n";

const char kFormatHelp[] =
    "usage: xmltree format [options] FILE\n"
    "\n"
    "Writes the document as the library's writer makes it: the prolog first,\n"
    "one element per line, four blanks of indentation per level. The writer\n"
    "starts a document without prolog with an empty line; the tool drops that\n"
    "one line, so the output begins with the root element. The output is\n"
    "UTF-8, so a declaration naming another encoding is written with\n"
    "encoding=\"utf-8\" instead. Line ends are LF (a CR LF inside text becomes\n"
    "LF too, as any XML reader sees it); --crlf keeps the writer's CR LF.\n"
    "\n"
    "The tree does not keep all a file may hold: comments; processing\n"
    "instructions inside or after the top-level element (they move to the\n"
    "prolog); character and entity references other than the five predefined\n"
    "ones (kept as text, so &#233; comes out as &amp;#233;); text after a child\n"
    "element (joined to the element's text); text after a CDATA section or\n"
    "outside the top-level element; declarations outside a DOCTYPE; an earlier\n"
    "top-level element; all after a NUL byte or an unclosed comment; the name of\n"
    "an encoding that cannot be converted. When FILE held any of these, one\n"
    "line on standard error says what was not kept. With -o onto an existing\n"
    "file nothing is written then and the exit status is 2, unless --lossy is\n"
    "given. Repairs that keep the content (a closing tag with another name, an\n"
    "element not closed, a duplicate attribute, a name that is not an XML name,\n"
    "bytes that are not UTF-8) do not count. 'xmltree check FILE' lists them all.\n"
    "\n"
    "options:\n"
    "  --keep-whitespace  keep whitespace around text (default: trim it)\n"
    "  --no-declaration   leave out the <?xml ...?> declaration\n"
    "  --crlf             CR LF line ends, as the library writes them\n"
    "  --lossy            write even what does not keep everything, and say nothing\n"
    "  -o OUT             write to OUT instead of standard output. A regular\n"
    "                     file is replaced only once the new text is complete\n"
    "                     (so OUT may be FILE itself) and keeps its mode; a\n"
    "                     symbolic link keeps pointing at its target, which is\n"
    "                     replaced; a directory, FIFO or device is refused\n";

const char kCheckHelp[] =
    "usage: xmltree check FILE\n"
    "\n"
    "Lists what the parse did not keep, moved or had to recover from, one per\n"
    "line in the order of the text, as FILE:LINE:COLUMN: WHAT, with the element\n"
    "concerned when there is one.\n"
    "  Not kept (see 'xmltree format --help'): comments, processing instructions\n"
    "  moved to the prolog, references kept as text, text joined across a child\n"
    "  element, text after a CDATA section or outside the top-level element,\n"
    "  declarations outside a DOCTYPE, a top-level element replaced by a later\n"
    "  one (or a later one left open), what follows a NUL byte, an encoding\n"
    "  that cannot be converted (the bytes are read as they are).\n"
    "  Recovered: \"Error in closing tag\" (a closing tag cut short by the '<'\n"
    "  shown), a closing tag with another name or outside any element, an\n"
    "  element not closed, \"Unclosed comment\", \"Failed to parse DTD\", a tag\n"
    "  cut off by the end, duplicate attributes, attributes without a value or\n"
    "  without quotes, names that are not XML names, bytes that are not UTF-8.\n"
    "LINE counts line feeds from 1; COLUMN counts characters (not bytes) from 1,\n"
    "both in the text after conversion to UTF-8. Messages of the character-set\n"
    "conversion come first, without a position.\n"
    "\n"
    "Exit status 0 when nothing was listed, 1 when something was.\n";

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
    "other tests, breadth-first: shallower elements before deeper ones, each\n"
    "as 'format' writes elements and ended by a line end (LF).\n"
    "Patterns are case-sensitive wildcards over the whole text: '*' matches any\n"
    "run, '?' one byte.\n"
    "\n"
    "options:\n"
    "  --tag T               the tag (required)\n"
    "  --content PATTERN     the element's text matches PATTERN\n"
    "  --attr NAME=PATTERN   the attribute NAME matches PATTERN\n"
    "  --first               stop at the first match\n"
    "  --positions           a line FILE:LINE:COLUMN: before each match, the\n"
    "                        place of its '<' (counted as 'check' does)\n"
    "  --crlf                CR LF line ends, as the library writes them\n"
    "  --keep-whitespace     keep whitespace around text\n"
    "\n"
    "Exit status 1 when nothing matches.\n";

const char kSortHelp[] =
    "usage: xmltree sort [options] FILE --by KEY\n"
    "\n"
    "Sorts the children of the root (or of the first element tagged TAG,\n"
    "breadth-first) and writes the document as 'format' does, saying what was\n"
    "not kept and refusing to replace a file then, unless --lossy is given.\n"
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
    "  --crlf               CR LF line ends, as the library writes them\n"
    "  --lossy              write even what does not keep everything\n"
    "  -o OUT               write to OUT atomically, as 'format -o'\n";

const char kStatsHelp[] =
    "usage: xmltree stats FILE\n"
    "\n"
    "Counts the bytes read, elements and attributes, the maximum depth (the\n"
    "root is depth 1) and the bytes of text content; shows the declared\n"
    "encoding, whether a DOCTYPE and style sheets are present, the time taken\n"
    "to read and parse the file and the rate in MB/s (10^6 bytes of input per\n"
    "second).\n"
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
    kCrlf,
    kLossy,
    kPositions,
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
    {"--crlf", OptId::kCrlf, false, kFormat | kSort | kFind},
    {"--lossy", OptId::kLossy, false, kFormat | kSort},
    {"--positions", OptId::kPositions, false, kFind},
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
        case OptId::kCrlf:
            o.crlf = true;
            break;
        case OptId::kLossy:
            o.lossy = true;
            break;
        case OptId::kPositions:
            o.positions = true;
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
