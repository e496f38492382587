#ifndef XMLTREE_TESTS_TESTSUPPORT_H
#define XMLTREE_TESTS_TESTSUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "foundation/PoolArena.h"
#include "fuzz/tree_invariants.h"
#include "xmltree/TreeNode.h"

// Every parsed tree of the tests keeps its arena, however small: the tests'
// documents then exercise freeing trees whole and handing arenas over on
// edits, which in use only documents of a few slabs and more do.
inline const bool kTestsKeepEveryArena = [] {
    xmltree::TreeArena::keepFromSlabsForTesting(1);
    return true;
}();

// Every message logged, in order, as "E:text" or "NV:name=value".
struct RecordingLog : LogBase {
    std::vector<std::string> lines;
    void logError(const char* m) override { lines.push_back(std::string("E:") + m); }
    void logNameValue(const char* n, const char* v) override {
        lines.push_back(std::string("NV:") + n + "=" + v);
    }
};

// An empty buffer has no data pointer at all.
inline std::string bytesOf(const DataBuffer& d) {
    return d.getSize() ? std::string(reinterpret_cast<const char*>(d.getData2()), d.getSize())
                       : std::string();
}

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << path;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// The regular files of `dir` but dot files and README.md, sorted so that a
// failure names the same input every run.
inline std::vector<std::string> filesIn(const std::string& dir) {
    std::vector<std::string> out;
    std::error_code missing;  // a missing directory has no files
    for (const auto& e : std::filesystem::directory_iterator(dir, missing)) {
        const std::string name = e.path().filename().string();
        if (e.is_regular_file() && name[0] != '.' && name != "README.md")
            out.push_back(e.path().string());
    }
    std::sort(out.begin(), out.end());
    return out;
}

// The tree of `text`, parsed with trimming and no log; null without element.
inline TreeNode* parseText(const std::string& text) {
    TreeNode* root = nullptr;
    EXPECT_TRUE(TreeNode::customParseStringN(text.data(), static_cast<int>(text.size()), nullptr,
                                             &root, true));
    return root;
}

// A node's attributes as "name=value;" each, read without allocating.
inline std::string attrs(const TreeNode* n) {
    std::string s;
    const AttributeSet* set = TreeArenaCheck::attributesOf(n);
    for (int i = 0; set && i < set->getSize(); ++i)
        s += std::string(set->nameAt(i)) + "=" + set->valueAt(i) + ";";
    return s;
}

// Compact picture of a tree: tag(attrs){content}! [children].
inline std::string dump(TreeNode* n) {
    std::string s = n->getTag();
    if (n->getNumAttributes()) s += "(" + attrs(n) + ")";
    if (TreeArenaCheck::contentOf(n)) s += "{" + std::string(n->getContent()) + "}";
    if (n->getCdata()) s += "!";
    for (int i = 0; i < n->getNumChildren(); ++i)
        s += (i ? "," : "[") + dump(n->getChild(i)) + (i + 1 == n->getNumChildren() ? "]" : "");
    return s;
}

// The tree holding `anyNode` keeps its bookkeeping (fuzz/tree_invariants.h).
inline ::testing::AssertionResult treeIsConsistent(TreeNode* anyNode) {
    const std::string problem = treecheck::problemIn(anyNode);
    if (problem.empty()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << problem;
}

// Children's tags joined with commas: "a,b,c".
inline std::string childTags(TreeNode* node) {
    std::string out;
    for (int i = 0; i < node->getNumChildren(); ++i) {
        out += (i ? "," : "") + std::string(node->getChild(i)->getTag());
    }
    return out;
}

// Deletes the whole tree when the root goes out of scope.
using Tree = std::unique_ptr<TreeNode>;

inline TreeNode* add(TreeNode* parent, const char* tag, const char* content = nullptr) {
    return TreeNode::createNode2(parent, tag, content);
}

// A root with one child per letter of `names`, each tagged and filled with
// its letter.
inline TreeNode* makeTree(const char* names) {
    TreeNode* root = TreeNode::createRoot("root");
    for (const char* p = names; *p; ++p) {
        char text[2] = {*p, 0};
        TreeNode::createNode2(root, text, text);
    }
    return root;
}

#endif
