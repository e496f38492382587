// Parsing: the entry points, what their results mean, and what the tree
// keeps of markup it has no place for.

#include <cstdio>

#include "xmltree/Tree.h"

// Prints every message the parser sends.
struct PrintLog : LogBase {
    void logError(const char* message) override { std::printf("logged: %s\n", message); }
    void logNameValue(const char* name, const char* value) override {
        std::printf("logged:   %s = '%s'\n", name, value);
    }
};

int main() {
    PrintLog log;
    xmltree::Tree doc;

    // broken.xml has two closing tags cut short and a comment that never
    // ends. The parse succeeds; each recovery goes to the logger.
    if (!doc.parseFile("broken.xml", &log)) return 1;
    std::printf("root <%s>, %d children\n", doc->getTag(), doc->getNumChildren());

    // Text without any element: true, and no root.
    bool ok = doc.parseString("no markup here");
    std::printf("no element: %s, root %s\n", ok ? "true" : "false", doc ? "set" : "null");

    // A file that cannot be read: false (a logger given gets the cause).
    ok = doc.parseFile("no-such-file.xml");
    std::printf("missing file: %s\n", ok ? "true" : "false");

    // What the tree keeps: comments go, text runs around a child join with
    // a blank, a character reference stays as text, CDATA is appended as it
    // is, and text after a CDATA section goes.
    doc.parseString("<a>x<!-- note -->y<b/>z &#233; <![CDATA[<raw>]]>tail</a>");
    std::printf("content: %s\n", doc->getContent());
    StringBuffer out;
    doc->createXML(out, 1, 0, false);
    std::fwrite(out.getString(), 1, static_cast<size_t>(out.getSize()), stdout);
    return 0;
}
