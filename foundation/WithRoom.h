#ifndef XMLTREE_FOUNDATION_WITHROOM_H
#define XMLTREE_FOUNDATION_WITHROOM_H

// Internal to the library: pooled objects made together with room for what
// they are about to hold, in the same pool block. The parser knows a text
// run or a tag's attributes before it stores them; an object made this way
// holds them without a block of its own, which is one allocation and one
// free fewer, and no inline bytes left unused in front of a separate block.
// The objects are deleted as any other; once they outgrow the room they move
// to a block of their own like any other.

#include <cstddef>
#include <utility>

class AttributeSet;
class StringBuffer;

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
    // their bytes) makes it and filled without a call per pair. Null when
    // memory runs out.
    static AttributeSet* attributeSetOf(const Pair* pairs, int n);
    // Bytes of the n pairs' names and values, terminators not counted.
    static std::size_t pairBytes(const Pair* pairs, int n);
    // A buffer holding the n bytes at s (n >= 0), as StringBuffer(s, n, 0)
    // does; null when memory runs out (never a buffer marked failed).
    static StringBuffer* text(const char* s, int n);

  private:
    template <class Base, std::size_t Bytes>
    class Sized;
    template <class Base, class... Args>
    static Base* make(std::size_t bytes, Args... args);
    template <class Base, class... Args, std::size_t... I>
    static constexpr auto makers(std::index_sequence<I...>);
};

}  // namespace xmltree

#endif
