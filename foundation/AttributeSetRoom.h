#ifndef XMLTREE_FOUNDATION_ATTRIBUTESETROOM_H
#define XMLTREE_FOUNDATION_ATTRIBUTESETROOM_H

// Internal to the library: attribute sets made with room for the pairs they
// are about to take, in the same pool block as the set. The parser knows a
// tag's attributes before it stores them; a set made this way holds them
// without a storage block of its own, which is one allocation and one free
// fewer per element with more than one short attribute, and no inline bytes
// left unused in front of a separate block.

#include <cstddef>
#include <utility>

class AttributeSet;

class AttributeSetRoom {
  public:
    // An empty set (delete it as any other) with room for `count` pairs of
    // `textBytes` bytes of names and values, terminators not counted; a plain
    // set when they fit inline or would not fit a pool block. Null when
    // memory runs out.
    static AttributeSet* create(int count, std::size_t textBytes);

  private:
    template <std::size_t Room>
    class Sized;  // a set followed in its block by Room bytes
    // The makers of Sized<8>, Sized<16>, ... as a table.
    template <std::size_t... I>
    static constexpr auto makers(std::index_sequence<I...>);
};

#endif
