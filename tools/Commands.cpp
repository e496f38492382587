// The commands that read a whole tree: format, text, find, sort and stats.

#include "Commands.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Document.h"
#include "Output.h"
#include "ParseReport.h"
#include "foundation/StringFunctions.h"
#include "xmltree/Tree.h"
#include "xmltree/TreeNode.h"

namespace {

const char* textOf(const char* s) {
    return s ? s : "";
}

// Through the node's getters rather than its children array: asking for
// the array would cost a parsed tree its quick release.
TreeNode* childAt(const TreeNode* node, int index) {
    return const_cast<TreeNode*>(node)->getChild(index);
}

int childCount(const TreeNode* node) {
    return node->getNumChildren();
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
        if (attrName && !const_cast<TreeNode*>(node)->hasMatchingAttribute(attrName, attrPattern)) {
            return false;
        }
        return true;
    }
};

// A match is written as an element of its own at depth 0. Index 1 keeps the
// writer from starting it with an empty line. The root is written without
// its prolog: a search result is an element, not a document.
void writeMatch(TreeNode* node, StringBuffer& out) {
    if (node->getParent() != nullptr) {
        node->createXML(out, 1, 0, true);
    } else if (!node->openTag(out, 0)) {
        node->outputContent(out);
        int n = childCount(node);
        for (int i = 0; i < n; ++i)
            childAt(node, i)->createXML(out, i, 1, false);
        node->closeTag(out, 0);
    }
    const int size = out.getSize();
    if (size == 0 || out.getString()[size - 1] != '\n') out.append("\r\n");
}

// "NAME:LINE:COLUMN:" of each node's '<', in the order given; positions the
// report does not know are left empty.
std::vector<std::string> matchPlaces(const std::vector<TreeNode*>& nodes, const ParseReport& report,
                                     const LoadedDocument& doc, const std::string& name) {
    std::vector<std::pair<int, size_t>> byOffset;
    for (size_t i = 0; i < nodes.size(); ++i)
        byOffset.emplace_back(report.startOf(nodes[i]), i);
    std::sort(byOffset.begin(), byOffset.end());
    std::vector<std::string> places(nodes.size());
    TextPosition position;
    char text[64];
    for (const auto& entry : byOffset) {
        if (entry.first < 0 || static_cast<size_t>(entry.first) > doc.textSize()) continue;
        position.moveTo(doc.text(), entry.first);
        std::snprintf(text, sizeof text, ":%d:%d:", position.line(), position.column());
        places[entry.second] = name + text;
    }
    return places;
}

// What `format` and `sort` do once the tree is ready: refuse to replace a
// file with a text that does not keep everything (unless --lossy), write,
// and say on standard error what was not kept.
int writeDocument(const Options& o, LoadedDocument& doc, const ParseReport& report,
                  OutputFile* file) {
    long things = 0;
    const std::string lost = report.lossSummary(&things);
    if (!lost.empty() && file && file->targetExists()) {
        return reportError(kExitUsage,
                           "'%s' not replaced: %s would not be kept ('xmltree check %s' lists "
                           "them; --lossy writes anyway)",
                           o.output.c_str(), lost.c_str(), o.input.c_str());
    }
    int status = emitDocument(o, doc.root(), doc.stats().inputBytes, file);
    if (status == kExitOk && !lost.empty()) {
        reportError(kExitOk, "%s %s not kept; 'xmltree check %s' lists them", lost.c_str(),
                    things == 1 ? "was" : "were", o.input.c_str());
    }
    return status;
}

// Loads the input of `format` or `sort`, with -o prepared first: a path
// that cannot be written is refused before any reading.
int loadForWriting(const Options& o, OutputFile& file, ParseReport& report, LoadedDocument& doc) {
    if (o.hasOutput) {
        int status = file.prepare(o.output);
        if (status != kExitOk) return status;
    }
    int status = doc.load(o, report);
    if (status == kExitOk) doc.releaseText();
    return status;
}

// Notes are counted only when a summary may be wanted.
ParseReport::Mode writingMode(const Options& o) {
    return o.lossy ? ParseReport::Mode::kMessages : ParseReport::Mode::kCount;
}

int writeText(const StringBuffer& out) {
    if (outputFailed(out))
        return reportError(kExitUsage, "cannot write standard output: Out of memory");
    return writeStandardOutput(out.getString(), static_cast<size_t>(out.getSize()));
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
    OutputFile file;
    ParseReport report(writingMode(o));
    LoadedDocument doc;
    int status = loadForWriting(o, file, report, doc);
    if (status != kExitOk) return status;
    return writeDocument(o, doc, report, o.hasOutput ? &file : nullptr);
}

int runText(const Options& o) {
    ParseReport report(ParseReport::Mode::kMessages);
    LoadedDocument doc;
    int status = doc.load(o, report);
    if (status != kExitOk) return status;
    doc.releaseText();
    StringBuffer out;
    const char* skip = o.hasSkip ? o.skip.c_str() : nullptr;
    if (o.hasTag) {
        doc.root()->accumulateTagContent(o.tag.c_str(), out, skip);
    } else {
        doc.root()->accumulateContent(out, skip);
    }
    out.appendChar('\n');
    return writeText(out);
}

int runFind(const Options& o) {
    ParseReport report(ParseReport::Mode::kMessages, o.positions);
    LoadedDocument doc;
    int status = doc.load(o, report);
    if (status != kExitOk) return status;
    if (!o.positions) doc.releaseText();
    FindQuery query{o.tag.c_str(), o.hasContent ? o.content.c_str() : nullptr,
                    o.hasAttr ? o.attrName.c_str() : nullptr, o.attrPattern.c_str()};
    std::vector<TreeNode*> found;
    // The library's search order: level by level, each level in document order.
    for (TreeNode* node : xmltree::BreadthFirst(doc.root())) {
        if (!query.matches(node)) continue;
        found.push_back(node);
        if (o.first) break;
    }
    if (found.empty()) return kExitNotFound;
    std::vector<std::string> places;
    if (o.positions) places = matchPlaces(found, report, doc, displayName(o.input));
    StringBuffer out;
    for (size_t i = 0; i < found.size(); ++i) {
        if (o.positions) {
            out.append(places[i].c_str());
            out.append("\r\n");
        }
        writeMatch(found[i], out);
    }
    if (!o.crlf) crlfToLf(out, 0);
    return writeText(out);
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
    OutputFile file;
    ParseReport report(writingMode(o));
    LoadedDocument doc;
    int status = loadForWriting(o, file, report, doc);
    if (status != kExitOk) return status;
    TreeNode* target = doc.root();
    if (o.hasAt) target = target->searchForTag(nullptr, o.at.c_str());
    if (!target) {
        return reportError(kExitNotFound, "no element '%s' in '%s'", o.at.c_str(),
                           displayName(o.input).c_str());
    }
    applySort(target, key, o.descending, o.ignoreCase);
    return writeDocument(o, doc, report, o.hasOutput ? &file : nullptr);
}

int runStats(const Options& o) {
    ParseReport report(ParseReport::Mode::kMessages);
    LoadedDocument doc;
    int status = doc.load(o, report);
    if (status != kExitOk) return status;
    doc.releaseText();
    TreeCounts counts = countTree(doc.root());
    StringBuffer out;
    appendLine(out, "file", displayName(o.input).c_str());
    appendNumber(out, "input bytes", doc.stats().inputBytes);
    appendNumber(out, "elements", counts.elements);
    appendNumber(out, "attributes", counts.attributes);
    appendNumber(out, "max depth", static_cast<uint64_t>(counts.maxDepth));
    appendNumber(out, "content bytes", counts.contentBytes);
    appendProlog(out, doc.root());
    appendTimes(out, doc.stats());
    return writeText(out);
}
