#ifndef XMLTREE_TOOLS_OPTIONS_H
#define XMLTREE_TOOLS_OPTIONS_H

#include <string>

// Exit statuses of the tool.
enum ExitCode {
    kExitOk = 0,
    kExitNotFound = 1,  // check listed something, find matched nothing, no element
    kExitUsage = 2,     // bad command line, unreadable input, failed parse, -o refused or
                        // unwritable
};

// Everything the command line said. Strings are empty when not given; the
// has* flags tell an option given an empty value from one not given.
struct Options {
    std::string command;
    std::string input;   // a path, or "-" for standard input
    std::string output;  // -o
    std::string tag;
    std::string skip;
    std::string content;
    std::string attrName;
    std::string attrPattern;
    std::string by;
    std::string at;
    bool hasInput = false;
    bool hasOutput = false;
    bool hasTag = false;
    bool hasSkip = false;
    bool hasContent = false;
    bool hasAttr = false;
    bool hasAt = false;
    bool keepWhitespace = false;
    bool noDeclaration = false;
    bool first = false;
    bool descending = false;
    bool ignoreCase = false;
    bool crlf = false;       // keep the writer's CR LF line ends
    bool lossy = false;      // write even what does not keep everything
    bool positions = false;  // find: FILE:LINE:COL: before each match
};

// What parseArguments decided.
enum class ArgAction {
    kRun,          // run opts.command
    kShowHelp,     // help text was printed to stdout; exit 0
    kShowVersion,  // version was printed; exit 0
    kUsageError,   // a message was printed to stderr; exit 2
};

ArgAction parseArguments(int argc, char** argv, Options& opts);

// The help text of one command ("" gives the program's overview).
const char* helpText(const std::string& command);

#endif
