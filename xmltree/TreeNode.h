#ifndef XMLTREE_TREENODE_H
#define XMLTREE_TREENODE_H

// The in-memory XML tree: TreeNode is one element, TreeInfo the record that
// all nodes of one tree share (root, prolog, tree id, tree reference count).
//
// Ownership, the rule every edit depends on (docs/guide.md has the details):
//   - A tree is owned through its root. deleteTree() on any node, or deleting
//     the root, frees every node, the TreeInfo and the prolog. A parse, the
//     create operations with no parent and removeFromTree() hand a new tree
//     to the caller. xmltree::Tree (xmltree/Tree.h) owns one for you.
//   - A parent owns its children; a node owns its tag, content, attributes
//     and children array. Node pointers that operations return are borrowed.
//   - A tree reference (incTreeRefCount on any node of the tree) keeps the
//     tree alive across detaches. removeFromTree() destroys what is left of
//     the old tree when no reference remains in it, and the remove operations
//     delete a removed child unless a reference is held in its subtree. A
//     parsed tree starts with none: hold one on the root (xmltree::Tree does)
//     before removing or moving anything, or the document may go with it.
//   - `delete` is right only for a root nobody else owns: the destructor does
//     not unlink a node from its parent, whose slot would dangle.
//   - Copy construction exists but copies nothing (see below); assignment is
//     deleted.
//   - A large parsed tree that has not been changed is freed whole, without
//     visiting its nodes; once it is changed, or a pointer to one of its
//     buffers, arrays or its TreeInfo is asked for, it is freed node by node.
//
// All text is UTF-8. Wildcard patterns: '*' matches any run of bytes, '?'
// exactly one byte, every other byte itself; the whole text must match and a
// null pattern matches nothing. A node without a tag or content reads as ""
// in every comparison. Nothing here throws; failures show as false, null, 0
// or an unchanged tree. A tree may be used by one thread at a time.
//
// Where each family of operations lives:
//   node model (construction, tags, references)   TreeNodeModel.cpp
//   content and tag repair                        TreeNodeContent.cpp
//   children and siblings                         TreeNodeChildren.cpp
//   attributes                                    TreeNodeAttributes.cpp
//   subtree membership walks                      TreeNodeWalks.cpp
//   swapping                                      TreeNodeSwap.cpp
//   prolog and style sheets                       TreeNodeProlog.cpp
//   markup parser (main loop)                     TreeNodeParser.cpp
//   markup declarations and prolog branches       TreeNodeMarkup.cpp
//   parse entry points                            TreeNodeParseEntry.cpp
//   input decoding                                TreeNodeDecode.cpp
//   XML writer                                    TreeNodeWriter.cpp
//   content extraction                            TreeNodeExtract.cpp
//   child lookups and subtree searches            TreeNodeQueries.cpp
//   sorting and ordered insertion                 TreeNodeOrdering.cpp

#include <cstdint>

#include "foundation/AttributeSet.h"
#include "foundation/DataBuffer.h"
#include "foundation/ExtPtrArray.h"
#include "foundation/LogBase.h"
#include "foundation/MorvexObject.h"
#include "foundation/ParseEngine.h"
#include "foundation/PooledObject.h"
#include "foundation/ProgressMonitor.h"
#include "foundation/StringBuffer.h"
#include "foundation/StringPair.h"
#include "xmltree/StringConsumer.h"

class TreeNode;
namespace xmltree {
struct PoolArena;
}

// Markers kept in TreeNode::magic and TreeInfo::magic.
enum : uint8_t { kTreeMagicAlive = 206, kTreeMagicDead = 49 };

// The record every node of one tree points to. The root owns it; it goes
// with the root. Callers read it through TreeNode::getTreeInfo(); the fields
// are public for inspection, and changing them breaks the tree.
class TreeInfo : public MorvexObject {
public:
    XMLTREE_SMALL_OBJECT_POOLED(TreeInfo)
    // A record with the next tree id, no root and reference count 0. Only
    // the create operations, the parser and removeFromTree() make records.
    TreeInfo();
    // Frees the prolog it owns (declaration, style sheets, DOCTYPE,
    // processing text); never the root.
    ~TreeInfo() override;

    // Not copyable: a tree has exactly one record.
    TreeInfo(const TreeInfo&) = delete;
    TreeInfo& operator=(const TreeInfo&) = delete;

    // kTreeMagicAlive while alive, kTreeMagicDead once destruction began.
    uint8_t magic;
    TreeNode* root;         // not owned
    // The XML declaration node, whose attributes are version, encoding and
    // standalone; null when the document has no declaration.
    TreeNode* xmlDecl;      // owned
    // The xml-stylesheet declaration nodes, in document order.
    ExtPtrArray styleSheets;  // owned TreeNode*
    // Processing instructions, written as they are before the root.
    StringBuffer* processing;  // owned
    // The DOCTYPE declaration as read, written as it is.
    StringBuffer* docType;     // owned
    // Unique in the process: taken from a counter that starts at 100.
    int treeId;
    // Tree references held on the nodes of this tree, in all.
    int refCount;

private:
    friend class TreeNode;
    friend class TreeArenaCheck;
    // The slabs a parse filled with this tree, while every block in them is
    // the tree's and the tree can be freed whole (foundation/PoolArena.h);
    // null once the tree was changed, and for trees not parsed.
    xmltree::PoolArena* arena;
};

// One XML element: a tag, text content, ordered attributes and ordered
// children, with links to its parent and siblings.
//
// `TreeNode copy = *node;` compiles, because the node model has always
// offered a copy constructor, but it copies nothing: the result is an empty
// node outside any tree. There is no deep copy; write the subtree and parse
// it again, or build it node by node.
class TreeNode : public MorvexObject {
public:
    // Nodes come from the small-object pool (foundation/SmallObjectPool.h).
    XMLTREE_SMALL_OBJECT_POOLED(TreeNode)
    // ---- node model -------------------------------------------------------
    // The constructors make a node outside any tree, which no operation that
    // needs a tree accepts as a parent; use createRoot / createNode instead.
    // Empty node: no tag, content, attributes or children.
    TreeNode() {}
    // A node with that tag (cleaned; null or "" gives none) and a copy of
    // content (null or "" gives none). The int is not read; pass 0.
    TreeNode(const char* tag, const char* content, int unused);
    // The same with content's bytes copied as they are (UTF-8 expected).
    TreeNode(const char* tag, DataBuffer& content, int unused);
    TreeNode(const TreeNode& other);  // makes an empty node; nothing is copied
    // Frees this node with its subtree and, for a root, its TreeInfo and
    // prolog. It does not unlink the node from a parent: delete only a root
    // nobody else owns, or call deleteTree().
    ~TreeNode() override;
    // Not assignable; swapNode and swapTree exchange what two nodes hold.
    TreeNode& operator=(const TreeNode&) = delete;

    // A new tree: a root with that tag (cleaned; null or "" gives none), a
    // fresh TreeInfo and reference count 0. The caller owns the tree
    // (deleteTree(), or an xmltree::Tree). Null when memory runs out.
    static TreeNode* createRoot(const char* tag);
    // The same with text content (copied; null or "" gives none).
    static TreeNode* createRoot2(const char* tag, const char* content);
    // The same with content's bytes (UTF-8), copied.
    static TreeNode* createRoot3(const char* tag, DataBuffer& content);

    // The element name; "" when the node has none, never null.
    const char* getTag() const { return tag ? tag->getString() : ""; }
    // The tag buffer itself (owned by the node, which holds it in its own
    // block: never delete it); null when there is no name.
    StringBuffer* _getMyTagSB2();
    // Sets the name. Bytes that may not stand in an XML name are dropped
    // (ASCII other than letters, digits, '_', '-', '.', ':'). Null leaves a
    // node without a name unchanged and gives a named node an empty name.
    void _setMyTag(const char* tag);
    // The same as _setMyTag.
    void setTag(const char* tag);
    // Frees the tag buffer: the node has no name afterwards.
    void _releaseMyTagSB();

    // Takes one tree reference on this node. False when the node belongs to
    // no tree (its own count still goes up, to be given back as usual).
    bool incTreeRefCount();
    // Gives back one reference taken on this same node. Never frees anything,
    // even when the count reaches 0. False when this node held none or the
    // tree's count was already 0.
    bool decTreeRefCount();
    // References held on all nodes of this tree; 0 outside a tree.
    int getTreeRefCount() const;
    // Frees the whole tree this node belongs to, from its root down, this
    // node included, whatever references are held. Nothing outside a tree.
    void deleteTree();

    // The root of this node's tree (borrowed); null outside a tree.
    TreeNode* getRoot() const;
    // The tree's id; 0 outside a tree.
    int getTreeId() const;
    // The parent; null for a root and for a node outside any tree.
    TreeNode* getParent() const;

    // Read access to the bookkeeping fields, for invariant checks and tools.
    // The shared record; null outside a tree.
    TreeInfo* getTreeInfo() const {
        editing();
        return treeInfo;
    }
    // kTreeMagicAlive while the node is alive.
    uint8_t getMagic() const { return magic; }
    // References held on this node itself.
    int getLocalRefCount() const { return localRefCount; }
    // The children (owned by the node); null until the first child came.
    ExtPtrArray* getChildrenArray() const {
        editing();
        return children;
    }
    // The attributes (owned by the node); null until the first was added.
    AttributeSet* getAttributeSet() const {
        editing();
        return attributes;
    }

    // ---- content ----------------------------------------------------------
    // The node owns its content buffer, made on the first write. Setters
    // copy what they are given. When memory runs out the content stays as
    // it was and nothing reports it.

    // Puts "A" in front of a name that begins with a digit, '.' or '-'.
    void ensureLegalTagStartChar();
    // Makes an empty content buffer if there is none; false when that fails.
    bool ensureContentObj();
    // The content buffer (owned by the node), made empty if missing; null
    // when memory runs out.
    StringBuffer* getOrCreateContentSb();
    // Replaces the content with the n bytes at s. Null s empties it.
    void setContentN(const char* s, int n);
    // Replaces the content with data's bytes.
    void setContentUtf8Data(const DataBuffer& data);
    // Replaces the content with s and marks the buffer as UTF-8. Null s
    // empties it.
    void setContentUtf8(const char* s);
    // Appends s; null or "" appends nothing.
    void appendContent(const char* s);
    // Appends the n bytes at s; nothing when s is null or starts with NUL.
    void appendContentN(const char* s, int n);
    // Appends data's bytes.
    void appendContent(const DataBuffer& data);
    // Appends one byte.
    void appendContentChar(char c);
    // Appends v as decimal text.
    void appendContentInt(int v);
    // True makes the writer put the content in a CDATA section.
    void setCdata(bool b);

    // The content; "" when there is none, never null. Valid until it changes.
    const char* getContent() const { return content ? content->getString() : ""; }
    // The content buffer itself (owned by the node); null when there is none.
    StringBuffer* getContentSb();
    // The same, from a const node.
    StringBuffer* getContentSb_const() const;
    // Content length in bytes.
    int getContentSize() const;
    // True when the content is not empty.
    bool hasContent() const;
    // The content read as a decimal integer (leading blanks, sign, digits;
    // saturating); 0 when it does not start with a number.
    int getContentIntValue() const;
    // The content read as a floating-point number; 0.0 when none.
    double getContentDblValue() const;
    // Content equals s; caseSensitive false folds ASCII letters. False for a
    // node without a content buffer, even when s is "".
    bool contentEquals(const char* s, bool caseSensitive) const;
    // The whole content matches the wildcard pattern; caseSensitive false
    // folds ASCII letters. False without a content buffer.
    bool contentMatches(const char* pattern, bool caseSensitive) const;
    // Whether the content is written as CDATA.
    bool getCdata() const;

    // ---- children ---------------------------------------------------------
    // Makes a node with that tag and appends it as parent's last child; the
    // tree owns it and the pointer returned is borrowed. A null parent makes
    // a new root instead, as createRoot does. Null when memory runs out or
    // parent belongs to no tree.
    static TreeNode* createNode(TreeNode* parent, const char* tag);
    // The same with text content (copied; null or "" gives none).
    static TreeNode* createNode2(TreeNode* parent, const char* tag, const char* content);
    // The same with content's bytes (UTF-8), copied. log is not used.
    static TreeNode* createNode3(TreeNode* parent, const char* tag, DataBuffer& content,
                                 LogBase* log);

    // Attaches child as the last child. child is the root of another tree or
    // a node outside any tree: this tree takes it, its old TreeInfo (prolog
    // included) is freed and its references join this tree. False, with
    // nothing changed, for a null child, a child with another parent, one
    // already in this tree, or when memory runs out. callerId only names the
    // calling site (the library passes 1004 to 1007); any value does the same.
    bool appendChild2(TreeNode* child, int callerId);
    // Attaches child so that it becomes child `index` (0 to getNumChildren()),
    // as appendChild2 does. False also for an index outside that range and
    // for a child that has any parent.
    bool insertChild(int index, TreeNode* child);
    // Child `index` (borrowed); null when out of range.
    TreeNode* getChild(int index);
    // The first child (borrowed); null when there is none.
    TreeNode* getFirstChild();
    // The last child (borrowed); null when there is none.
    TreeNode* getLastChild();
    // The number of children.
    int getNumChildren() const;
    // The previous child of the same parent; null for a first child or root.
    TreeNode* getPrevSibling();
    // The next child of the same parent; null for a last child or root.
    TreeNode* getNextSibling();
    // Sets every child's sibling links from the order of the children array.
    void rebuildChildrenSiblingList();
    // Detaches this node with its subtree: it becomes the root of a new tree
    // (new TreeInfo, no prolog) carrying the references held in it, and the
    // caller owns that tree (deleteTree(), or xmltree::Tree::detach). When no
    // reference is left in the old tree, all that remains of it is freed,
    // former parent and root included. Nothing for a root.
    void removeFromTree();
    // Detaches child `index` and frees it, unless a reference is held in its
    // subtree: then it lives on as the root of its own tree, owned by the
    // holder. Like removeFromTree, frees this node's whole tree when no
    // reference is held outside the child.
    void removeChildByIndex(int index);
    // Removes, as removeChildByIndex does, every child whose tag equals tag.
    // Null removes nothing. With no reference held outside the removed
    // children, the first removal frees this node's tree and the call stops.
    void removeChild(const char* tag);
    // The same for children whose content equals content.
    void removeChildWithContent(const char* content);
    // Moves the first child (from index 1 on) whose content equals content
    // one place towards the front. Needs a reference held in the tree
    // outside that child, as removeChild does.
    void moveUpChildWithContent(const char* content);
    // Moves the first child (up to the last but one) whose content equals
    // content one place towards the end. Needs a reference as above.
    void moveDownChildWithContent(const char* content);
    // Renames every child whose tag equals oldTag (the new name is cleaned).
    void renameChildTag(const char* oldTag, const char* newTag);

    // ---- attributes -------------------------------------------------------
    // Attributes keep the order they were added in; names compare exactly,
    // and lookups by name find the first attribute of that name. Values are
    // held unescaped and copied in and out.

    // Appends name=value, even when an attribute of that name exists: use
    // updateAttribute to set one. The name is cleaned as tags are and gets
    // "A" in front when it begins with a digit, '.' or '-'; a null value is
    // stored as "". A null or "" name adds nothing.
    void addAttribute(const char* name, const char* value);
    // Sets the attribute: removes the first of that name, then appends
    // name=value, which ends up last. The name is stored as given, uncleaned.
    // False for a null name or when memory runs out.
    bool updateAttribute(const char* name, const char* value);
    // Removes the first attribute of that name; false when there is none.
    bool removeAttribute(const char* name);
    // Removes every attribute.
    void removeAllAttributes();
    // Replaces out with the value of that attribute; false, with out left as
    // it was, when there is none.
    bool getAttributeValue(const char* name, StringBuffer& out) const;
    // The value of attribute `index` (0-based); false when out of range.
    bool getAttributeValue(int index, StringBuffer& out) const;
    // Name and value of attribute `index`; false when out of range.
    bool getAttributePair(int index, StringBuffer& name, StringBuffer& value) const;
    // The name of attribute `index`; false when out of range.
    bool getAttributeName(int index, StringBuffer& out) const;
    // The number of attributes.
    int getNumAttributes() const;
    // Whether an attribute has exactly this name (not a pattern).
    bool hasAttribute(const char* name);
    // The attribute `name` has a value that matches the wildcard pattern,
    // case-sensitively.
    bool hasMatchingAttribute(const char* name, const char* pattern);
    // The attribute `name` has exactly that value.
    bool hasAttributeWithValue(const char* name, const char* value);
    // The same with the pair's key and value.
    bool hasAttributeWithValue(StringPair& pair);
    // Replaces this node's attributes with copies of from's, added through
    // addAttribute (names trimmed and cleaned; blank names skipped).
    void copyAttributes(TreeNode& from);

    // ---- subtree membership walks ----------------------------------------
    // Points this node and every node below it at info. The library's own
    // step when nodes change trees: it adjusts no count and no record, so a
    // call from outside breaks the tree.
    void setInfoRecursive(TreeInfo* info);
    // References held on this node and every node below it, in all.
    int localRefcountSum();
    // True when the tree's reference count equals the sum over its nodes (a
    // consistency check); false outside a tree.
    bool verifyRefCounts();

    // ---- swapping ---------------------------------------------------------
    // Exchanges tag, content and attributes with other. Children, the CDATA
    // flag, references and tree membership stay; empty content ends as none.
    void swapNode(TreeNode& other);
    // swapNode, then exchanges the two nodes' children, moving their
    // references between the trees. Neither node may lie in the other's
    // subtree: that is not checked and would make a node its own ancestor.
    void swapTree(TreeNode& other);

    // ---- prolog -----------------------------------------------------------
    // The prolog belongs to the tree: any node of it reaches the same one.
    // Nothing happens on a node outside any tree.

    // Makes decl the XML declaration node and frees the previous one. The
    // tree takes ownership of decl, which must be a root of its own (e.g.
    // createRoot("xml") with version and encoding attributes) that nothing
    // else owns. Null removes the declaration. Outside a tree the caller
    // keeps decl.
    void setXmlDeclaration(TreeNode* decl);
    // Sets the declaration's "encoding" (it moves to the end of the
    // declaration), making a declaration with version="1.0" if there is none.
    void setDocEncoding(const char* encoding);
    // Sets "encoding" only when the declaration has none.
    void checkSetDocEncoding(const char* encoding);
    // Sets the declaration's "standalone", as setDocEncoding does.
    void setDocStandalone(const char* value);
    // Replaces out with the declared encoding as written; found tells
    // whether there is one (out untouched when not).
    void getDocEncoding(StringBuffer& out, bool& found);
    // The same for "standalone".
    void getDocStandalone(StringBuffer& out, bool& found);
    // Replaces the DOCTYPE text (whole markup, written as it is, copied);
    // null or "" removes it.
    void setDocType(const char* text);
    // Replaces the processing-instruction text written before the root
    // (whole markup, copied); null or "" removes it.
    void setProcessing(const char* text);

    // Appends an xml-stylesheet declaration node (a root of its own whose
    // attributes are the pseudo-attributes); the tree owns it from then on.
    // The same node twice is kept once. Null or outside a tree: nothing, and
    // the caller keeps node.
    void addStyleSheetDeclaration(TreeNode* node);
    // Moves every node pointer of from to the end of to and empties from;
    // ownership goes with the pointers.
    static void transferStyleSheets(ExtPtrArray& from, ExtPtrArray& to);
    // Appends one "<?xml-stylesheet ... ?>" line (CR LF) per style sheet.
    void appendStyleInfoToString(StringBuffer& out);
    // Reads "<?xml-stylesheet ...?>" text (anything before its first '<'
    // skipped) and adds it after the tree's other style sheets. False when
    // the text holds no such declaration at its first '<'. Outside a tree it
    // returns true and keeps nothing. Nothing is logged.
    bool addStyleSheet(const char* text, LogBase& log);

    // ---- input decoding and parsing ---------------------------------------
    // Converts data to UTF-8 in place: by byte-order mark (UTF-8, UTF-16), or
    // from the encoding the XML declaration names. An encoding that cannot be
    // converted leaves the bytes as they are. False only when data is empty;
    // conversion problems go to log.
    static bool convertXmlToUtf8(DataBuffer& data, LogBase& log);
    // Loads the file (path in UTF-8) into data and converts it as above.
    // False when the file cannot be read (the cause goes to log) or is empty.
    static bool loadToUtf8(const char* path, DataBuffer& data, LogBase& log);

    // Parsing. The parser never rejects a document: malformed markup is
    // passed over, each recovery reported to the logger, and what was read
    // is returned. *outRoot is set to null first, then to the root of the
    // last top-level element; the caller owns that tree. True with a null
    // *outRoot means the text held no element. False when the input cannot
    // be read or decoded, is more than INT_MAX-1 bytes after decoding
    // ("Input too large"), or memory runs out ("Out of memory"; the partial
    // tree is freed); *outRoot then stays null. log and monitor may be null
    // and are called only during the call. trimWhitespace true drops the
    // whitespace around text runs; false keeps it.

    // Parses the UTF-8 text of engine from its cursor; false also for a null
    // outRoot.
    static bool customParse(ParseEngine& engine, LogBase* log, ProgressMonitor* monitor,
                            TreeNode** outRoot, bool trimWhitespace);
    // Reads pseudo-attributes (name="value" ...) from the cursor through the
    // '>' that ends the instruction into node's attributes. log is not used.
    static void parsePrologLineAttr(ParseEngine& engine, TreeNode* node, LogBase* log);

    // A file, in any supported encoding. A declared 16-bit encoding is
    // recorded as "utf-8" afterwards, since the tree holds UTF-8.
    static bool customParseFile(const char* path, LogBase* log, ProgressMonitor* monitor,
                                TreeNode** outRoot, bool trimWhitespace);
    // n bytes of UTF-8 text. There is no logger: recoveries go unreported.
    static bool customParseStringN(const char* text, int n, ProgressMonitor* monitor,
                                   TreeNode** outRoot, bool trimWhitespace);
    // The UTF-8 text of a buffer, up to its first NUL byte.
    static bool customParseString(const StringBuffer& text, LogBase* log,
                                  ProgressMonitor* monitor, TreeNode** outRoot,
                                  bool trimWhitespace);
    // data's bytes as UTF-8; data is not changed (its block may be read in
    // place, the buffer empty while the parse runs). Note the argument order.
    static bool customParseUtf8Data(DataBuffer& data, ProgressMonitor* monitor, LogBase& log,
                                    TreeNode** outRoot, bool trimWhitespace);
    // data in any supported encoding: converted to UTF-8 in place, then
    // parsed. The recorded encoding stays as declared. An empty buffer gives
    // false and "Failed to convert XML data to utf-8 internal representation".
    static bool customParseData2(DataBuffer& data, ProgressMonitor* monitor, LogBase& log,
                                 TreeNode** outRoot, bool trimWhitespace);

    // ---- writer -----------------------------------------------------------
    // Appends this node and its subtree to out as XML: CR LF line ends, four
    // blanks per depth level (at most 200), content escaped or as CDATA, a
    // node without a name written as "nothing". A root first writes the
    // prolog: declaration (unless omitDeclaration), style sheets, DOCTYPE,
    // processing text. index is the node's position among its siblings:
    // index 0 starts the element with a line break, so a root without
    // declaration, DOCTYPE or processing text written with index 0 begins
    // with an empty line; pass 1 to avoid it. depth is this node's
    // indentation level (0 for a document). Nothing for a node outside a
    // tree. When out cannot grow the text ends early, always on a whole
    // prefix of the document, and out.hasFailed() tells; a buffer already
    // marked failed takes nothing more (clear() it first).
    // Moves the declaration's "standalone" to the end of its attributes.
    void createXML(StringBuffer& out, int index, int depth, bool omitDeclaration);
    // Appends the indentation and the open tag with the attributes. True when
    // that completed the element (" />" and CR LF: no content, no children
    // array); false when it ended with a plain '>'.
    bool openTag(StringBuffer& out, int depth);
    // Appends the indentation, "</name>" and CR LF.
    void closeTag(StringBuffer& out, int depth);
    // Appends the content, escaped (&lt; &gt; &quot; &apos; &amp;) or, with
    // the CDATA flag, as one CDATA section from which any "]]>" and
    // "<![CDATA[" inside are dropped. False when there is no content.
    bool outputContent(StringBuffer& out) const;
    // Sets the CDATA flag when the content holds '"', '&', '<' or '>'; never
    // clears it.
    void checkCdataRequired();

    // ---- content extraction -----------------------------------------------
    // These walk breadth-first from this node: level by level, each level in
    // document order. They append to their output and never clear it.
    // A skip list is "a|b|c": elements with one of those tags (exact match)
    // give their own text but are not descended into; null skips nothing.

    // Every node's content, each followed by separator, then the last
    // separator removed. A node without content gives an empty field.
    void getAllContent(StringBuffer& out, char separator);
    // Every node's content separated by one blank; a node without content
    // still costs a blank.
    void accumulateContent(StringBuffer& out, const char* skipTags);
    // The content of the elements whose tag equals tag, separated by one
    // blank. A null tag gives nothing.
    void accumulateTagContent(const char* tag, StringBuffer& out, const char* skipTags);
    // Calls consumer->consumeString with the content of each element whose
    // tag equals tag ("" for one without content). Null tag or consumer:
    // nothing. The consumer must not change the tree.
    void collectTagContent(const char* tag, StringConsumer* consumer);
    // The decoded base64 content of every node. A node with under 8 bytes of
    // content and the attribute src="ext" is a reference instead: its
    // content is an index into externals (the caller's DataBuffer*, may be
    // null) whose bytes are appended as they are; out of range adds nothing.
    void accumulateBase64Content(DataBuffer& out, ExtPtrArray* externals);
    // In document order, the (skipCount+1)-th node whose content is longer
    // than minLength bytes and holds at least minLength ASCII letters ("&nbsp;"
    // not counted). Nodes whose tag is in skipTags (StringBuffer*, compared
    // ignoring ASCII case) or whose content contains a text of excludeTexts
    // (StringBuffer*, case-sensitive) do not count. Borrowed; null when none.
    TreeNode* firstSignificantContent(int skipCount, int minLength, ExtPtrArray& skipTags,
                                      ExtPtrArray& excludeTexts);
    // The node with the largest content of minSize to maxSize bytes (the
    // first met breadth-first on a tie); elements tagged excludeTag
    // (ignoring ASCII case; null for none) never qualify, and neither does
    // empty content. Borrowed; null when none.
    TreeNode* findBiggestContent(int minSize, int maxSize, const char* excludeTag);

    // ---- child lookups ----------------------------------------------------
    // Direct children only, scanned in order. Tags and contents compare
    // exactly (case-sensitive bytes). n counts from 0. Results are borrowed;
    // a null tag finds nothing.

    // Whether some child has that tag, that content, or both.
    bool hasChildWithTag(const char* tag);
    bool hasChildWithContent(const char* content);
    bool hasChildWithTagAndContent(const char* tag, const char* content);
    // How many children have that tag.
    int numChildrenHavingTag(const char* tag);
    // The n-th child with that tag, or null.
    TreeNode* getNthChildWithTag(int n, const char* tag);
    // The n-th child with that content, or null.
    TreeNode* getNthChildWithContent(int n, const char* content);
    // The n-th child with that tag and content; a null content selects
    // children whose content is empty.
    TreeNode* getNthChildExact(int n, const char* tag, const char* content);
    // The first child with that tag and, when pair is not null, an attribute
    // pair.getKey() whose value is exactly pair.getValue(); null when none.
    TreeNode* getChild(const char* tag, StringPair* pair);
    // The first child with that tag whose attribute `name` has a value that
    // matches the wildcard pattern `value` (case-sensitive); null when none.
    TreeNode* getChildWithAttr(const char* tag, const char* name, const char* value);
    // This node or the first following sibling whose first child tagged tag
    // has content matching the wildcard pattern; null when none. For the
    // next match, call it on the result's next sibling.
    TreeNode* nextMatchingRecord(const char* tag, const char* pattern);

    // ---- subtree searches (breadth-first, resumable through `after`) ------
    // The first node, this one included, that passes, visiting level by
    // level and each level in document order. Pass null as after to start,
    // or the previous result to go on after it. Each call walks again from
    // this node, so stepping through N matches costs N walks; for many
    // matches make one pass with xmltree::BreadthFirst. Borrowed; null when
    // nothing (more) passes, when after is not in the subtree, or for a null
    // tag.

    // Tag equals tag.
    TreeNode* searchForTag(TreeNode* after, const char* tag);
    // Tag equals tag and the content matches the wildcard pattern.
    TreeNode* searchForMatchingNode(TreeNode* after, const char* tag, const char* pattern);
    // Any tag; the content matches the wildcard pattern.
    TreeNode* searchAllForMatchingNode(TreeNode* after, const char* pattern);
    // Tag equals tag and attribute `name` has a value matching the wildcard
    // pattern `value` (case-sensitive).
    TreeNode* searchForAttribute(TreeNode* after, const char* tag, const char* name,
                                 const char* value);
    // Tag equals tag, attribute `name` has exactly the value `value`, and the
    // content is exactly content (a node without content never passes).
    TreeNode* searchExactAttrAndContent(TreeNode* after, const char* tag, const char* name,
                                        const char* value, const char* content);

    // ---- ordering ---------------------------------------------------------
    // The sorts reorder the direct children only (stable; grandchildren keep
    // their order) and then relink the siblings. `ascending`: nonzero sorts
    // increasing, zero decreasing, except in sortByAttributeInt, where
    // nonzero puts the largest number first. caseInsensitive true folds
    // ASCII letters; otherwise byte order (capitals before small letters).
    // A missing attribute sorts as "" (or 0). A record's field is its first
    // child tagged fieldTag; a record without it compares equal to all, so
    // its place is not defined. The name arguments are read only during the
    // call. Nothing happens on a node that never had children.

    // By tag.
    void sortByTag(long ascending, bool caseInsensitive);
    // By content.
    void sortByContent(long ascending, bool caseInsensitive);
    // By the text of attribute `name`.
    void sortByAttribute(const char* name, long ascending, bool caseInsensitive);
    // By attribute `name` read as an integer. Nonzero `ascending`: largest
    // first; zero: smallest first.
    void sortByAttributeInt(const char* name, long ascending);
    // By the text of attribute `name` of each child's field fieldTag.
    void sortRecordsByAttribute(const char* fieldTag, const char* name, long ascending,
                                bool caseInsensitive);
    // By the content of each child's field fieldTag.
    void sortRecordsByContent(const char* fieldTag, long ascending, bool caseInsensitive);
    // By the content of each child's field fieldTag read as an integer
    // (atoi: 0 when not a number). Nonzero `ascending`: smallest first.
    void sortRecordsByContentInt(const char* fieldTag, long ascending);
    // Makes a child with tag and content and inserts it before the first
    // child whose (tag, content) sorts after it in byte order, else last; a
    // null content compares tags only. Borrowed; null for a null tag, when
    // memory runs out, or outside a tree.
    TreeNode* insertAscending(const char* tag, const char* content);
    // The child getChild(tag, pair) finds, or else a new one inserted after
    // the children with that tag and given the pair as an attribute.
    TreeNode* checkInsertAscending(const char* tag, StringPair* pair);

private:
    // Ends each prolog line the writer and the style-sheet text put out.
    static constexpr char kPrologLineEnd[] = " ?>\r\n";

    // Subsystems whose state machines work on the fields directly; each is
    // defined in the source file of its subsystem.
    friend class TreeInfo;
    friend class TreeParser;
    friend class TreeWriter;
    friend class TreeExtract;
    friend class TreeQueries;
    friend class TreeOrdering;
    friend class TreeSwap;
    friend class TreeNodeLinks;
    friend class TreeArenaCheck;

    TreeInfo* treeInfo = nullptr;
    StringBuffer* tag = nullptr;
    AttributeSet* attributes = nullptr;
    StringBuffer* content = nullptr;
    int localRefCount = 0;
    bool cdata = false;
    uint8_t magic = kTreeMagicAlive;  // beside the flag: no padding of its own
    ExtPtrArray* children = nullptr;
    TreeNode* parent = nullptr;
    TreeNode* nextSibling = nullptr;
    TreeNode* prevSibling = nullptr;
    // The tag buffer lives here (tag points at it) rather than in a block of
    // its own: every element has a name, and one block fewer per element
    // is a sixth of the allocations a parse makes and of the frees.
    alignas(StringBuffer) unsigned char tagSlot[sizeof(StringBuffer)];

    // Makes the tag buffer in tagSlot holding text; false, with no tag
    // buffer, when a text too long for the buffer's own bytes finds no memory.
    bool makeTag(const char* text, int len);

    // Called first by every operation that may change the tree's objects or
    // hands out one that the caller may change: a parsed tree then stops
    // being freed whole, and its objects are freed one by one like any.
    void editing() const {
        if (treeInfo && treeInfo->arena) releaseArena();
    }
    void releaseArena() const;
};

#endif
