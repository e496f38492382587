#ifndef XMLTREE_TOOLS_PARSEREPORT_H
#define XMLTREE_TOOLS_PARSEREPORT_H

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/LogBase.h"

// Line and column of a byte offset in a text, found by counting forward from
// the offset asked for last time, so that offsets asked for in increasing
// order cost one pass over the text. Lines count line feeds from 1; columns
// count UTF-8 characters from 1.
class TextPosition {
  public:
    void moveTo(const char* text, int offset);
    int line() const { return m_line; }
    int column() const { return m_charsInLine + 1; }

  private:
    void restart(const char* text);

    const char* m_text = nullptr;
    int m_offset = 0;
    int m_line = 1;
    int m_charsInLine = 0;
};

// What one load of the tool's input told its logger: the messages of the
// reading, decoding and parsing, and the parse notes (foundation/ParseNote.h)
// when asked for them. Notes carry byte offsets into the parsed text; the
// text itself is given only when the report is printed.
class ParseReport : public LogBase {
  public:
    enum class Mode {
        kMessages,  // messages only: the parse makes no notes and runs at full speed
        kCount,     // notes counted by kind, for the summary of what was not kept
        kList,      // notes kept one by one, for `check`
    };
    // With elementStarts, the offset of every element's '<' is kept (find --positions).
    explicit ParseReport(Mode mode, bool elementStarts = false)
        : m_mode(mode), m_elementStarts(elementStarts) {}

    void logError(const char* message) override;
    void logNameValue(const char* name, const char* value) override;
    bool wantsParseNotes() const override { return m_mode != Mode::kMessages || m_elementStarts; }
    void logParseNote(xmltree::ParseNote what, int offset, int length,
                      const TreeNode* element) override;

    // The last message logged, or "": the cause of a load that failed.
    const std::string& lastMessage() const { return m_lastMessage; }
    // Whether memory ran out, as a message said or while recording one; what
    // was read is then not whole.
    bool outOfMemory() const { return m_outOfMemory; }

    // Whether `format` and `sort` would lose what a note of this kind reports.
    static bool isLoss(xmltree::ParseNote what);
    // What the notes and messages counted so far say was not kept, as
    // "296 comments and 3 character references"; "" when nothing was lost.
    // The number of things is set in *things (for "was" or "were").
    std::string lossSummary(long* things) const;

    // kList: one line per note or message, in the order of the text (those
    // without a place first), each "NAME:LINE:COLUMN: what (detail)" or
    // "NAME: message". `text` is the parsed text, `size` its length.
    std::vector<std::string> lines(const std::string& name, const char* text, size_t size) const;
    // kList: the number of lines; otherwise the number of notes and messages.
    long count() const;

    // The offset of the '<' of an element of the parsed tree, or -1.
    int startOf(const TreeNode* node) const;

  private:
    struct Entry {
        int offset = -1;  // -1: a message without a place in the text
        int length = 0;
        int kind = -1;  // a ParseNote, or -1 for a message on its own
        bool hasElement = false;
        bool afterChild = false;  // kTextJoined: the element already had children
        std::string element;
        std::string message;  // the message logged with the note, or on its own
        std::string detail;   // a named value logged with it
    };
    static constexpr int kKinds = static_cast<int>(xmltree::ParseNote::kUnquotedValue) + 1;

    void record(const char* message);
    void recordValue(const char* name, const char* value);
    void recordNote(xmltree::ParseNote what, int offset, int length, const TreeNode* element);
    std::string describe(const Entry& e, const char* text, size_t size) const;
    bool awaitingMessage() const;

    Mode m_mode;
    bool m_elementStarts;
    std::vector<Entry> m_entries;
    long m_counts[kKinds] = {};
    long m_messages = 0;  // messages on their own (character-set conversion and the like)
    int m_lastKind = -1;  // the kind of the last note while it waits for its message
    std::string m_lastMessage;
    bool m_outOfMemory = false;
    std::unordered_map<const TreeNode*, int> m_starts;
};

#endif
