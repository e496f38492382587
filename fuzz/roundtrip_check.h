#ifndef XMLTREE_FUZZ_ROUNDTRIP_CHECK_H
#define XMLTREE_FUZZ_ROUNDTRIP_CHECK_H

// Parse, write, parse again, and compare the two trees. Shared by the parse
// fuzzer and the regression replay test.
//
// The comparison is exact except for the losses that the writer and the
// parser document; each normalisation below names the rule it mirrors.
// Anything else that differs is a bug in one of the two.

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "foundation/PoolArena.h"
#include "xmltree/TreeArenaCheck.h"
#include "xmltree/TreeNode.h"

namespace roundtrip {

inline bool isWsByte(char c) {
    return c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

inline std::string trimmed(const std::string& s) {
    size_t b = 0, e = s.size();
    while (b < e && isWsByte(s[b]))
        ++b;
    while (e > b && isWsByte(s[e - 1]))
        --e;
    return s.substr(b, e - b);
}

// An element's name as the writer puts it out: a missing or empty tag is
// written as "nothing", which is what the second parse reads.
inline std::string writtenTag(const TreeNode* n) {
    const char* t = n->getTag();
    return *t ? t : "nothing";
}

// Attributes as the second parse can see them. Two documented losses:
//  - a name that cleaning emptied is written as ` ="v"`, and the parser
//    reads an empty name there and drops the pair;
//  - a cleaned name that begins with a digit, '.' or '-' (the original began
//    with a character that cleaning removed) gets the "A" prefix when the
//    written name is added again, as every added name does.
inline std::vector<std::pair<std::string, std::string>> attrList(const TreeNode* n) {
    std::vector<std::pair<std::string, std::string>> out;
    const AttributeSet* set = TreeArenaCheck::attributesOf(n);
    if (!set) return out;
    for (int i = 0; i < set->getSize(); ++i) {
        std::string name = set->nameAt(i);
        if (name.empty()) continue;
        char c = name[0];
        if ((c >= '0' && c <= '9') || c == '.' || c == '-') name.insert(0, "A");
        out.emplace_back(name, set->valueAt(i));
    }
    return out;
}

// Content as written and read back.
//  - CDATA content holding "]]>" is written without its "<![CDATA[" and "]]>"
//    sequences (the writer's rule, mirrored with the same two replacements).
//  - A trimming parse drops whitespace around each text run; content from
//    text runs already has none, CDATA content keeps it on both sides.
//  - Without trimming, the writer's line breaks and indentation become part
//    of the text read back, and the closing tag of an element with children
//    trims its content; so both sides are compared trimmed.
inline std::string contentAsWritten(const TreeNode* n, bool trim) {
    const StringBuffer* sb = TreeArenaCheck::contentOf(n);
    if (!sb) return std::string();
    std::string s(sb->getString(), static_cast<size_t>(sb->getSize()));
    if (n->getCdata() && sb->containsSubstringNoCase("]]>")) {
        StringBuffer copy(*sb);
        copy.replaceAllOccurances("<![CDATA[", "");
        copy.replaceAllOccurances("]]>", "");
        s.assign(copy.getString(), static_cast<size_t>(copy.getSize()));
    }
    return trim ? s : trimmed(s);
}

inline std::string contentRead(const TreeNode* n, bool trim) {
    const StringBuffer* sb = TreeArenaCheck::contentOf(n);
    if (!sb) return std::string();
    std::string s(sb->getString(), static_cast<size_t>(sb->getSize()));
    return trim ? s : trimmed(s);
}

// A single-pass removal of "]]>" can leave a new "]]>" behind ("]]]]>>>"),
// which then ends the written section early. The writer does exactly what it
// documents there, so such a document is not compared.
inline bool cdataSurvivesWriting(const TreeNode* n) {
    if (!n->getCdata()) return true;
    const StringBuffer* sb = TreeArenaCheck::contentOf(n);
    if (!sb || !sb->containsSubstringNoCase("]]>")) return true;
    StringBuffer copy(*sb);
    copy.replaceAllOccurances("<![CDATA[", "");
    copy.replaceAllOccurances("]]>", "");
    return !copy.containsSubstring("]]>");
}

inline std::string describe(const char* what, const std::string& a, const std::string& b) {
    return std::string(what) + ": first [" + a + "] second [" + b + "]";
}

inline std::string compareAttrs(const char* what, const TreeNode* a, const TreeNode* b) {
    auto la = attrList(a);
    auto lb = attrList(b);
    if (la.size() != lb.size()) {
        return describe(what, std::to_string(la.size()) + " attributes",
                        std::to_string(lb.size()) + " attributes");
    }
    for (size_t i = 0; i < la.size(); ++i) {
        if (la[i] != lb[i]) {
            return describe(what, la[i].first + "=" + la[i].second,
                            lb[i].first + "=" + lb[i].second);
        }
    }
    return std::string();
}

// Element trees, walked side by side with an explicit stack.
inline std::string compareElements(TreeNode* a, TreeNode* b, bool trim) {
    std::vector<std::pair<TreeNode*, TreeNode*>> stack;
    stack.emplace_back(a, b);
    while (!stack.empty()) {
        TreeNode* x = stack.back().first;
        TreeNode* y = stack.back().second;
        stack.pop_back();
        if (writtenTag(x) != writtenTag(y)) return describe("tag", writtenTag(x), writtenTag(y));
        std::string d = compareAttrs("attribute", x, y);
        if (!d.empty()) return d + " in <" + writtenTag(x) + ">";
        std::string cx = contentAsWritten(x, trim);
        std::string cy = contentRead(y, trim);
        if (cx != cy) return describe("content", cx, cy) + " in <" + writtenTag(x) + ">";
        // An empty section is written as nothing at all, so the flag only
        // travels with some content.
        if (!cx.empty() && x->getCdata() != y->getCdata()) {
            return describe("cdata flag", cx, cy) + " in <" + writtenTag(x) + ">";
        }
        int nx = x->getNumChildren();
        if (nx != y->getNumChildren()) {
            return describe("children", std::to_string(nx), std::to_string(y->getNumChildren())) +
                   " in <" + writtenTag(x) + ">";
        }
        for (int i = nx - 1; i >= 0; --i)
            stack.emplace_back(x->getChild(i), y->getChild(i));
    }
    return std::string();
}

inline std::string text(const StringBuffer* sb) {
    return sb ? sb->getString() : "";
}

// The prolog: declaration attributes, style sheets, DOCTYPE and processing
// texts. Style-sheet and declaration tags are never written. A style sheet
// without an attribute set is not written at all.
inline std::string compareProlog(TreeNode* a, TreeNode* b) {
    const TreeInfo* ia = TreeArenaCheck::infoOf(a);
    const TreeInfo* ib = TreeArenaCheck::infoOf(b);
    if ((ia->xmlDecl == nullptr) != (ib->xmlDecl == nullptr)) {
        return describe("declaration", ia->xmlDecl ? "present" : "absent",
                        ib->xmlDecl ? "present" : "absent");
    }
    if (ia->xmlDecl) {
        std::string d = compareAttrs("declaration attribute", ia->xmlDecl, ib->xmlDecl);
        if (!d.empty()) return d;
    }
    std::vector<TreeNode*> sa, sb;
    for (int i = 0; i < ia->styleSheets.getSize(); ++i) {
        TreeNode* n = static_cast<TreeNode*>(ia->styleSheets.elementAt(i));
        if (n && TreeArenaCheck::attributesOf(n)) sa.push_back(n);
    }
    for (int i = 0; i < ib->styleSheets.getSize(); ++i) {
        sb.push_back(static_cast<TreeNode*>(ib->styleSheets.elementAt(i)));
    }
    if (sa.size() != sb.size()) {
        return describe("style sheets", std::to_string(sa.size()), std::to_string(sb.size()));
    }
    for (size_t i = 0; i < sa.size(); ++i) {
        std::string d = compareAttrs("style-sheet attribute", sa[i], sb[i]);
        if (!d.empty()) return d;
    }
    if (text(ia->docType) != text(ib->docType)) {
        return describe("doctype", text(ia->docType), text(ib->docType));
    }
    if (text(ia->processing) != text(ib->processing)) {
        return describe("processing", text(ia->processing), text(ib->processing));
    }
    return std::string();
}

// A DOCTYPE or processing instruction cut off by the end of the text is kept
// as far as it went, and the writer writes it back unchanged; read again, it
// runs on over everything written after it. Such texts are dropped from the
// first tree before writing. Only the last piece of either text can be cut
// off, since the parse stops there.
inline void dropCutOffProlog(TreeNode* root) {
    const TreeInfo* info = TreeArenaCheck::infoOf(root);
    if (info->docType) {
        int depth = 0;
        for (const char* p = info->docType->getString(); *p; ++p) {
            if (*p == '<') ++depth;
            if (*p == '>' && depth > 0) --depth;
        }
        if (depth > 0) root->setDocType(nullptr);
    }
    if (info->processing) {
        // Walk the pieces as the parser made them: "<?", the text through the
        // first "?>" after it, "\n". A piece without "?>" is the cut one.
        const char* p = info->processing->getString();
        while (*p) {
            const char* close = std::strstr(p + 2, "?>");
            if (!close) {
                root->setProcessing(nullptr);
                break;
            }
            p = close[2] ? close + 3 : close + 2;
        }
    }
}

// The pseudo-attribute scanner ends a quoted value at either quote, while
// attribute text is written with only '"' escaped; a declaration or style-sheet
// value holding "'" (from "&apos;") is therefore cut short when read back, and
// what follows it is read as further pseudo-attributes, possibly past the
// end of the instruction. Such a document is not compared.
inline bool valuesFreeOfApostrophe(const TreeNode* n) {
    const AttributeSet* set = n ? TreeArenaCheck::attributesOf(n) : nullptr;
    if (!set) return true;
    for (int i = 0; i < set->getSize(); ++i) {
        if (std::strchr(set->valueAt(i), '\'')) return false;
    }
    return true;
}

inline bool prologValuesSurvive(TreeNode* root) {
    const TreeInfo* info = TreeArenaCheck::infoOf(root);
    if (!valuesFreeOfApostrophe(info->xmlDecl)) return false;
    for (int i = 0; i < info->styleSheets.getSize(); ++i) {
        if (!valuesFreeOfApostrophe(static_cast<TreeNode*>(info->styleSheets.elementAt(i)))) {
            return false;
        }
    }
    return true;
}

inline bool allCdataSurvives(TreeNode* root) {
    std::vector<TreeNode*> stack{root};
    while (!stack.empty()) {
        TreeNode* n = stack.back();
        stack.pop_back();
        if (!cdataSurvivesWriting(n)) return false;
        for (int i = 0; i < n->getNumChildren(); ++i)
            stack.push_back(n->getChild(i));
    }
    return true;
}

// Parses `data` in one whitespace mode, writes the tree, parses the output
// and compares. Returns "" when the trees agree, else the first difference.
inline std::string checkOneMode(const char* data, size_t size, bool trim) {
    TreeNode* first = nullptr;
    if (!TreeNode::customParseStringN(data, static_cast<int>(size), nullptr, &first, trim)) {
        return "first parse failed";
    }
    if (!first) return std::string();
    std::string result = TreeArenaCheck::problemIn(first);
    if (!result.empty()) {
        first->deleteTree();
        return "the parsed tree and its arena differ: " + result;
    }
    if (allCdataSurvives(first) && prologValuesSurvive(first)) {
        dropCutOffProlog(first);
        StringBuffer out;
        first->createXML(out, 0, 0, false);
        TreeNode* second = nullptr;
        if (!TreeNode::customParseStringN(out.getString(), out.getSize(), nullptr, &second, trim)) {
            result = "second parse failed";
        } else if (!second) {
            result = "second parse gave no tree";
        } else {
            result = compareElements(first, second, trim);
            if (result.empty()) result = compareProlog(first, second);
            second->deleteTree();
        }
        if (!result.empty()) result += "\n--- written ---\n" + std::string(out.getString());
    }
    first->deleteTree();
    return result;
}

inline std::string check(const char* data, size_t size) {
    xmltree::TreeArena::keepFromSlabsForTesting(1);  // small trees keep their arenas too
    std::string r = checkOneMode(data, size, true);
    if (!r.empty()) return "trimming: " + r;
    r = checkOneMode(data, size, false);
    if (!r.empty()) return "keeping whitespace: " + r;
    return std::string();
}

}  // namespace roundtrip

#endif
