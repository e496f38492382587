#ifndef XMLTREE_FUZZ_DECODE_CHECK_H
#define XMLTREE_FUZZ_DECODE_CHECK_H

// Arbitrary bytes through the decoding entry point (byte-order marks,
// declarations naming character sets), then written and parsed back.
// Shared by the decoding fuzzer and the test that replays its regressions.
//
// What must hold, whatever the bytes:
//   - customParseData2 succeeds on any non-empty buffer;
//   - the written text of a parsed tree parses again into a tree with the
//     same number of elements;
//   - writing is a fixed point after one round: parse(write(t)) writes the
//     same text again.
// The last two are asked only of trees without prolog: processing and
// DOCTYPE texts are kept as written, so a malformed one (an instruction
// without "?>", say) is written back malformed and may swallow the elements
// after it when read again. That is the forgiving parser working as meant.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "foundation/DataBuffer.h"
#include "foundation/LogBase.h"
#include "foundation/StringBuffer.h"
#include "xmltree/TreeNode.h"

namespace decodefuzz {

[[noreturn]] inline void fail(const char* what) {
    std::fprintf(stderr, "decode check failed: %s\n", what);
    std::abort();
}

inline long countElements(TreeNode* root) {
    long count = 0;
    std::vector<TreeNode*> stack{root};
    while (!stack.empty()) {
        TreeNode* n = stack.back();
        stack.pop_back();
        ++count;
        for (int i = 0; i < n->getNumChildren(); ++i) stack.push_back(n->getChild(i));
    }
    return count;
}

inline bool hasProlog(const TreeNode* root) {
    const TreeInfo* info = root->getTreeInfo();
    return info->xmlDecl || info->styleSheets.getSize() > 0 || info->processing ||
           info->docType;
}

inline void writeTree(TreeNode* root, StringBuffer& out) {
    out.clear();
    root->createXML(out, 0, 0, false);
}

inline TreeNode* parseText(const StringBuffer& text, bool trim) {
    TreeNode* root = nullptr;
    if (!TreeNode::customParseStringN(text.getString(), text.getSize(), nullptr, &root, trim))
        fail("customParseStringN returned false");
    return root;
}

// Owns one parsed tree for the length of a scope.
class TreeHolder {
public:
    explicit TreeHolder(TreeNode* root) : root_(root) {}
    ~TreeHolder() {
        if (root_) root_->deleteTree();
    }
    TreeHolder(const TreeHolder&) = delete;
    TreeHolder& operator=(const TreeHolder&) = delete;
    TreeNode* get() const { return root_; }

private:
    TreeNode* root_;
};

inline void checkBytes(const uint8_t* data, size_t size) {
    if (size == 0) return;
    // The first byte chooses the whitespace mode, so the seeds keep their
    // byte-order marks at the very start of what the parser sees.
    bool trim = (data[0] & 1) != 0;
    DataBuffer bytes;
    if (!bytes.append(data + 1, static_cast<unsigned>(size - 1))) return;
    LogNull log;
    TreeNode* parsed = nullptr;
    bool ok = TreeNode::customParseData2(bytes, nullptr, log, &parsed, trim);
    TreeHolder first(parsed);
    if (!ok && size > 1) fail("customParseData2 failed on non-empty data");
    if (!parsed || hasProlog(parsed)) return;

    StringBuffer written;
    writeTree(first.get(), written);
    TreeHolder second(parseText(written, trim));
    if (!second.get()) fail("written text parsed to no tree");
    if (countElements(second.get()) != countElements(first.get()))
        fail("written text parsed to another number of elements");

    StringBuffer rewritten;
    writeTree(second.get(), rewritten);
    TreeHolder third(parseText(rewritten, trim));
    StringBuffer again;
    writeTree(third.get(), again);
    if (!again.equals(rewritten.getString())) fail("writing is not a fixed point");
}

}  // namespace decodefuzz

#endif
