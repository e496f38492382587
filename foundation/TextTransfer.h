#ifndef XMLTREE_FOUNDATION_TEXTTRANSFER_H
#define XMLTREE_FOUNDATION_TEXTTRANSFER_H

// Internal to the library: hands the block of a byte buffer to a string
// buffer without copying, so that a document loaded or decoded into a
// DataBuffer is parsed where it lies, and hands it back after a parse of a
// caller's buffer. A friend of both classes.

class DataBuffer;
class ParseEngine;
class StringBuffer;

class TextTransfer {
  public:
    // Moves from's bytes into `to`, which must be empty, when from's block
    // has room for the terminating NUL and is large enough to be a heap text
    // block; from is then empty. False, with nothing moved, otherwise.
    static bool move(DataBuffer& from, StringBuffer& to);
    // Gives a fresh engine from's bytes as its text, moved when possible and
    // copied otherwise, refused (isTooLarge) past what the cursor can index.
    // True when moved: from is then empty until giveBack().
    static bool load(DataBuffer& from, ParseEngine& engine);
    // Returns the block load() moved into the engine to `to` (emptied by
    // that load), bytes and capacity as they were; the engine is left empty.
    // Allocates nothing, so it cannot fail.
    static void giveBack(ParseEngine& engine, DataBuffer& to);

  private:
    // Grows a full block by the byte the NUL needs; false when it cannot.
    static bool makeRoomForNul(DataBuffer& buffer);
};

#endif
