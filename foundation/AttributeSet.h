#ifndef XMLTREE_FOUNDATION_ATTRIBUTESET_H
#define XMLTREE_FOUNDATION_ATTRIBUTESET_H

#include <cstdint>

class StringBuffer;

// The ordered attributes of one element: name/value pairs, indexed from 0 in
// the order they were added. Names compare exactly (case-sensitive); a
// duplicate name is allowed, and lookups by name find the first one.
//
// Storage is one growable text arena holding "name\0value\0" per attribute
// plus one small entry array of offsets and lengths, so a set costs two
// allocations however many attributes it has. Copying copies the pairs.
// Nothing here throws; when memory runs out a call returns false and the set
// is unchanged.
class AttributeSet {
public:
    AttributeSet();
    AttributeSet(const AttributeSet& other);
    AttributeSet& operator=(const AttributeSet& other);
    virtual ~AttributeSet();

    // Adds the pair as the last attribute; a null value is stored as "".
    // False for a null name.
    bool addAttribute(const char* name, const char* value);
    // Same with explicit lengths (the bytes need not be NUL-terminated).
    bool addAttributeN(const char* name, int nameLen, const char* value, int valueLen);
    // Removes the first attribute of that name; false when there is none.
    bool removeAttribute(const char* name);
    void clear();  // keeps the storage

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

private:
    struct Entry {
        uint32_t nameOff;  // offset of the name in the arena; value follows its NUL
        uint32_t nameLen;
        uint32_t valueLen;
    };
    const char* valuePtr(const Entry& e) const { return m_arena + e.nameOff + e.nameLen + 1; }
    bool copyFrom(const AttributeSet& other);

    char* m_arena;
    Entry* m_entries;
    uint32_t m_arenaSize;
    uint32_t m_arenaCap;
    int m_count;
    int m_entryCap;
};

#endif
