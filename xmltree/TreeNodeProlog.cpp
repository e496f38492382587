// The document prolog kept in TreeInfo: the XML declaration node, the
// DOCTYPE and processing texts, and the style-sheet declaration nodes.
// Every operation works on the record shared by the whole tree, so any node
// of a tree may be used to reach it. Also style-sheet declarations given as
// text.

#include <strings.h>

#include "foundation/ByteScan.h"
#include "xmltree/TreeNode.h"

using bytescan::skipWs;

namespace {

const char kStyleSheetOpen[] = "<?xml-stylesheet";

// Sets one declaration pseudo-attribute. Removing before adding is what moves
// a re-set attribute to the end of the list; callers rely on that order.
void setDeclAttribute(TreeInfo* info, const char* name, const char* value) {
    if (!info) return;
    if (!info->xmlDecl) {
        TreeNode* decl = TreeNode::createRoot("xml");
        if (!decl) return;
        info->xmlDecl = decl;
        decl->addAttribute("version", "1.0");
    }
    TreeNode* decl = info->xmlDecl;
    if (AttributeSet* set = decl->getAttributeSet()) set->removeAttribute(name);
    decl->addAttribute(name, value);
}

void getDeclAttribute(const TreeInfo* info, const char* name, StringBuffer& out, bool& found) {
    found = false;
    if (!info || !info->xmlDecl) return;
    const AttributeSet* set = info->xmlDecl->getAttributeSet();
    if (set) found = set->getAttributeValue(name, out);
}

// An empty text is never stored: "" and null both leave the field null.
void replacePrologText(StringBuffer*& field, const char* text) {
    if (field) {
        delete field;
        field = nullptr;
    }
    if (text && *text) field = StringBuffer::createNewSB(text);
}

}  // namespace

void TreeNode::setXmlDeclaration(TreeNode* decl) {
    editing();
    if (decl) decl->editing();
    if (!treeInfo) return;
    if (treeInfo->xmlDecl == decl) return;
    if (treeInfo->xmlDecl) {
        // A declaration already being destroyed is only forgotten.
        if (treeInfo->xmlDecl->magic == kTreeMagicAlive) delete treeInfo->xmlDecl;
        treeInfo->xmlDecl = nullptr;
    }
    treeInfo->xmlDecl = decl;
}

void TreeNode::setDocEncoding(const char* encoding) {
    editing();
    setDeclAttribute(treeInfo, "encoding", encoding);
}

void TreeNode::checkSetDocEncoding(const char* encoding) {
    editing();
    StringBuffer current;
    bool found = false;
    getDocEncoding(current, found);
    if (!found) setDocEncoding(encoding);
}

void TreeNode::setDocStandalone(const char* value) {
    editing();
    setDeclAttribute(treeInfo, "standalone", value);
}

void TreeNode::getDocEncoding(StringBuffer& out, bool& found) {
    getDeclAttribute(treeInfo, "encoding", out, found);
}

void TreeNode::getDocStandalone(StringBuffer& out, bool& found) {
    getDeclAttribute(treeInfo, "standalone", out, found);
}

void TreeNode::setDocType(const char* text) {
    editing();
    if (!treeInfo) return;
    replacePrologText(treeInfo->docType, text);
}

void TreeNode::setProcessing(const char* text) {
    editing();
    if (!treeInfo) return;
    replacePrologText(treeInfo->processing, text);
}

void TreeNode::addStyleSheetDeclaration(TreeNode* node) {
    editing();
    if (node) node->editing();
    // Without a tree there is no list to own the node; the caller keeps it.
    if (!treeInfo || !node) return;
    ExtPtrArray& sheets = treeInfo->styleSheets;
    const int n = sheets.getSize();
    for (int i = 0; i < n; ++i) {
        if (sheets.elementAt(i) == node) return;
    }
    sheets.append(node);
}

void TreeNode::transferStyleSheets(ExtPtrArray& from, ExtPtrArray& to) {
    // Moving a list onto itself would end by emptying it and losing the nodes.
    if (&from == &to) return;
    const int n = from.getSize();
    for (int i = 0; i < n; ++i)
        to.append(from.elementAt(i));
    from.removeAll();
}

void TreeNode::appendStyleInfoToString(StringBuffer& out) {
    if (!treeInfo) return;
    const ExtPtrArray& sheets = treeInfo->styleSheets;
    const int n = sheets.getSize();
    for (int i = 0; i < n; ++i) {
        const TreeNode* sheet = static_cast<const TreeNode*>(sheets.elementAt(i));
        if (!sheet || !sheet->attributes) continue;
        // After a failed append nothing more goes out, so that the text
        // written is always a prefix of the whole.
        if (out.hasFailed() || !out.appendN(kStyleSheetOpen, sizeof(kStyleSheetOpen) - 1)) return;
        sheet->attributes->appendXml(out);
        if (!out.hasFailed()) out.appendN(kPrologLineEnd, sizeof(kPrologLineEnd) - 1);
    }
}

// ---- style-sheet text input -------------------------------------------------

bool TreeNode::addStyleSheet(const char* text, LogBase& log) {
    editing();
    if (!text) return false;
    ParseEngine engine;
    engine.append(text);
    engine.skipUntilChar('<');
    const char* t = engine.textPtr;
    int& c = engine.cursor;
    if (t[c] != '<') return false;
    ++c;
    skipWs(t, c);
    if (t[c] == '\0') return false;
    if (strncasecmp(t + c, "?xml-stylesheet ", 15) != 0) return false;
    StringBuffer name;
    engine.captureToNext(" \t\r\n/>", name);
    skipWs(t, c);
    if (t[c] == '/') ++c;
    TreeNode* node = createRoot(name.getString());
    ExtPtrArray list;
    if (node) list.append(node);
    parsePrologLineAttr(engine, node, &log);
    if (treeInfo) {
        transferStyleSheets(list, treeInfo->styleSheets);
    } else if (node) {
        delete node;  // nothing keeps a declaration for a node outside any tree
    }
    return true;
}
