#include "foundation/AttributeSet.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "foundation/StringBuffer.h"
#include "foundation/StringFunctions.h"

namespace {

const uint64_t kMaxBlock = static_cast<uint64_t>(INT_MAX);

// Byte classes for attribute values: 0 copies the byte, 1 is a NUL (the end
// of the value, or a byte of it), any other value indexes kEntities.
struct ValueEscapeTable {
    unsigned char cls[256];
    constexpr ValueEscapeTable() : cls() {
        cls[0] = 1;
        cls[static_cast<unsigned char>('<')] = 2;
        cls[static_cast<unsigned char>('>')] = 3;
        cls[static_cast<unsigned char>('"')] = 4;
        cls[static_cast<unsigned char>('&')] = 5;
    }
};
constexpr ValueEscapeTable kValueEscape;

struct Entity {
    const char* text;
    int len;
};
const Entity kEntities[6] = {{"", 0},     {"", 0},       {"&lt;", 4},
                             {"&gt;", 4}, {"&quot;", 6}, {"&amp;", 5}};

// Appends the len bytes at value, escaped, into room the caller reserved
// for len bytes plus one; an entity makes room for itself and what follows.
// The stored value always ends with a NUL, which stops the scan.
bool appendEscapedValue(StringBuffer& out, const char* value, uint32_t len) {
    const unsigned char* p = reinterpret_cast<const unsigned char*>(value);
    const unsigned char* const end = p + len;
    const unsigned char* run = p;
    for (;;) {
        unsigned char cls;
        while ((cls = kValueEscape.cls[*p]) == 0) ++p;
        if (cls == 1) {
            if (p == end) break;
            ++p;  // a NUL inside the value is copied like any byte
            continue;
        }
        out.appendUnchecked(reinterpret_cast<const char*>(run), static_cast<int>(p - run));
        ++p;
        const Entity& entity = kEntities[cls];
        if (!out.reserveMore(entity.len + static_cast<int>(end - p) + 1)) return false;
        out.appendUnchecked(entity.text, entity.len);
        run = p;
    }
    out.appendUnchecked(reinterpret_cast<const char*>(run), static_cast<int>(end - run));
    return true;
}

}  // namespace

AttributeSet::AttributeSet()
    : m_block(m_inline), m_blockCap(kInlineBytes), m_arenaSize(0), m_count(0) {}

AttributeSet::AttributeSet(const AttributeSet& other) : AttributeSet() { copyFrom(other); }

AttributeSet& AttributeSet::operator=(const AttributeSet& other) {
    if (this != &other) copyFrom(other);
    return *this;
}

AttributeSet::~AttributeSet() {
    if (m_block != m_inline) std::free(m_block);
}

bool AttributeSet::moveToBlock(uint32_t newCap) {
    char* block = m_inline;
    if (newCap > kInlineBytes) {
        block = static_cast<char*>(std::malloc(newCap));
        if (!block) return false;
    } else {
        newCap = kInlineBytes;
        if (m_block == m_inline) return true;
    }
    // Offsets count from the block's end, so the texts keep them when they
    // move to the end of the new block.
    std::memcpy(block, m_block, static_cast<size_t>(m_count) * sizeof(Entry));
    std::memcpy(block + newCap - m_arenaSize, m_block + m_blockCap - m_arenaSize, m_arenaSize);
    if (m_block != m_inline) std::free(m_block);
    m_block = block;
    m_blockCap = newCap;
    return true;
}

bool AttributeSet::copyFrom(const AttributeSet& other) {
    const uint32_t used = other.usedBytes();
    char* block = m_inline;
    uint32_t cap = kInlineBytes;
    if (used > kInlineBytes) {
        if (m_block != m_inline && m_blockCap >= used) {
            block = m_block;  // reuse our own heap block
            cap = m_blockCap;
        } else {
            block = static_cast<char*>(std::malloc(used));
            if (!block) return false;
            cap = used;
        }
    }
    std::memcpy(block, other.m_block, static_cast<size_t>(other.m_count) * sizeof(Entry));
    std::memcpy(block + cap - other.m_arenaSize, other.m_block + other.m_blockCap - other.m_arenaSize,
                other.m_arenaSize);
    if (m_block != m_inline && m_block != block) std::free(m_block);
    m_block = block;
    m_blockCap = cap;
    m_arenaSize = other.m_arenaSize;
    m_count = other.m_count;
    return true;
}

bool AttributeSet::addAttribute(const char* name, const char* value) {
    if (!name) return false;
    if (!value) value = "";
    const size_t nl = std::strlen(name), vl = std::strlen(value);
    if (nl >= kMaxBlock || vl >= kMaxBlock) return false;
    return addAttributeN(name, static_cast<int>(nl), value, static_cast<int>(vl));
}

bool AttributeSet::addAttributeN(const char* name, int nameLen, const char* value, int valueLen) {
    if (!name || nameLen < 0) return false;
    if (!value || valueLen < 0) valueLen = 0;
    const uint32_t nl = static_cast<uint32_t>(nameLen), vl = static_cast<uint32_t>(valueLen);
    const uint64_t textLen = static_cast<uint64_t>(nl) + vl + 2;
    const uint64_t needed = static_cast<uint64_t>(usedBytes()) + sizeof(Entry) + textLen;
    if (needed > kMaxBlock) return false;
    if (needed > m_blockCap) {
        uint64_t newCap = static_cast<uint64_t>(m_blockCap) * 2;
        if (newCap < needed) newCap = needed;
        if (newCap > kMaxBlock) newCap = kMaxBlock;
        if (!moveToBlock(static_cast<uint32_t>(newCap))) return false;
    }
    m_arenaSize += static_cast<uint32_t>(textLen);
    Entry& e = entries()[m_count];
    e.nameOff = m_arenaSize;
    e.nameLen = nl;
    e.valueLen = vl;
    char* w = m_block + m_blockCap - m_arenaSize;
    if (nl) std::memcpy(w, name, nl);
    w[nl] = '\0';
    if (vl) std::memcpy(w + nl + 1, value, vl);
    w[nl + 1 + vl] = '\0';
    ++m_count;
    return true;
}

int AttributeSet::indexOf(const char* name) const {
    if (!name) return -1;
    const size_t nl = std::strlen(name);
    const Entry* e = entries();
    for (int i = 0; i < m_count; ++i) {
        if (e[i].nameLen == nl && std::memcmp(namePtr(e[i]), name, nl) == 0) return i;
    }
    return -1;
}

bool AttributeSet::removeAttribute(const char* name) {
    const int i = indexOf(name);
    if (i < 0) return false;
    Entry* e = entries();
    // The texts of later attributes lie below this one's; move them up over
    // the gap and shorten their offsets to match.
    const uint32_t len = e[i].nameLen + e[i].valueLen + 2;
    char* textStart = m_block + m_blockCap - m_arenaSize;
    char* gone = m_block + m_blockCap - e[i].nameOff;
    std::memmove(textStart + len, textStart, static_cast<size_t>(gone - textStart));
    m_arenaSize -= len;
    std::memmove(e + i, e + i + 1, sizeof(Entry) * static_cast<size_t>(m_count - i - 1));
    --m_count;
    for (int k = i; k < m_count; ++k) e[k].nameOff -= len;
    return true;
}

void AttributeSet::clear() {
    m_count = 0;
    m_arenaSize = 0;
}

const char* AttributeSet::nameAt(int index) const {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(m_count)) return nullptr;
    return namePtr(entries()[index]);
}

const char* AttributeSet::valueAt(int index) const {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(m_count)) return nullptr;
    return valuePtr(entries()[index]);
}

const char* AttributeSet::findValue(const char* name) const {
    const int i = indexOf(name);
    return i < 0 ? nullptr : valuePtr(entries()[i]);
}

bool AttributeSet::hasAttrWithValue(const char* name, const char* value) const {
    const int i = indexOf(name);
    if (i < 0) return false;
    if (!value) value = "";
    const Entry& e = entries()[i];
    return std::strlen(value) == e.valueLen && std::memcmp(valuePtr(e), value, e.valueLen) == 0;
}

bool AttributeSet::hasMatchingAttribute(const char* name, const char* pattern) const {
    const int i = indexOf(name);
    if (i < 0 || !pattern) return false;
    const Entry& e = entries()[i];
    return wildcardMatchN(valuePtr(e), static_cast<int>(e.valueLen), pattern, true);
}

bool AttributeSet::getAttributeValue(const char* name, StringBuffer& out) const {
    const int i = indexOf(name);
    return i >= 0 && getAttributeValue(i, out);
}

bool AttributeSet::getAttributeValue(int index, StringBuffer& out) const {
    const char* v = valueAt(index);
    return v && out.setString(v);
}

bool AttributeSet::getAttributeName(int index, StringBuffer& out) const {
    const char* n = nameAt(index);
    return n && out.setString(n);
}

bool AttributeSet::getAttribute(int index, StringBuffer& name, StringBuffer& value) const {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(m_count)) return false;
    const Entry& e = entries()[index];
    return name.setString(namePtr(e)) && value.setString(valuePtr(e));
}

void AttributeSet::appendXml(StringBuffer& out) const {
    const Entry* entry = entries();
    for (int i = 0; i < m_count; ++i) {
        const Entry& e = entry[i];
        // Space, name, =", value and the closing quote; entities ask for more.
        if (!out.reserveMore(static_cast<int>(e.nameLen + e.valueLen + 4))) return;
        out.appendCharUnchecked(' ');
        out.appendUnchecked(namePtr(e), static_cast<int>(e.nameLen));
        out.appendUnchecked("=\"", 2);
        if (!appendEscapedValue(out, valuePtr(e), e.valueLen)) return;
        out.appendCharUnchecked('"');
    }
}
