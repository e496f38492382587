// Parsed trees freed whole: a parse fills an arena of its own, and deleting a
// tree that was not changed gives the arena back without visiting the nodes.
// What must hold: while a tree keeps its arena, its blocks and the arena's
// are the same (treeIsConsistent checks it, block by block); every edit, and
// every getter that hands out something the caller may change, keeps that
// true (by handing the arena over); read-only use keeps the arena; and
// whatever the caller's logger or monitor allocates during a parse is theirs.
// Under AddressSanitizer a slip in any of these is a use after free or a leak.

#include <cstring>
#include <functional>
#include <thread>

#include "foundation/PoolArena.h"
#include "foundation/SmallObjectPool.h"
#include "tests/TestSupport.h"
#include "xmltree/Tree.h"
#include "xmltree/TreeArenaCheck.h"

namespace {

using xmltree::TreeArena;

// Sets the size from which arenas are kept for one test; the other tests
// keep every arena (TestSupport.h).
struct KeepFrom {
    explicit KeepFrom(std::size_t slabs) { TreeArena::keepFromSlabsForTesting(slabs); }
    ~KeepFrom() { TreeArena::keepFromSlabsForTesting(1); }
};

// Every kind of block a tree holds: a prolog of each kind, long names and
// values, long content, more than 32 children (slots from malloc), more
// pairs than the parser gathers at once, and elements repeated `records`
// times.
std::string document(int records) {
    std::string doc =
        "<?xml version='1.0' encoding='utf-8' standalone='yes'?>\n"
        "<?xml-stylesheet href='a.css' type='text/css'?>\n"
        "<!DOCTYPE r [<!ENTITY e 'v'>]>\n<?app run?>\n<r>";
    const std::string longText(300, 'x');
    for (int i = 0; i < records; ++i) {
        doc += "<rec id='" + std::to_string(i) + "' note='" + longText + "'><name>n" +
               std::to_string(i) + "</name><text>" + longText + " &amp; more</text>";
        if (i % 50 == 0) {
            for (int a = 0; a < 40; ++a)
                doc += "<attrs a" + std::to_string(a) + "='" + std::to_string(a) + "'/>";
        }
        doc += "</rec>";
    }
    return doc + "</r>";
}

// A large tree keeps its arena, deleting it gives every slab back, and the
// slabs of a small one serve the next trees at once.
TEST(TreeArena, LargeTreesAreFreedWholeSmallOnesAtOnceJoinThePool) {
    if (!SmallObjectPool::enabled()) GTEST_SKIP() << "pool is off in this build";
    KeepFrom defaults(TreeArena::kKeepFromSlabs);
    std::thread([] {
        SmallObjectPool::trim();
        const std::size_t base = SmallObjectPool::slabCount();
        TreeNode* large = parseText(document(2000));
        ASSERT_TRUE(large);
        EXPECT_TRUE(TreeArenaCheck::keepsArena(large));
        EXPECT_TRUE(treeIsConsistent(large));
        EXPECT_GT(SmallObjectPool::slabCount(), base + 20);
        TreeNode* small = parseText(document(1));
        EXPECT_FALSE(TreeArenaCheck::keepsArena(small));
        large->deleteTree();
        small->deleteTree();
        SmallObjectPool::trim();
        EXPECT_LE(SmallObjectPool::slabCount(), base + 1);
    }).join();
}

// Each edit of a parsed tree, and each getter whose result the caller may
// change (changed here too), on the root or an element inside. The tree must
// stay consistent with its arena after each, and be freed cleanly.
TEST(TreeArena, EveryEditKeepsTheTreeAndItsArenaInStep) {
    const std::string longText(400, 'y');
    const char* const text = longText.c_str();
    using Edit = std::function<void(TreeNode * root, TreeNode * rec)>;
    const std::pair<const char*, Edit> edits[] = {
        {"addAttribute", [&](TreeNode*, TreeNode* n) { n->addAttribute("new", text); }},
        {"updateAttribute", [&](TreeNode*, TreeNode* n) { n->updateAttribute("id", text); }},
        {"removeAttribute", [](TreeNode*, TreeNode* n) { n->removeAttribute("note"); }},
        {"copyAttributes", [](TreeNode* r, TreeNode* n) { r->copyAttributes(*n); }},
        {"setTag", [&](TreeNode*, TreeNode* n) { n->setTag(text); }},
        {"_releaseMyTagSB", [](TreeNode*, TreeNode* n) { n->_releaseMyTagSB(); }},
        {"_getMyTagSB2", [&](TreeNode*, TreeNode* n) { n->_getMyTagSB2()->append(text); }},
        {"ensureContentObj", [](TreeNode*, TreeNode* n) { n->ensureContentObj(); }},
        {"getOrCreateContentSb",
         [&](TreeNode*, TreeNode* n) { n->getOrCreateContentSb()->append(text); }},
        {"getContentSb",
         [&](TreeNode*, TreeNode* n) { n->getChild(1)->getContentSb()->append(text); }},
        {"setContentN", [&](TreeNode*, TreeNode* n) { n->getChild(1)->setContentN(text, 10); }},
        {"setContentUtf8", [&](TreeNode*, TreeNode* n) { n->setContentUtf8(text); }},
        {"setContentUtf8Data",
         [&](TreeNode*, TreeNode* n) {
             DataBuffer d;
             d.append(text, 400);
             n->setContentUtf8Data(d);
         }},
        {"appendContent", [&](TreeNode*, TreeNode* n) { n->getChild(1)->appendContent(text); }},
        {"appendContentN", [&](TreeNode*, TreeNode* n) { n->appendContentN(text, 300); }},
        {"appendContentChar", [](TreeNode*, TreeNode* n) { n->appendContentChar('c'); }},
        {"appendContentInt", [](TreeNode*, TreeNode* n) { n->appendContentInt(42); }},
        {"createNode2", [&](TreeNode*, TreeNode* n) { TreeNode::createNode2(n, "new", text); }},
        {"appendChild2 of another tree",
         [](TreeNode*, TreeNode* n) { n->appendChild2(parseText(document(3)), 1004); }},
        {"appendChild2 into another tree",
         [](TreeNode* r, TreeNode*) {
             TreeNode* other = TreeNode::createRoot("other");
             other->appendChild2(r, 1004);
             EXPECT_TRUE(treeIsConsistent(other));
             other->deleteTree();  // the parsed tree with it
         }},
        {"insertChild", [](TreeNode*, TreeNode* n) { n->insertChild(0, parseText(document(2))); }},
        {"removeFromTree",
         [](TreeNode* r, TreeNode* n) {
             r->incTreeRefCount();
             n->removeFromTree();
             r->decTreeRefCount();
             n->deleteTree();
         }},
        {"removeChildByIndex",
         [](TreeNode* r, TreeNode*) {
             r->incTreeRefCount();
             r->removeChildByIndex(1);
             r->decTreeRefCount();
         }},
        {"moveUpChildWithContent",
         [](TreeNode* r, TreeNode* n) {
             r->incTreeRefCount();
             n->getChild(1)->setContentUtf8("up");
             n->moveUpChildWithContent("up");
             r->decTreeRefCount();
         }},
        {"renameChildTag", [&](TreeNode*, TreeNode* n) { n->renameChildTag("name", text); }},
        {"setXmlDeclaration", [](TreeNode* r, TreeNode*) { r->setXmlDeclaration(parseText(document(1))); }},
        {"setDocEncoding", [&](TreeNode* r, TreeNode*) { r->setDocEncoding(text); }},
        {"checkSetDocEncoding",
         [&](TreeNode*, TreeNode*) {
             const char* doc = "<?xml version='1.0'?><r><a/></r>";  // no encoding yet
             TreeNode* other = nullptr;
             TreeNode::customParseStringN(doc, 32, nullptr, &other, true);
             other->checkSetDocEncoding(text);
             EXPECT_TRUE(treeIsConsistent(other));
             other->deleteTree();
         }},
        {"setDocStandalone", [&](TreeNode* r, TreeNode*) { r->setDocStandalone(text); }},
        {"setDocType", [&](TreeNode* r, TreeNode*) { r->setDocType(text); }},
        {"setProcessing", [&](TreeNode* r, TreeNode*) { r->setProcessing(text); }},
        {"addStyleSheetDeclaration",
         [](TreeNode* r, TreeNode*) { r->addStyleSheetDeclaration(parseText(document(1))); }},
        {"addStyleSheet",
         [](TreeNode* r, TreeNode*) {
             LogNull log;
             r->addStyleSheet("<?xml-stylesheet href='b.css'?>", log);
         }},
        {"parsePrologLineAttr",
         [](TreeNode*, TreeNode* n) {
             ParseEngine engine;
             engine.append(" k='v' other='w'?>");
             TreeNode::parsePrologLineAttr(engine, n, nullptr);
         }},
        {"swapNode with another tree",
         [](TreeNode*, TreeNode* n) {
             TreeNode* other = parseText(document(2));
             n->swapNode(*other->getChild(0));
             other->deleteTree();
         }},
        {"swapTree with another tree",
         [](TreeNode*, TreeNode* n) {
             TreeNode* other = TreeNode::createRoot2("other", "text of the other tree");
             TreeNode::createNode2(other, "kid", "kid's text");
             n->swapTree(*other);
             other->deleteTree();
         }},
        {"insertAscending", [](TreeNode*, TreeNode* n) { n->insertAscending("m", "mid"); }},
        {"getAttributeSet",
         [&](TreeNode*, TreeNode* n) { n->getAttributeSet()->addAttribute("more", text); }},
        {"getChildrenArray",
         [](TreeNode*, TreeNode* n) {
             ExtPtrArray* kids = n->getChildrenArray();
             for (int i = 0; i < 40; ++i)  // grows the slots; entries past the size stay out
                 kids->reserve(kids->getCapacity() + 1);
         }},
        {"getTreeInfo",
         [&](TreeNode* r, TreeNode*) { r->getTreeInfo()->docType->append(text); }},
        {"createXML moving standalone",
         [](TreeNode* r, TreeNode*) {
             StringBuffer out;
             r->createXML(out, 0, 0, false);
         }},
    };
    for (const auto& [name, edit] : edits) {
        SCOPED_TRACE(name);
        TreeNode* root = parseText(document(60));
        ASSERT_TRUE(root && TreeArenaCheck::keepsArena(root));
        ASSERT_TRUE(treeIsConsistent(root));
        edit(root, root->getChild(0));
        if (std::strcmp(name, "appendChild2 into another tree") == 0) continue;  // gone
        EXPECT_TRUE(treeIsConsistent(root));
        root->deleteTree();
    }
}

// What a caller does without changing the tree leaves its arena in place:
// the reads whose code walks children or reorders them, not the getters of
// text, which touch no object.
TEST(TreeArena, ReadingKeepsTheArena) {
    using Read = std::function<void(TreeNode * root)>;
    const std::pair<const char*, Read> reads[] = {
        {"sorting",
         [](TreeNode* r) {
             r->sortByAttribute("id", 0, false);
             r->sortRecordsByContent("name", 1, true);
             r->getChild(0)->sortByTag(1, false);
         }},
        {"writing without a standalone declaration",
         [](TreeNode* r) {
             StringBuffer out;
             r->getChild(0)->createXML(out, 1, 0, true);
         }},
        {"walks and references",
         [](TreeNode* r) {
             int n = 0;
             for (TreeNode* c : xmltree::children(r))
                 n += c->getNumChildren();
             xmltree::BreadthFirst walk(r);
             for (TreeNode* node : walk)
                 n += node->getNumAttributes();
             EXPECT_GT(n, 0);
             EXPECT_TRUE(r->verifyRefCounts());
             xmltree::NodeRef ref(r->getChild(2));
         }},
    };
    for (const auto& [name, read] : reads) {
        SCOPED_TRACE(name);
        xmltree::Tree tree;
        ASSERT_TRUE(tree.parseString(StringBuffer(document(20).c_str())));
        read(tree.root());
        EXPECT_TRUE(TreeArenaCheck::keepsArena(tree.root()));
        EXPECT_TRUE(treeIsConsistent(tree.root()));
    }
}

// A logger and a monitor that keep what they allocate (nodes, buffers with
// heap texts, a whole parsed tree) past the tree parsed while they ran.
struct KeepingLog : LogBase {
    std::vector<TreeNode*> kept;
    void keep() {
        TreeNode* node = TreeNode::createRoot2("note", std::string(300, 'n').c_str());
        TreeNode::createNode2(node, "child", "text longer than a buffer holds inline");
        kept.push_back(node);
    }
    void logError(const char*) override {
        keep();
        const char* inner = "<nested><x a='1'/></nested>";
        TreeNode* nested = nullptr;
        TreeNode::customParseStringN(inner, static_cast<int>(std::strlen(inner)), nullptr, &nested,
                                     true);
        kept.push_back(nested);
    }
    void logNameValue(const char*, const char*) override { keep(); }
    ~KeepingLog() override {
        for (TreeNode* n : kept)
            n->deleteTree();
    }
};
struct KeepingMonitor : ProgressMonitor {
    KeepingLog& log;
    explicit KeepingMonitor(KeepingLog& l) : log(l) {}
    void setAmountConsumed2_32(unsigned int amount, bool& abort) override {
        ProgressMonitor::setAmountConsumed2_32(amount, abort);
        log.keep();
    }
};

TEST(TreeArena, WhatLoggersAndMonitorsAllocateOutlivesTheTree) {
    KeepingLog log;
    KeepingMonitor monitor(log);
    std::string doc = document(30);
    doc.insert(doc.size() - 4, "<broken></broken<again></again");  // closing tags cut short
    StringBuffer text(doc.c_str());
    TreeNode* root = nullptr;
    ASSERT_TRUE(TreeNode::customParseString(text, &log, &monitor, &root, true));
    ASSERT_TRUE(root);
    EXPECT_TRUE(TreeArenaCheck::keepsArena(root));
    EXPECT_TRUE(treeIsConsistent(root));
    root->deleteTree();
    ASSERT_GT(log.kept.size(), 30u);
    for (TreeNode* n : log.kept) {  // read after the parsed tree went
        EXPECT_TRUE(treeIsConsistent(n));
        EXPECT_NE(dump(n).find('['), std::string::npos);
    }
}

// The arena's record of blocks above the pool's sizes, through a parse-like
// pattern: many blocks, some freed and some grown while it runs, freed whole
// at the end; and a block freed after the parse ended hands the slabs over,
// after which each block is freed alone.
TEST(TreeArena, RecordedBlocksAndStrayFrees) {
    if (!SmallObjectPool::enabled()) GTEST_SKIP() << "pool is off in this build";
    const auto window = [](void* p) {
        return reinterpret_cast<std::uintptr_t>(p) / SmallObjectPool::kSlabBytes;
    };
    for (bool stray : {false, true}) {
        SCOPED_TRACE(stray ? "a block freed after the parse" : "dropped whole");
        void* before = TreeArena::allocateLarge(300);  // not the arena's, even grown in it
        xmltree::PoolArena* arena = TreeArena::open();
        ASSERT_TRUE(arena);
        EXPECT_FALSE(TreeArena::holds(arena, before, 300));
        std::vector<void*> large, small;
        for (int i = 0; i < 3000; ++i) {
            large.push_back(TreeArena::allocateLarge(300 + static_cast<std::size_t>(i % 7)));
            small.push_back(SmallObjectPool::allocate(16 + static_cast<std::size_t>(i % 200)));
            if (i % 3 == 0) {  // freed while recorded: its neighbours in the table move back
                TreeArena::releaseLarge(large[static_cast<std::size_t>(i / 2)]);
                large[static_cast<std::size_t>(i / 2)] = TreeArena::allocateLarge(280);
            }
            if (i % 5 == 0) large.back() = TreeArena::reallocateLarge(large.back(), 5000);
        }
        before = TreeArena::reallocateLarge(before, 4000);
        for (void* p : large)
            ASSERT_TRUE(TreeArena::holds(arena, p, 300));
        EXPECT_FALSE(TreeArena::holds(arena, before, 4000));
        EXPECT_EQ(TreeArena::blocksInUse(arena), large.size() + small.size());
        std::size_t inUse = large.size() + small.size();
        if (stray) {  // one block left alone in its slab, which the hand-over must keep
            for (std::size_t i = 1; i < small.size(); ++i) {
                if (window(small[i]) != window(small[0])) continue;
                SmallObjectPool::deallocate(small[i], 16 + i % 200);
                small[i] = nullptr;
                --inUse;
            }
            std::memset(small[0], 0x5A, 16);
        }
        arena = TreeArena::close(arena);
        ASSERT_TRUE(arena);
        for (void* p : large)  // the record packed once the parse is over
            ASSERT_TRUE(TreeArena::holds(arena, p, 300));
        EXPECT_EQ(TreeArena::blocksInUse(arena), inUse);
        TreeArena::releaseLarge(before);
        if (!stray) {
            EXPECT_TRUE(TreeArena::drop(arena, nullptr, 0));
            continue;
        }
        SmallObjectPool::deallocate(small.back(), 16 + 2999 % 200);
        small.pop_back();
        EXPECT_FALSE(TreeArena::drop(arena, nullptr, 0));  // handed over: freed one by one
        std::vector<void*> fresh(20000);
        for (void*& p : fresh)
            p = SmallObjectPool::allocate(16);
        EXPECT_EQ(static_cast<unsigned char*>(small[0])[15], 0x5A);
        for (void* p : fresh)
            SmallObjectPool::deallocate(p, 16);
        for (std::size_t i = 0; i < small.size(); ++i)
            SmallObjectPool::deallocate(small[i], 16 + i % 200);
        for (void* p : large)
            TreeArena::releaseLarge(p);
    }
}

// A tree changed while its thread ends, after the pool has let go of the
// thread: its slabs are left to whichever free empties them, and all go.
TEST(TreeArena, TreeChangedAsItsThreadEnds) {
    if (!SmallObjectPool::enabled()) GTEST_SKIP() << "pool is off in this build";
    SmallObjectPool::trim();
    const std::size_t base = SmallObjectPool::slabCount();
    std::thread([] {
        struct Holder {
            TreeNode* tree = nullptr;
            ~Holder() {
                for (TreeNode* n : xmltree::children(tree))
                    n->appendContent(" and text enough for blocks of their own");
                tree->deleteTree();
            }
        };
        thread_local Holder holder;  // made before the pool's state of the thread: goes after it
        delete StringBuffer::createNewSB("arms the thread's pool");
        holder.tree = parseText(document(200));
    }).join();
    SmallObjectPool::trim();
    EXPECT_LE(SmallObjectPool::slabCount(), base + 1);
}

}  // namespace
