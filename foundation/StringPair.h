#ifndef XMLTREE_FOUNDATION_STRINGPAIR_H
#define XMLTREE_FOUNDATION_STRINGPAIR_H

#include "foundation/StringBuffer.h"

// A key and a value, both copied on construction; null reads as "".
class StringPair {
public:
    StringPair() {}
    StringPair(const char* key, const char* value) : m_key(key), m_value(value) {}
    virtual ~StringPair() {}

    const char* getKey() const { return m_key.getString(); }
    const char* getValue() const { return m_value.getString(); }
    bool setKey(const char* key) { return m_key.setString(key); }
    bool setValue(const char* value) { return m_value.setString(value); }

private:
    StringBuffer m_key;
    StringBuffer m_value;
};

#endif
