#ifndef XMLTREE_STRINGCONSUMER_H
#define XMLTREE_STRINGCONSUMER_H

// Receiver of content texts handed out by TreeNode::collectTagContent.
// The text is valid only for the duration of the call.
class StringConsumer {
public:
    // Subclasses are the caller's; the library never deletes one.
    virtual ~StringConsumer() {}
    // Called once per matching element, on the caller's thread, with its
    // content ("" for none). Copy the text to keep it.
    virtual void consumeString(const char* text) = 0;
};

#endif
