#ifndef XMLTREE_FOUNDATION_WITHROOM_H
#define XMLTREE_FOUNDATION_WITHROOM_H

// Internal to the library: pooled objects made together with room for what
// they are about to hold, in the same pool block. The parser knows a text
// run or a tag's attributes before it stores them, and guesses a parent's
// number of children from its previous sibling's; an object made this way
// holds them without a block of its own, which is one allocation and one
// free fewer, and no inline bytes left unused in front of a separate block.
// The objects are deleted as any other; once they outgrow the room they move
// to a block of their own like any other.

#include <cstddef>
#include <cstdint>

#include "foundation/AttributeSet.h"
#include "foundation/ByteCopy.h"
#include "foundation/ExtPtrArray.h"
#include "foundation/PoolSlabs.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"

namespace xmltree {

class WithRoom {
  public:
    // An empty set with room for `count` pairs of `textBytes` bytes of names
    // and values, terminators not counted; a plain set when they fit inline
    // or would not fit a pool block (then reserved for exactly them). Null
    // when memory runs out.
    static AttributeSet* attributeSet(int count, std::size_t textBytes);
    // A name and its value as byte runs (not NUL-terminated), lengths >= 0.
    struct Pair {
        const char* name;
        int nameLen;
        const char* value;
        int valueLen;
    };
    // A set holding the n pairs (n >= 1) in order, made as attributeSet(n,
    // textBytes) makes it and filled without a call per pair; textBytes must
    // be the sum of the pairs' name and value lengths, which the parser adds
    // up as it reads them. Null when memory runs out. Inline with text(): the
    // parser makes one of each for most elements.
    static AttributeSet* attributeSetOf(const Pair* pairs, int n, std::size_t textBytes);
    // A buffer holding the n bytes at s (n >= 0), as StringBuffer(s, n, 0)
    // does; null when memory runs out (never a buffer marked failed).
    static StringBuffer* text(const char* s, int n);
    // An empty array with room for `capacity` elements, in one block with
    // the array when they fit a pool block (else as ExtPtrArray(capacity, 0)
    // makes them); null when memory runs out.
    static ExtPtrArray* array(int capacity);

  private:
    template <class Base>
    class Roomy;
    // The most room that keeps a Base and its room in one pool block.
    template <class Base>
    static constexpr std::size_t kMaxRoom = (SmallObjectPool::kMaxBlock - sizeof(Base)) / 8 * 8;
    // Room for `bytes` more bytes: pool blocks come in multiples of 8.
    static constexpr std::size_t roomFor(std::size_t bytes) { return (bytes + 7) / 8 * 8; }
    // attributeSet() for pairs that take `needed` bytes of the set's storage.
    static AttributeSet* setFor(std::size_t needed, int count, std::size_t textBytes);
    // attributeSet() for pairs that would not fit a pool block with the set.
    static AttributeSet* largeSet(int count, std::size_t textBytes);
    // A Roomy<Base> with `room` bytes (a multiple of 8, at most
    // kMaxRoom<Base>), made from args; null when memory runs out.
    template <class Base, class... Args>
    static Base* withRoom(std::size_t room, Args... args);
    // The bytes of the pool block that an object made with room lies in.
    static std::size_t blockBytes(const AttributeSet& set);
    static std::size_t blockBytes(const ExtPtrArray& array);
    static std::size_t blockBytes(const StringBuffer& text);
    // This thread's note of the block size for Roomy's operator delete.
    static std::size_t& freeingBytes();
};

// An object followed in its pool block by room that continues its inline
// storage. One class per base whatever the room, so that the parser makes
// it with a plain allocation instead of a choice among types. A delete is
// told only the class's size, so the destructor notes the block's size,
// which the object knows, for the operator delete that the same delete
// calls next; nothing run in between deletes another such object.
template <class Base>
class WithRoom::Roomy final : public Base {
  public:
    template <class... Args>
    explicit Roomy(std::uint32_t room, Args... args) : Base(room, args...) {}
    ~Roomy() override { freeingBytes() = blockBytes(*this); }
    static void operator delete(void* p) noexcept {
        SmallObjectPool::deallocate(p, freeingBytes());
    }
    static void* operator new(std::size_t, void* where) noexcept { return where; }
};

template <class Base, class... Args>
XMLTREE_ALWAYS_INLINE Base* WithRoom::withRoom(std::size_t room, Args... args) {
    void* p = pool::allocateFast(sizeof(Base) + room);
    return p ? new (p) Roomy<Base>(static_cast<std::uint32_t>(room), args...) : nullptr;
}

inline AttributeSet* WithRoom::attributeSet(int count, std::size_t textBytes) {
    return setFor(count > 0 ? AttributeSet::bytesFor(count, textBytes) : 0, count, textBytes);
}

inline AttributeSet* WithRoom::setFor(std::size_t needed, int count, std::size_t textBytes) {
    if (needed <= AttributeSet::kInlineBytes) return pool::make<AttributeSet>();
    const std::size_t room = roomFor(needed - AttributeSet::kInlineBytes);
    if (room > kMaxRoom<AttributeSet>) return largeSet(count, textBytes);
    return withRoom<AttributeSet>(room);
}

inline AttributeSet* WithRoom::attributeSetOf(const Pair* pairs, int n, std::size_t textBytes) {
    const std::size_t needed = AttributeSet::bytesFor(n, textBytes);
    AttributeSet* set = setFor(needed, n, textBytes);
    if (!set) return nullptr;
    // The pairs are written without a check each, so the room is checked
    // here once rather than trusted.
    if (__builtin_expect(set->m_blockCap < needed, 0) && !set->reserve(n, textBytes)) {
        delete set;
        return nullptr;
    }
    // Entries grow up from the block's start and texts down from its end,
    // as addAttributeN lays them out.
    AttributeSet::Entry* e = set->entries();
    char* const end = set->m_block + set->m_blockCap;
    std::uint32_t arena = 0;
    for (int i = 0; i < n; ++i) {
        const Pair& a = pairs[i];
        const auto nl = static_cast<std::uint32_t>(a.nameLen);
        const auto vl = static_cast<std::uint32_t>(a.valueLen);
        arena += nl + vl + 2;
        e[i] = AttributeSet::Entry{arena, nl, vl};
        char* w = end - arena;
        bytecopy::copyRun(w, a.name, nl);
        w[nl] = '\0';
        bytecopy::copyRun(w + nl + 1, a.value, vl);
        w[nl + 1 + vl] = '\0';
    }
    set->m_arenaSize = arena;
    set->m_count = n;
    return set;
}

inline ExtPtrArray* WithRoom::array(int capacity) {
    if (capacity <= 1) return pool::make<ExtPtrArray>();
    const std::size_t room = static_cast<std::size_t>(capacity - 1) * sizeof(void*);
    if (room > kMaxRoom<ExtPtrArray>) return pool::make<ExtPtrArray>(capacity, 0);
    return withRoom<ExtPtrArray>(room);
}

inline StringBuffer* WithRoom::text(const char* s, int n) {
    if (n <= StringBuffer::kInlineCapacity) return pool::make<StringBuffer>(s, n, 0);
    const std::size_t room = roomFor(static_cast<std::size_t>(n) - StringBuffer::kInlineCapacity);
    if (room > kMaxRoom<StringBuffer>) return pool::make<StringBuffer>(s, n, 0);
    return withRoom<StringBuffer>(room, s, n);
}

}  // namespace xmltree

#endif
