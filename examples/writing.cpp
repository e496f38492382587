// Writing: what createXML's index, depth and omitDeclaration arguments do.

#include <cstdio>

#include "xmltree/Tree.h"

static void print(const char* label, const StringBuffer& out) {
    std::printf("--- %s\n", label);
    std::fwrite(out.getString(), 1, static_cast<size_t>(out.getSize()), stdout);
}

int main() {
    xmltree::Tree doc;
    if (!doc.parseString("<r><a x='1'>text</a><b/></r>") || !doc) return 1;

    // A document: index 0 and depth 0. Without any prolog line, index 0
    // starts with an empty line; index 1 does not.
    StringBuffer out;
    doc->createXML(out, 0, 0, false);
    print("index 0", out);
    out.clear();
    doc->createXML(out, 1, 0, false);
    print("index 1", out);

    // With a declaration, omitDeclaration leaves it out.
    doc->setDocEncoding("utf-8");
    out.clear();
    doc->createXML(out, 0, 0, false);
    print("declaration", out);
    out.clear();
    doc->createXML(out, 1, 0, true);
    print("omitDeclaration", out);

    // A subtree on its own: index 1 and the depth to indent it at.
    out.clear();
    doc->getChild(0)->createXML(out, 1, 2, false);
    print("child at depth 2", out);

    // Content with markup characters is escaped, or written as CDATA.
    TreeNode* a = doc->getChild(0);
    a->setContentUtf8("x < y & \"z\"");
    out.clear();
    a->createXML(out, 1, 0, false);
    a->checkCdataRequired();
    a->createXML(out, 1, 0, false);
    print("escaped, then CDATA", out);
    return 0;
}
