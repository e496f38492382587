// Sorting: the direction argument, text against integer keys, records, and
// ordered insertion.

#include <cstdio>

#include "xmltree/Tree.h"

// Prints the attribute `name` of every child, in order.
static void show(const char* label, TreeNode* parent, const char* name) {
    std::printf("%-28s", label);
    StringBuffer value;
    for (TreeNode* child : xmltree::children(parent)) {
        if (child->getAttributeValue(name, value)) std::printf(" %s", value.getString());
    }
    std::printf("\n");
}

int main() {
    xmltree::Tree doc;
    if (!doc.parseFile("catalog.xml") || !doc) return 1;

    // Nonzero `ascending` sorts increasing, zero decreasing...
    doc->sortByAttribute("id", 1, false);
    show("id as text, nonzero:", doc.root(), "id");
    doc->sortRecordsByContentInt("year", 1);
    show("year as integer, nonzero:", doc.root(), "id");
    doc->sortRecordsByContentInt("year", 0);
    show("year as integer, zero:", doc.root(), "id");

    // ...except in sortByAttributeInt, where nonzero puts the largest first.
    doc->sortByAttributeInt("id", 1);
    show("id as integer, nonzero:", doc.root(), "id");
    doc->sortByAttributeInt("id", 0);
    show("id as integer, zero:", doc.root(), "id");

    // Case: byte order puts capitals first unless case is ignored.
    TreeNode* tags = TreeNode::createNode(doc.root(), "tags");
    const char* names[] = {"b", "C", "a"};
    for (const char* t : names) TreeNode::createNode(tags, t)->addAttribute("t", t);
    tags->sortByTag(1, false);
    show("tags, byte order:", tags, "t");
    tags->sortByTag(1, true);
    show("tags, ignoring case:", tags, "t");

    // Ordered insertion keeps sorted children sorted.
    tags->insertAscending("b", nullptr)->addAttribute("t", "b2");
    show("after insertAscending(b):", tags, "t");
    return 0;
}
