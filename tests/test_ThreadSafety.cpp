// The library's thread guarantees: one tree is used by one thread at a time,
// and different trees may be used on any threads at once. The two pieces of
// process-wide state behind that are the tree-id counter, which must hand out
// each id once however many threads make trees, and the keys of the keyed
// sorts, which each thread must see as its own.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "xmltree/TreeNode.h"

namespace {

constexpr int kThreads = 4;
constexpr int kBurst = 20;

// One thread's life with trees: build, parse, edit, write, detach, destroy,
// recording every tree id it was given. Returns false on a wrong result.
bool churnTrees(int thread, int rounds, std::vector<int>& ids) {
    const std::string doc =
        "<r t=\"" + std::to_string(thread) + "\"><a>1</a><b>two</b><c><d/></c></r>";
    for (int i = 0; i < rounds; ++i) {
        TreeNode* built = TreeNode::createRoot("r");
        TreeNode::createNode2(built, "x", "y");
        ids.push_back(built->getTreeId());

        TreeNode* parsed = nullptr;
        if (!TreeNode::customParseStringN(doc.data(), static_cast<int>(doc.size()), nullptr,
                                          &parsed, true) ||
            !parsed) {
            return false;
        }
        ids.push_back(parsed->getTreeId());
        parsed->addAttribute("n", std::to_string(i).c_str());
        parsed->getChild(1)->appendContent("!");

        // Held, or detaching the last child would destroy the rest.
        parsed->incTreeRefCount();
        TreeNode* detached = parsed->getChild(2);
        detached->removeFromTree();  // a fresh tree, with an id of its own
        parsed->decTreeRefCount();
        ids.push_back(detached->getTreeId());
        if (!built->appendChild2(detached, 1004)) return false;

        StringBuffer out;
        parsed->createXML(out, 1, 0, true);
        std::string want = "<r t=\"" + std::to_string(thread) + "\" n=\"" + std::to_string(i) +
                           "\">\r\n    <a>1</a>\r\n    <b>two!</b>\r\n</r>\r\n";
        if (want != out.getString()) return false;
        if (built->getNumChildren() != 2 || built->getChild(1)->getTreeId() != ids[ids.size() - 3])
            return false;
        parsed->deleteTree();
        built->deleteTree();
        // A burst of bare roots, where the counter is hit hardest.
        for (int k = 0; k < kBurst; ++k) {
            TreeNode* bare = TreeNode::createRoot(nullptr);
            ids.push_back(bare->getTreeId());
            bare->deleteTree();
        }
    }
    return true;
}

TEST(ThreadSafety, TreesOnFourThreadsGetDistinctIds) {
    constexpr int kRounds = 3000;
    std::vector<std::vector<int>> ids(kThreads);
    bool ok[kThreads] = {};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &ids, &ok] { ok[t] = churnTrees(t, kRounds, ids[t]); });
    }
    for (std::thread& th : threads)
        th.join();

    std::vector<int> all;
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_TRUE(ok[t]) << "thread " << t << " saw a wrong result";
        all.insert(all.end(), ids[t].begin(), ids[t].end());
    }
    ASSERT_EQ(all.size(), static_cast<size_t>(kThreads * kRounds * (3 + kBurst)));
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end()) << "a tree id was given twice";
    // Each thread's own ids rise: the counter never goes back.
    for (int t = 0; t < kThreads; ++t)
        EXPECT_TRUE(std::is_sorted(ids[t].begin(), ids[t].end()));
}

TEST(ThreadSafety, TreesBuiltOnOneThreadAreDestroyedOnAnother) {
    // Handing a whole tree to another thread is allowed; the memory of its
    // nodes must go back wherever it is freed.
    constexpr int kTrees = 300;
    std::vector<std::vector<TreeNode*>> made(kThreads);
    std::vector<std::thread> builders;
    for (int t = 0; t < kThreads; ++t) {
        builders.emplace_back([t, &made] {
            for (int i = 0; i < kTrees; ++i) {
                // Long enough that the content leaves the node for a block of its own.
                std::string doc = "<r n=\"" + std::to_string(t * kTrees + i) +
                                  "\"><a>some content longer than the inline room</a><b/></r>";
                TreeNode* root = nullptr;
                TreeNode::customParseStringN(doc.data(), static_cast<int>(doc.size()), nullptr,
                                             &root, true);
                made[t].push_back(root);
            }
        });
    }
    for (std::thread& th : builders)
        th.join();

    int wrong[kThreads] = {};
    std::vector<std::thread> destroyers;
    for (int t = 0; t < kThreads; ++t) {
        // Each thread takes the trees another thread built.
        destroyers.emplace_back([t, &made, &wrong] {
            int from = (t + 1) % kThreads;
            for (int i = 0; i < kTrees; ++i) {
                TreeNode* root = made[from][i];
                StringBuffer n;
                if (!root || !root->getAttributeValue("n", n) ||
                    n.intValue() != from * kTrees + i || root->getNumChildren() != 2) {
                    ++wrong[t];
                }
                if (!root) continue;
                TreeNode::createNode2(root, "c", "added here");  // allocate on this thread too
                root->deleteTree();
            }
        });
    }
    for (std::thread& th : destroyers)
        th.join();
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(wrong[t], 0) << "thread " << t;
    // The builders have ended: their memory still serves this thread.
    TreeNode* again = TreeNode::createRoot("again");
    ASSERT_NE(again, nullptr);
    EXPECT_STREQ(again->getTag(), "again");
    again->deleteTree();
}

// Children that each carry kThreads keys, as attributes k0..k3 and as record
// fields f0..f3. Key j of child i is (i * kMul[j]) mod kChildren, so every key
// orders the children differently: a sort that read another thread's key
// name gives an order that the check below rejects.
constexpr int kChildren = 211;  // prime, so each multiplier permutes
constexpr int kMul[kThreads] = {1, 7, 31, 101};

std::string keyText(int v) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%05d", v);  // fixed width: text order is number order
    return buf;
}

TreeNode* keyedTree() {
    TreeNode* root = TreeNode::createRoot("list");
    for (int i = 0; i < kChildren; ++i) {
        TreeNode* child = TreeNode::createNode(root, "item");
        for (int j = 0; j < kThreads; ++j) {
            std::string v = keyText(i * kMul[j] % kChildren);
            std::string name = "k" + std::to_string(j);
            child->addAttribute(name.c_str(), v.c_str());
            TreeNode* field =
                TreeNode::createNode2(child, ("f" + std::to_string(j)).c_str(), v.c_str());
            field->addAttribute("v", v.c_str());
        }
    }
    return root;
}

int keyOf(TreeNode* child, int key) {
    StringBuffer v;
    child->getAttributeValue(("k" + std::to_string(key)).c_str(), v);
    return v.intValue();
}

bool ordered(TreeNode* root, int key, bool ascending) {
    for (int i = 1; i < root->getNumChildren(); ++i) {
        int a = keyOf(root->getChild(i - 1), key);
        int b = keyOf(root->getChild(i), key);
        if (ascending ? a > b : a < b) return false;
    }
    return true;
}

// Runs every keyed sort on this thread's own key, many times, checking each;
// with `ready`, only once every thread has its tree, so that the sorts overlap.
int keyedSorts(int key, int rounds, std::atomic<int>* ready = nullptr) {
    const std::string attr = "k" + std::to_string(key);
    const std::string field = "f" + std::to_string(key);
    TreeNode* root = keyedTree();
    if (ready) {
        ++*ready;
        while (*ready < kThreads)
            std::this_thread::yield();
    }
    int wrong = 0;
    for (int i = 0; i < rounds; ++i) {
        long asc = i & 1;
        root->sortByAttribute(attr.c_str(), asc, false);
        wrong += !ordered(root, key, asc != 0);
        // A nonzero direction orders by decreasing value in this one sort.
        root->sortByAttributeInt(attr.c_str(), asc);
        wrong += !ordered(root, key, asc == 0);
        root->sortRecordsByContent(field.c_str(), asc, true);
        wrong += !ordered(root, key, asc != 0);
        root->sortRecordsByContentInt(field.c_str(), 1 - asc);
        wrong += !ordered(root, key, asc == 0);
        root->sortRecordsByAttribute(field.c_str(), "v", asc, false);
        wrong += !ordered(root, key, asc != 0);
    }
    root->deleteTree();
    return wrong;
}

TEST(ThreadSafety, KeyedSortsOnFourThreadsEachSeeTheirOwnKey) {
    constexpr int kRounds = 60;
    int wrong[kThreads] = {};
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &wrong, &ready] { wrong[t] = keyedSorts(t, kRounds, &ready); });
    }
    for (std::thread& th : threads)
        th.join();
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(wrong[t], 0) << "thread " << t << " sorted by another thread's key";
    }
}

TEST(ThreadSafety, KeyedSortsAloneStillSortByTheirKey) {
    // The same checks on one thread: if this fails, the failure above is not
    // about threads.
    for (int key = 0; key < kThreads; ++key)
        EXPECT_EQ(keyedSorts(key, 2), 0) << key;
}

}  // namespace
