#ifndef XMLTREE_FUZZ_NOTES_CHECK_H
#define XMLTREE_FUZZ_NOTES_CHECK_H

// A parse for a logger that asks for notes must give the same tree and the
// same messages as one without, and every note must name a span inside the
// text and, where it names an element, a live one. Shared by the parse
// fuzzer and the regression replay test.

#include <string>
#include <vector>

#include "xmltree/TreeNode.h"

namespace notescheck {

struct Log : LogBase {
    bool wanted = false;
    size_t size = 0;
    std::vector<std::string> messages;
    std::string problem;
    long notes = 0;
    void logError(const char* m) override { messages.push_back(std::string("E:") + m); }
    void logNameValue(const char* n, const char* v) override {
        messages.push_back(std::string("NV:") + n + "=" + v);
    }
    bool wantsParseNotes() const override { return wanted; }
    void logParseNote(xmltree::ParseNote what, int offset, int length,
                      const TreeNode* element) override {
        ++notes;
        const int kind = static_cast<int>(what);
        if (kind < 0 || kind > static_cast<int>(xmltree::ParseNote::kUnquotedValue)) {
            problem = "unknown kind " + std::to_string(kind);
        } else if (offset < 0 || length < 0 ||
                   static_cast<size_t>(offset) + static_cast<size_t>(length) > size) {
            problem = "kind " + std::to_string(kind) + " span " + std::to_string(offset) + "+" +
                      std::to_string(length) + " outside " + std::to_string(size) + " bytes";
        } else if (element && !element->getTag()) {
            problem = "kind " + std::to_string(kind) + " with a dead element";
        } else if (what == xmltree::ParseNote::kElementStart && !element) {
            problem = "element start without an element";
        }
    }
};

inline std::string written(TreeNode* root) {
    if (!root) return "<none>";
    StringBuffer out;
    root->createXML(out, 0, 0, false);
    return std::string(out.getString(), static_cast<size_t>(out.getSize()));
}

inline std::string parse(const char* data, size_t size, bool trim, Log& log) {
    ParseEngine engine;
    engine.appendN(data, static_cast<int>(size));
    log.size = static_cast<size_t>(engine.getTextSize());
    TreeNode* root = nullptr;
    bool ok = TreeNode::customParse(engine, &log, nullptr, &root, trim);
    std::string text = (ok ? "ok " : "failed ") + written(root);
    if (root) root->deleteTree();
    return text;
}

// "" when all holds, else what did not.
inline std::string check(const char* data, size_t size) {
    if (size > (1u << 20)) return std::string();
    for (bool trim : {true, false}) {
        Log plain, noted;
        noted.wanted = true;
        std::string a = parse(data, size, trim, plain);
        std::string b = parse(data, size, trim, noted);
        if (!noted.problem.empty()) return "note: " + noted.problem;
        if (a != b) return "a noted parse wrote another tree";
        if (plain.messages != noted.messages) return "a noted parse logged other messages";
    }
    // The decoding's note lies in the bytes it leaves unconverted.
    Log decode;
    decode.wanted = true;
    decode.size = size;
    DataBuffer bytes;
    if (size > 0 && bytes.append(data, static_cast<unsigned int>(size))) {
        TreeNode::convertXmlToUtf8(bytes, decode);
        if (decode.notes > 0 && bytes.getSize() != size) return "a noted encoding was converted";
    }
    if (!decode.problem.empty()) return "decoding note: " + decode.problem;
    return std::string();
}

}  // namespace notescheck

#endif
