// Running out of memory or room is a failure, never a shorter tree: every
// allocation a parse or a write makes is failed in turn (the library counts
// them through its memory hook), and each time the result must say so,
// nothing may leak, and nothing past the failure may be claimed.

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <functional>
#include <new>
#include <thread>

#include "foundation/AttributeSet.h"
#include "foundation/InputLimit.h"
#include "foundation/MemoryHook.h"
#include "foundation/SmallObjectPool.h"
#include "tests/TestSupport.h"

namespace {

namespace mem = xmltree::mem;
using Lines = std::vector<std::string>;

// A prolog of every kind, attributes that need cleaning or decoding, more
// attributes than the parser gathers at once, CDATA, a comment, mixed
// content and nesting.
std::string document() {
    std::string many;
    for (int i = 0; i < 40; ++i)
        many += " a" + std::to_string(i) + "='" + std::to_string(i) + "'";
    return "<?xml version='1.0' encoding='utf-8' standalone='yes'?>\n"
           "<?xml-stylesheet href='s.css' type='text/css'?>\n"
           "<!DOCTYPE r [<!ENTITY e 'v'>]>\n<?app run?>\n"
           "<r id='1' 9x='&lt;v&gt;' b<c='d'>\n"
           "  <!-- a comment -->\n"
           "  <item" +
           many +
           ">first &amp; only</item>\n"
           "  <data><![CDATA[<raw> ]] text]]></data>\n"
           "  <mixed>one<br/>two</mixed>\n"
           "  <deep><deeper><deepest k='v'/></deeper></deep>\n"
           "  <long>" +
           std::string(300, 'x') +
           "</long>\n"
           "</r>\n";
}

struct Outcome {
    bool ok = false;
    TreeNode* root = nullptr;
    RecordingLog log;
    long callerBlocksReleased = 0;  // the caller's input, replaced by decoding
};

std::string tempPath() {
    return testing::TempDir() + "/oom-" + std::to_string(getpid()) + ".xml";
}

DataBuffer utf16(const std::string& s) {
    DataBuffer data;
    data.append("\xFF\xFE", 2);
    for (char c : s) {
        data.appendChar(static_cast<unsigned char>(c));
        data.appendChar(0);
    }
    return data;
}

// The entry points as a user calls them: the input is made first, then
// armNow() starts the count, the library is called, and the count stops
// before the input goes.
const char* const kEntries[] = {"string, trimmed", "string, whitespace kept", "bytes in UTF-16",
                                "file", "UTF-8 bytes, block without a spare byte"};

void parseWith(int entry, const std::string& s, Outcome& o, const std::function<void()>& armNow) {
    StringBuffer text(s.c_str());
    DataBuffer data = utf16(s);
    DataBuffer full;  // one append: capacity == size, parsing in place needs one byte more
    full.append(s.data(), static_cast<unsigned int>(s.size()));
    armNow();
    if (entry < 2) {
        o.ok = TreeNode::customParseString(text, &o.log, nullptr, &o.root, entry == 0);
    } else if (entry == 2) {
        o.ok = TreeNode::customParseData2(data, nullptr, o.log, &o.root, true);
        DataBuffer().takeData(data);  // the decoded text, made in the count
        o.callerBlocksReleased = 1;   // the bytes it replaced, made before
    } else if (entry == 3) {
        o.ok = TreeNode::customParseFile(tempPath().c_str(), &o.log, nullptr, &o.root, true);
    } else {
        o.ok = TreeNode::customParseUtf8Data(full, nullptr, o.log, &o.root, true);
        EXPECT_EQ(bytesOf(full), s);
        DataBuffer().takeData(full);  // grown by a byte in the count, or as it was
        o.callerBlocksReleased = 1;
    }
    mem::disarmForTesting();
}

// Messages that report running out of memory (file loading names the file).
int outOfMemoryMessages(const Lines& lines) {
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [](const std::string& l) {
        return l.rfind("E:Out of memory", 0) == 0;
    }));
}

// Runs `work`, which calls armNow() when the count is to start, with the
// allocation numbered failAt failing (and every later one); returns how many
// allocations were asked for. Whatever the library made must be gone again
// by the end: every allocation that succeeded was released.
long runFailing(long failAt, const std::function<long(const std::function<void()>&)>& work) {
    const long callerBlocks = work([failAt] { mem::armForTesting(failAt); });
    mem::disarmForTesting();
    const long asked = mem::allocationsForTesting();
    const long released = mem::releasesForTesting() - callerBlocks;
    const long granted = failAt < 0 ? asked : std::min(asked, failAt);
    EXPECT_EQ(released, granted) << "leak or double release with allocation " << failAt
                                 << " failing";
    return asked;
}

// Deletes the tree with the count going on again.
std::string picturedThenDeleted(TreeNode* root) {
    mem::resumeForTesting();
    std::string text = dump(root);  // allocates nothing in the library
    root->deleteTree();
    return text;
}

class OutOfMemory : public testing::Test {
  protected:
    void SetUp() override {
        std::FILE* f = std::fopen(tempPath().c_str(), "wb");
        ASSERT_TRUE(f);
        const std::string doc = document();
        std::fwrite(doc.data(), 1, doc.size(), f);
        std::fclose(f);
    }
    void TearDown() override { std::remove(tempPath().c_str()); }
};

TEST_F(OutOfMemory, EveryFailedAllocationFailsTheParse) {
    const std::string doc = document();
    for (int entry = 0; entry < 5; ++entry) {
        SCOPED_TRACE(kEntries[entry]);
        std::string want;
        const long total = runFailing(-1, [&](const std::function<void()>& armNow) {
            Outcome full;
            parseWith(entry, doc, full, armNow);
            EXPECT_TRUE(full.ok && full.root);
            if (full.root) want = picturedThenDeleted(full.root);
            return full.callerBlocksReleased;
        });
        ASSERT_GT(total, 20);
        int dropped = 0;
        for (long i = 0; i < total; ++i) {
            SCOPED_TRACE("allocation " + std::to_string(i) + " of " + std::to_string(total));
            Outcome o;
            std::string got;
            runFailing(i, [&](const std::function<void()>& armNow) {
                parseWith(entry, doc, o, armNow);
                if (o.root) got = picturedThenDeleted(o.root);
                return o.callerBlocksReleased;
            });
            if (!o.ok) {
                EXPECT_EQ(o.root, nullptr);
                EXPECT_EQ(outOfMemoryMessages(o.log.lines), 1);
                continue;
            }
            // The one failure a parse survives: a text run whose content
            // buffer cannot be made is dropped. Nothing else may be missing.
            ++dropped;
            EXPECT_EQ(outOfMemoryMessages(o.log.lines), 0);
            EXPECT_LE(got.size(), want.size());
            auto elements = [](const std::string& d) {  // children start with '[' or ','
                return std::count(d.begin(), d.end(), '[') + std::count(d.begin(), d.end(), ',');
            };
            EXPECT_EQ(elements(got), elements(want));
        }
        EXPECT_LE(dropped, 6);
    }
}

TEST_F(OutOfMemory, EveryFailedAllocationMarksTheWriterOutput) {
    for (bool trim : {true, false}) {
        TreeNode* root = nullptr;
        const std::string doc = document();
        ASSERT_TRUE(TreeNode::customParseStringN(doc.data(), static_cast<int>(doc.size()), nullptr,
                                                 &root, trim));
        // Deep enough that the writer's own stack grows.
        TreeNode* n = root;
        for (int i = 0; i < 100; ++i)
            n = TreeNode::createNode2(n, "level", i % 10 ? nullptr : "text & more");
        StringBuffer full;
        root->createXML(full, 0, 0, false);
        const std::string want = full.getString();
        for (long i = 0;; ++i) {  // until no allocation fails
            std::string got;
            bool failed = false;
            const long asked = runFailing(i, [&](const std::function<void()>& armNow) {
                StringBuffer out;
                armNow();
                root->createXML(out, 0, 0, false);
                got = out.getString();
                failed = out.hasFailed();
                return 0L;
            });
            if (i >= asked) {
                EXPECT_GT(i, 2);
                EXPECT_EQ(got, want);
                break;
            }
            EXPECT_TRUE(failed) << "allocation " << i;
            EXPECT_EQ(want.compare(0, got.size(), got), 0) << "allocation " << i;
            EXPECT_LT(got.size(), want.size());
        }
        root->deleteTree();
    }
}

// With no slab to be had, a parse fails whole; the pooled classes' nothrow
// new gives null and their plain new throws.
TEST(OutOfMemoryPool, NoSlabMeansNoTree) {
    if (!SmallObjectPool::enabled()) GTEST_SKIP() << "the small-object pool is off";
    // A thread of its own starts with an empty cache, so its first block
    // needs a slab.
    std::thread([] {
        SmallObjectPool::trim();
        SmallObjectPool::limitSlabsForTesting(0);
        EXPECT_EQ(new (std::nothrow) StringBuffer("x"), nullptr);
        EXPECT_THROW(delete new StringBuffer("x"), std::bad_alloc);
        EXPECT_THROW(SmallObjectPool::allocateOrThrow(232), std::bad_alloc);
        RecordingLog log;
        TreeNode* root = nullptr;
        const bool ok =
            TreeNode::customParseString(StringBuffer("<a><b/></a>"), &log, nullptr, &root, true);
        SmallObjectPool::limitSlabsForTesting(-1);
        EXPECT_FALSE(ok);
        EXPECT_EQ(root, nullptr);
        EXPECT_EQ(log.lines, Lines{"E:Out of memory"});
    }).join();
}

TEST(InputTooLarge, RefusedWholeByEveryEntryPoint) {
    const std::string fits = "<a>" + std::string(57, 'x') + "</a>";  // 64 bytes
    const std::string over = fits + " ";
    xmltree::setParseInputLimitForTesting(64);
    const auto noCount = [] {};
    for (int entry : {0, 1, 2, 4}) {  // not the file
        SCOPED_TRACE(kEntries[entry]);
        Outcome small, big;
        parseWith(entry, fits, small, noCount);
        parseWith(entry, over, big, noCount);
        EXPECT_TRUE(small.ok && small.root);
        if (small.root) small.root->deleteTree();
        EXPECT_FALSE(big.ok);
        EXPECT_EQ(big.root, nullptr);
        EXPECT_EQ(big.log.lines, Lines{"E:Input too large"});
    }
    EXPECT_FALSE(ParseEngine().append(over.c_str()));
    TreeNode* root = nullptr;
    EXPECT_FALSE(TreeNode::customParseStringN(over.data(), static_cast<int>(over.size()), nullptr,
                                              &root, true));
    // Decoding may make a text longer than the bytes it came from.
    DataBuffer wide = utf16(std::string(50, 'x') + "<a>\xC3\xA9\xC3\xA9\xC3\xA9</a>");
    RecordingLog log;
    EXPECT_FALSE(TreeNode::customParseData2(wide, nullptr, log, &root, true));
    EXPECT_EQ(log.lines, Lines{"E:Input too large"});
    xmltree::setParseInputLimitForTesting(0);
}

// Every growing operation of the containers says when it could not grow, and
// leaves what it held as it was.
TEST(OutOfMemoryContainers, FailedGrowthIsReportedAndChangesNothing) {
    const std::string big(300, 'v');
    AttributeSet set;
    ASSERT_TRUE(set.addAttribute("a", "1"));
    StringBuffer sb("short");
    ExtPtrArray arr(1, 1);
    ASSERT_TRUE(arr.append(&set));
    DataBuffer data;
    ASSERT_TRUE(data.append("xy", 2));
    const std::vector<std::pair<const char*, std::function<bool()>>> grows = {
        {"attribute set", [&] { return set.addAttribute("name", big.c_str()); }},
        {"attribute reserve", [&] { return set.reserve(50, 5000); }},
        {"string append", [&] { return sb.append(big.c_str()); }},
        {"string reserve", [&] { return sb.reserveMore(5000); }},
        {"string past its size limit", [&] { return sb.reserveMore(INT_MAX); }},
        {"array append", [&] { return arr.append(&sb); }},
        {"array reserve", [&] { return arr.reserve(5000); }},
        {"data append", [&] { return data.append(big.data(), 300); }},
    };
    for (const auto& [what, grow] : grows) {
        mem::armForTesting(0);
        const bool grew = grow();
        mem::disarmForTesting();
        EXPECT_FALSE(grew) << what;
    }
    EXPECT_EQ(set.getSize(), 1);
    EXPECT_STREQ(set.valueAt(0), "1");
    EXPECT_STREQ(sb.getString(), "short");
    EXPECT_TRUE(sb.hasFailed());
    EXPECT_EQ(arr.getSize(), 1);
    EXPECT_EQ(arr.elementAt(0), &set);
    EXPECT_EQ(data.getSize(), 2u);
    // A byte buffer that lost bytes is not parsed: its text is not the document.
    RecordingLog log;
    TreeNode* root = nullptr;
    EXPECT_FALSE(TreeNode::customParseUtf8Data(data, nullptr, log, &root, true));
    EXPECT_FALSE(TreeNode::customParseData2(data, nullptr, log, &root, true));
    EXPECT_EQ(log.lines, (Lines{"E:Out of memory", "E:Out of memory"}));
}

}  // namespace
