// Queries: lookups among a node's direct children, and resumable
// breadth-first searches through a subtree.

#include <cstring>

#include "foundation/AttributeSet.h"
#include "foundation/ExtPtrArray.h"
#include "foundation/StringBuffer.h"
#include "foundation/StringFunctions.h"
#include "foundation/StringPair.h"
#include "xmltree/TreeNode.h"
#include "xmltree/TreeWalk.h"

class TreeQueries {
  public:
    // Most tags differ in their first byte, so that test settles most
    // mismatches without a call.
    static bool sameText(const char* a, const char* b) {
        return a[0] == b[0] && std::strcmp(a, b) == 0;
    }
    static bool hasTag(const TreeNode* n, const char* tag) { return sameText(n->getTag(), tag); }
    static bool hasContent(const TreeNode* n, const char* content) {
        const char* text = n->getContent();
        return text && std::strcmp(text, content) == 0;
    }
    static const AttributeSet* attributes(const TreeNode* n) { return n->attributes; }

    // The n-th child (0-based) that passes `test`, or null. Empty slots are
    // passed over.
    template <class Test>
    static TreeNode* nthChild(const TreeNode* parent, int n, Test test) {
        const ExtPtrArray* kids = parent->children;
        if (!kids || n < 0) return nullptr;
        void** slots = kids->getItems();
        int count = kids->getSize();
        int seen = 0;
        for (int i = 0; i < count; ++i) {
            TreeNode* kid = static_cast<TreeNode*>(slots[i]);
            if (!kid || !test(kid)) continue;
            if (seen == n) return kid;
            ++seen;
        }
        return nullptr;
    }

    template <class Test>
    static TreeNode* firstChild(const TreeNode* parent, Test test) {
        return nthChild(parent, 0, test);
    }

    // The search walk with resumption: nothing is tested up to and including
    // `after`; a null `after` tests from the start node on.
    template <class Test>
    static TreeNode* search(TreeNode* start, TreeNode* after, Test test) {
        bool testing = after == nullptr;
        TreeNode* found = nullptr;
        walkBreadthFirst(start, [&](TreeNode* n) {
            if (testing) {
                if (test(n)) {
                    found = n;
                    return WalkStep::kStop;
                }
            } else if (n == after) {
                testing = true;
            }
            return WalkStep::kDescend;
        });
        return found;
    }
};

// ---- child lookups ----------------------------------------------------------

bool TreeNode::hasChildWithTag(const char* tagName) {
    if (!tagName) return false;
    return TreeQueries::firstChild(this,
                                   [&](TreeNode* k) { return TreeQueries::hasTag(k, tagName); });
}

bool TreeNode::hasChildWithContent(const char* contentValue) {
    if (!contentValue) return false;
    return TreeQueries::firstChild(
        this, [&](TreeNode* k) { return TreeQueries::hasContent(k, contentValue); });
}

bool TreeNode::hasChildWithTagAndContent(const char* tagName, const char* contentValue) {
    if (!tagName || !contentValue) return false;
    return TreeQueries::firstChild(this, [&](TreeNode* k) {
        return TreeQueries::hasTag(k, tagName) && TreeQueries::hasContent(k, contentValue);
    });
}

int TreeNode::numChildrenHavingTag(const char* tagName) {
    if (!tagName || !children) return 0;
    void** slots = children->getItems();
    int count = children->getSize();
    int found = 0;
    for (int i = 0; i < count; ++i) {
        TreeNode* kid = static_cast<TreeNode*>(slots[i]);
        if (kid && TreeQueries::hasTag(kid, tagName)) ++found;
    }
    return found;
}

TreeNode* TreeNode::getNthChildWithTag(int n, const char* tagName) {
    if (!tagName) return nullptr;
    return TreeQueries::nthChild(this, n,
                                 [&](TreeNode* k) { return TreeQueries::hasTag(k, tagName); });
}

TreeNode* TreeNode::getNthChildWithContent(int n, const char* contentValue) {
    if (!contentValue) return nullptr;
    return TreeQueries::nthChild(
        this, n, [&](TreeNode* k) { return TreeQueries::hasContent(k, contentValue); });
}

TreeNode* TreeNode::getNthChildExact(int n, const char* tagName, const char* contentValue) {
    if (!tagName) return nullptr;
    const char* wanted = contentValue ? contentValue : "";
    return TreeQueries::nthChild(this, n, [&](TreeNode* k) {
        return TreeQueries::hasTag(k, tagName) && TreeQueries::hasContent(k, wanted);
    });
}

TreeNode* TreeNode::getChild(const char* tagName, StringPair* pair) {
    if (!tagName) return nullptr;
    return TreeQueries::firstChild(this, [&](TreeNode* k) {
        if (!TreeQueries::hasTag(k, tagName)) return false;
        if (!pair) return true;
        const AttributeSet* attrs = TreeQueries::attributes(k);
        return attrs && attrs->hasAttrWithValue(pair->getKey(), pair->getValue());
    });
}

TreeNode* TreeNode::getChildWithAttr(const char* tagName, const char* name, const char* value) {
    if (!tagName) return nullptr;
    return TreeQueries::firstChild(this, [&](TreeNode* k) {
        const AttributeSet* attrs = TreeQueries::attributes(k);
        return TreeQueries::hasTag(k, tagName) && attrs && attrs->hasMatchingAttribute(name, value);
    });
}

// Only a record's first field of the tag is its key: a later child with the
// same tag is data, not the key.
TreeNode* TreeNode::nextMatchingRecord(const char* tagName, const char* pattern) {
    if (!tagName) return nullptr;
    for (TreeNode* record = this; record; record = record->nextSibling) {
        TreeNode* field = record->getChild(tagName, nullptr);
        if (field && wildcardMatch(field->getContent(), pattern, true)) return record;
    }
    return nullptr;
}

// ---- subtree searches --------------------------------------------------------

TreeNode* TreeNode::searchForTag(TreeNode* after, const char* tagName) {
    if (!tagName) return nullptr;
    return TreeQueries::search(this, after,
                               [&](TreeNode* n) { return TreeQueries::hasTag(n, tagName); });
}

TreeNode* TreeNode::searchForMatchingNode(TreeNode* after, const char* tagName,
                                          const char* pattern) {
    if (!tagName) return nullptr;
    return TreeQueries::search(this, after, [&](TreeNode* n) {
        return TreeQueries::hasTag(n, tagName) &&
               wildcardMatch(n->getContent(), pattern, true);
    });
}

TreeNode* TreeNode::searchAllForMatchingNode(TreeNode* after, const char* pattern) {
    return TreeQueries::search(this, after, [&](TreeNode* n) {
        return wildcardMatch(n->getContent(), pattern, true);
    });
}

TreeNode* TreeNode::searchForAttribute(TreeNode* after, const char* tagName, const char* name,
                                       const char* value) {
    if (!tagName) return nullptr;
    return TreeQueries::search(this, after, [&](TreeNode* n) {
        const AttributeSet* attrs = TreeQueries::attributes(n);
        return TreeQueries::hasTag(n, tagName) && attrs && attrs->hasMatchingAttribute(name, value);
    });
}

TreeNode* TreeNode::searchExactAttrAndContent(TreeNode* after, const char* tagName,
                                              const char* name, const char* value,
                                              const char* contentValue) {
    if (!tagName) return nullptr;
    return TreeQueries::search(this, after, [&](TreeNode* n) {
        const AttributeSet* attrs = TreeQueries::attributes(n);
        return TreeQueries::hasTag(n, tagName) && attrs && attrs->hasAttrWithValue(name, value) &&
               n->contentEquals(contentValue, true);
    });
}
