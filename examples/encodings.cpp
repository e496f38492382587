// Encodings: input in ISO-8859-1 or UTF-16 becomes UTF-8 in the tree; the
// declared encoding is recorded as read.

#include <cstdio>

#include "xmltree/Tree.h"

static void report(const char* label, xmltree::Tree& doc) {
    StringBuffer encoding;
    bool found = false;
    doc->getDocEncoding(encoding, found);
    TreeNode* first = doc->getChild(0);
    std::printf("%s: encoding %s, first text %s (%d bytes)\n", label,
                found ? encoding.getString() : "(none)", first->getContent(),
                first->getContentSize());
}

int main() {
    xmltree::Tree doc;

    // A file whose declaration names ISO-8859-1: converted, name kept.
    if (!doc.parseFile("latin1.xml") || !doc) return 1;
    report("latin1.xml", doc);

    // UTF-16 with a byte-order mark. From a file, a declared 16-bit encoding
    // is recorded as utf-8, since that is what the tree holds...
    if (!doc.parseFile("utf16.xml") || !doc) return 1;
    report("utf16.xml, file", doc);

    // ...while bytes from memory keep the encoding as declared. parseData
    // converts the caller's buffer in place.
    DataBuffer bytes;
    LogNull quiet;
    if (!bytes.loadFileUtf8("utf16.xml", &quiet) || !doc.parseData(bytes) || !doc) return 1;
    report("utf16.xml, data", doc);

    // An encoding that cannot be converted: the bytes stay as they are.
    DataBuffer odd;
    const char text[] = "<?xml version='1.0' encoding='x-unknown'?><a><b>caf\xE9</b></a>";
    odd.append(text, sizeof text - 1);
    if (!doc.parseData(odd) || !doc) return 1;
    std::printf("x-unknown: last byte of the text 0x%02X\n",
                static_cast<unsigned char>(doc->getChild(0)->getContentSb()->lastChar()));
    return 0;
}
