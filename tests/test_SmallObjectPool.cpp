#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/AttributeSet.h"
#include "foundation/ExtPtrArray.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"
#include "xmltree/TreeNode.h"

namespace {

#define REQUIRE_POOL() \
    if (!SmallObjectPool::enabled()) GTEST_SKIP() << "pool is off in this build"

struct Block {
    unsigned char* p;
    size_t n;
};

void fill(const Block& b) {
    std::memset(b.p, static_cast<int>((reinterpret_cast<uintptr_t>(b.p) >> 3) & 0xff), b.n);
}

bool intact(const Block& b) {
    const unsigned char want =
        static_cast<unsigned char>((reinterpret_cast<uintptr_t>(b.p) >> 3) & 0xff);
    for (size_t i = 0; i < b.n; ++i)
        if (b.p[i] != want) return false;
    return true;
}

Block take(size_t n) {
    return {static_cast<unsigned char*>(SmallObjectPool::allocateOrThrow(n)), n};
}

void give(const Block& b) {
    SmallObjectPool::deallocate(b.p, b.n);
}

// Blocks of every size, written in full, must neither overlap nor be
// misaligned for the objects that fit them.
TEST(SmallObjectPool, EverySizeGetsItsOwnAlignedBlock) {
    std::vector<Block> blocks;
    for (int round = 0; round < 40; ++round) {
        for (size_t n = 1; n <= SmallObjectPool::kMaxBlock + 40; n += 1 + round % 7) {
            blocks.push_back(take(n));
            fill(blocks.back());
            const uintptr_t a = reinterpret_cast<uintptr_t>(blocks.back().p);
            EXPECT_EQ(a % 8, 0u) << n;
            if (n % 16 == 0) {
                EXPECT_EQ(a % 16, 0u) << n;
            }
        }
    }
    for (const Block& b : blocks)
        ASSERT_TRUE(intact(b)) << b.n;
    std::vector<Block> sorted = blocks;
    std::sort(sorted.begin(), sorted.end(),
              [](const Block& x, const Block& y) { return x.p < y.p; });
    for (size_t i = 1; i < sorted.size(); ++i)
        ASSERT_LE(sorted[i - 1].p + sorted[i - 1].n, sorted[i].p);
    for (const Block& b : blocks)
        give(b);
}

TEST(SmallObjectPool, FreedBlocksAreReusedWithinTheirClass) {
    REQUIRE_POOL();
    EXPECT_EQ(SmallObjectPool::blockBytes(88), 88u);
    EXPECT_EQ(SmallObjectPool::blockBytes(81), 88u);
    EXPECT_EQ(SmallObjectPool::blockBytes(1000), 1000u);
    Block a = take(88);
    give(a);
    Block b = take(81);  // same class as 88
    EXPECT_EQ(a.p, b.p);
    Block c = take(96);  // another class: not b's block
    EXPECT_NE(b.p, c.p);
    give(b);
    give(c);
}

// Interleaved frees and allocations of mixed sizes keep every live block
// intact: a free list that hands out a live block shows here.
TEST(SmallObjectPool, ChurnKeepsLiveBlocksIntact) {
    std::vector<Block> live;
    uint32_t seed = 12345;
    auto next = [&seed] { return seed = seed * 1664525u + 1013904223u; };
    for (int step = 0; step < 200000; ++step) {
        if (live.empty() || next() % 3 != 0) {
            live.push_back(take(8 + next() % 200));
            fill(live.back());
        } else {
            size_t i = next() % live.size();
            ASSERT_TRUE(intact(live[i]));
            give(live[i]);
            live[i] = live.back();
            live.pop_back();
        }
    }
    for (const Block& b : live) {
        ASSERT_TRUE(intact(b));
        give(b);
    }
}

// Blocks made on one thread and freed on another become the freeing
// thread's; when that thread ends they pass to whoever asks next.
TEST(SmallObjectPool, BlocksMoveBetweenThreads) {
    REQUIRE_POOL();
    const int kCount = 15000;  // 720 KB: the freer does not sweep them away
    std::vector<Block> made;
    std::thread maker([&] {
        for (int i = 0; i < kCount; ++i) {
            made.push_back(take(48));
            fill(made.back());
        }
    });
    maker.join();
    std::vector<void*> reused;
    std::thread freer([&] {
        for (const Block& b : made) {
            ASSERT_TRUE(intact(b));
            give(b);
        }
        EXPECT_GE(SmallObjectPool::threadFreeBytes(), kCount * 48u);
        for (int i = 0; i < 10; ++i)
            reused.push_back(SmallObjectPool::allocateOrThrow(48));
        for (void* p : reused)
            SmallObjectPool::deallocate(p, 48);
    });
    freer.join();
    std::vector<void*> madeAddrs;
    for (const Block& b : made)
        madeAddrs.push_back(b.p);
    std::sort(madeAddrs.begin(), madeAddrs.end());
    for (void* p : reused)
        EXPECT_TRUE(std::binary_search(madeAddrs.begin(), madeAddrs.end(), p));

    // The freer has ended: its blocks are on the shared list now (or their
    // slabs went back to malloc); either way a third thread must get sound memory.
    std::thread third([&] {
        std::vector<Block> again;
        for (int i = 0; i < kCount; ++i) {
            again.push_back(take(48));
            fill(again.back());
        }
        for (const Block& b : again) {
            ASSERT_TRUE(intact(b));
            give(b);
        }
    });
    third.join();
}

TEST(SmallObjectPool, TrimReturnsWholeFreeSlabs) {
    REQUIRE_POOL();
    std::thread worker([] {
        SmallObjectPool::trim();
        const size_t before = SmallObjectPool::slabCount();
        std::vector<Block> blocks;
        for (int i = 0; i < 20000; ++i)
            blocks.push_back(take(i % 2 ? 88 : 48));  // about 20 slabs
        EXPECT_GE(SmallObjectPool::slabCount(), before + 15);
        // Keep one block alive: its slab has to stay.
        Block kept = blocks[10000];
        fill(kept);
        blocks.erase(blocks.begin() + 10000);
        for (const Block& b : blocks)
            give(b);
        SmallObjectPool::trim();
        EXPECT_LE(SmallObjectPool::slabCount(), before + 2);
        EXPECT_TRUE(intact(kept));
        give(kept);
        // Memory handed back is not on the lists any more: new blocks are sound.
        for (int i = 0; i < 1000; ++i) {
            blocks[i] = take(88);
            fill(blocks[i]);
        }
        for (int i = 0; i < 1000; ++i) {
            EXPECT_TRUE(intact(blocks[i]));
            give(blocks[i]);
        }
    });
    worker.join();
}

// Many trees built and dropped on a thread must not pile up slabs: the
// thread sweeps once its free lists grow past a few megabytes.
TEST(SmallObjectPool, FreedMemoryStaysBounded) {
    REQUIRE_POOL();
    std::thread worker([] {
        for (int round = 0; round < 24; ++round) {
            std::vector<Block> blocks;
            // Each round uses a size class of its own, so nothing is reused
            // across rounds; only sweeping can keep the slab count down.
            const size_t n = 8 + 8 * static_cast<size_t>(round);
            for (int i = 0; i < 20000; ++i)
                blocks.push_back(take(n));
            for (const Block& b : blocks)
                give(b);
        }
        // 24 rounds of up to 3.8 MB each: kept whole that would be over 700
        // slabs, while the sweep threshold holds a few hundred at most.
        EXPECT_LT(SmallObjectPool::threadFreeBytes(), 16u << 20);
    });
    worker.join();
    EXPECT_LT(SmallObjectPool::slabCount(), 400u);
}

// Whole free slabs are kept for the next tree up to a bound (16 MB), the
// rest go back to malloc; trim() gives back the kept ones too.
TEST(SmallObjectPool, SparesAreBoundedAndReused) {
    REQUIRE_POOL();
    std::thread worker([] {
        SmallObjectPool::trim();
        const size_t before = SmallObjectPool::slabCount();
        std::vector<Block> blocks;
        for (int i = 0; i < 200000; ++i)  // 40 MB
            blocks.push_back(take(200));
        EXPECT_GE(SmallObjectPool::slabCount(), before + 600);
        for (const Block& b : blocks)
            give(b);
        const size_t kept = SmallObjectPool::slabCount();
        EXPECT_LE(kept, before + 256 + 20);
        for (int i = 0; i < 50000; ++i)  // 10 MB, from the spares
            blocks[i] = take(200);
        EXPECT_LE(SmallObjectPool::slabCount(), kept + 1);
        for (int i = 0; i < 50000; ++i)
            give(blocks[i]);
        SmallObjectPool::trim();
        EXPECT_LE(SmallObjectPool::slabCount(), before + 1);
    });
    worker.join();
}

// Sweeps that find whole slabs among partly used ones, over lists too long
// for a sweep's notes: the slabs of live blocks stay, their blocks stay
// intact, and no block of a slab given back stays on the lists.
TEST(SmallObjectPool, SweepsKeepSlabsOfLiveBlocks) {
    REQUIRE_POOL();
    std::thread worker([] {
        SmallObjectPool::trim();
        const size_t before = SmallObjectPool::slabCount();
        std::vector<Block> blocks;
        for (int i = 0; i < 40000; ++i)
            blocks.push_back(take(24));
        for (int i = 0; i < 200000; ++i)
            blocks.push_back(take(200));
        // One live 200-byte block in about every fourth slab of them: the
        // others go, past the spares, back to malloc while these stay.
        std::vector<Block> live;
        for (size_t i = 40000; i < blocks.size(); i += 1300) {
            live.push_back(blocks[i]);
            fill(live.back());
            blocks[i].p = nullptr;
        }
        for (const Block& b : blocks)
            if (b.p) give(b);
        SmallObjectPool::trim();
        const size_t held = SmallObjectPool::slabCount() - before;
        EXPECT_GE(held, live.size());
        EXPECT_LE(held, live.size() + 2);
        EXPECT_LE(SmallObjectPool::threadFreeBytes(), held * SmallObjectPool::kSlabBytes);
        for (const Block& b : live) {
            EXPECT_TRUE(intact(b));
            give(b);
        }
        SmallObjectPool::trim();
        EXPECT_LE(SmallObjectPool::slabCount(), before + 1);
        EXPECT_LE(SmallObjectPool::threadFreeBytes(), SmallObjectPool::kSlabBytes);
    });
    worker.join();
}

TEST(SmallObjectPool, RunningOutOfSlabs) {
    REQUIRE_POOL();
    std::thread worker([] {
        SmallObjectPool::limitSlabsForTesting(0);
        std::vector<std::pair<void*, size_t>> got;
        void* p = nullptr;
        // Whatever free blocks of this class exist get used up first.
        while ((p = SmallObjectPool::allocate(232)) != nullptr)
            got.emplace_back(p, 232);
        EXPECT_EQ(p, nullptr);
        EXPECT_THROW(SmallObjectPool::allocateOrThrow(232), std::bad_alloc);
        // The classes' nothrow new reports it as null, their plain new throws.
        while ((p = SmallObjectPool::allocate(sizeof(StringBuffer))) != nullptr)
            got.emplace_back(p, sizeof(StringBuffer));
        EXPECT_EQ(new (std::nothrow) StringBuffer("x"), nullptr);
        EXPECT_THROW(delete new StringBuffer("x"), std::bad_alloc);
        while ((p = SmallObjectPool::allocate(sizeof(TreeNode))) != nullptr)
            got.emplace_back(p, sizeof(TreeNode));
        EXPECT_EQ(TreeNode::createRoot("a"), nullptr);
        SmallObjectPool::limitSlabsForTesting(-1);
        StringBuffer* sb = new (std::nothrow) StringBuffer("x");
        ASSERT_NE(sb, nullptr);
        EXPECT_STREQ(sb->getString(), "x");
        delete sb;
        for (const auto& q : got)
            SmallObjectPool::deallocate(q.first, q.second);
    });
    worker.join();
}

}  // namespace
