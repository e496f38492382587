#include "ParseReport.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "xmltree/TreeNode.h"

using xmltree::ParseNote;

namespace {

struct KindInfo {
    ParseNote kind;
    bool loss;        // format and sort would not keep what it reports
    const char* one;  // the thing not kept, for the summary
    const char* many;
};

// One row per kind, in the order of ParseNote; the summary names the losses
// in this order.
constexpr KindInfo kKindInfo[] = {
    {ParseNote::kElementStart, false, nullptr, nullptr},
    {ParseNote::kComment, true, "comment", "comments"},
    {ParseNote::kCommentUnclosed, true, "unclosed comment with the rest of the document",
     "unclosed comments with the rest of the document"},
    {ParseNote::kDeclarationDropped, true, "markup declaration", "markup declarations"},
    {ParseNote::kInstructionMoved, true, "processing instruction in its place",
     "processing instructions in their places"},
    {ParseNote::kCharReference, true, "character reference", "character references"},
    {ParseNote::kEntityReference, true, "entity reference", "entity references"},
    {ParseNote::kTextJoined, true, "text run in its place", "text runs in their places"},
    {ParseNote::kTextAfterCdata, true, "text after a CDATA section", "texts after CDATA sections"},
    {ParseNote::kTextOutside, true, "text outside the top-level element",
     "texts outside the top-level element"},
    {ParseNote::kRootReplaced, true, "earlier top-level element", "earlier top-level elements"},
    {ParseNote::kRootDropped, true, "unclosed later top-level element",
     "unclosed later top-level elements"},
    {ParseNote::kNulByte, true, "text after a NUL byte", "texts after a NUL byte"},
    {ParseNote::kEncodingUnconverted, true, "declared encoding", "declared encodings"},
    {ParseNote::kInvalidUtf8, false, nullptr, nullptr},
    {ParseNote::kClosingTagUnended, false, nullptr, nullptr},
    {ParseNote::kClosingTagMismatch, false, nullptr, nullptr},
    {ParseNote::kClosingTagStray, false, nullptr, nullptr},
    {ParseNote::kUnclosedAtEnd, false, nullptr, nullptr},
    {ParseNote::kDoctypeUnclosed, false, nullptr, nullptr},
    {ParseNote::kTagCutOff, false, nullptr, nullptr},
    {ParseNote::kBadElementName, false, nullptr, nullptr},
    {ParseNote::kBadAttributeName, false, nullptr, nullptr},
    {ParseNote::kDuplicateAttribute, false, nullptr, nullptr},
    {ParseNote::kAttributeWithoutValue, false, nullptr, nullptr},
    {ParseNote::kUnquotedValue, false, nullptr, nullptr},
};

constexpr bool rowsFollowTheKinds() {
    int i = 0;
    for (const KindInfo& k : kKindInfo) {
        if (static_cast<int>(k.kind) != i++) return false;
    }
    return true;
}
static_assert(rowsFollowTheKinds(), "one row per ParseNote, in order");

// Notes that a message of the parser's own follows ("Error in closing tag",
// "Unclosed comment", "Failed to parse DTD").
bool takesMessage(int kind) {
    return kind == static_cast<int>(ParseNote::kClosingTagUnended) ||
           kind == static_cast<int>(ParseNote::kCommentUnclosed) ||
           kind == static_cast<int>(ParseNote::kDoctypeUnclosed);
}

// A span of the text as it is shown in a line: at most `max` bytes, line
// breaks and other control bytes as blanks, "..." when cut.
std::string shown(const char* text, size_t size, int offset, int length, size_t max = 40) {
    if (offset < 0 || static_cast<size_t>(offset) > size) return std::string();
    size_t n =
        std::min(static_cast<size_t>(length < 0 ? 0 : length), size - static_cast<size_t>(offset));
    bool cut = n > max;
    if (cut) {
        n = max;
        // Do not cut a UTF-8 sequence in two.
        while (n > 0 &&
               (static_cast<unsigned char>(text[offset + static_cast<int>(n)]) & 0xC0) == 0x80)
            --n;
    }
    std::string s(text + offset, n);
    for (char& c : s) {
        if (static_cast<unsigned char>(c) < 0x20) c = ' ';
    }
    return cut ? s + "..." : s;
}

// The span up to its first blank: "<!ELEMENT" of "<!ELEMENT x ...>".
std::string firstWord(const char* text, size_t size, int offset, int length) {
    int n = 0;
    while (n < length && static_cast<size_t>(offset) + static_cast<size_t>(n) < size) {
        char c = text[offset + n];
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '>') break;
        ++n;
    }
    return shown(text, size, offset, n, 24);
}

std::string hexBytes(const char* text, size_t size, int offset, int length) {
    std::string s;
    for (int i = 0;
         i < length && i < 8 && static_cast<size_t>(offset) + static_cast<size_t>(i) < size; ++i) {
        char b[4];
        std::snprintf(b, sizeof b, "%s%02X", i ? " " : "",
                      static_cast<unsigned char>(text[offset + i]));
        s += b;
    }
    return length > 8 ? s + " ..." : s;
}

}  // namespace

void TextPosition::restart(const char* text) {
    m_text = text;
    m_offset = 0;
    m_line = 1;
    m_charsInLine = 0;
}

void TextPosition::moveTo(const char* text, int offset) {
    if (text != m_text || offset < m_offset) restart(text);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
    for (int i = m_offset; i < offset; ++i) {
        unsigned char c = p[i];
        if (c == '\n') {
            ++m_line;
            m_charsInLine = 0;
        } else if ((c & 0xC0) != 0x80) {  // not a UTF-8 continuation byte
            ++m_charsInLine;
        }
    }
    if (offset > m_offset) m_offset = offset;
}

bool ParseReport::isLoss(ParseNote what) {
    return kKindInfo[static_cast<int>(what)].loss;
}

bool ParseReport::awaitingMessage() const {
    return takesMessage(m_lastKind);
}

// The library calls these in the middle of a parse, which must not be
// unwound by an exception: memory that runs out here is remembered instead,
// and the load fails as if the library had run out.
void ParseReport::logError(const char* message) {
    try {
        record(message);
    } catch (const std::bad_alloc&) {
        m_outOfMemory = true;
    }
}

void ParseReport::logNameValue(const char* name, const char* value) {
    try {
        recordValue(name, value);
    } catch (const std::bad_alloc&) {
        m_outOfMemory = true;
    }
}

void ParseReport::logParseNote(ParseNote what, int offset, int length, const TreeNode* element) {
    try {
        recordNote(what, offset, length, element);
    } catch (const std::bad_alloc&) {
        m_outOfMemory = true;
    }
}

void ParseReport::record(const char* message) {
    std::string text = message ? message : "";
    m_lastMessage = text;
    if (text.compare(0, 13, "Out of memory") == 0) m_outOfMemory = true;
    const bool attached = awaitingMessage();
    m_lastKind = -1;
    if (m_mode == Mode::kList) {
        if (attached && !m_entries.empty()) {
            m_entries.back().message = text;
            return;
        }
        Entry e;
        e.message = text;
        m_entries.push_back(e);
        return;
    }
    if (!attached) ++m_messages;
}

void ParseReport::recordValue(const char* name, const char* value) {
    std::string n = name ? name : "";
    std::string v = value ? value : "";
    if (m_mode != Mode::kList) return;
    // The parser names the element of its error right after the error.
    if (!m_entries.empty() && !m_entries.back().message.empty()) {
        Entry& last = m_entries.back();
        if (n == "error_tag") {
            last.element = v;
            last.hasElement = true;
        } else {
            last.detail += (last.detail.empty() ? "" : ", ") + n + " '" + v + "'";
        }
        return;
    }
    Entry e;
    e.message = n + ": " + v;
    m_entries.push_back(e);
}

void ParseReport::recordNote(ParseNote what, int offset, int length, const TreeNode* element) {
    const int kind = static_cast<int>(what);
    if (kind < 0 || kind >= kKinds) return;
    if (what == ParseNote::kElementStart) {
        if (m_elementStarts && element) m_starts[element] = offset;
        return;
    }
    m_lastKind = kind;
    if (m_mode != Mode::kList) {
        ++m_counts[kind];
        return;
    }
    Entry e;
    e.offset = offset;
    e.length = length;
    e.kind = kind;
    if (element) {
        e.hasElement = true;
        e.element = element->getTag();
        e.afterChild = element->getNumChildren() > 0;
    }
    m_entries.push_back(e);
}

std::string ParseReport::lossSummary(long* things) const {
    std::vector<std::string> parts;
    long total = 0;
    char number[32];
    for (const KindInfo& k : kKindInfo) {
        long n = m_counts[static_cast<int>(k.kind)];
        if (!k.loss || n == 0) continue;
        std::snprintf(number, sizeof number, "%ld ", n);
        parts.push_back(number + std::string(n == 1 ? k.one : k.many));
        total += n;
    }
    if (m_messages > 0) {
        std::snprintf(number, sizeof number, "%ld ", m_messages);
        parts.push_back(number + std::string(m_messages == 1
                                                 ? "character set conversion failure"
                                                 : "character set conversion failures"));
        total += m_messages;
    }
    if (things) *things = total;
    std::string s;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) s += i + 1 == parts.size() ? " and " : ", ";
        s += parts[i];
    }
    return s;
}

long ParseReport::count() const {
    if (m_mode == Mode::kList) return static_cast<long>(m_entries.size());
    long n = m_messages;
    for (long c : m_counts)
        n += c;
    return n;
}

int ParseReport::startOf(const TreeNode* node) const {
    auto it = m_starts.find(node);
    return it == m_starts.end() ? -1 : it->second;
}

std::string ParseReport::describe(const Entry& e, const char* text, size_t size) const {
    const int o = e.offset, n = e.length;
    switch (static_cast<ParseNote>(e.kind)) {
        case ParseNote::kComment:
            return "comment dropped";
        case ParseNote::kDeclarationDropped:
            return "declaration '" + firstWord(text, size, o, n) + "' dropped";
        case ParseNote::kInstructionMoved:
            return "processing instruction '" + firstWord(text, size, o, n) +
                   (e.hasElement ? "' moved out of the element to the prolog"
                                 : "' after the top-level element moved to the prolog");
        case ParseNote::kCharReference:
            return "character reference '" + shown(text, size, o, n) + "' kept as text";
        case ParseNote::kEntityReference:
            return "entity reference '" + shown(text, size, o, n) + "' kept as text";
        case ParseNote::kTextJoined:
            return e.afterChild ? "text after a child element joined to the element's text"
                                : "text joined to the element's earlier text";
        case ParseNote::kTextAfterCdata:
            return "text after a CDATA section dropped";
        case ParseNote::kTextOutside:
            return "text outside the top-level element dropped";
        case ParseNote::kRootReplaced:
            return "top-level element replaced by a later one";
        case ParseNote::kRootDropped:
            return "later top-level element left open at the end dropped";
        case ParseNote::kNulByte:
            return "NUL byte ends the document; the rest is dropped";
        case ParseNote::kEncodingUnconverted:
            return "encoding '" + shown(text, size, o, n) +
                   "' cannot be converted; bytes kept as they are";
        case ParseNote::kInvalidUtf8:
            return "bytes that are not UTF-8 kept as they are: " + hexBytes(text, size, o, n);
        case ParseNote::kClosingTagMismatch:
            return "closing tag '</" + shown(text, size, o, n) + ">' closes another element";
        case ParseNote::kClosingTagStray:
            return "closing tag outside any element ignored";
        case ParseNote::kUnclosedAtEnd:
            return "element not closed";
        case ParseNote::kTagCutOff:
            return "tag cut off by the end of input; no element made";
        case ParseNote::kBadElementName:
            return "element name '" + shown(text, size, o, n) + "' is not an XML name";
        case ParseNote::kBadAttributeName:
            return "attribute name '" + shown(text, size, o, n) + "' is not an XML name";
        case ParseNote::kDuplicateAttribute:
            return "duplicate attribute '" + shown(text, size, o, n) + "'";
        case ParseNote::kAttributeWithoutValue:
            return "attribute '" + shown(text, size, o, n) + "' without a value";
        case ParseNote::kUnquotedValue:
            return "attribute value without quotes, read up to the next quote";
        case ParseNote::kElementStart:
        case ParseNote::kCommentUnclosed:
        case ParseNote::kClosingTagUnended:
        case ParseNote::kDoctypeUnclosed:
            break;
    }
    return std::string();
}

std::vector<std::string> ParseReport::lines(const std::string& name, const char* text,
                                            size_t size) const {
    std::vector<const Entry*> order;
    order.reserve(m_entries.size());
    for (const Entry& e : m_entries)
        order.push_back(&e);
    std::stable_sort(order.begin(), order.end(),
                     [](const Entry* a, const Entry* b) { return a->offset < b->offset; });
    std::vector<std::string> out;
    out.reserve(order.size());
    TextPosition position;
    char place[64];
    for (const Entry* e : order) {
        std::string detail;
        if (e->hasElement) detail = "element '" + e->element + "'";
        if (!e->detail.empty()) detail += (detail.empty() ? "" : ", ") + e->detail;
        std::string line;
        if (e->offset < 0) {
            line = name + ": " + e->message;
        } else {
            if (static_cast<size_t>(e->offset) >= size) {
                detail += detail.empty() ? "end of input" : ", end of input";
            }
            position.moveTo(text, std::min(e->offset, static_cast<int>(size)));
            std::snprintf(place, sizeof place, ":%d:%d: ", position.line(), position.column());
            line = name + place + (e->message.empty() ? describe(*e, text, size) : e->message);
        }
        if (!detail.empty()) line += " (" + detail + ")";
        out.push_back(line);
    }
    return out;
}
