#ifndef XMLTREE_TOOLS_DOCUMENT_H
#define XMLTREE_TOOLS_DOCUMENT_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "Options.h"
#include "foundation/DataBuffer.h"

class ParseReport;
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

// The input of a command: read whole, brought to UTF-8 and parsed. Owns the
// tree, and the UTF-8 text the parser read until releaseText().
class LoadedDocument {
  public:
    LoadedDocument() {}
    ~LoadedDocument();
    LoadedDocument(const LoadedDocument&) = delete;
    LoadedDocument& operator=(const LoadedDocument&) = delete;

    // Reads the input of o (a path, or standard input for "-") and parses
    // it, telling `report` what the library logs and notes. kExitOk with a
    // root. Otherwise the cause has been reported on standard error and the
    // result is the exit status: kExitNotFound for a document without any
    // element, kExitUsage for input that cannot be read or a parse that
    // failed (memory ran out, input too large).
    int load(const Options& o, ParseReport& report);

    TreeNode* root() const { return m_root; }
    const LoadStats& stats() const { return m_stats; }
    // The text the offsets of the report refer to.
    const char* text() const { return reinterpret_cast<const char*>(m_text.getData2()); }
    size_t textSize() const { return m_text.getSize(); }
    // Frees the text when only the tree is needed any more.
    void releaseText();

  private:
    DataBuffer m_text;
    TreeNode* m_root = nullptr;
    LoadStats m_stats;
};

#endif
