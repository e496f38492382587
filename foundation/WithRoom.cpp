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
    if (needed - inline_ > kMaxSetRoom) {
        AttributeSet* set = new (std::nothrow) AttributeSet();
        if (set && !set->reserve(count, textBytes)) {
            delete set;
            return nullptr;
        }
        return set;
    }
    return setWithRoom((needed - inline_ + kGrain - 1) / kGrain * kGrain);
}

namespace {
// The block size of the set being deleted on this thread, from its
// destructor to the operator delete that the same delete-expression calls
// next. Nothing between them deletes another such set.
thread_local std::size_t t_freeingSetBytes = 0;
}  // namespace

WithRoom::RoomySet::~RoomySet() {
    t_freeingSetBytes = sizeof(AttributeSet) + (m_inlineCap - kInlineBytes);
}

void WithRoom::RoomySet::operator delete(void* p) noexcept {
    SmallObjectPool::deallocate(p, t_freeingSetBytes);
}

ExtPtrArray* WithRoom::array(int capacity) {
    if (capacity <= 1) return pool::make<ExtPtrArray>();
    const std::size_t room = static_cast<std::size_t>(capacity - 1) * sizeof(void*);
    if (room > kMaxRoom<ExtPtrArray>) return pool::make<ExtPtrArray>(capacity, 0);
    return make<ExtPtrArray>(room);
}

StringBuffer* WithRoom::textWithRoom(const char* s, int n) {
    const auto room = static_cast<std::size_t>(n) - StringBuffer::kInlineCapacity;
    if (room > kMaxRoom<StringBuffer>) return pool::make<StringBuffer>(s, n, 0);
    return make<StringBuffer>(room, s, n);
}

}  // namespace xmltree
