#ifndef XMLTREE_TREENODE_H
#define XMLTREE_TREENODE_H

// The in-memory XML tree: TreeNode is one element, TreeInfo the record that
// all nodes of one tree share (root, prolog, tree id, tree reference count).
//
// Where each family of operations lives:
//   node model (construction, tags, references)   TreeNodeModel.cpp
//   content and tag repair                        TreeNodeContent.cpp
//   children and siblings                         TreeNodeChildren.cpp
//   attributes                                    TreeNodeAttributes.cpp
//   subtree membership walks                      TreeNodeWalks.cpp
//   swapping                                      TreeNodeSwap.cpp
//   prolog and style sheets                       TreeNodeProlog.cpp
//   markup parser and parse entry points          TreeNodeParser.cpp
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

// Markers kept in TreeNode::magic and TreeInfo::magic.
enum : uint8_t { kTreeMagicAlive = 206, kTreeMagicDead = 49 };

class TreeInfo : public MorvexObject {
public:
    TreeInfo();
    ~TreeInfo() override;

    TreeInfo(const TreeInfo&) = delete;
    TreeInfo& operator=(const TreeInfo&) = delete;

    uint8_t magic;
    TreeNode* root;         // not owned
    TreeNode* xmlDecl;      // owned
    ExtPtrArray styleSheets;  // owned TreeNode*
    StringBuffer* processing;  // owned
    StringBuffer* docType;     // owned
    int treeId;
    int refCount;
};

class TreeNode : public MorvexObject {
public:
    XMLTREE_SMALL_OBJECT_POOLED(TreeNode)
    // ---- node model -------------------------------------------------------
    TreeNode();
    TreeNode(const char* tag, const char* content, int unused);
    TreeNode(const char* tag, DataBuffer& content, int unused);
    TreeNode(const TreeNode& other);  // makes an empty node; nothing is copied
    ~TreeNode() override;
    TreeNode& operator=(const TreeNode&) = delete;

    static TreeNode* createRoot(const char* tag);
    static TreeNode* createRoot2(const char* tag, const char* content);
    static TreeNode* createRoot3(const char* tag, DataBuffer& content);

    const char* getTag() const;
    StringBuffer* _getMyTagSB2();
    void _setMyTag(const char* tag);
    void setTag(const char* tag);
    void _releaseMyTagSB();

    bool incTreeRefCount();
    bool decTreeRefCount();
    int getTreeRefCount() const;
    void deleteTree();

    TreeNode* getRoot() const;
    int getTreeId() const;
    TreeNode* getParent() const;

    // Read access to the bookkeeping fields, for invariant checks and tools.
    TreeInfo* getTreeInfo() const { return treeInfo; }
    uint8_t getMagic() const { return magic; }
    int getLocalRefCount() const { return localRefCount; }
    ExtPtrArray* getChildrenArray() const { return children; }
    AttributeSet* getAttributeSet() const { return attributes; }

    // ---- content ----------------------------------------------------------
    void ensureLegalTagStartChar();
    bool ensureContentObj();
    StringBuffer* getOrCreateContentSb();
    void setContentN(const char* s, int n);
    void setContentUtf8Data(const DataBuffer& data);
    void setContentUtf8(const char* s);
    void appendContent(const char* s);
    void appendContentN(const char* s, int n);
    void appendContent(const DataBuffer& data);
    void appendContentChar(char c);
    void appendContentInt(int v);
    void setCdata(bool b);

    const char* getContent() const;
    StringBuffer* getContentSb();
    StringBuffer* getContentSb_const() const;
    int getContentSize() const;
    bool hasContent() const;
    int getContentIntValue() const;
    double getContentDblValue() const;
    bool contentEquals(const char* s, bool caseSensitive) const;
    bool contentMatches(const char* pattern, bool caseSensitive) const;
    bool getCdata() const;

    // ---- children ---------------------------------------------------------
    static TreeNode* createNode(TreeNode* parent, const char* tag);
    static TreeNode* createNode2(TreeNode* parent, const char* tag, const char* content);
    static TreeNode* createNode3(TreeNode* parent, const char* tag, DataBuffer& content,
                                 LogBase* log);

    bool appendChild2(TreeNode* child, int callerId);
    bool insertChild(int index, TreeNode* child);
    TreeNode* getChild(int index);
    TreeNode* getFirstChild();
    TreeNode* getLastChild();
    int getNumChildren() const;
    TreeNode* getPrevSibling();
    TreeNode* getNextSibling();
    void rebuildChildrenSiblingList();
    void removeFromTree();
    void removeChildByIndex(int index);
    void removeChild(const char* tag);
    void removeChildWithContent(const char* content);
    void moveUpChildWithContent(const char* content);
    void moveDownChildWithContent(const char* content);
    void renameChildTag(const char* oldTag, const char* newTag);

    // ---- attributes -------------------------------------------------------
    void addAttribute(const char* name, const char* value);
    bool updateAttribute(const char* name, const char* value);
    bool removeAttribute(const char* name);
    void removeAllAttributes();
    bool getAttributeValue(const char* name, StringBuffer& out) const;
    bool getAttributeValue(int index, StringBuffer& out) const;
    bool getAttributePair(int index, StringBuffer& name, StringBuffer& value) const;
    bool getAttributeName(int index, StringBuffer& out) const;
    int getNumAttributes() const;
    bool hasAttribute(const char* name);
    bool hasMatchingAttribute(const char* name, const char* pattern);
    bool hasAttributeWithValue(const char* name, const char* value);
    bool hasAttributeWithValue(StringPair& pair);
    void copyAttributes(TreeNode& from);

    // ---- subtree membership walks ----------------------------------------
    void setInfoRecursive(TreeInfo* info);
    int localRefcountSum();
    bool verifyRefCounts();

    // ---- swapping ---------------------------------------------------------
    void swapNode(TreeNode& other);
    void swapTree(TreeNode& other);

    // ---- prolog -----------------------------------------------------------
    void setXmlDeclaration(TreeNode* decl);
    void setDocEncoding(const char* encoding);
    void checkSetDocEncoding(const char* encoding);
    void setDocStandalone(const char* value);
    void getDocEncoding(StringBuffer& out, bool& found);
    void getDocStandalone(StringBuffer& out, bool& found);
    void setDocType(const char* text);
    void setProcessing(const char* text);

    void addStyleSheetDeclaration(TreeNode* node);
    static void transferStyleSheets(ExtPtrArray& from, ExtPtrArray& to);
    void appendStyleInfoToString(StringBuffer& out);
    bool addStyleSheet(const char* text, LogBase& log);

    // ---- input decoding and parsing ---------------------------------------
    static bool convertXmlToUtf8(DataBuffer& data, LogBase& log);
    static bool loadToUtf8(const char* path, DataBuffer& data, LogBase& log);

    static bool customParse(ParseEngine& engine, LogBase* log, ProgressMonitor* monitor,
                            TreeNode** outRoot, bool trimWhitespace);
    static void parsePrologLineAttr(ParseEngine& engine, TreeNode* node, LogBase* log);

    static bool customParseFile(const char* path, LogBase* log, ProgressMonitor* monitor,
                                TreeNode** outRoot, bool trimWhitespace);
    static bool customParseStringN(const char* text, int n, ProgressMonitor* monitor,
                                   TreeNode** outRoot, bool trimWhitespace);
    static bool customParseString(const StringBuffer& text, LogBase* log,
                                  ProgressMonitor* monitor, TreeNode** outRoot,
                                  bool trimWhitespace);
    static bool customParseUtf8Data(DataBuffer& data, ProgressMonitor* monitor, LogBase& log,
                                    TreeNode** outRoot, bool trimWhitespace);
    static bool customParseData2(DataBuffer& data, ProgressMonitor* monitor, LogBase& log,
                                 TreeNode** outRoot, bool trimWhitespace);

    // ---- writer -----------------------------------------------------------
    void createXML(StringBuffer& out, int index, int depth, bool omitDeclaration);
    bool openTag(StringBuffer& out, int depth);
    void closeTag(StringBuffer& out, int depth);
    bool outputContent(StringBuffer& out) const;
    void checkCdataRequired();

    // ---- content extraction -----------------------------------------------
    void getAllContent(StringBuffer& out, char separator);
    void accumulateContent(StringBuffer& out, const char* skipTags);
    void accumulateTagContent(const char* tag, StringBuffer& out, const char* skipTags);
    void collectTagContent(const char* tag, StringConsumer* consumer);
    void accumulateBase64Content(DataBuffer& out, ExtPtrArray* externals);
    TreeNode* firstSignificantContent(int skipCount, int minLength, ExtPtrArray& skipTags,
                                      ExtPtrArray& excludeTexts);
    TreeNode* findBiggestContent(int minSize, int maxSize, const char* excludeTag);

    // ---- child lookups ----------------------------------------------------
    bool hasChildWithTag(const char* tag);
    bool hasChildWithContent(const char* content);
    bool hasChildWithTagAndContent(const char* tag, const char* content);
    int numChildrenHavingTag(const char* tag);
    TreeNode* getNthChildWithTag(int n, const char* tag);
    TreeNode* getNthChildWithContent(int n, const char* content);
    TreeNode* getNthChildExact(int n, const char* tag, const char* content);
    TreeNode* getChild(const char* tag, StringPair* pair);
    TreeNode* getChildWithAttr(const char* tag, const char* name, const char* value);
    TreeNode* nextMatchingRecord(const char* tag, const char* pattern);

    // ---- subtree searches (breadth-first, resumable through `after`) ------
    TreeNode* searchForTag(TreeNode* after, const char* tag);
    TreeNode* searchForMatchingNode(TreeNode* after, const char* tag, const char* pattern);
    TreeNode* searchAllForMatchingNode(TreeNode* after, const char* pattern);
    TreeNode* searchForAttribute(TreeNode* after, const char* tag, const char* name,
                                 const char* value);
    TreeNode* searchExactAttrAndContent(TreeNode* after, const char* tag, const char* name,
                                        const char* value, const char* content);

    // ---- ordering ---------------------------------------------------------
    void sortByTag(long ascending, bool caseInsensitive);
    void sortByContent(long ascending, bool caseInsensitive);
    void sortByAttribute(const char* name, long ascending, bool caseInsensitive);
    void sortByAttributeInt(const char* name, long ascending);
    void sortRecordsByAttribute(const char* fieldTag, const char* name, long ascending,
                                bool caseInsensitive);
    void sortRecordsByContent(const char* fieldTag, long ascending, bool caseInsensitive);
    void sortRecordsByContentInt(const char* fieldTag, long ascending);
    TreeNode* insertAscending(const char* tag, const char* content);
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

    TreeInfo* treeInfo;
    StringBuffer* tag;
    AttributeSet* attributes;
    StringBuffer* content;
    int localRefCount;
    bool cdata;
    ExtPtrArray* children;
    TreeNode* parent;
    TreeNode* nextSibling;
    TreeNode* prevSibling;
    uint8_t magic;
};

#endif
