#ifndef XMLTREE_FOUNDATION_STRINGPAIR_H
#define XMLTREE_FOUNDATION_STRINGPAIR_H

#include "foundation/StringBuffer.h"

// A key and a value, both copied on construction; null reads as "".
class StringPair {
public:
    // Empty key and value.
    StringPair() {}
    StringPair(const char* key, const char* value) : m_key(key), m_value(value) {}
    virtual ~StringPair() {}

    // The key and value, never null; valid while the pair is unchanged.
    const char* getKey() const { return m_key.getString(); }
    const char* getValue() const { return m_value.getString(); }
    // Replace the key or value (copied); false when memory runs out.
    bool setKey(const char* key) { return m_key.setString(key); }
    bool setValue(const char* value) { return m_value.setString(value); }

private:
    StringBuffer m_key;
    StringBuffer m_value;
};

#endif
