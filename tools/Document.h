#ifndef XMLTREE_TOOLS_DOCUMENT_H
#define XMLTREE_TOOLS_DOCUMENT_H

#include <cstdint>
#include <string>

#include "Options.h"

class DataBuffer;
class TreeNode;

// Prints "xmltree: <message>" as one line on standard error and returns code.
int reportError(int code, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;

// How the input is named in messages: the path, or "standard input" for "-".
std::string displayName(const std::string& input);

// Figures about one load, for `stats`.
struct LoadStats {
    uint64_t inputBytes = 0;  // as read, before any conversion
    double seconds = 0;       // reading, decoding and parsing
};

// Reads and parses the command's input. On success *root is the tree (the
// caller deletes it) and the result is kExitOk. Otherwise the cause has been
// reported on standard error, *root is null and the result is the exit status.
int loadDocument(const Options& opts, TreeNode** root, LoadStats* stats);

// Reads all of standard input. False, with errno set, on a read error.
bool readStandardInput(DataBuffer& data);

// Size of the regular file at path. On failure reports "cannot read" and
// returns false.
bool statInput(const std::string& path, uint64_t& size);

// Why the file at path could not be loaded: the system's message for opening
// or reading it, or "" when it reads fine (an empty file, say).
std::string readFailureCause(const std::string& path);

#endif
