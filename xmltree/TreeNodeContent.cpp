// A node's text content, its CDATA flag, and the repair of tag names that
// may not begin an XML name.

#include "xmltree/TreeNode.h"

void TreeNode::ensureLegalTagStartChar() {
    editing();
    if (!tag || tag->getSize() == 0) return;
    if (StringBuffer::isBadXmlNameStart(tag->charAt(0))) tag->prepend("A");
}

// ---- writing ----------------------------------------------------------------

bool TreeNode::ensureContentObj() {
    editing();
    if (!content) content = StringBuffer::createNewSB();
    return content != nullptr;
}

StringBuffer* TreeNode::getOrCreateContentSb() {
    editing();
    if (!content) content = StringBuffer::createNewSB(120);
    return content;
}

void TreeNode::setContentN(const char* s, int n) {
    editing();
    if (!s) {
        if (content) content->clear();
        return;
    }
    if (content) {
        content->clear();
    } else {
        content = StringBuffer::createNewSB();
        if (!content) return;
    }
    content->appendN(s, n);
}

void TreeNode::setContentUtf8Data(const DataBuffer& data) {
    editing();
    setContentN(reinterpret_cast<const char*>(data.getData2()), static_cast<int>(data.getSize()));
}

void TreeNode::setContentUtf8(const char* s) {
    editing();
    if (!s) {
        if (content) content->clear();
        return;
    }
    if (content) {
        content->setString(s);
    } else {
        content = StringBuffer::createNewSB(s);
        if (!content) return;
    }
    content->putCP(2);
}

void TreeNode::appendContent(const char* s) {
    editing();
    if (!s || !*s) return;
    if (!content) {
        content = StringBuffer::createNewSB(s);
    } else {
        content->append(s);
    }
}

void TreeNode::appendContentN(const char* s, int n) {
    editing();
    if (!s || !*s) return;
    if (!content) {
        content = StringBuffer::createNewSB();
        if (!content) return;
    }
    content->appendN(s, n);
}

void TreeNode::appendContent(const DataBuffer& data) {
    editing();
    unsigned int n = data.getSize();
    if (n == 0) return;
    if (!content) {
        content = StringBuffer::createNewSB();
        if (content) content->expectNumBytes(static_cast<int>(n), 1001);
    }
    if (content)
        content->appendN(reinterpret_cast<const char*>(data.getData2()), static_cast<int>(n));
}

void TreeNode::appendContentChar(char c) {
    editing();
    if (!content) {
        content = StringBuffer::createNewSB();
        if (!content) return;
    }
    content->appendChar(c);
}

void TreeNode::appendContentInt(int v) {
    editing();
    if (!content) {
        content = StringBuffer::createNewSB();
        if (!content) return;
    }
    content->append(v);
}

void TreeNode::setCdata(bool b) {
    cdata = b;
}

// ---- reading ----------------------------------------------------------------

StringBuffer* TreeNode::getContentSb() {
    editing();
    return content;
}

StringBuffer* TreeNode::getContentSb_const() const {
    editing();
    return content;
}

int TreeNode::getContentSize() const {
    return content ? content->getSize() : 0;
}

bool TreeNode::hasContent() const {
    return content && content->getSize() != 0;
}

int TreeNode::getContentIntValue() const {
    return content ? content->intValue() : 0;
}

double TreeNode::getContentDblValue() const {
    return content ? content->doubleValue() : 0.0;
}

bool TreeNode::contentEquals(const char* s, bool caseSensitive) const {
    if (!content) return false;
    return caseSensitive ? content->equals(s) : content->equalsIgnoreCase(s);
}

bool TreeNode::contentMatches(const char* pattern, bool caseSensitive) const {
    if (!content) return false;
    return content->matches(pattern, caseSensitive);
}

bool TreeNode::getCdata() const {
    return cdata;
}
