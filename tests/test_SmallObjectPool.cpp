#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <random>
#include <set>
#include <string>
#include <thread>

#include "foundation/AttributeSet.h"
#include "foundation/ExtPtrArray.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"
#include "foundation/WithRoom.h"
#include "tests/TestSupport.h"

#if defined(__SANITIZE_ADDRESS__)
#define POOL_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define POOL_TEST_ASAN 1
#endif
#endif

namespace {

#define REQUIRE_POOL() \
    if (!SmallObjectPool::enabled()) GTEST_SKIP() << "pool is off in this build"

struct Block {
    unsigned char* p;
    size_t n;
};

// Each block is filled with a byte made from its address.
unsigned char mark(const unsigned char* p) {
    return static_cast<unsigned char>((reinterpret_cast<uintptr_t>(p) >> 3) & 0xff);
}

bool intact(const Block& b) {
    return std::all_of(b.p, b.p + b.n, [&b](unsigned char c) { return c == mark(b.p); });
}

Block take(size_t n) {
    Block b{static_cast<unsigned char*>(SmallObjectPool::allocateOrThrow(n)), n};
    std::memset(b.p, mark(b.p), n);
    return b;
}

void give(const Block& b) {
    SmallObjectPool::deallocate(b.p, b.n);
}

void freeAll(const std::vector<Block>& blocks) {
    for (const Block& b : blocks) {
        EXPECT_TRUE(intact(b));
        give(b);
    }
}

// Mixed sizes, so that each slab holds blocks of many classes.
std::vector<Block> takeMany(int count) {
    std::vector<Block> blocks;
    for (int i = 0; i < count; ++i)
        blocks.push_back(take(8 + static_cast<size_t>(i) * 37 % 249));
    return blocks;
}

size_t slabsUnder(const std::vector<Block>& blocks) {
    std::set<uintptr_t> windows;
    for (const Block& b : blocks)
        windows.insert(reinterpret_cast<uintptr_t>(b.p) / SmallObjectPool::kSlabBytes);
    return windows.size();
}

// Blocks of every size, written in full, must neither overlap nor be
// misaligned for the objects that fit them.
TEST(SmallObjectPool, EverySizeGetsItsOwnAlignedBlock) {
    std::vector<Block> blocks;
    for (int round = 0; round < 40; ++round) {
        for (size_t n = 1; n <= SmallObjectPool::kMaxBlock + 40;
             n += 1 + static_cast<size_t>(round % 7)) {
            blocks.push_back(take(n));
            const uintptr_t a = reinterpret_cast<uintptr_t>(blocks.back().p);
            EXPECT_EQ(a % (n % 16 == 0 ? 16 : 8), 0u) << n;
        }
    }
    std::sort(blocks.begin(), blocks.end(),
              [](const Block& x, const Block& y) { return x.p < y.p; });
    for (size_t i = 0; i < blocks.size(); ++i) {
        ASSERT_TRUE(intact(blocks[i])) << blocks[i].n;
        ASSERT_TRUE(i == 0 || blocks[i - 1].p + blocks[i - 1].n <= blocks[i].p);
    }
    for (const Block& b : blocks)
        give(b);
}

// A slab goes the moment its last block is freed, whatever the order of the
// frees; blocks still in use keep exactly their slabs. Without trim() the
// empty slabs kept for reuse stay bounded (16 + 256); trim() gives them back.
TEST(SmallObjectPool, SlabsGoWhenTheirLastBlockIsFreed) {
    REQUIRE_POOL();
    for (int order = 0; order < 3; ++order) {  // in order, reversed, shuffled
        SCOPED_TRACE(order);
        std::thread([order] {
            SmallObjectPool::trim();
            const size_t base = SmallObjectPool::slabCount();
            std::vector<Block> blocks = takeMany(300000);  // about 600 slabs
            const size_t made = SmallObjectPool::slabCount() - base;
            EXPECT_GE(made, 550u);
            std::vector<Block> kept;
            for (size_t i = 0; i < blocks.size(); i += 5000) {  // one in about ten slabs
                kept.push_back(blocks[i]);
                blocks[i].p = nullptr;
            }
            if (order == 1) std::reverse(blocks.begin(), blocks.end());
            if (order == 2) std::shuffle(blocks.begin(), blocks.end(), std::mt19937(7));
            for (const Block& b : blocks)
                if (b.p) give(b);
            const size_t held = slabsUnder(kept);
            EXPECT_LE(SmallObjectPool::slabCount(), base + held + 1 + 16 + 256);
            SmallObjectPool::trim();
            EXPECT_GE(SmallObjectPool::slabCount(), base + held);
            EXPECT_LE(SmallObjectPool::slabCount(), base + held + 1);
            // What was given back is not handed out again: new blocks are sound.
            std::vector<Block> fresh = takeMany(20000);
            freeAll(kept);
            freeAll(fresh);
            SmallObjectPool::trim();
            EXPECT_LE(SmallObjectPool::slabCount(), base + 1);
        }).join();
    }
}

// Blocks of one thread freed on another: while the first frees into the same
// slabs and takes blocks again (none the other still has may come back), or
// after it has ended. Either way every slab comes back.
TEST(SmallObjectPool, BlocksFreedOnOtherThreadsComeBack) {
    REQUIRE_POOL();
    SmallObjectPool::trim();
    const size_t base = SmallObjectPool::slabCount();
    std::thread owner([&] {
        std::vector<Block> blocks = takeMany(200000);
        std::shuffle(blocks.begin(), blocks.end(), std::mt19937(3));
        std::vector<Block> mine(blocks.begin(), blocks.begin() + 100000);
        std::vector<Block> theirs(blocks.begin() + 100000, blocks.end());
        std::thread other([&] { freeAll(theirs); });
        std::vector<Block> again;
        for (const Block& b : mine) {
            EXPECT_TRUE(intact(b));
            give(b);
            if (again.size() < 50000) again.push_back(take(b.n));
        }
        other.join();
        freeAll(again);
        // Slabs of one class half freed here, half on another thread: this
        // thread never learns they are empty until trim() looks.
        std::vector<Block> half, lent;
        for (int i = 0; i < 20000; ++i)
            (i % 2 ? lent : half).push_back(take(120));
        freeAll(half);
        std::thread([&] { freeAll(lent); }).join();
        SmallObjectPool::trim();
        EXPECT_LE(SmallObjectPool::slabCount(), base + 1);
    });
    owner.join();

    std::vector<Block> orphans;
    std::thread([&] { orphans = takeMany(200000); }).join();
    std::shuffle(orphans.begin(), orphans.end(), std::mt19937(5));
    std::thread([&] { freeAll(orphans); }).join();
    SmallObjectPool::trim();
    EXPECT_LE(SmallObjectPool::slabCount(), base);
}

// Sets, children arrays and texts made with room are one class whatever
// their room, so their delete finds the block's size in the object itself:
// the freed block must come back for requests of the size it was made
// with, a size that grows with what it was made for. An array or a text
// that has moved out of its room still frees the block it was made in.
TEST(SmallObjectPool, ObjectsMadeWithRoomFreeTheirWholeBlock) {
    REQUIRE_POOL();
    // Makes and deletes one object on a thread of its own (a fresh cache,
    // where the freed block is the only free one and every other request is
    // carved anew) and returns the request size that gets its block back.
    auto sizeReusing = [](auto makeAndDelete) {
        size_t reusedAt = 0;
        std::thread([&] {
            void* const anchor = SmallObjectPool::allocate(8);  // keeps the slab
            void* const where = makeAndDelete();
            std::vector<std::pair<void*, size_t>> taken;
            for (size_t n = 8; n <= SmallObjectPool::kMaxBlock; n += 8) {
                taken.emplace_back(SmallObjectPool::allocate(n), n);
                if (taken.back().first == where) reusedAt = n;
            }
            for (const auto& t : taken)
                SmallObjectPool::deallocate(t.first, t.second);
            SmallObjectPool::deallocate(anchor, 8);
        }).join();
        return reusedAt;
    };
    const struct {
        int count;  // pairs or slots
        size_t textBytes;
    } rows[] = {{2, 30}, {3, 60}, {6, 100}};
    size_t previousSet = sizeof(AttributeSet), previousArray = sizeof(ExtPtrArray);
    size_t previousText = sizeof(StringBuffer);
    for (const auto& row : rows) {
        const size_t set = sizeReusing([&] {
            AttributeSet* made = xmltree::WithRoom::attributeSet(row.count, row.textBytes);
            delete made;
            return static_cast<void*>(made);
        });
        EXPECT_GT(set, previousSet) << row.count;
        previousSet = set;
        for (const bool outgrown : {false, true}) {
            const size_t array = sizeReusing([&] {
                ExtPtrArray* made = xmltree::WithRoom::array(row.count);
                for (int i = 0; i <= (outgrown ? row.count : 0); ++i)
                    made->append(made);
                EXPECT_EQ(made->getCapacity() > row.count, outgrown);
                delete made;
                return static_cast<void*>(made);
            });
            EXPECT_GT(array, previousArray) << row.count << outgrown;
            if (outgrown) previousArray = array;
            const std::string run(row.textBytes, 'x');
            const size_t text = sizeReusing([&] {
                StringBuffer* made =
                    xmltree::WithRoom::text(run.data(), static_cast<int>(run.size()));
                if (outgrown) made->append(run.c_str());
                EXPECT_EQ(made->getSize(), static_cast<int>(run.size() * (outgrown ? 2 : 1)));
                delete made;
                return static_cast<void*>(made);
            });
            EXPECT_GT(text, previousText) << row.textBytes << outgrown;
            if (outgrown) previousText = text;
        }
    }
}

#ifdef POOL_TEST_ASAN
// With the pool on under AddressSanitizer, a freed pooled object is poisoned
// and a tree nothing points to any more is reported as a leak.
TEST(SmallObjectPoolDeathTest, UseAfterFreeIsReported) {
    REQUIRE_POOL();
    EXPECT_DEATH(
        {
            StringBuffer* sb = new StringBuffer("some text");
            delete sb;
            std::printf("%d\n", *reinterpret_cast<volatile int*>(sb));
        },
        "use-after-poison");
}

TEST(SmallObjectPoolDeathTest, LeakedTreeIsReported) {
    REQUIRE_POOL();
    const char* options = std::getenv("ASAN_OPTIONS");
    if (options && std::strstr(options, "detect_leaks=0")) GTEST_SKIP() << "leak checks are off";
    EXPECT_EXIT(
        {
            // Made on a thread of its own, so that no slab of it holds anything else.
            std::thread([] {
                TreeNode* root = TreeNode::createRoot("leaked");
                TreeNode::createNode2(root, "child", "content long enough for a block of its own");
            }).join();
            std::exit(0);
        },
        [](int status) { return !WIFEXITED(status) || WEXITSTATUS(status) != 0; },
        "LeakSanitizer: detected memory leaks");
}
#endif

}  // namespace
