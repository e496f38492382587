// The library's thread guarantees: one tree is used by one thread at a time,
// and different trees may be used on any threads at once. The process-wide
// state behind that is the tree-id counter, which must hand out each id once,
// the keys of the keyed sorts, which each thread must see as its own, and the
// small-object pool, which must take memory back on whatever thread a tree is
// edited or destroyed.

#include <atomic>
#include <cstdio>
#include <deque>
#include <mutex>
#include <thread>

#include "tests/TestSupport.h"

namespace {

constexpr int kThreads = 4;

// Trees handed from thread to thread; pop() gives null once the queue is
// closed and empty.
struct TreeQueue {
    std::mutex mutex;
    std::deque<TreeNode*> trees;
    std::atomic<bool> closed{false};
    void push(TreeNode* tree) {
        std::lock_guard<std::mutex> lock(mutex);
        trees.push_back(tree);
    }
    TreeNode* pop() {
        for (;; std::this_thread::yield()) {
            const bool last = closed;
            std::lock_guard<std::mutex> lock(mutex);
            if (trees.empty() && last) return nullptr;
            if (trees.empty()) continue;
            TreeNode* tree = trees.front();
            trees.pop_front();
            return tree;
        }
    }
};

// A pipeline: two threads parse trees, two edit them (nodes added, content
// replaced, a subtree detached and destroyed there) and destroy half, one
// writes and destroys the rest. The parsers go on allocating in the slabs
// whose blocks the others free; every tree must come out as built, and
// every tree made on any thread gets an id of its own.
TEST(ThreadSafety, TreesPassBetweenThreadsWhileOthersBuild) {
    constexpr int kParsers = 2, kEditors = 2, kTrees = 5000;
    TreeQueue parsed, edited;
    std::atomic<int> wrong{0}, editorsLeft{kEditors};
    std::vector<int> ids[kParsers + kEditors];
    auto parser = [&](int t) {
        for (int i = 0; i < kTrees; ++i) {
            const std::string doc = "<r n=\"" + std::to_string(t * kTrees + i) +
                                    "\"><a>some content longer than the inline room</a><b/>"
                                    "<c><d>x</d><d>y</d></c></r>";
            TreeNode* root = nullptr;
            TreeNode::customParseStringN(doc.data(), static_cast<int>(doc.size()), nullptr, &root,
                                         true);
            if (root) {
                ids[t].push_back(root->getTreeId());
                parsed.push(root);
            } else {
                ++wrong;
            }
        }
    };
    auto editor = [&](int t) {
        while (TreeNode* root = parsed.pop()) {
            StringBuffer n;
            if (!root->getAttributeValue("n", n) || root->getNumChildren() != 3) ++wrong;
            TreeNode::createNode2(root, "e", "added on the editing thread");
            root->getChild(0)->setContentUtf8("replaced here, long enough to leave the node");
            root->incTreeRefCount();  // held, or detaching would destroy the rest
            TreeNode* c = root->getChild(2);
            c->removeFromTree();  // a tree of its own, with a new id
            ids[t].push_back(c->getTreeId());
            root->decTreeRefCount();
            if (c->getNumChildren() != 2) ++wrong;
            c->deleteTree();
            if (n.intValue() % 2) {
                root->deleteTree();
            } else {
                edited.push(root);
            }
        }
        if (--editorsLeft == 0) edited.closed = true;
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
        editors.emplace_back(editor, kParsers + t);
    std::thread writing(writer);
    for (std::thread& th : parsers)
        th.join();
    parsed.closed = true;
    for (std::thread& th : editors)
        th.join();
    writing.join();
    EXPECT_EQ(wrong.load(), 0);
    std::vector<int> all;
    for (const std::vector<int>& mine : ids) {
        EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));  // the counter never goes back
        all.insert(all.end(), mine.begin(), mine.end());
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end()) << "a tree id given twice";
}

// Each thread sorts its own tree by its own field tag and attribute name,
// the two keys the sorts keep per thread. Key j of child i is
// (i * kMul[j]) mod kChildren, so every key orders the children differently:
// a sort that read another thread's key shows.
constexpr int kChildren = 211;  // prime, so each multiplier permutes
constexpr int kMul[kThreads] = {1, 7, 31, 101};

int keyedSorts(int key, int rounds, std::atomic<int>& ready) {
    const std::string name = "k" + std::to_string(key);
    Tree root(TreeNode::createRoot("list"));
    for (int i = 0; i < kChildren; ++i) {
        TreeNode* child = add(root.get(), "item");
        for (int j = 0; j < kThreads; ++j) {
            char v[16];
            std::snprintf(v, sizeof v, "%05d", i * kMul[j] % kChildren);  // text order: numbers
            const std::string k = "k" + std::to_string(j);
            add(child, k.c_str())->addAttribute(k.c_str(), v);
        }
    }
    ++ready;
    while (ready < kThreads)  // so that the sorts overlap
        std::this_thread::yield();
    auto keyAt = [&](int i) {
        StringBuffer v;
        root->getChild(i)->getChild(name.c_str(), nullptr)->getAttributeValue(name.c_str(), v);
        return v.intValue();
    };
    int wrong = 0;
    for (int round = 0; round < rounds; ++round) {
        root->sortRecordsByAttribute(name.c_str(), name.c_str(), round & 1, false);
        for (int i = 0; i < kChildren; ++i)
            wrong += keyAt(i) != (round & 1 ? i : kChildren - 1 - i);
    }
    return wrong;
}

TEST(ThreadSafety, KeyedSortsOnFourThreadsEachSeeTheirOwnKey) {
    int wrong[kThreads] = {};
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t, &wrong, &ready] { wrong[t] = keyedSorts(t, 150, ready); });
    for (std::thread& th : threads)
        th.join();
    for (int t = 0; t < kThreads; ++t)
        EXPECT_EQ(wrong[t], 0) << "thread " << t << " sorted by another thread's key";
}

}  // namespace
