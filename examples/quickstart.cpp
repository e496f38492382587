// Quick start: parse a string, find elements, edit the tree, write it back.
// Build it against an installed copy with find_package(xmltree CONFIG) and
// target_link_libraries(app PRIVATE xmltree::xmltree).

#include <cstdio>

#include "xmltree/Tree.h"

int main() {
    // 1. Parse. The parser never rejects a document. The handle owns the
    //    tree, keeps it whole through every edit, and frees it at the end.
    xmltree::Tree shelf;
    bool parsed = shelf.parseString(
        "<shelf>"
        "<book id='7'><title>Dune</title><year>1965</year></book>"
        "<book id='3'><title>Emma</title><year>1815</year></book>"
        "</shelf>");
    if (!parsed || !shelf) return 1;

    // 2. Find: walk the children, or search the subtree breadth-first.
    for (TreeNode* book : xmltree::children(shelf.root())) {
        std::printf("title: %s\n", book->getChild("title", nullptr)->getContent());
    }
    TreeNode* emma = shelf->searchForAttribute(nullptr, "book", "id", "3");

    // 3. Edit: change text, add attributes and children, sort.
    if (emma) emma->getChild("title", nullptr)->setContentUtf8("Emma & Other Stories");
    TreeNode* book = TreeNode::createNode(shelf.root(), "book");
    book->addAttribute("id", "5");
    TreeNode::createNode2(book, "title", "Solaris");
    TreeNode::createNode2(book, "year", "1961");
    shelf->sortRecordsByContentInt("year", 1);  // nonzero: increasing years
    shelf->setDocEncoding("utf-8");             // adds an XML declaration

    // 4. Write: CR LF line ends, four blanks per level, text escaped.
    StringBuffer out;
    shelf->createXML(out, 0, 0, false);
    std::fwrite(out.getString(), 1, static_cast<size_t>(out.getSize()), stdout);
    return 0;
}
