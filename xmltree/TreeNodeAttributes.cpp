// A node's attributes. The set is made on the first write; every lookup
// answers for a node without one as for an empty set.

#include <climits>
#include <cstring>
#include <new>

#include "xmltree/TreeInternal.h"
#include "xmltree/TreeNode.h"

bool treeinternal::addCleanedAttribute(AttributeSet*& set, const char* name, size_t nameLen,
                                       const char* value, size_t valueLen) {
    if (nameLen == 0) return true;
    if (nameLen >= INT_MAX || valueLen >= INT_MAX) return false;  // more than a set can hold
    if (!set) {
        set = new (std::nothrow) AttributeSet();
        if (!set) return false;
    }
    const int n = static_cast<int>(nameLen), vn = static_cast<int>(valueLen);
    // Nearly every name arrives clean: store it without the scratch copy.
    if (!StringBuffer::isBadXmlNameStart(name[0]) &&
        StringBuffer::cleanXmlTagPrefix(name, n) == n) {
        return set->addAttributeN(name, n, value, vn);
    }
    StringBuffer cleaned(name, n, 1);
    cleaned.removeInvalidXmlTagChars();
    // Decided on the name as given: " 1a" keeps no prefix even though
    // cleaning leaves it starting with a digit.
    if (StringBuffer::isBadXmlNameStart(name[0])) cleaned.prepend("A");
    if (cleaned.hasFailed()) return false;
    return set->addAttributeN(cleaned.getString(), cleaned.getSize(), value, vn);
}

void TreeNode::addAttribute(const char* name, const char* value) {
    editing();
    if (!name || !*name) return;
    if (!value) value = "";
    treeinternal::addCleanedAttribute(attributes, name, std::strlen(name), value,
                                      std::strlen(value));
}

bool TreeNode::updateAttribute(const char* name, const char* value) {
    editing();
    if (!attributes) {
        attributes = new (std::nothrow) AttributeSet();
        if (!attributes) return false;
    }
    if (attributes->hasAttribute(name)) attributes->removeAttribute(name);
    return attributes->addAttribute(name, value);
}

bool TreeNode::removeAttribute(const char* name) {
    editing();
    return attributes ? attributes->removeAttribute(name) : false;
}

void TreeNode::removeAllAttributes() {
    editing();
    if (attributes) attributes->clear();
}

bool TreeNode::getAttributeValue(const char* name, StringBuffer& out) const {
    return attributes ? attributes->getAttributeValue(name, out) : false;
}

bool TreeNode::getAttributeValue(int index, StringBuffer& out) const {
    return attributes ? attributes->getAttributeValue(index, out) : false;
}

bool TreeNode::getAttributePair(int index, StringBuffer& name, StringBuffer& value) const {
    return attributes ? attributes->getAttribute(index, name, value) : false;
}

bool TreeNode::getAttributeName(int index, StringBuffer& out) const {
    return attributes ? attributes->getAttributeName(index, out) : false;
}

int TreeNode::getNumAttributes() const {
    return attributes ? attributes->getSize() : 0;
}

bool TreeNode::hasAttribute(const char* name) {
    return attributes ? attributes->hasAttribute(name) : false;
}

bool TreeNode::hasMatchingAttribute(const char* name, const char* pattern) {
    return attributes ? attributes->hasMatchingAttribute(name, pattern) : false;
}

bool TreeNode::hasAttributeWithValue(const char* name, const char* value) {
    return attributes ? attributes->hasAttrWithValue(name, value) : false;
}

bool TreeNode::hasAttributeWithValue(StringPair& pair) {
    return attributes ? attributes->hasAttrWithValue(pair.getKey(), pair.getValue()) : false;
}

void TreeNode::copyAttributes(TreeNode& from) {
    editing();
    if (attributes) attributes->clear();
    if (!from.attributes) return;
    int n = from.attributes->getSize();
    if (n == 0) return;
    StringBuffer name;
    StringBuffer value;
    for (int i = 0; i < n; ++i) {
        if (!from.attributes->getAttribute(i, name, value)) continue;
        name.trim2();
        if (name.getSize() != 0) addAttribute(name.getString(), value.getString());
    }
}
