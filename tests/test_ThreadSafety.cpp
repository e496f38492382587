// The library's thread guarantees: one tree is used by one thread at a time,
// and different trees may be used on any threads at once. The process-wide
// state behind that is the tree-id counter, which must hand out each id once
// however many threads make trees, the keys of the keyed sorts, which each
// thread must see as its own, and the small-object pool, which must take
// memory back on whatever thread a tree is edited or destroyed.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>
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

// Trees handed from thread to thread through a queue.
class TreeQueue {
  public:
    void push(TreeNode* tree) {
        std::lock_guard<std::mutex> lock(mutex_);
        trees_.push_back(tree);
        ready_.notify_one();
    }
    // Null once the queue is closed and empty.
    TreeNode* pop() {
        std::unique_lock<std::mutex> lock(mutex_);
        ready_.wait(lock, [this] { return !trees_.empty() || closed_; });
        if (trees_.empty()) return nullptr;
        TreeNode* tree = trees_.front();
        trees_.pop_front();
        return tree;
    }
    void close() {
        std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
        ready_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<TreeNode*> trees_;
    bool closed_ = false;
};

// A pipeline: two threads parse trees, two edit them (nodes added, content
// replaced, a subtree detached and destroyed there) and destroy half, one
// writes and destroys the rest. The parsers go on allocating in the slabs
// whose blocks the others free; every tree must come out as built.
TEST(ThreadSafety, TreesPassBetweenThreadsWhileOthersBuild) {
    constexpr int kParsers = 2, kEditors = 2, kTrees = 5000;
    TreeQueue parsed, edited;
    std::atomic<int> wrong{0}, editorsLeft{kEditors};
    auto parser = [&](int t) {
        for (int i = 0; i < kTrees; ++i) {
            const std::string doc = "<r n=\"" + std::to_string(t * kTrees + i) +
                                    "\"><a>some content longer than the inline room</a><b/>"
                                    "<c><d>x</d><d>y</d></c></r>";
            TreeNode* root = nullptr;
            TreeNode::customParseStringN(doc.data(), static_cast<int>(doc.size()), nullptr, &root,
                                         true);
            if (root) {
                parsed.push(root);
            } else {
                ++wrong;
            }
        }
    };
    auto editor = [&] {
        while (TreeNode* root = parsed.pop()) {
            StringBuffer n;
            if (!root->getAttributeValue("n", n) || root->getNumChildren() != 3) ++wrong;
            TreeNode::createNode2(root, "e", "added on the editing thread");
            root->getChild(0)->setContentUtf8("replaced here, long enough to leave the node");
            root->incTreeRefCount();  // held, or detaching would destroy the rest
            TreeNode* c = root->getChild(2);
            c->removeFromTree();
            root->decTreeRefCount();
            if (c->getNumChildren() != 2) ++wrong;
            c->deleteTree();
            if (n.intValue() % 2) {
                root->deleteTree();
            } else {
                edited.push(root);
            }
        }
        if (--editorsLeft == 0) edited.close();
    };
    auto writer = [&] {
        while (TreeNode* root = edited.pop()) {
            StringBuffer n, out;
            root->getAttributeValue("n", n);
            root->createXML(out, 0, 0, true);
            const std::string want = "\r\n<r n=\"" + std::string(n.getString()) +
                                     "\">\r\n    <a>replaced here, long enough to leave the "
                                     "node</a>\r\n    <b />\r\n    <e>added on the editing "
                                     "thread</e>\r\n</r>\r\n";
            if (want != out.getString()) ++wrong;
            root->deleteTree();
        }
    };
    std::vector<std::thread> parsers, editors;
    for (int t = 0; t < kParsers; ++t)
        parsers.emplace_back(parser, t);
    for (int t = 0; t < kEditors; ++t)
        editors.emplace_back(editor);
    std::thread writing(writer);
    for (std::thread& th : parsers)
        th.join();
    parsed.close();
    for (std::thread& th : editors)
        th.join();
    writing.join();
    EXPECT_EQ(wrong.load(), 0);
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
