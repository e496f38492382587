// The notes a parse gives a logger that asks for them (LogBase::wantsParseNotes).
// Each function looks only at the bytes the parser has just passed or is
// about to pass, at the place the parser names; the parser decides what is
// markup. Nothing here throws into the parser: a note that cannot be made
// for lack of memory is left out.

#include "xmltree/TreeParseNotes.h"

#include <cctype>
#include <cstring>

#include "foundation/ByteScan.h"
#include "xmltree/TreeNode.h"

namespace xmltree {

namespace {

using bytescan::isWs;

bool isNameStart(unsigned char c) {
    return bytescan::isNameByte(c) && !StringBuffer::isBadXmlNameStart(static_cast<char>(c));
}

// [p, end) is a name as XML writes it, as far as the bytes below 0x80 tell.
bool isXmlName(const char* p, const char* end) {
    if (p == end || !isNameStart(static_cast<unsigned char>(*p))) return false;
    for (++p; p != end; ++p) {
        if (!bytescan::isNameByte(static_cast<unsigned char>(*p))) return false;
    }
    return true;
}

// Length of the UTF-8 sequence at p (at most `left` bytes), or 0 when the
// bytes there do not begin one; `bad` is then the length of the broken
// start, at least 1.
int utf8Length(const unsigned char* p, long left, int& bad) {
    const unsigned char c = p[0];
    int need;
    unsigned char lo = 0x80, hi = 0xBF;
    if (c < 0x80) return 1;
    if (c >= 0xC2 && c <= 0xDF) {
        need = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
        need = 2;
        if (c == 0xE0) lo = 0xA0;
        if (c == 0xED) hi = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        need = 3;
        if (c == 0xF0) lo = 0x90;
        if (c == 0xF4) hi = 0x8F;
    } else {
        bad = 1;
        return 0;
    }
    for (int i = 1; i <= need; ++i) {
        const unsigned char lower = i == 1 ? lo : 0x80, upper = i == 1 ? hi : 0xBF;
        if (i >= left || p[i] < lower || p[i] > upper) {
            bad = i;
            return 0;
        }
    }
    return need + 1;
}

}  // namespace

void ParseNoter::note(ParseNote what, const char* from, const char* to, const TreeNode* element) {
    m_log.logParseNote(what, offsetOf(from), static_cast<int>(to - from), element);
}

void ParseNoter::checkText() {
    const char* nul =
        static_cast<const char*>(std::memchr(m_text, '\0', static_cast<size_t>(m_end - m_text)));
    const char* end = nul ? nul : m_end;
    checkUtf8(m_text, end);
    if (nul) note(ParseNote::kNulByte, nul, m_end, nullptr);
}

// Runs of broken sequences next to each other make one note.
void ParseNoter::checkUtf8(const char* from, const char* to) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(from);
    const unsigned char* end = reinterpret_cast<const unsigned char*>(to);
    const unsigned char* badStart = nullptr;
    while (p < end) {
        if (*p < 0x80) {
            if (badStart) {
                note(ParseNote::kInvalidUtf8, reinterpret_cast<const char*>(badStart),
                     reinterpret_cast<const char*>(p), nullptr);
                badStart = nullptr;
            }
            ++p;
            continue;
        }
        int bad = 0;
        const int n = utf8Length(p, end - p, bad);
        if (n > 0) {
            if (badStart) {
                note(ParseNote::kInvalidUtf8, reinterpret_cast<const char*>(badStart),
                     reinterpret_cast<const char*>(p), nullptr);
                badStart = nullptr;
            }
            p += n;
        } else {
            if (!badStart) badStart = p;
            p += bad;
        }
    }
    if (badStart) {
        note(ParseNote::kInvalidUtf8, reinterpret_cast<const char*>(badStart),
             reinterpret_cast<const char*>(end), nullptr);
    }
}

void ParseNoter::tagStarts(const char* name, bool topLevel) {
    // The parser came here from a '<' and whitespace only.
    const char* lt = name - 1;
    while (lt > m_text && *lt != '<')
        --lt;
    m_tagAt = offsetOf(lt);
    if (topLevel) {
        m_rootAt = m_tagAt;
        const char* end = name;
        while (*end && bytescan::kNames.tag[static_cast<unsigned char>(*end)] != bytescan::kNameEnd)
            ++end;
        m_rootLen = static_cast<int>(end - lt);
    }
    m_tagNames.clear();
    if (!m_tagSet.empty()) m_tagSet = std::unordered_set<std::string>();  // frees its buckets
}

void ParseNoter::elementStart(const char* name, const char* nameEnd, const TreeNode* node) {
    note(ParseNote::kElementStart, m_text + m_tagAt, nameEnd, node);
    if (!isXmlName(name, nameEnd)) note(ParseNote::kBadElementName, name, nameEnd, node);
}

void ParseNoter::tagCutOff(const char* name) {
    const char* lt = name - 1;
    while (lt > m_text && *lt != '<')
        --lt;
    note(ParseNote::kTagCutOff, lt, name + std::strlen(name), nullptr);
}

void ParseNoter::attribute(const char* raw, const char* rawEnd, const char* name, int nameLen,
                           const TreeNode* element) {
    if (raw == rawEnd) {
        // "/" and ">" end a tag; a '=' with no name before it is a value
        // that is dropped.
        if (*raw == '=') note(ParseNote::kBadAttributeName, raw, rawEnd, element);
        return;
    }
    if (!isXmlName(raw, rawEnd)) note(ParseNote::kBadAttributeName, raw, rawEnd, element);
    if (*bytescan::skipWs(rawEnd) != '=') {
        note(ParseNote::kAttributeWithoutValue, raw, rawEnd, element);
    }
    if (nameLen == 0) return;
    try {
        std::string stored(name, static_cast<size_t>(nameLen));
        bool seen;
        // Tags rarely hold more than a few attributes; a set keeps the rare
        // long one linear.
        if (m_tagSet.empty() && m_tagNames.size() < 16) {
            seen = false;
            for (const std::string& s : m_tagNames)
                seen = seen || s == stored;
            if (!seen) m_tagNames.push_back(std::move(stored));
        } else {
            if (m_tagSet.empty()) m_tagSet.insert(m_tagNames.begin(), m_tagNames.end());
            seen = !m_tagSet.insert(std::move(stored)).second;
        }
        if (seen) note(ParseNote::kDuplicateAttribute, raw, rawEnd, element);
    } catch (...) {
        // The check is left out for lack of memory; the parse goes on.
    }
}

void ParseNoter::references(const char* from, const char* to, const TreeNode* element) {
    for (const char* p = from; p < to; ++p) {
        p = static_cast<const char*>(std::memchr(p, '&', static_cast<size_t>(to - p)));
        if (!p) return;
        char ch;
        if (bytescan::matchEntity(p, ch)) continue;
        // "&#" digits ";", "&#x" hex digits ";" or "&" name ";"; a name of
        // more than 64 bytes is taken for text, as is an '&' on its own.
        const char* q = p + 1;
        const char* limit = to - q > 66 ? q + 66 : to;
        bool isChar = q < limit && *q == '#';
        if (isChar) {
            ++q;
            const bool hex = q < limit && (*q == 'x' || *q == 'X');
            if (hex) ++q;
            const char* digits = q;
            while (q < limit &&
                   (hex ? std::isxdigit(static_cast<unsigned char>(*q)) : (*q >= '0' && *q <= '9')))
                ++q;
            if (q == digits) continue;
        } else {
            if (q >= limit || !isNameStart(static_cast<unsigned char>(*q))) continue;
            while (q < limit && bytescan::isNameByte(static_cast<unsigned char>(*q)))
                ++q;
        }
        if (q >= limit || *q != ';') continue;
        note(isChar ? ParseNote::kCharReference : ParseNote::kEntityReference, p, q + 1, element);
        p = q;
    }
}

void ParseNoter::textRun(const char* run, int len, const TreeNode* element) {
    if (element->getNumChildren() > 0 || element->getContentSize() > 0) {
        note(ParseNote::kTextJoined, run, run + len, element);
    }
    references(run, run + len, element);
}

void ParseNoter::afterCdata(const char* from, const char* to, const TreeNode* element) {
    while (from < to && isWs(*from))
        ++from;
    while (to > from && isWs(to[-1]))
        --to;
    if (from < to) note(ParseNote::kTextAfterCdata, from, to, element);
}

void ParseNoter::outside(const char* from, const char* to) {
    while (to > from && isWs(to[-1]))
        --to;
    if (from < to) note(ParseNote::kTextOutside, from, to, nullptr);
}

void ParseNoter::closingTag(const char* slash, const TreeNode* open) {
    if (!open) {
        note(ParseNote::kClosingTagStray, slash - 1, slash + 1, nullptr);
        return;
    }
    const char* name = bytescan::skipWs(slash + 1);
    const char* end = name;
    while (*end != '\0' && *end != '>' && *end != '<' && !isWs(*end))
        ++end;
    const char* tag = open->getTag();
    const size_t len = static_cast<size_t>(end - name);
    if (std::strlen(tag) != len || std::memcmp(tag, name, len) != 0) {
        note(ParseNote::kClosingTagMismatch, name, end, open);
    }
}

void ParseNoter::rootFinished(const TreeNode* replaced) {
    if (replaced && m_completedAt >= 0) {
        note(ParseNote::kRootReplaced, m_completedAt, m_completedAt + m_completedLen, replaced);
    }
    m_completedAt = m_rootAt;
    m_completedLen = m_rootLen;
}

void ParseNoter::openAtEnd(const TreeNode* open, bool dropped, const char* stop) {
    if (dropped) {
        const TreeNode* top = open;
        while (top->getParent())
            top = top->getParent();
        note(ParseNote::kRootDropped, m_rootAt, m_rootAt + m_rootLen, top);
        return;
    }
    for (const TreeNode* n = open; n; n = n->getParent())
        note(ParseNote::kUnclosedAtEnd, stop, stop, n);
}

}  // namespace xmltree
