#ifndef XMLTREE_FOUNDATION_LOGBASE_H
#define XMLTREE_FOUNDATION_LOGBASE_H

#include "foundation/ParseNote.h"

class TreeNode;

// Receiver of the messages written while parsing and converting. Subclasses
// override the two operations; any operation added later gets a default body.
class LogBase {
public:
    // The library never deletes a logger it is given.
    virtual ~LogBase() {}
    // One message, a fixed English phrase such as "Error in closing tag".
    virtual void logError(const char* message) = 0;
    // A named value that completes the message before it (the parser sends
    // "error_tag" with the tag of the element concerned).
    virtual void logNameValue(const char* name, const char* value) = 0;

    // Whether logParseNote should be called. Asked once at the start of each
    // parse, and by the input decoding when it has something to note; a
    // logger that answers false (the default) costs the parse nothing more.
    virtual bool wantsParseNotes() const { return false; }
    // One note of the parse (see ParseNote.h): the span [offset, offset +
    // length) of the parsed text, and the element concerned or null, which is
    // valid only during the call. A recovery with a message of its own is
    // noted just before that message is logged.
    virtual void logParseNote(xmltree::ParseNote /*what*/, int /*offset*/, int /*length*/,
                              const TreeNode* /*element*/) {}
};

// A logger that discards everything. Used on the stack where the caller gave
// no logger, so that the code below can always log.
class LogNull : public LogBase {
public:
    // Every operation does nothing.
    LogNull() {}
    ~LogNull() override {}
    void logError(const char*) override {}
    void logNameValue(const char*, const char*) override {}
};

#endif
