#include "foundation/WithRoom.h"

#include <array>
#include <cstdint>
#include <new>

#include "foundation/AttributeSet.h"
#include "foundation/ByteCopy.h"
#include "foundation/ExtPtrArray.h"
#include "foundation/PoolSlabs.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"

namespace xmltree {

namespace {

constexpr std::size_t kGrain = 8;

}  // namespace

// A Base followed in its block by Bytes more bytes, which Base takes as the
// continuation of its inline storage (its last member, ending where the
// object ends). One class per size, so that deleting one through Base's
// virtual destructor frees a block of the size it was made. Only texts are
// made this way: a buffer whose text has moved to a block of its own keeps
// no note of the room it had (it has no byte to spare), so it cannot be a
// Roomy, which sets and arrays are.
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
    return withRoom<AttributeSet>((needed - inline_ + kGrain - 1) / kGrain * kGrain);
}

std::size_t& WithRoom::freeingBytes() {
    thread_local std::size_t bytes = 0;
    return bytes;
}

std::size_t WithRoom::blockBytes(const AttributeSet& set) {
    return sizeof(AttributeSet) + (set.m_inlineCap - AttributeSet::kInlineBytes);
}

std::size_t WithRoom::blockBytes(const ExtPtrArray& array) {
    return sizeof(ExtPtrArray) + static_cast<std::size_t>(array.insideCapacity() - 1) * sizeof(void*);
}

StringBuffer* WithRoom::textWithRoom(const char* s, int n) {
    const auto room = static_cast<std::size_t>(n) - StringBuffer::kInlineCapacity;
    if (room > kMaxRoom<StringBuffer>) return pool::make<StringBuffer>(s, n, 0);
    return make<StringBuffer>(room, s, n);
}

}  // namespace xmltree
