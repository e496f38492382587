#include "foundation/StringBuffer.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include "foundation/ByteScan.h"
#include "foundation/DataBuffer.h"
#include "foundation/ExtPtrArray.h"
#include "foundation/MemoryHook.h"
#include "foundation/PoolArena.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringFunctions.h"
#include "foundation/TextTransfer.h"

namespace {

// Largest text we hold: sizes are reported as int and one byte goes to the NUL.
const uint32_t kMaxSize = static_cast<uint32_t>(INT_MAX) - 1u;

inline bool isTrimSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Start of the first occurrence of needle (nn > 0 bytes) in hay, or null.
const char* findBytes(const char* hay, size_t hn, const char* needle, size_t nn) {
    if (nn > hn) return nullptr;
#if defined(__GLIBC__)
    return static_cast<const char*>(memmem(hay, hn, needle, nn));
#else
    const char first = needle[0];
    const char* end = hay + (hn - nn) + 1;
    for (const char* p = hay; p < end;) {
        p = static_cast<const char*>(std::memchr(p, first, static_cast<size_t>(end - p)));
        if (!p) return nullptr;
        if (std::memcmp(p, needle, nn) == 0) return p;
        ++p;
    }
    return nullptr;
#endif
}

const char* findBytesNoCase(const char* hay, size_t hn, const char* needle, size_t nn) {
    if (nn > hn) return nullptr;
    const unsigned char f = foldAscii(static_cast<unsigned char>(needle[0]));
    const size_t last = hn - nn;
    for (size_t i = 0; i <= last; ++i) {
        if (foldAscii(static_cast<unsigned char>(hay[i])) != f) continue;
        size_t k = 1;
        while (k < nn && foldAscii(static_cast<unsigned char>(hay[i + k])) ==
                             foldAscii(static_cast<unsigned char>(needle[k])))
            ++k;
        if (k == nn) return hay + i;
    }
    return nullptr;
}

// Text blocks below the pool's largest size come from the small-object pool:
// a parse makes one for every text that outgrows the inline room, and
// malloc's bookkeeping for so many small blocks cost more than the copying.
// Larger blocks come from malloc, so that big texts grow in place with
// realloc. A block's capacity tells where it came from.
inline bool pooledCapacity(uint32_t cap) {
    return cap < SmallObjectPool::kMaxBlock;
}

char* newBlock(uint32_t cap) {
    const size_t bytes = static_cast<size_t>(cap) + 1;
    return static_cast<char*>(pooledCapacity(cap) ? SmallObjectPool::allocate(bytes)
                                                  : xmltree::TreeArena::allocateLarge(bytes));
}

void freeBlock(char* p, uint32_t cap) {
    if (pooledCapacity(cap)) {
        SmallObjectPool::deallocate(p, static_cast<size_t>(cap) + 1);
    } else {
        xmltree::TreeArena::releaseLarge(p);
    }
}

// Moves the first `keep` bytes of block p into a block of newCap; null, with
// p untouched, when memory runs out.
char* resizeBlock(char* p, uint32_t cap, uint32_t newCap, uint32_t keep) {
    if (!pooledCapacity(cap) && !pooledCapacity(newCap)) {
        return static_cast<char*>(
            xmltree::TreeArena::reallocateLarge(p, static_cast<size_t>(newCap) + 1));
    }
    char* block = newBlock(newCap);
    if (!block) return nullptr;
    std::memcpy(block, p, keep);
    freeBlock(p, cap);
    return block;
}

}  // namespace

// ---------------------------------------------------------------------------
// construction

XMLTREE_SMALL_OBJECT_POOLED_DEFINE(StringBuffer)

bool TextTransfer::move(DataBuffer& from, StringBuffer& to) {
    // A heap text block holds m_cap + 1 bytes and comes from malloc when
    // m_cap is not a pooled capacity, as every DataBuffer block does.
    const uint32_t size = from.m_size;
    if (from.m_cap == 0 || to.m_size != 0 || to.onHeap()) return false;
    const uint32_t cap = from.m_cap - 1;
    if (size > cap || cap > kMaxSize || pooledCapacity(cap)) return false;
    to.m_data = reinterpret_cast<char*>(from.m_data);
    to.m_cap = cap;
    to.m_size = size;
    to.m_data[size] = '\0';
    from.m_data = nullptr;
    from.m_size = from.m_cap = 0;
    return true;
}

StringBuffer::StringBuffer(const char* s) : StringBuffer() {
    if (s) append(s);
}

// Most text runs are never appended to, so the block holds exactly the text:
// spare room would stay unused in every content of a large tree.
void StringBuffer::holdExactly(const char* s, int n) {
    if (static_cast<uint32_t>(n) > kMaxSize) {
        fail();
        return;
    }
    char* block = newBlock(static_cast<uint32_t>(n));
    if (!block) {
        fail();
        return;
    }
    m_data = block;
    m_cap = static_cast<uint32_t>(n);
    appendN(s, n);
}

// The text goes through m_data, which points at m_inline: it runs on into
// the room after the object. Out of line, so that the compiler does not
// take the end of m_inline for the end of the text's storage.
StringBuffer::StringBuffer(uint32_t room, const char* s, int n) : StringBuffer() {
    m_cap = static_cast<uint32_t>(kInlineCapacity) + room;
    m_roomGrains = (room / 8) & 0x7Fu;
    m_size = static_cast<uint32_t>(n);
    std::memcpy(m_data, s, m_size);
    m_data[m_size] = '\0';
}

StringBuffer::StringBuffer(int capacity) : StringBuffer() {
    if (capacity > 0) growTo(static_cast<uint32_t>(capacity));
}

StringBuffer::StringBuffer(const StringBuffer& other) : StringBuffer() {
    appendN(other.m_data, static_cast<int>(other.m_size));
    m_cp = other.m_cp;
}

StringBuffer& StringBuffer::operator=(const StringBuffer& other) {
    if (this != &other) {
        setString(other);
        m_cp = other.m_cp;
    }
    return *this;
}

StringBuffer::~StringBuffer() {
    releaseHeap();
    // A volatile store, so that the compiler cannot drop it as a store into
    // an object whose lifetime is ending.
    *static_cast<volatile uint8_t*>(&m_valid) = kDeadMark;
}

void StringBuffer::releaseHeap() {
    if (onHeap()) freeBlock(m_data, m_cap);
    resetInline();
}

void StringBuffer::resetInline() {
    m_data = m_inline;
    m_cap = kInlineCapacity;
    m_size = 0;
    m_inline[0] = '\0';
}

StringBuffer* StringBuffer::createNewSB() { return new (std::nothrow) StringBuffer(); }

StringBuffer* StringBuffer::createNewSB(const char* s) {
    StringBuffer* sb = new (std::nothrow) StringBuffer();
    if (sb && s && !sb->append(s)) {
        delete sb;
        return nullptr;
    }
    return sb;
}

StringBuffer* StringBuffer::createNewSB(int capacity) {
    return new (std::nothrow) StringBuffer(capacity);
}

// ---------------------------------------------------------------------------
// growth

bool StringBuffer::growTo(uint32_t neededCap) {
    if (neededCap <= m_cap) return true;
    if (neededCap > kMaxSize) return fail();
    uint32_t newCap = (m_cap <= kMaxSize / 2) ? m_cap * 2 : kMaxSize;
    if (newCap < neededCap) newCap = neededCap;
    if (newCap < 32) newCap = 32;
    char* block;
    if (onHeap()) {
        block = resizeBlock(m_data, m_cap, newCap, m_size + 1);
        if (!block) return fail();
    } else {
        block = newBlock(newCap);
        if (!block) return fail();
        std::memcpy(block, m_inline, static_cast<size_t>(m_size) + 1);
    }
    m_data = block;
    m_cap = newCap;
    return true;
}

bool StringBuffer::growBy(uint32_t extra) {
    if (extra > kMaxSize - m_size) return fail();
    return growTo(m_size + extra);
}

bool StringBuffer::appendSlow(const char* p, int n) {
    // p may point into our own text, which growing can move.
    const uintptr_t up = reinterpret_cast<uintptr_t>(p);
    const uintptr_t base = reinterpret_cast<uintptr_t>(m_data);
    const bool inside = up >= base && up <= base + m_cap;
    const size_t offset = static_cast<size_t>(up - base);
    if (!growBy(static_cast<uint32_t>(n))) return false;
    if (inside) p = m_data + offset;
    std::memmove(m_data + m_size, p, static_cast<size_t>(n));
    m_size += static_cast<uint32_t>(n);
    m_data[m_size] = '\0';
    return true;
}

bool StringBuffer::appendLong(const char* s, size_t n) {
    if (n > kMaxSize) return fail();
    return appendN(s, static_cast<int>(n));
}

bool StringBuffer::reserve(int totalBytes) {
    return totalBytes <= 0 || growTo(static_cast<uint32_t>(totalBytes));
}

void StringBuffer::expectNumBytes(int n, int /*callerId*/) {
    if (n > 0) growBy(static_cast<uint32_t>(n));
}

void StringBuffer::minimizeMemoryUsage() {
    if (!onHeap()) return;
    if (m_size <= static_cast<uint32_t>(kInlineCapacity)) {
        std::memcpy(m_inline, m_data, static_cast<size_t>(m_size) + 1);
        freeBlock(m_data, m_cap);
        m_data = m_inline;
        m_cap = kInlineCapacity;
    } else if (m_cap > m_size) {
        char* block = resizeBlock(m_data, m_cap, m_size, m_size + 1);
        if (block) {
            m_data = block;
            m_cap = m_size;
        }
    }
}

// ---------------------------------------------------------------------------
// appending and replacing

bool StringBuffer::append(int v) {
    char buf[16];
    char* end = buf + sizeof buf;
    char* p = end;
    // Work on the magnitude as unsigned so that INT_MIN needs no special case.
    unsigned int u = (v < 0) ? 0u - static_cast<unsigned int>(v) : static_cast<unsigned int>(v);
    do {
        *--p = static_cast<char>('0' + u % 10u);
        u /= 10u;
    } while (u);
    if (v < 0) *--p = '-';
    return appendN(p, static_cast<int>(end - p));
}

bool StringBuffer::appendCharN(char c, int n) {
    if (n <= 0) return true;
    if (!growBy(static_cast<uint32_t>(n))) return false;
    std::memset(m_data + m_size, static_cast<unsigned char>(c), static_cast<size_t>(n));
    m_size += static_cast<uint32_t>(n);
    m_data[m_size] = '\0';
    return true;
}

bool StringBuffer::prepend(const char* s) {
    if (!s || !*s) return true;
    const uintptr_t up = reinterpret_cast<uintptr_t>(s);
    const uintptr_t base = reinterpret_cast<uintptr_t>(m_data);
    if (up >= base && up <= base + m_cap) {
        StringBuffer copy(s);  // our own text moves below; work from a copy
        if (copy.hasFailed()) return fail();
        return prepend(copy.m_data);
    }
    const size_t len = std::strlen(s);
    if (len > kMaxSize) return fail();
    if (!growBy(static_cast<uint32_t>(len))) return false;
    std::memmove(m_data + len, m_data, static_cast<size_t>(m_size) + 1);
    std::memcpy(m_data, s, len);
    m_size += static_cast<uint32_t>(len);
    return true;
}

bool StringBuffer::setString(const char* s) {
    if (!s) {
        clear();
        return true;
    }
    const size_t len = std::strlen(s);
    if (len > kMaxSize) return fail();
    const uintptr_t up = reinterpret_cast<uintptr_t>(s);
    const uintptr_t base = reinterpret_cast<uintptr_t>(m_data);
    if (up >= base && up <= base + m_cap) {
        // A tail of our own text: it fits where it is.
        std::memmove(m_data, s, len);
        m_size = static_cast<uint32_t>(len);
        m_data[m_size] = '\0';
        return true;
    }
    if (len > m_cap) {
        // Fresh block: nothing of the old text needs to be carried over.
        uint32_t newCap = static_cast<uint32_t>(len);
        char* block = newBlock(newCap);
        if (!block) return fail();
        if (onHeap()) freeBlock(m_data, m_cap);
        m_data = block;
        m_cap = newCap;
    }
    std::memcpy(m_data, s, len);
    m_size = static_cast<uint32_t>(len);
    m_data[m_size] = '\0';
    return true;
}

bool StringBuffer::setString(const StringBuffer& other) {
    if (&other == this) return true;
    if (other.m_size > m_cap) {
        char* block = newBlock(other.m_size);
        if (!block) return fail();
        if (onHeap()) freeBlock(m_data, m_cap);
        m_data = block;
        m_cap = other.m_size;
    }
    std::memcpy(m_data, other.m_data, other.m_size);
    m_size = other.m_size;
    m_data[m_size] = '\0';
    return true;
}

void StringBuffer::shorten(int n) {
    if (n <= 0) return;
    m_size = (static_cast<uint32_t>(n) >= m_size) ? 0u : m_size - static_cast<uint32_t>(n);
    m_data[m_size] = '\0';
}

// ---------------------------------------------------------------------------
// reading

bool StringBuffer::equals(const char* s) const {
    if (!s) return false;
    const size_t len = std::strlen(s);
    return len == m_size && std::memcmp(m_data, s, len) == 0;
}

bool StringBuffer::equalsIgnoreCase(const char* s) const {
    if (!s) return false;
    const size_t len = std::strlen(s);
    if (len != m_size) return false;
    for (size_t i = 0; i < len; ++i) {
        if (foldAscii(static_cast<unsigned char>(m_data[i])) !=
            foldAscii(static_cast<unsigned char>(s[i])))
            return false;
    }
    return true;
}

int StringBuffer::compare(const char* s) const { return std::strcmp(m_data, s ? s : ""); }

bool StringBuffer::containsChar(char c) const {
    return std::memchr(m_data, static_cast<unsigned char>(c), m_size) != nullptr;
}

bool StringBuffer::containsSubstring(const char* s) const {
    if (!s) return false;
    const size_t len = std::strlen(s);
    return len == 0 || findBytes(m_data, m_size, s, len) != nullptr;
}

bool StringBuffer::containsSubstringNoCase(const char* s) const {
    if (!s) return false;
    const size_t len = std::strlen(s);
    return len == 0 || findBytesNoCase(m_data, m_size, s, len) != nullptr;
}

bool StringBuffer::matches(const char* pattern, bool caseSensitive) const {
    return wildcardMatchN(m_data, static_cast<int>(m_size), pattern, caseSensitive);
}

int StringBuffer::intValue() const {
    const char* p = m_data;
    while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;  // the white space atoi skips
    bool negative = false;
    if (*p == '+' || *p == '-') negative = (*p++ == '-');
    long long v = 0;
    const long long limit = negative ? -static_cast<long long>(INT_MIN) : INT_MAX;
    for (; *p >= '0' && *p <= '9'; ++p) {
        v = v * 10 + (*p - '0');
        if (v >= limit) {
            v = limit;  // saturate; keep reading is pointless
            break;
        }
    }
    return negative ? static_cast<int>(-v) : static_cast<int>(v);
}

double StringBuffer::doubleValue() const { return std::strtod(m_data, nullptr); }

// ---------------------------------------------------------------------------
// editing in place

int StringBuffer::replaceAllOccurances(const char* from, const char* to) {
    if (!from || !*from) return 0;
    if (!to) to = "";
    const size_t fromLen = std::strlen(from);
    const size_t toLen = std::strlen(to);
    const char* end = m_data + m_size;
    const char* hit = findBytes(m_data, m_size, from, fromLen);
    if (!hit) return 0;
    int count = 0;

    if (toLen <= fromLen) {
        // Shrinking or same size: compact in place, writing never overtakes reading.
        char* w = const_cast<char*>(hit);
        const char* r = hit;
        while (hit) {
            if (w != hit) std::memmove(w, r, static_cast<size_t>(hit - r));
            w += hit - r;
            std::memcpy(w, to, toLen);
            w += toLen;
            r = hit + fromLen;
            ++count;
            hit = findBytes(r, static_cast<size_t>(end - r), from, fromLen);
        }
        const size_t tail = static_cast<size_t>(end - r);
        std::memmove(w, r, tail);
        w += tail;
        m_size = static_cast<uint32_t>(w - m_data);
        m_data[m_size] = '\0';
        return count;
    }

    // Growing: build the result in a fresh buffer, then take its storage.
    StringBuffer result(static_cast<int>(m_size + (toLen - fromLen) * 4 + 16));
    const char* r = m_data;
    bool ok = true;
    while (hit && ok) {
        ok = result.appendN(r, static_cast<int>(hit - r)) &&
             result.appendN(to, static_cast<int>(toLen));
        r = hit + fromLen;
        ++count;
        hit = findBytes(r, static_cast<size_t>(end - r), from, fromLen);
    }
    if (!ok || !result.appendN(r, static_cast<int>(end - r))) {
        fail();
        return 0;
    }
    if (result.onHeap()) {
        if (onHeap()) freeBlock(m_data, m_cap);
        m_data = result.m_data;
        m_cap = result.m_cap;
        m_size = result.m_size;
        result.m_data = result.m_inline;  // result no longer owns the block
        result.m_cap = kInlineCapacity;
        result.m_size = 0;
    } else {
        setString(result);
    }
    return count;
}

int StringBuffer::eliminateChar(char c, int n) {
    char* p = static_cast<char*>(std::memchr(m_data, static_cast<unsigned char>(c), m_size));
    if (!p) return 0;
    const char* end = m_data + m_size;
    char* w = p;
    const char* r = p;
    int removed = 0;
    while (r < end) {
        if (*r == c && (n <= 0 || removed < n)) {
            ++removed;
            ++r;
            continue;
        }
        *w++ = *r++;
    }
    m_size = static_cast<uint32_t>(w - m_data);
    m_data[m_size] = '\0';
    return removed;
}

int StringBuffer::removeCharOccurances(char c) { return eliminateChar(c, 0); }

void StringBuffer::toLowerCase() {
    for (uint32_t i = 0; i < m_size; ++i) {
        m_data[i] = static_cast<char>(foldAscii(static_cast<unsigned char>(m_data[i])));
    }
}

void StringBuffer::trim2() {
    uint32_t b = 0, e = m_size;
    while (e > 0 && isTrimSpace(m_data[e - 1])) --e;
    while (b < e && isTrimSpace(m_data[b])) ++b;
    if (b) std::memmove(m_data, m_data + b, e - b);
    m_size = e - b;
    m_data[m_size] = '\0';
}

int StringBuffer::cleanXmlTagPrefix(const char* p, int n) {
    const unsigned char* q = reinterpret_cast<const unsigned char*>(p);
    int i = 0;
    while (i < n && bytescan::isNameByte(q[i]))
        ++i;
    return i;
}

void StringBuffer::removeInvalidXmlTagChars() {
    char* const data = m_data;
    const uint32_t size = m_size;
    uint32_t i = static_cast<uint32_t>(cleanXmlTagPrefix(data, static_cast<int>(size)));
    if (i == size) return;
    char* w = data + i;
    for (++i; i < size; ++i) {
        const char c = data[i];
        if (bytescan::isNameByte(static_cast<unsigned char>(c))) *w++ = c;
    }
    m_size = static_cast<uint32_t>(w - data);
    data[m_size] = '\0';
}

void StringBuffer::split(ExtPtrArray& out, char sep, bool, bool) const {
    const char* p = m_data;
    const char* end = m_data + m_size;
    for (;;) {
        const char* q = static_cast<const char*>(
            std::memchr(p, static_cast<unsigned char>(sep), static_cast<size_t>(end - p)));
        const char* pieceEnd = q ? q : end;
        StringBuffer* piece =
            new (std::nothrow) StringBuffer(p, static_cast<int>(pieceEnd - p), 0);
        if (!piece) return;
        if (!out.append(piece)) {
            delete piece;
            return;
        }
        if (!q) return;
        p = q + 1;
    }
}
