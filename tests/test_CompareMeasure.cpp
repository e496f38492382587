// The figures bench/compare prints rest on these: medians, geometric means,
// element counts and the per-object heap breakdown.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "bench/compare/CompareMeasure.h"
#include "tests/TestSupport.h"

namespace {

using benchcompare::breakDown;
using benchcompare::countElements;
using benchcompare::GeoMean;
using benchcompare::HeapBreakdown;
using benchcompare::median;

TEST(CompareMeasure, MedianOfOddEvenUnsortedAndEmpty) {
    EXPECT_DOUBLE_EQ(median({5, 1, 3}), 3);
    EXPECT_DOUBLE_EQ(median({4, 1, 3, 2}), 2.5);
    EXPECT_DOUBLE_EQ(median({7}), 7);
    EXPECT_DOUBLE_EQ(median({}), 0);
}

TEST(CompareMeasure, GeometricMeanSkipsMissingRatios) {
    GeoMean g;
    EXPECT_EQ(g.count(), 0);
    EXPECT_DOUBLE_EQ(g.value(), 0);
    g.add(2);
    g.add(8);
    g.add(0);  // a figure that could not be measured
    g.add(-1);
    EXPECT_EQ(g.count(), 2);
    EXPECT_NEAR(g.value(), 4, 1e-12);
}

TEST(CompareMeasure, CountsEveryElementAtAnyDepthAndWidth) {
    EXPECT_EQ(countElements(nullptr), 0u);

    TreeNode* mixed = parseText("<a>x<b>t<c/></b>y<b/></a>");
    ASSERT_NE(mixed, nullptr);
    EXPECT_EQ(countElements(mixed), 4u);
    mixed->deleteTree();

    const int depth = 100000;
    std::string deep;
    for (int i = 0; i < depth; ++i)
        deep += "<e>";
    TreeNode* chain = parseText(deep);  // left open: the parser closes them at the end
    ASSERT_NE(chain, nullptr);
    EXPECT_EQ(countElements(chain), static_cast<size_t>(depth));
    chain->deleteTree();

    TreeNode* wide = TreeNode::createRoot("r");
    for (int i = 0; i < depth; ++i)
        TreeNode::createNode(wide, "c");
    EXPECT_EQ(countElements(wide), static_cast<size_t>(depth) + 1);
    wide->deleteTree();
}

// The corpus counts were taken with another parser; the walk over our tree
// must find the same elements.
TEST(CompareMeasure, CorpusElementCountsMatchTheCorpusNotes) {
    const struct {
        const char* file;
        size_t elements;
    } cases[] = {{"mime-info.xml", 41997},
                 {"iso-639-3.xml", 7911},
                 {"iso-3166-2.xml", 5683},
                 {"requests-logo.svg", 3698},
                 {"cyclonedx-bom.xml", 10177}};
    for (const auto& c : cases) {
        std::string path = std::string(XMLTREE_CORPUS_DIR) + "/" + c.file;
        TreeNode* root = nullptr;
        if (!TreeNode::customParseFile(path.c_str(), nullptr, nullptr, &root, true)) {
            GTEST_SKIP() << "corpus file missing: " << path;
        }
        ASSERT_NE(root, nullptr) << c.file;
        EXPECT_EQ(countElements(root), c.elements) << c.file;
        root->deleteTree();
    }
}

TEST(CompareMeasure, BreakdownSortsHeapByObjectKind) {
    TreeNode* root = TreeNode::createRoot("r");
    ASSERT_NE(root, nullptr);
    root->addAttribute("id", "1");
    TreeNode::createNode2(root, "a", "x");
    const std::string longText(100, 't');
    TreeNode::createNode2(root, "b", longText.c_str());

    HeapBreakdown b = breakDown(root);
    EXPECT_EQ(b.nodes, 3u);
    EXPECT_EQ(b.tags, 3u);
    EXPECT_EQ(b.tagHeapTexts, 0u);
    EXPECT_EQ(b.contents, 2u);
    EXPECT_EQ(b.contentHeapTexts, 1u);
    EXPECT_EQ(b.attrSets, 1u);
    EXPECT_EQ(b.childArrays, 1u);

    // Every object costs at least its own size, in a pool block or a malloc chunk.
    EXPECT_GE(b.nodeBytes, 3 * sizeof(TreeNode));
    EXPECT_GE(b.tagBytes, 3 * sizeof(StringBuffer));
    EXPECT_GE(b.contentBytes, 2 * sizeof(StringBuffer) + longText.size() + 1);
    EXPECT_GE(b.childArrayBytes, sizeof(ExtPtrArray) + 2 * sizeof(void*));
    EXPECT_EQ(b.knownBytes(),
              b.nodeBytes + b.tagBytes + b.contentBytes + b.attrSetBytes + b.childArrayBytes);
    root->deleteTree();
}

}  // namespace
