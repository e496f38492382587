// Queries: child lookups, breadth-first searches, wildcard patterns, and the
// two ranges of xmltree/Tree.h.

#include <cstdio>

#include "xmltree/Tree.h"

int main() {
    xmltree::Tree doc;
    if (!doc.parseFile("catalog.xml") || !doc) return 1;

    // Lookups among direct children: exact, case-sensitive tags.
    std::printf("books: %d\n", doc->numChildrenHavingTag("book"));
    TreeNode* second = doc->getNthChildWithTag(1, "book");
    std::printf("second book: %s\n", second->getChild("title", nullptr)->getContent());

    // Values given to getChildWithAttr and searchForAttribute are wildcard
    // patterns ('*' any run, '?' one byte); getChild's pair is exact.
    StringPair german("lang", "de");
    TreeNode* de = doc->getChild("book", &german);
    TreeNode* e = doc->getChildWithAttr("book", "lang", "e?");
    StringBuffer id;
    if (de && de->getAttributeValue("id", id)) std::printf("lang de: id %s\n", id.getString());
    if (e && e->getAttributeValue("id", id)) std::printf("lang e?: id %s\n", id.getString());

    // Resumable search: pass the previous match to get the next one.
    for (TreeNode* t = doc->searchForMatchingNode(nullptr, "title", "*an*"); t;
         t = doc->searchForMatchingNode(t, "title", "*an*")) {
        std::printf("title matching *an*: %s\n", t->getContent());
    }

    // One pass over the subtree, level by level, with the depth of each node.
    xmltree::BreadthFirst walk(doc.root());
    int deepest = 0, elements = 0;
    for (TreeNode* node : walk) {
        ++elements;
        if (walk.depth() > deepest) deepest = walk.depth();
        if (node->hasAttributeWithValue("lang", "fr")) walk.skipChildren();
    }
    std::printf("elements, French book not entered: %d, depth %d\n", elements, deepest);

    // Text of all elements with one tag, blank-separated, breadth-first.
    StringBuffer years;
    doc->accumulateTagContent("year", years, nullptr);
    std::printf("years: %s\n", years.getString());
    return 0;
}
