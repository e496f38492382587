#ifndef XMLTREE_FOUNDATION_LOGBASE_H
#define XMLTREE_FOUNDATION_LOGBASE_H

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
