#ifndef XMLTREE_FUZZ_DECODE_CHECK_H
#define XMLTREE_FUZZ_DECODE_CHECK_H

// Arbitrary bytes through the decoding entry point (byte-order marks,
// declarations naming character sets), then written and parsed back.
// Shared by the decoding fuzzer and the test that replays its regressions.
//
// What must hold, whatever the bytes:
//   - customParseData2 succeeds on any non-empty buffer, and leaves the
//     buffer holding the decoded text;
//   - the tree it gives is the tree customParseStringN gives for that decoded
//     text (both write the same XML);
//   - the decoded text passes the parse fuzzer's write-and-parse-again
//     comparison in both whitespace modes.

#include <cstddef>
#include <cstdint>
#include <string>

#include "foundation/DataBuffer.h"
#include "foundation/LogBase.h"
#include "foundation/StringBuffer.h"
#include "fuzz/roundtrip_check.h"
#include "xmltree/TreeNode.h"

namespace decodefuzz {

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

inline std::string written(TreeNode* root) {
    if (!root) return "(no tree)";
    StringBuffer out;
    root->createXML(out, 0, 0, false);
    return std::string(out.getString(), static_cast<size_t>(out.getSize()));
}

// Returns "" when every property holds, else what failed.
inline std::string check(const uint8_t* data, size_t size) {
    if (size == 0) return std::string();
    DataBuffer bytes;
    if (!bytes.append(data, static_cast<unsigned>(size))) return std::string();
    LogNull log;
    TreeNode* parsed = nullptr;
    bool ok = TreeNode::customParseData2(bytes, nullptr, log, &parsed, true);
    TreeHolder fromBytes(parsed);
    if (!ok) return "customParseData2 failed on non-empty data";

    const char* text = reinterpret_cast<const char*>(bytes.getData2());
    size_t textSize = text ? bytes.getSize() : 0;
    TreeNode* again = nullptr;
    if (!TreeNode::customParseStringN(text ? text : "", static_cast<int>(textSize), nullptr, &again,
                                      true)) {
        return "customParseStringN failed on the decoded text";
    }
    TreeHolder fromText(again);
    std::string a = written(fromBytes.get());
    std::string b = written(fromText.get());
    if (a != b) return "decoded bytes and decoded text parse differently:\n" + a + "\n---\n" + b;

    return roundtrip::check(text ? text : "", textSize);
}

}  // namespace decodefuzz

#endif
