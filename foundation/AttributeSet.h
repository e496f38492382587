#ifndef XMLTREE_FOUNDATION_ATTRIBUTESET_H
#define XMLTREE_FOUNDATION_ATTRIBUTESET_H

#include <cstddef>
#include <cstdint>

#include "foundation/PooledObject.h"

class StringBuffer;
class TreeArenaCheck;
namespace xmltree {
class WithRoom;
}

// The ordered attributes of one element: name/value pairs, indexed from 0 in
// the order they were added. Names compare exactly (case-sensitive); a
// duplicate name is allowed, and lookups by name find the first one.
//
// Storage is a single block: the entry array (offsets and lengths) grows up
// from its start and the "name\0value\0" texts grow down from its end. A
// small block lives inside the object, so a set of one or two short
// attributes costs no allocation beyond the set itself; a larger one takes
// one heap block that grows geometrically (sets the parser makes hold all
// of their tag's pairs in room after the object, in the same block, until
// they outgrow it). Copying copies the pairs.
// Nothing here throws; when memory runs out a call returns false and the set
// is unchanged.
class AttributeSet {
public:
    // Heap instances come from the small-object pool.
    XMLTREE_SMALL_OBJECT_POOLED(AttributeSet)
    // An empty set.
    AttributeSet() : AttributeSet(0) {}
    // Copies the pairs. Without memory a new copy is empty and an assigned
    // one unchanged.
    AttributeSet(const AttributeSet& other);
    AttributeSet& operator=(const AttributeSet& other);
    // The owning node frees its set through this virtual destructor.
    virtual ~AttributeSet();

    // Adds the pair as the last attribute; a null value is stored as "".
    // False for a null name.
    bool addAttribute(const char* name, const char* value);
    // Same with explicit lengths (the bytes need not be NUL-terminated).
    bool addAttributeN(const char* name, int nameLen, const char* value, int valueLen);
    // Removes the first attribute of that name; false when there is none.
    bool removeAttribute(const char* name);
    void clear();  // keeps the storage

    // An attribute of that name exists.
    bool hasAttribute(const char* name) const { return indexOf(name) >= 0; }
    // The attribute of that name (the first one) has exactly this value; a
    // null value reads as "".
    bool hasAttrWithValue(const char* name, const char* value) const;
    // The attribute of that name (the first one) has a value matching the
    // wildcard pattern, case-sensitively. Null pattern: false.
    bool hasMatchingAttribute(const char* name, const char* pattern) const;

    // These replace the text of their out-buffers and return true, or return
    // false and leave the buffers unchanged.
    bool getAttributeValue(const char* name, StringBuffer& out) const;
    bool getAttributeValue(int index, StringBuffer& out) const;
    bool getAttributeName(int index, StringBuffer& out) const;
    bool getAttribute(int index, StringBuffer& name, StringBuffer& value) const;

    // Number of attributes (both names give the same).
    int getSize() const { return m_count; }
    int numAttributes() const { return m_count; }

    // Appends ` name="value"` per attribute, in order, with & < > " in the
    // value written as &amp; &lt; &gt; &quot;.
    void appendXml(StringBuffer& out) const;

    // Fast access for hot paths. Pointers stay valid until the set changes;
    // null when the index is out of range or the name is absent.
    const char* nameAt(int index) const;
    const char* valueAt(int index) const;
    const char* findValue(const char* name) const;  // value of the first such attribute
    int indexOf(const char* name) const;            // -1 when absent or name is null

    // Makes room for `count` more pairs holding `textBytes` bytes of names and
    // values (terminators not counted), so that adding them moves nothing:
    // exactly for an empty set, geometrically for one that already holds
    // pairs, so that many calls stay linear. False, with the set unchanged,
    // when memory runs out.
    bool reserve(int count, std::size_t textBytes);
    // Gives back spare room of a heap block (when memory allows).
    void shrinkToFit();

  private:
    struct Entry {
        uint32_t nameOff;  // distance from the block's end back to the name; value follows its NUL
        uint32_t nameLen;
        uint32_t valueLen;
    };
    // One short pair (id="5") fits inline; larger sets live in one block of
    // exactly their size once their tag ends. Inline room beyond that was
    // dead weight in every set that spilled: on the benchmark corpus 24
    // bytes hold 10% less heap per element than 88 did, at no parse cost.
    static constexpr uint32_t kInlineBytes = 24;

    // Block bytes that `count` pairs of `textBytes` bytes of names and values
    // take: an entry and two terminators each, and the texts.
    static uint64_t bytesFor(int count, std::size_t textBytes) {
        return static_cast<uint64_t>(count) * (sizeof(Entry) + 2) + textBytes;
    }
    Entry* entries() const { return reinterpret_cast<Entry*>(m_block); }
    const char* namePtr(const Entry& e) const { return m_block + m_blockCap - e.nameOff; }
    const char* valuePtr(const Entry& e) const { return namePtr(e) + e.nameLen + 1; }
    uint32_t usedBytes() const {
        return static_cast<uint32_t>(static_cast<std::size_t>(m_count) * sizeof(Entry) + m_arenaSize);
    }
    bool moveToBlock(uint32_t newCap);  // re-lays the pairs out in a block of newCap bytes
    bool copyFrom(const AttributeSet& other);

    // For sets made with room (foundation/WithRoom.h, internal): the object
    // is followed in its block by `room` more bytes, which continue m_inline.
    friend class xmltree::WithRoom;
    friend class ::TreeArenaCheck;  // reads where the pairs live
    explicit AttributeSet(uint32_t room)
        : m_block(m_inline),
          m_blockCap(kInlineBytes + room),
          m_arenaSize(0),
          m_count(0),
          m_inlineCap(kInlineBytes + room) {}

    char* m_block;         // m_inline or a malloc'd block of m_blockCap bytes
    uint32_t m_blockCap;
    uint32_t m_arenaSize;  // bytes of text at the block's end
    int m_count;
    uint32_t m_inlineCap;  // bytes from m_inline on that the object holds
    alignas(8) char m_inline[kInlineBytes];
};

#endif
