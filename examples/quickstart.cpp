// Quick start: parse a string, find elements, edit the tree, write it back.
// Build it against an installed copy with find_package(xmltree CONFIG) and
// target_link_libraries(app PRIVATE xmltree::xmltree).

#include <cstdio>

#include "xmltree/TreeNode.h"

int main() {
    // 1. Parse. The parser never rejects a document; the root comes back
    //    through the last-but-one argument and belongs to the caller.
    StringBuffer xml(
        "<shelf>"
        "<book id='7'><title>Dune</title><year>1965</year></book>"
        "<book id='3'><title>Emma</title><year>1815</year></book>"
        "</shelf>");
    TreeNode* shelf = nullptr;
    if (!TreeNode::customParseString(xml, nullptr, nullptr, &shelf, true) || !shelf) return 1;

    // 2. Find: searches go breadth-first; pass the previous match to resume.
    for (TreeNode* t = shelf->searchForTag(nullptr, "title"); t;
         t = shelf->searchForTag(t, "title")) {
        std::printf("title: %s\n", t->getContent());
    }
    TreeNode* emma = shelf->searchForAttribute(nullptr, "book", "id", "3");

    // 3. Edit: change text, add attributes and children, sort.
    if (emma) emma->getChild("title", nullptr)->setContentUtf8("Emma & Other Stories");
    TreeNode* book = TreeNode::createNode(shelf, "book");
    book->addAttribute("id", "5");
    TreeNode::createNode2(book, "title", "Solaris");
    TreeNode::createNode2(book, "year", "1961");
    shelf->sortRecordsByContentInt("year", 1);  // nonzero: increasing years
    shelf->setDocEncoding("utf-8");             // adds an XML declaration

    // 4. Write: CR LF line ends, four blanks per level, text escaped.
    StringBuffer out;
    shelf->createXML(out, 0, 0, false);
    std::fwrite(out.getString(), 1, static_cast<size_t>(out.getSize()), stdout);

    shelf->deleteTree();
    return 0;
}
