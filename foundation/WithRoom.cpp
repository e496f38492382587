#include "foundation/WithRoom.h"

#include <array>
#include <cstdint>
#include <new>

#include "foundation/AttributeSet.h"
#include "foundation/ByteCopy.h"
#include "foundation/PoolSlabs.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"

namespace xmltree {

namespace {

constexpr std::size_t kGrain = 8;
// The most room that keeps a Base and its room in one pool block.
template <class Base>
constexpr std::size_t kMaxRoom = (SmallObjectPool::kMaxBlock - sizeof(Base)) / kGrain * kGrain;

}  // namespace

// A Base followed in its block by Bytes more bytes, which Base takes as the
// continuation of its inline storage (its last member, ending where the
// object ends). One class per size, so that deleting one through Base's
// virtual destructor frees a block of the size it was made.
template <class Base, std::size_t Bytes>
class WithRoom::Sized final : public Base {
  public:
    template <class... Args>
    explicit Sized(Args... args) : Base(static_cast<std::uint32_t>(Bytes), args...) {}
    char room[Bytes];  // read and written through Base's inline storage
};

// The makers of Sized<Base, 8>, Sized<Base, 16>, ... as a table.
template <class Base, class... Args, std::size_t... I>
constexpr auto WithRoom::makers(std::index_sequence<I...>) {
    static_assert(((sizeof(Sized<Base, (I + 1) * kGrain>) == sizeof(Base) + (I + 1) * kGrain) &&
                   ...),
                  "the room must follow the object");
    return std::array<Base* (*)(Args...), sizeof...(I)>{{[](Args... args) -> Base* {
        return pool::make<Sized<Base, (I + 1) * kGrain>>(args...);
    }...}};
}

// A Base with at least `bytes` (1 to kMaxRoom<Base>) of room.
template <class Base, class... Args>
Base* WithRoom::make(std::size_t bytes, Args... args) {
    static constexpr auto kMakers =
        makers<Base, Args...>(std::make_index_sequence<kMaxRoom<Base> / kGrain>());
    return kMakers[(bytes + kGrain - 1) / kGrain - 1](args...);
}

AttributeSet* WithRoom::attributeSet(int count, std::size_t textBytes) {
    const std::size_t inline_ = AttributeSet::kInlineBytes;
    const std::size_t needed = count > 0 ? AttributeSet::bytesFor(count, textBytes) : 0;
    if (needed <= inline_) return pool::make<AttributeSet>();
    if (needed - inline_ > kMaxRoom<AttributeSet>) {
        AttributeSet* set = new (std::nothrow) AttributeSet();
        if (set && !set->reserve(count, textBytes)) {
            delete set;
            return nullptr;
        }
        return set;
    }
    return make<AttributeSet>(needed - inline_);
}

std::size_t WithRoom::pairBytes(const Pair* pairs, int n) {
    std::size_t bytes = 0;
    for (int i = 0; i < n; ++i)
        bytes += static_cast<std::size_t>(pairs[i].nameLen) +
                 static_cast<std::size_t>(pairs[i].valueLen);
    return bytes;
}

AttributeSet* WithRoom::attributeSetOf(const Pair* pairs, int n) {
    const std::size_t textBytes = pairBytes(pairs, n);
    // Most tags' pairs fit the set's own bytes: that set is made here, the
    // rest as attributeSet makes them.
    AttributeSet* set =
        AttributeSet::bytesFor(n, textBytes) <= AttributeSet::kInlineBytes
            ? pool::make<AttributeSet>()
            : attributeSet(n, textBytes);
    if (!set) return nullptr;
    // The pairs are written without a check each, so the room is checked
    // here once rather than trusted.
    if (__builtin_expect(set->m_blockCap < AttributeSet::bytesFor(n, textBytes), 0) &&
        !set->reserve(n, textBytes)) {
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

StringBuffer* WithRoom::text(const char* s, int n) {
    const std::size_t inline_ = StringBuffer::kInlineCapacity;
    const std::size_t len = n > 0 ? static_cast<std::size_t>(n) : 0;
    if (len <= inline_ || len - inline_ > kMaxRoom<StringBuffer>) {
        return pool::make<StringBuffer>(s, n, 0);
    }
    return make<StringBuffer>(len - inline_, s, n);
}

}  // namespace xmltree
