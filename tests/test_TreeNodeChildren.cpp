#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tests/TreeCheck.h"
#include "xmltree/TreeNode.h"

namespace {

// A root with children named by the letters of `names`.
TreeNode* makeTree(const char* names) {
    TreeNode* root = TreeNode::createRoot("root");
    for (const char* p = names; *p; ++p) {
        char tag[2] = {*p, 0};
        TreeNode::createNode2(root, tag, tag);
    }
    return root;
}

TEST(TreeNodeChildren, CreateNodeVariants) {
    TreeNode* root = TreeNode::createNode(nullptr, "r");
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getRoot(), root);
    EXPECT_EQ(root->getTreeRefCount(), 0);

    TreeNode* a = TreeNode::createNode(root, "a");
    TreeNode* b = TreeNode::createNode2(root, "b", "");
    DataBuffer empty;
    TreeNode* c = TreeNode::createNode3(root, "c", empty, nullptr);
    DataBuffer bytes;
    bytes.append("bytes", 5);
    TreeNode* d = TreeNode::createNode3(root, "d", bytes, nullptr);
    EXPECT_EQ(childTags(root), "a,b,c,d");
    EXPECT_EQ(a->getContentSb(), nullptr);
    EXPECT_EQ(b->getContentSb(), nullptr);
    EXPECT_STREQ(b->getContent(), "");
    EXPECT_EQ(c->getContentSb(), nullptr);
    EXPECT_STREQ(d->getContent(), "bytes");
    EXPECT_EQ(d->getRoot(), root);
    EXPECT_EQ(d->getTreeId(), root->getTreeId());
    EXPECT_TRUE(treeIsConsistent(root));

    // Null parent: each makes a root exactly like the matching createRoot.
    TreeNode* r2 = TreeNode::createNode2(nullptr, "r2", "text");
    TreeNode* r3 = TreeNode::createNode3(nullptr, "r3", bytes, nullptr);
    EXPECT_EQ(r2->getRoot(), r2);
    EXPECT_STREQ(r2->getContent(), "text");
    EXPECT_STREQ(r3->getContent(), "bytes");
    EXPECT_NE(r2->getTreeId(), r3->getTreeId());
    r2->deleteTree();
    r3->deleteTree();

    // A parent outside any tree takes nothing, and nothing is left behind.
    TreeNode loose;
    EXPECT_EQ(TreeNode::createNode(&loose, "x"), nullptr);
    EXPECT_EQ(TreeNode::createNode2(&loose, "x", "y"), nullptr);
    EXPECT_EQ(TreeNode::createNode3(&loose, "x", bytes, nullptr), nullptr);
    EXPECT_EQ(loose.getNumChildren(), 0);
    root->deleteTree();
}

TEST(TreeNodeChildren, AppendGuards) {
    TreeNode* root = makeTree("ab");
    TreeNode* a = root->getChild(0);
    EXPECT_FALSE(root->appendChild2(nullptr, 0));
    EXPECT_FALSE(root->appendChild2(a, 0));               // already here
    EXPECT_FALSE(a->appendChild2(root, 0));               // own ancestor
    EXPECT_FALSE(root->getChild(1)->appendChild2(a, 0));  // has another parent
    EXPECT_EQ(childTags(root), "a,b");
    EXPECT_EQ(a->getNumChildren(), 0);
    EXPECT_TRUE(treeIsConsistent(root));

    TreeNode* other = makeTree("x");
    EXPECT_FALSE(root->appendChild2(other->getChild(0), 0));
    other->deleteTree();
    root->deleteTree();

    TreeNode looseParent;
    TreeNode* looseChild = new TreeNode("c", nullptr, 0);
    EXPECT_FALSE(looseParent.appendChild2(looseChild, 0));  // neither is in a tree
    delete looseChild;
}

TEST(TreeNodeChildren, AttachingAnotherRootMovesItsReferences) {
    TreeNode* root = makeTree("ab");
    root->incTreeRefCount();
    TreeNode* other = makeTree("xy");
    other->getChild(0)->incTreeRefCount();
    other->getChild(1)->incTreeRefCount();
    TreeInfo* oldInfo = other->getTreeInfo();
    // Prolog data of the attached tree goes with its record.
    oldInfo->xmlDecl = new TreeNode("xml", nullptr, 0);
    oldInfo->docType = StringBuffer::createNewSB("<!DOCTYPE x>");

    ASSERT_TRUE(root->getChild(1)->appendChild2(other, 0));
    EXPECT_EQ(root->getTreeRefCount(), 3);
    EXPECT_EQ(other->getTreeInfo(), root->getTreeInfo());
    EXPECT_EQ(other->getChild(1)->getTreeId(), root->getTreeId());
    EXPECT_EQ(other->getRoot(), root);
    EXPECT_EQ(other->getParent(), root->getChild(1));
    EXPECT_TRUE(treeIsConsistent(root));

    other->getChild(0)->decTreeRefCount();
    other->getChild(1)->decTreeRefCount();
    root->decTreeRefCount();
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

TEST(TreeNodeChildren, FirstArrayCapacityFollowsPreviousSibling) {
    TreeNode* root = makeTree("ab");
    TreeNode* a = root->getChild(0);
    TreeNode* b = root->getChild(1);
    TreeNode::createNode(a, "first");
    EXPECT_EQ(a->getChildrenArray()->getCapacity(), 5);
    for (int i = 0; i < 7; ++i)
        TreeNode::createNode(a, "more");
    TreeNode::createNode(b, "x");
    EXPECT_EQ(b->getChildrenArray()->getCapacity(), 8);

    TreeNode* c = TreeNode::createNode(root, "c");  // previous sibling b has 1 child
    TreeNode::createNode(c, "x");
    EXPECT_EQ(c->getChildrenArray()->getCapacity(), 1);
    TreeNode* d = TreeNode::createNode(root, "d");
    TreeNode* e = TreeNode::createNode(root, "e");
    TreeNode::createNode(e, "x");  // previous sibling d has none
    EXPECT_EQ(e->getChildrenArray()->getCapacity(), 5);
    EXPECT_EQ(d->getChildrenArray(), nullptr);

    TreeNode* n = new TreeNode("n", nullptr, 0);
    ASSERT_TRUE(d->insertChild(0, n));
    EXPECT_EQ(d->getChildrenArray()->getCapacity(), 5);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

TEST(TreeNodeChildren, InsertChildLinksNeighbours) {
    TreeNode* root = makeTree("ab");
    TreeNode* a = root->getChild(0);
    TreeNode* b = root->getChild(1);
    TreeNode* n = new TreeNode("n", nullptr, 0);
    ASSERT_TRUE(root->insertChild(0, n));
    EXPECT_EQ(childTags(root), "n,a,b");
    EXPECT_EQ(n->getPrevSibling(), nullptr);
    EXPECT_EQ(n->getNextSibling(), a);
    EXPECT_EQ(a->getPrevSibling(), n);
    EXPECT_EQ(n->getTreeInfo(), root->getTreeInfo());

    TreeNode* last = new TreeNode("z", nullptr, 0);
    ASSERT_TRUE(root->insertChild(3, last));
    EXPECT_EQ(childTags(root), "n,a,b,z");
    EXPECT_EQ(b->getNextSibling(), last);
    EXPECT_EQ(last->getPrevSibling(), b);
    EXPECT_EQ(last->getNextSibling(), nullptr);

    TreeNode* mid = new TreeNode("m", nullptr, 0);
    ASSERT_TRUE(root->insertChild(2, mid));
    EXPECT_EQ(childTags(root), "n,a,m,b,z");
    EXPECT_TRUE(treeIsConsistent(root));

    // Refusals change nothing.
    TreeNode* spare = TreeNode::createRoot("spare");
    spare->incTreeRefCount();
    EXPECT_FALSE(root->insertChild(-1, spare));
    EXPECT_FALSE(root->insertChild(6, spare));
    EXPECT_FALSE(root->insertChild(0, nullptr));
    EXPECT_FALSE(root->insertChild(0, a));  // has a parent, even this one
    EXPECT_FALSE(a->insertChild(0, root));  // same tree
    EXPECT_EQ(childTags(root), "n,a,m,b,z");
    EXPECT_EQ(spare->getRoot(), spare);
    EXPECT_EQ(spare->getTreeRefCount(), 1);

    // Another tree's root with a reference: the count comes along.
    ASSERT_TRUE(root->insertChild(1, spare));
    EXPECT_EQ(root->getTreeRefCount(), 1);
    EXPECT_EQ(childTags(root), "n,spare,a,m,b,z");
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

TEST(TreeNodeChildren, RemoveFromTreeMakesNewTree) {
    TreeNode* root = makeTree("abc");
    root->incTreeRefCount();
    TreeNode* a = root->getChild(0);
    TreeNode* b = root->getChild(1);
    TreeNode* c = root->getChild(2);
    TreeNode* inner = TreeNode::createNode(b, "inner");
    inner->incTreeRefCount();
    int oldId = root->getTreeId();

    b->removeFromTree();
    EXPECT_EQ(a->getNextSibling(), c);
    EXPECT_EQ(c->getPrevSibling(), a);
    EXPECT_EQ(b->getParent(), nullptr);
    EXPECT_EQ(b->getPrevSibling(), nullptr);
    EXPECT_EQ(b->getNextSibling(), nullptr);
    EXPECT_EQ(b->getRoot(), b);
    EXPECT_GT(b->getTreeId(), oldId);
    EXPECT_EQ(inner->getTreeId(), b->getTreeId());
    EXPECT_EQ(b->getTreeRefCount(), 1);
    EXPECT_EQ(root->getTreeRefCount(), 1);
    EXPECT_EQ(b->getTreeInfo()->xmlDecl, nullptr);
    EXPECT_TRUE(treeIsConsistent(root));
    EXPECT_TRUE(treeIsConsistent(b));

    b->removeFromTree();  // a root: nothing happens
    EXPECT_EQ(b->getRoot(), b);
    inner->decTreeRefCount();
    b->deleteTree();
    root->deleteTree();
}

TEST(TreeNodeChildren, RemoveFromTreeEndsUnreferencedOldTree) {
    TreeNode* root = makeTree("abc");
    TreeNode* b = root->getChild(1);
    b->incTreeRefCount();
    b->removeFromTree();  // the rest of the old tree had no reference: gone
    EXPECT_EQ(b->getTreeRefCount(), 1);
    EXPECT_TRUE(treeIsConsistent(b));
    b->decTreeRefCount();
    b->deleteTree();
}

TEST(TreeNodeChildren, RemoveChildByIndexHonoursReferences) {
    // Reference on the parent: the child is deleted, the tree lives on.
    TreeNode* root = makeTree("ab");
    root->incTreeRefCount();
    root->removeChildByIndex(0);
    EXPECT_EQ(childTags(root), "b");
    EXPECT_EQ(root->getTreeRefCount(), 1);
    EXPECT_TRUE(treeIsConsistent(root));
    root->removeChildByIndex(5);
    root->removeChildByIndex(-1);
    EXPECT_EQ(childTags(root), "b");
    root->deleteTree();

    // Reference on the child: it survives as its own tree, the old tree ends.
    root = makeTree("ab");
    TreeNode* a = root->getChild(0);
    a->incTreeRefCount();
    root->removeChildByIndex(0);
    EXPECT_EQ(a->getMagic(), kTreeMagicAlive);
    EXPECT_EQ(a->getRoot(), a);
    EXPECT_EQ(a->getTreeRefCount(), 1);
    EXPECT_TRUE(treeIsConsistent(a));
    a->deleteTree();

    // Reference below the child: the child survives with its subtree.
    root = makeTree("ab");
    root->incTreeRefCount();
    TreeNode* b = root->getChild(1);
    TreeNode* deep = TreeNode::createNode(TreeNode::createNode(b, "b1"), "b2");
    deep->incTreeRefCount();
    root->removeChildByIndex(1);
    EXPECT_EQ(root->getTreeRefCount(), 1);
    EXPECT_EQ(b->getTreeRefCount(), 1);
    EXPECT_EQ(deep->getRoot(), b);
    EXPECT_TRUE(treeIsConsistent(root));
    EXPECT_TRUE(treeIsConsistent(b));
    b->deleteTree();
    root->deleteTree();
}

TEST(TreeNodeChildren, RemoveChildRemovesEveryMatch) {
    TreeNode* root = makeTree("axbxxcx");
    root->incTreeRefCount();
    TreeNode* kept = root->getChild(3);  // the second x
    kept->incTreeRefCount();
    root->removeChild("x");
    EXPECT_EQ(childTags(root), "a,b,c");
    EXPECT_EQ(root->getTreeRefCount(), 1);
    EXPECT_EQ(kept->getRoot(), kept);
    EXPECT_EQ(kept->getTreeRefCount(), 1);
    EXPECT_TRUE(treeIsConsistent(root));
    root->removeChild(nullptr);
    root->removeChild("absent");
    EXPECT_EQ(childTags(root), "a,b,c");

    root->getChild(1)->setContentN("", 0);
    TreeNode::createNode(root, "d");  // no content buffer: reads as ""
    root->removeChildWithContent("");
    EXPECT_EQ(childTags(root), "a,c");
    root->removeChildWithContent("c");
    root->removeChildWithContent(nullptr);
    EXPECT_EQ(childTags(root), "a");

    // Untagged children match "".
    TreeNode::createNode(root, nullptr);
    TreeNode::createNode(root, "");
    root->removeChild("");
    EXPECT_EQ(childTags(root), "a");
    EXPECT_TRUE(treeIsConsistent(root));
    kept->deleteTree();
    root->deleteTree();
}

TEST(TreeNodeChildren, RemoveChildStopsWhenTreeEnds) {
    // The only reference is on the first match: detaching it ends the old
    // tree, and the loop must not go on using the destroyed parent.
    TreeNode* root = makeTree("xyx");
    TreeNode* first = root->getChild(0);
    first->incTreeRefCount();
    root->removeChild("x");
    EXPECT_EQ(first->getRoot(), first);
    EXPECT_TRUE(treeIsConsistent(first));
    first->deleteTree();
}

TEST(TreeNodeChildren, ManyChildrenRemovedByTag) {
    TreeNode* root = TreeNode::createRoot("r");
    root->incTreeRefCount();
    for (int i = 0; i < 20000; ++i) {
        TreeNode::createNode(root, i % 1000 == 0 ? "drop" : "keep");
    }
    root->removeChild("drop");
    EXPECT_EQ(root->getNumChildren(), 19980);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
}

TEST(TreeNodeChildren, MovesByContent) {
    TreeNode* root = makeTree("abcd");
    root->incTreeRefCount();
    root->getChild(2)->setContentN("a", 1);
    root->getChild(3)->incTreeRefCount();
    int before = root->getTreeRefCount();

    root->moveUpChildWithContent("a");  // child 0 is never looked at
    EXPECT_EQ(childTags(root), "a,c,b,d");
    root->moveUpChildWithContent("a");
    EXPECT_EQ(childTags(root), "c,a,b,d");
    root->moveUpChildWithContent("zz");
    root->moveUpChildWithContent(nullptr);
    EXPECT_EQ(childTags(root), "c,a,b,d");

    root->moveDownChildWithContent("d");  // the last child is never looked at
    EXPECT_EQ(childTags(root), "c,a,b,d");
    root->moveDownChildWithContent("b");
    EXPECT_EQ(childTags(root), "c,a,d,b");
    root->moveDownChildWithContent("d");
    EXPECT_EQ(childTags(root), "c,a,b,d");
    EXPECT_EQ(root->getTreeRefCount(), before);
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();

    TreeNode* single = makeTree("a");
    single->moveUpChildWithContent("a");
    single->moveDownChildWithContent("a");
    EXPECT_EQ(childTags(single), "a");
    single->deleteTree();
}

TEST(TreeNodeChildren, RebuildAndRename) {
    TreeNode* root = makeTree("abab");
    root->renameChildTag("a", "n e w");
    EXPECT_EQ(childTags(root), "new,b,new,b");
    root->renameChildTag(nullptr, "x");
    root->renameChildTag("b", nullptr);
    EXPECT_EQ(childTags(root), "new,b,new,b");

    ExtPtrArray* kids = root->getChildrenArray();
    void* first = kids->removeAt(0);
    kids->append(first);
    root->rebuildChildrenSiblingList();
    EXPECT_TRUE(treeIsConsistent(root));

    TreeNode* one = makeTree("a");
    TreeNode* only = one->getChild(0);
    // A single child's links are left as they are, right or wrong.
    TreeNode* saved = only->getNextSibling();
    one->rebuildChildrenSiblingList();
    EXPECT_EQ(only->getNextSibling(), saved);
    one->deleteTree();
    root->deleteTree();
}

TEST(TreeNodeChildren, Getters) {
    TreeNode empty;
    EXPECT_EQ(empty.getChild(0), nullptr);
    EXPECT_EQ(empty.getFirstChild(), nullptr);
    EXPECT_EQ(empty.getLastChild(), nullptr);
    EXPECT_EQ(empty.getNumChildren(), 0);
    TreeNode* root = makeTree("abc");
    EXPECT_STREQ(root->getFirstChild()->getTag(), "a");
    EXPECT_STREQ(root->getLastChild()->getTag(), "c");
    EXPECT_EQ(root->getChild(3), nullptr);
    EXPECT_EQ(root->getChild(-1), nullptr);
    EXPECT_EQ(root->getChild(1)->getParent(), root);
    root->deleteTree();
}

// Random attach, insert, detach, remove and move operations over a few trees
// while references come and go; the invariants must hold after every step.
TEST(TreeNodeChildren, RandomEditsKeepInvariants) {
    std::mt19937 rng(12345);
    std::vector<TreeNode*> roots;
    for (int i = 0; i < 3; ++i) {
        TreeNode* r = makeTree("abc");
        r->incTreeRefCount();  // keeps each tree alive through detaches
        roots.push_back(r);
    }
    auto pick = [&](TreeNode* root) {
        std::vector<TreeNode*> all{root};
        for (size_t i = 0; i < all.size(); ++i) {
            for (int k = 0; k < all[i]->getNumChildren(); ++k)
                all.push_back(all[i]->getChild(k));
        }
        return all[rng() % all.size()];
    };
    std::vector<TreeNode*> held;  // nodes with one reference taken here
    for (int step = 0; step < 1500; ++step) {
        TreeNode* root = roots[rng() % roots.size()];
        TreeNode* node = pick(root);
        switch (rng() % 8) {
            case 0:
                TreeNode::createNode2(node, "n", (rng() % 2) ? "a" : "b");
                break;
            case 1: {
                TreeNode* fresh = TreeNode::createRoot2("ins", "a");
                if (rng() % 2) {
                    fresh->incTreeRefCount();
                    held.push_back(fresh);
                }
                int idx = static_cast<int>(rng() % (node->getNumChildren() + 1));
                ASSERT_TRUE(node->insertChild(idx, fresh));
                break;
            }
            case 2:
                if (node != root) {
                    node->incTreeRefCount();
                    held.push_back(node);
                }
                break;
            case 3:
                if (!held.empty()) {
                    size_t i = rng() % held.size();
                    TreeNode* r = held[i]->getRoot();
                    held[i]->decTreeRefCount();
                    held.erase(held.begin() + static_cast<long>(i));
                    bool ours = r == roots[0] || r == roots[1] || r == roots[2];
                    if (!ours && r->getTreeRefCount() == 0) r->deleteTree();
                }
                break;
            case 4:
                if (node->getNumChildren() > 0) {
                    node->removeChildByIndex(static_cast<int>(rng() % node->getNumChildren()));
                }
                break;
            case 5:
                node->removeChildWithContent((rng() % 2) ? "a" : "b");
                break;
            case 6:
                if (rng() % 2) {
                    node->moveUpChildWithContent("a");
                } else {
                    node->moveDownChildWithContent("b");
                }
                break;
            case 7: {
                // Detach a node and attach it to another tree.
                TreeNode* other = roots[rng() % roots.size()];
                if (node == root || other == root) break;
                TreeNode* target = pick(other);
                node->removeFromTree();
                ASSERT_TRUE(target->appendChild2(node, 0));
                break;
            }
        }
        for (TreeNode* r : roots)
            ASSERT_TRUE(treeIsConsistent(r)) << "step " << step;
        for (TreeNode* h : held) {
            ASSERT_EQ(h->getMagic(), kTreeMagicAlive);
            if (h->getRoot() != roots[0] && h->getRoot() != roots[1] && h->getRoot() != roots[2]) {
                ASSERT_TRUE(treeIsConsistent(h)) << "step " << step;
            }
        }
    }
    // Release the references; detached holders' trees go too.
    std::vector<TreeNode*> loose;
    for (TreeNode* h : held) {
        TreeNode* r = h->getRoot();
        h->decTreeRefCount();
        if (r != roots[0] && r != roots[1] && r != roots[2]) loose.push_back(r);
    }
    std::sort(loose.begin(), loose.end());
    loose.erase(std::unique(loose.begin(), loose.end()), loose.end());
    for (TreeNode* r : loose)
        r->deleteTree();
    for (TreeNode* r : roots)
        r->deleteTree();
}

}  // namespace
