#ifndef XMLTREE_TOOLS_CHECKLOGGER_H
#define XMLTREE_TOOLS_CHECKLOGGER_H

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "foundation/LogBase.h"

class ParseEngine;

// Line and column of a byte offset in a text, found by counting forward from
// the offset asked for last time. The parser's cursor only moves forward, so
// one parse costs one pass over the text however many messages it logs.
// Lines count line feeds from 1; columns count UTF-8 characters from 1.
class TextPosition {
  public:
    void moveTo(const char* text, int offset);
    int line() const { return m_line; }
    int column() const { return m_charsInLine + 1; }

  private:
    void restart(const char* text);

    const char* m_text = nullptr;
    int m_offset = 0;
    int m_line = 1;
    int m_charsInLine = 0;
};

// Receives the parser's messages and prints each one with where the parser
// stood when it logged it: "NAME:LINE:COLUMN: MESSAGE (element 'TAG')".
//
// The parser names the element concerned in a call that follows its error,
// so a message is held until the next one arrives or finish() is called.
// Before attach() (while the input is loaded and decoded) messages are held
// back; the caller prints them with releaseHeld() or drops them.
class CheckLogger : public LogBase {
  public:
    CheckLogger(std::string name, FILE* out) : m_name(std::move(name)), m_out(out) {}

    void attach(const ParseEngine* engine) { m_engine = engine; }
    // Called before each line is printed (to clear a progress bar).
    void setBeforePrint(std::function<void()> hook) { m_beforePrint = std::move(hook); }
    void releaseHeld();
    void dropHeld() { m_held.clear(); }
    void finish();
    int count() const { return m_count; }

    void logError(const char* message) override;
    void logNameValue(const char* name, const char* value) override;

  private:
    struct Entry {
        std::string message;
        std::string detail;
        bool hasPosition = false;
        bool atEnd = false;
        int line = 0;
        int column = 0;
    };
    void print(const Entry& e);

    std::string m_name;
    FILE* m_out;
    std::function<void()> m_beforePrint;
    const ParseEngine* m_engine = nullptr;
    TextPosition m_position;
    Entry m_pending;
    bool m_hasPending = false;
    std::vector<std::string> m_held;
    int m_count = 0;
};

#endif
