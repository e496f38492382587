#include "foundation/AttributeSet.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "foundation/StringBuffer.h"
#include "foundation/StringFunctions.h"

namespace {

const uint32_t kMaxArena = static_cast<uint32_t>(INT_MAX);

}  // namespace

AttributeSet::AttributeSet()
    : m_arena(nullptr), m_entries(nullptr), m_arenaSize(0), m_arenaCap(0), m_count(0),
      m_entryCap(0) {}

AttributeSet::AttributeSet(const AttributeSet& other) : AttributeSet() { copyFrom(other); }

AttributeSet& AttributeSet::operator=(const AttributeSet& other) {
    if (this != &other) copyFrom(other);
    return *this;
}

AttributeSet::~AttributeSet() {
    std::free(m_arena);
    std::free(m_entries);
}

bool AttributeSet::copyFrom(const AttributeSet& other) {
    char* arena = nullptr;
    Entry* entries = nullptr;
    if (other.m_count) {
        arena = static_cast<char*>(std::malloc(other.m_arenaSize));
        entries = static_cast<Entry*>(std::malloc(sizeof(Entry) * static_cast<size_t>(other.m_count)));
        if (!arena || !entries) {
            std::free(arena);
            std::free(entries);
            return false;
        }
        std::memcpy(arena, other.m_arena, other.m_arenaSize);
        std::memcpy(entries, other.m_entries, sizeof(Entry) * static_cast<size_t>(other.m_count));
    }
    std::free(m_arena);
    std::free(m_entries);
    m_arena = arena;
    m_entries = entries;
    m_arenaSize = m_arenaCap = other.m_count ? other.m_arenaSize : 0;
    m_count = m_entryCap = other.m_count;
    return true;
}

bool AttributeSet::addAttribute(const char* name, const char* value) {
    if (!name) return false;
    if (!value) value = "";
    const size_t nl = std::strlen(name), vl = std::strlen(value);
    if (nl >= kMaxArena || vl >= kMaxArena) return false;
    return addAttributeN(name, static_cast<int>(nl), value, static_cast<int>(vl));
}

bool AttributeSet::addAttributeN(const char* name, int nameLen, const char* value, int valueLen) {
    if (!name || nameLen < 0) return false;
    if (!value || valueLen < 0) valueLen = 0;
    const uint32_t nl = static_cast<uint32_t>(nameLen), vl = static_cast<uint32_t>(valueLen);
    const uint64_t need = static_cast<uint64_t>(m_arenaSize) + nl + vl + 2;
    if (need > kMaxArena || m_count == INT_MAX) return false;

    // Make room in both blocks before changing anything.
    if (m_count == m_entryCap) {
        const int newCap = m_entryCap ? (m_entryCap <= INT_MAX / 2 ? m_entryCap * 2 : INT_MAX) : 4;
        Entry* e = static_cast<Entry*>(
            std::realloc(m_entries, sizeof(Entry) * static_cast<size_t>(newCap)));
        if (!e) return false;
        m_entries = e;
        m_entryCap = newCap;
    }
    if (need > m_arenaCap) {
        uint64_t newCap = static_cast<uint64_t>(m_arenaCap) * 2;
        if (newCap < 64) newCap = 64;
        if (newCap < need) newCap = need;
        if (newCap > kMaxArena) newCap = kMaxArena;
        char* a = static_cast<char*>(std::realloc(m_arena, static_cast<size_t>(newCap)));
        if (!a) return false;
        m_arena = a;
        m_arenaCap = static_cast<uint32_t>(newCap);
    }

    Entry& e = m_entries[m_count];
    e.nameOff = m_arenaSize;
    e.nameLen = nl;
    e.valueLen = vl;
    char* w = m_arena + m_arenaSize;
    if (nl) std::memcpy(w, name, nl);
    w[nl] = '\0';
    if (vl) std::memcpy(w + nl + 1, value, vl);
    w[nl + 1 + vl] = '\0';
    m_arenaSize = static_cast<uint32_t>(need);
    ++m_count;
    return true;
}

int AttributeSet::indexOf(const char* name) const {
    if (!name) return -1;
    const size_t nl = std::strlen(name);
    for (int i = 0; i < m_count; ++i) {
        const Entry& e = m_entries[i];
        if (e.nameLen == nl && std::memcmp(m_arena + e.nameOff, name, nl) == 0) return i;
    }
    return -1;
}

bool AttributeSet::removeAttribute(const char* name) {
    const int i = indexOf(name);
    if (i < 0) return false;
    // Close the gap in the arena and shift the offsets of the later pairs.
    const Entry gone = m_entries[i];
    const uint32_t start = gone.nameOff;
    const uint32_t len = gone.nameLen + gone.valueLen + 2;
    std::memmove(m_arena + start, m_arena + start + len, m_arenaSize - start - len);
    m_arenaSize -= len;
    std::memmove(m_entries + i, m_entries + i + 1,
                 sizeof(Entry) * static_cast<size_t>(m_count - i - 1));
    --m_count;
    for (int k = i; k < m_count; ++k) m_entries[k].nameOff -= len;
    return true;
}

void AttributeSet::clear() {
    m_count = 0;
    m_arenaSize = 0;
}

const char* AttributeSet::nameAt(int index) const {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(m_count)) return nullptr;
    return m_arena + m_entries[index].nameOff;
}

const char* AttributeSet::valueAt(int index) const {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(m_count)) return nullptr;
    return valuePtr(m_entries[index]);
}

const char* AttributeSet::findValue(const char* name) const {
    const int i = indexOf(name);
    return i < 0 ? nullptr : valuePtr(m_entries[i]);
}

bool AttributeSet::hasAttrWithValue(const char* name, const char* value) const {
    const int i = indexOf(name);
    if (i < 0) return false;
    if (!value) value = "";
    const Entry& e = m_entries[i];
    return std::strlen(value) == e.valueLen && std::memcmp(valuePtr(e), value, e.valueLen) == 0;
}

bool AttributeSet::hasMatchingAttribute(const char* name, const char* pattern) const {
    const int i = indexOf(name);
    if (i < 0 || !pattern) return false;
    const Entry& e = m_entries[i];
    return wildcardMatchN(valuePtr(e), static_cast<int>(e.valueLen), pattern, true);
}

bool AttributeSet::getAttributeValue(const char* name, StringBuffer& out) const {
    const int i = indexOf(name);
    return i >= 0 && getAttributeValue(i, out);
}

bool AttributeSet::getAttributeValue(int index, StringBuffer& out) const {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(m_count)) return false;
    const Entry& e = m_entries[index];
    return out.setString(valuePtr(e));
}

bool AttributeSet::getAttributeName(int index, StringBuffer& out) const {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(m_count)) return false;
    return out.setString(m_arena + m_entries[index].nameOff);
}

bool AttributeSet::getAttribute(int index, StringBuffer& name, StringBuffer& value) const {
    if (static_cast<unsigned>(index) >= static_cast<unsigned>(m_count)) return false;
    const Entry& e = m_entries[index];
    return name.setString(m_arena + e.nameOff) && value.setString(valuePtr(e));
}

void AttributeSet::appendXml(StringBuffer& out) const {
    for (int i = 0; i < m_count; ++i) {
        const Entry& e = m_entries[i];
        out.appendChar(' ');
        out.appendN(m_arena + e.nameOff, static_cast<int>(e.nameLen));
        out.appendN("=\"", 2);
        const char* run = valuePtr(e);
        const char* end = run + e.valueLen;
        for (const char* p = run; p < end; ++p) {
            const char* entity;
            int entityLen;
            switch (*p) {
                case '&': entity = "&amp;"; entityLen = 5; break;
                case '<': entity = "&lt;"; entityLen = 4; break;
                case '>': entity = "&gt;"; entityLen = 4; break;
                case '"': entity = "&quot;"; entityLen = 6; break;
                default: continue;
            }
            out.appendN(run, static_cast<int>(p - run));
            out.appendN(entity, entityLen);
            run = p + 1;
        }
        out.appendN(run, static_cast<int>(end - run));
        out.appendChar('"');
    }
}
