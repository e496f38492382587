#include "foundation/WithRoom.h"

#include <cstdint>
#include <new>

#include "foundation/AttributeSet.h"
#include "foundation/ExtPtrArray.h"
#include "foundation/PoolSlabs.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"

namespace xmltree {

AttributeSet* WithRoom::largeSet(int count, std::size_t textBytes) {
    AttributeSet* set = new (std::nothrow) AttributeSet();
    if (set && !set->reserve(count, textBytes)) {
        delete set;
        return nullptr;
    }
    return set;
}

std::size_t& WithRoom::freeingBytes() {
    thread_local std::size_t bytes = 0;
    return bytes;
}

std::size_t WithRoom::blockBytes(const AttributeSet& set) {
    return sizeof(AttributeSet) + (set.m_inlineCap - AttributeSet::kInlineBytes);
}

std::size_t WithRoom::blockBytes(const StringBuffer& text) {
    return sizeof(StringBuffer) + std::size_t{text.m_roomGrains} * 8;
}

std::size_t WithRoom::blockBytes(const ExtPtrArray& array) {
    return sizeof(ExtPtrArray) +
           static_cast<std::size_t>(array.insideCapacity() - 1) * sizeof(void*);
}

}  // namespace xmltree
