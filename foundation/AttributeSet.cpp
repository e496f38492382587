#include "foundation/AttributeSet.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "foundation/ByteScan.h"
#include "foundation/MemoryHook.h"
#include "foundation/PoolArena.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"
#include "foundation/StringFunctions.h"

namespace {

const uint64_t kMaxBlock = static_cast<uint64_t>(INT_MAX);

// Storage blocks small enough for the small-object pool come from it, so that
// a tag's attributes cost no malloc; the capacity tells which a block is.
char* newBlock(uint32_t cap) {
    return static_cast<char*>(cap <= SmallObjectPool::kMaxBlock
                                  ? SmallObjectPool::allocate(cap)
                                  : xmltree::TreeArena::allocateLarge(cap));
}

void freeBlock(char* p, uint32_t cap) {
    if (cap <= SmallObjectPool::kMaxBlock) {
        SmallObjectPool::deallocate(p, cap);
    } else {
        xmltree::TreeArena::releaseLarge(p);
    }
}

}  // namespace

XMLTREE_SMALL_OBJECT_POOLED_DEFINE(AttributeSet)

static_assert(sizeof(void*) != 8 || sizeof(AttributeSet) == 56,
              "AttributeSet grew: most elements with attributes hold one");


AttributeSet::AttributeSet(const AttributeSet& other) : AttributeSet() { copyFrom(other); }

AttributeSet& AttributeSet::operator=(const AttributeSet& other) {
    if (this != &other) copyFrom(other);
    return *this;
}

AttributeSet::~AttributeSet() {
    if (m_block != m_inline) freeBlock(m_block, m_blockCap);
}

bool AttributeSet::moveToBlock(uint32_t newCap) {
    char* block = m_inline;
    if (newCap > m_inlineCap) {
        block = newBlock(newCap);
        if (!block) return false;
    } else {
        newCap = m_inlineCap;
        if (m_block == m_inline) return true;
    }
    // Offsets count from the block's end, so the texts keep them when they
    // move to the end of the new block.
    std::memcpy(block, m_block, static_cast<size_t>(m_count) * sizeof(Entry));
    std::memcpy(block + newCap - m_arenaSize, m_block + m_blockCap - m_arenaSize, m_arenaSize);
    if (m_block != m_inline) freeBlock(m_block, m_blockCap);
    m_block = block;
    m_blockCap = newCap;
    return true;
}

bool AttributeSet::copyFrom(const AttributeSet& other) {
    const uint32_t used = other.usedBytes();
    char* block = m_inline;
    uint32_t cap = m_inlineCap;
    if (used > m_inlineCap) {
        if (m_block != m_inline && m_blockCap >= used) {
            block = m_block;  // reuse our own heap block
            cap = m_blockCap;
        } else {
            block = newBlock(used);
            if (!block) return false;
            cap = used;
        }
    }
    std::memcpy(block, other.m_block, static_cast<size_t>(other.m_count) * sizeof(Entry));
    std::memcpy(block + cap - other.m_arenaSize, other.m_block + other.m_blockCap - other.m_arenaSize,
                other.m_arenaSize);
    if (m_block != m_inline && m_block != block) freeBlock(m_block, m_blockCap);
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
    bytescan::copyRun(w, name, nl);
    w[nl] = '\0';
    bytescan::copyRun(w + nl + 1, value, vl);
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
    if (m_count == 0) return;
    // Unescaped, a pair takes its name and value plus a blank, '=' and two
    // quotes; the arena already counts two NULs per pair. All of it is
    // reserved at once and written in place; an entity makes room for itself
    // and everything after it.
    const uint64_t need = static_cast<uint64_t>(m_arenaSize) + 2 * static_cast<uint64_t>(m_count);
    if (out.hasFailed()) return;
    if (need > kMaxBlock - 8) {
        out.markFailed();
        return;
    }
    char* w = out.writableTail(static_cast<int>(need));
    if (!w) return;
    char* lim = w + (out.getCapacity() - out.getSize());
    uint64_t later = need;  // unescaped bytes of the pairs after this one
    const Entry* entry = entries();
    for (int i = 0; i < m_count; ++i) {
        const Entry& e = entry[i];
        later -= static_cast<uint64_t>(e.nameLen) + e.valueLen + 4;
        *w++ = ' ';
        bytescan::copyRun(w, namePtr(e), e.nameLen);
        w += e.nameLen;
        *w++ = '=';
        *w++ = '"';
        const char* p = valuePtr(e);
        const char* const end = p + e.valueLen;
        for (;;) {
            const char* stop = bytescan::findStop<false>(p, end);
            bytescan::copyRun(w, p, static_cast<size_t>(stop - p));
            w += stop - p;
            if (stop == end) break;
            const bytescan::Entity entity = bytescan::entityFor(*stop);
            p = stop + 1;
            const uint64_t needNow = entity.len + static_cast<uint64_t>(end - p) + 1 + later;
            if (static_cast<uint64_t>(lim - w) < needNow) {
                out.commitTail(w);
                if (needNow > kMaxBlock) {
                    out.markFailed();
                    return;
                }
                w = out.writableTail(static_cast<int>(needNow));
                if (!w) return;
                lim = w + (out.getCapacity() - out.getSize());
            }
            bytescan::copyRun(w, entity.text, entity.len);
            w += entity.len;
        }
        *w++ = '"';
    }
    out.commitTail(w);
}

bool AttributeSet::reserve(int count, std::size_t textBytes) {
    if (count <= 0) return true;
    const uint64_t needed = static_cast<uint64_t>(usedBytes()) + bytesFor(count, textBytes);
    if (needed <= m_blockCap) return true;
    if (needed > kMaxBlock) return false;
    uint64_t newCap = needed;
    if (m_count > 0) newCap = std::min(std::max(needed, uint64_t{2} * m_blockCap), kMaxBlock);
    return moveToBlock(static_cast<uint32_t>(newCap));
}

void AttributeSet::shrinkToFit() {
    const uint32_t used = usedBytes();
    if (m_block != m_inline && used < m_blockCap) moveToBlock(used);
}
