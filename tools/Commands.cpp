// The commands that read a whole tree: format, text, find, sort and stats.

#include "Commands.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "Document.h"
#include "Output.h"
#include "foundation/StringFunctions.h"
#include "foundation/mxQueue.h"
#include "xmltree/TreeNode.h"

namespace {

// Owns the parsed tree for the length of a command.
class LoadedTree {
  public:
    LoadedTree() {}
    ~LoadedTree() {
        if (m_root) m_root->deleteTree();
    }
    LoadedTree(const LoadedTree&) = delete;
    LoadedTree& operator=(const LoadedTree&) = delete;

    int load(const Options& o) { return loadDocument(o, &m_root, &m_stats); }
    TreeNode* root() const { return m_root; }
    const LoadStats& stats() const { return m_stats; }

  private:
    TreeNode* m_root = nullptr;
    LoadStats m_stats;
};

const char* textOf(const char* s) {
    return s ? s : "";
}

TreeNode* childAt(const TreeNode* node, int index) {
    ExtPtrArray* children = node->getChildrenArray();
    return children ? static_cast<TreeNode*>(children->elementAt(index)) : nullptr;
}

int childCount(const TreeNode* node) {
    ExtPtrArray* children = node->getChildrenArray();
    return children ? children->getSize() : 0;
}

// The tests of the library's tag, content-pattern and attribute searches,
// combined.
struct FindQuery {
    const char* tag;
    const char* contentPattern;  // null: not tested
    const char* attrName;        // null: not tested
    const char* attrPattern;

    bool matches(const TreeNode* node) const {
        const char* t = textOf(node->getTag());
        if (t[0] != tag[0] || std::strcmp(t, tag) != 0) return false;
        if (contentPattern && !wildcardMatch(textOf(node->getContent()), contentPattern, true)) {
            return false;
        }
        if (attrName) {
            const AttributeSet* attrs = node->getAttributeSet();
            if (!attrs || !attrs->hasMatchingAttribute(attrName, attrPattern)) return false;
        }
        return true;
    }
};

// One breadth-first walk from root in the library's search order: level by
// level, each level in document order. The visit queue holds one family of
// children at a time; the parent queue holds visited nodes with children.
template <typename Visit>
void walkBreadthFirst(TreeNode* root, Visit visit) {
    _mxQueue toVisit;
    _mxQueue parents;
    toVisit.push(root);
    while (TreeNode* node = static_cast<TreeNode*>(toVisit.pop())) {
        if (!visit(node)) return;
        if (childCount(node) > 0) parents.push(node);
        if (toVisit.hasObjects()) continue;
        if (TreeNode* parent = static_cast<TreeNode*>(parents.pop())) {
            int n = childCount(parent);
            for (int i = 0; i < n; ++i)
                toVisit.push(childAt(parent, i));
        }
    }
}

// A match is written as an element of its own at depth 0. Index 1 keeps the
// writer from starting it with an empty line. The root is written without
// its prolog: a search result is an element, not a document.
void writeMatch(TreeNode* node, StringBuffer& out) {
    if (node->getParent() != nullptr) {
        node->createXML(out, 1, 0, true);
        return;
    }
    if (node->openTag(out, 0)) return;
    node->outputContent(out);
    int n = childCount(node);
    for (int i = 0; i < n; ++i)
        childAt(node, i)->createXML(out, i, 1, false);
    node->closeTag(out, 0);
}

struct SortKey {
    enum Kind { kTag, kContent, kAttr, kAttrInt, kField, kFieldInt, kFieldAttr } kind;
    std::string field;
    std::string name;
};

bool startsWith(const std::string& s, const char* prefix, std::string& rest) {
    size_t n = std::strlen(prefix);
    if (s.compare(0, n, prefix) != 0) return false;
    rest = s.substr(n);
    return true;
}

bool parseSortKey(const std::string& by, SortKey& key) {
    std::string rest;
    if (by == "tag") {
        key.kind = SortKey::kTag;
    } else if (by == "content") {
        key.kind = SortKey::kContent;
    } else if (startsWith(by, "attr:", rest)) {
        key.kind = SortKey::kAttr;
        key.name = rest;
    } else if (startsWith(by, "attr-int:", rest)) {
        key.kind = SortKey::kAttrInt;
        key.name = rest;
    } else if (startsWith(by, "field:", rest)) {
        key.kind = SortKey::kField;
        key.field = rest;
    } else if (startsWith(by, "field-int:", rest)) {
        key.kind = SortKey::kFieldInt;
        key.field = rest;
    } else if (startsWith(by, "field-attr:", rest)) {
        size_t colon = rest.find(':');
        if (colon == std::string::npos || colon == 0) return false;
        key.kind = SortKey::kFieldAttr;
        key.field = rest.substr(0, colon);
        key.name = rest.substr(colon + 1);
        return !key.name.empty();
    } else {
        return false;
    }
    return key.kind == SortKey::kTag || key.kind == SortKey::kContent || !rest.empty();
}

// Every sort but sortByAttributeInt reads a nonzero direction as increasing;
// sortByAttributeInt reads it as decreasing.
void applySort(TreeNode* node, const SortKey& key, bool descending, bool ignoreCase) {
    long up = descending ? 0 : 1;
    const char* field = key.field.c_str();
    const char* name = key.name.c_str();
    switch (key.kind) {
        case SortKey::kTag:
            node->sortByTag(up, ignoreCase);
            break;
        case SortKey::kContent:
            node->sortByContent(up, ignoreCase);
            break;
        case SortKey::kAttr:
            node->sortByAttribute(name, up, ignoreCase);
            break;
        case SortKey::kAttrInt:
            node->sortByAttributeInt(name, descending ? 1 : 0);
            break;
        case SortKey::kField:
            node->sortRecordsByContent(field, up, ignoreCase);
            break;
        case SortKey::kFieldInt:
            node->sortRecordsByContentInt(field, up);
            break;
        case SortKey::kFieldAttr:
            node->sortRecordsByAttribute(field, name, up, ignoreCase);
            break;
    }
}

struct TreeCounts {
    uint64_t elements = 0;
    uint64_t attributes = 0;
    uint64_t contentBytes = 0;
    int maxDepth = 0;
};

TreeCounts countTree(TreeNode* root) {
    TreeCounts c;
    std::vector<std::pair<TreeNode*, int>> stack;
    stack.emplace_back(root, 1);
    while (!stack.empty()) {
        TreeNode* node = stack.back().first;
        int depth = stack.back().second;
        stack.pop_back();
        ++c.elements;
        c.attributes += static_cast<uint64_t>(node->getNumAttributes());
        c.contentBytes += static_cast<uint64_t>(node->getContentSize());
        if (depth > c.maxDepth) c.maxDepth = depth;
        for (int i = childCount(node) - 1; i >= 0; --i)
            stack.emplace_back(childAt(node, i), depth + 1);
    }
    return c;
}

void appendLine(StringBuffer& out, const char* label, const char* value) {
    char line[512];
    std::snprintf(line, sizeof line, "%-15s%s\n", label, value);
    out.append(line);
}

void appendNumber(StringBuffer& out, const char* label, uint64_t value) {
    char text[32];
    std::snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(value));
    appendLine(out, label, text);
}

void appendTimes(StringBuffer& out, const LoadStats& stats) {
    char text[64];
    std::snprintf(text, sizeof text, "%.3f ms", stats.seconds * 1000.0);
    appendLine(out, "parse time", text);
    double rate =
        stats.seconds > 0 ? static_cast<double>(stats.inputBytes) / 1e6 / stats.seconds : 0.0;
    std::snprintf(text, sizeof text, "%.1f MB/s", rate);
    appendLine(out, "speed", text);
}

void appendProlog(StringBuffer& out, TreeNode* root) {
    StringBuffer encoding;
    bool found = false;
    root->getDocEncoding(encoding, found);
    appendLine(out, "encoding", found ? encoding.getString() : "(not declared)");
    const TreeInfo* info = root->getTreeInfo();
    bool hasDocType = info && info->docType && info->docType->getSize() > 0;
    appendLine(out, "doctype", hasDocType ? "yes" : "no");
    appendNumber(out, "style sheets",
                 info ? static_cast<uint64_t>(info->styleSheets.getSize()) : 0);
}

}  // namespace

int runFormat(const Options& o) {
    LoadedTree tree;
    int status = tree.load(o);
    if (status != kExitOk) return status;
    return emitDocument(o, tree.root(), tree.stats().inputBytes);
}

int runText(const Options& o) {
    LoadedTree tree;
    int status = tree.load(o);
    if (status != kExitOk) return status;
    StringBuffer out;
    const char* skip = o.hasSkip ? o.skip.c_str() : nullptr;
    if (o.hasTag) {
        tree.root()->accumulateTagContent(o.tag.c_str(), out, skip);
    } else {
        tree.root()->accumulateContent(out, skip);
    }
    out.appendChar('\n');
    return writeStandardOutput(out.getString(), static_cast<size_t>(out.getSize()));
}

int runFind(const Options& o) {
    LoadedTree tree;
    int status = tree.load(o);
    if (status != kExitOk) return status;
    FindQuery query{o.tag.c_str(), o.hasContent ? o.content.c_str() : nullptr,
                    o.hasAttr ? o.attrName.c_str() : nullptr, o.attrPattern.c_str()};
    StringBuffer out;
    uint64_t found = 0;
    walkBreadthFirst(tree.root(), [&](TreeNode* node) {
        if (!query.matches(node)) return true;
        writeMatch(node, out);
        ++found;
        return !o.first;
    });
    if (found == 0) return kExitNotFound;
    return writeStandardOutput(out.getString(), static_cast<size_t>(out.getSize()));
}

int runSort(const Options& o) {
    SortKey key;
    if (!parseSortKey(o.by, key)) {
        return reportError(kExitUsage, "unknown sort key '%s' (see 'xmltree sort --help')",
                           o.by.c_str());
    }
    bool integerKey = key.kind == SortKey::kAttrInt || key.kind == SortKey::kFieldInt;
    if (integerKey && o.ignoreCase) {
        return reportError(kExitUsage, "--ignore-case does not apply to the integer key '%s'",
                           o.by.c_str());
    }
    LoadedTree tree;
    int status = tree.load(o);
    if (status != kExitOk) return status;
    TreeNode* target = tree.root();
    if (o.hasAt) target = target->searchForTag(nullptr, o.at.c_str());
    if (!target) {
        return reportError(kExitNotFound, "no element '%s' in '%s'", o.at.c_str(),
                           displayName(o.input).c_str());
    }
    applySort(target, key, o.descending, o.ignoreCase);
    return emitDocument(o, tree.root(), tree.stats().inputBytes);
}

int runStats(const Options& o) {
    LoadedTree tree;
    int status = tree.load(o);
    if (status != kExitOk) return status;
    TreeCounts counts = countTree(tree.root());
    StringBuffer out;
    appendLine(out, "file", displayName(o.input).c_str());
    appendNumber(out, "input bytes", tree.stats().inputBytes);
    appendNumber(out, "elements", counts.elements);
    appendNumber(out, "attributes", counts.attributes);
    appendNumber(out, "max depth", static_cast<uint64_t>(counts.maxDepth));
    appendNumber(out, "content bytes", counts.contentBytes);
    appendProlog(out, tree.root());
    appendTimes(out, tree.stats());
    return writeStandardOutput(out.getString(), static_cast<size_t>(out.getSize()));
}
