#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

#include "foundation/ExtPtrArray.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"
#include "foundation/StringPair.h"
#include "foundation/mxQueue.h"

namespace {

void* P(long i) {
    return reinterpret_cast<void*>(i);
}

TEST(ExtPtrArray, InsertRemoveKeepOrderAndOutOfRangeIsNull) {
    ExtPtrArray a(5, 5);
    EXPECT_EQ(a.lastElement(), nullptr);
    EXPECT_EQ(a.pop(), nullptr);
    for (long i = 0; i < 20; ++i)
        a.append(P(i * 10));
    EXPECT_EQ(a.removeAt(0), P(0));
    EXPECT_EQ(a.removeAt(5), P(60));
    a.insertAt(-3, P(1));  // negative: front
    a.insertAt(2, P(2));
    a.insertAt(999, P(3));  // past the end: append
    const long expect[] = {1, 10, 2, 20, 30, 40, 50, 70, 80};
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(a.elementAt(i), P(expect[i])) << i;
    for (int bad : {-1, 21})
        EXPECT_TRUE(!a.elementAt(bad) && !a.sbAt(bad) && !a.removeAt(bad)) << bad;
    EXPECT_EQ(a.pop(), P(3));
    EXPECT_EQ(a.getSize(), 20);
    a.removeAll();
    EXPECT_EQ(a.getSize(), 0);
}

// Slots move from pool blocks to malloc past SmallObjectPool::kMaxBlock
// bytes; inserting and removing across that boundary keeps every element.
TEST(ExtPtrArray, GrowthAcrossThePoolBoundaryKeepsOrder) {
    const int kPooled = static_cast<int>(SmallObjectPool::kMaxBlock / sizeof(void*));
    for (int first : {0, 1, kPooled, kPooled + 1}) {
        ExtPtrArray a(first, 5);
        std::vector<long> want;
        for (long i = 0; i < 3 * kPooled; ++i) {
            const int at = static_cast<int>((i * 7) % (want.size() + 1));
            ASSERT_TRUE(a.insertAt(at, P(i + 1)));
            want.insert(want.begin() + at, i + 1);
        }
        EXPECT_GE(a.getCapacity(), 3 * kPooled);
        ASSERT_EQ(a.getSize(), static_cast<int>(want.size()));
        for (int i = 0; i < a.getSize(); ++i)
            ASSERT_EQ(a.elementAt(i), P(want[i])) << first << " " << i;
        EXPECT_EQ(a.removeAt(kPooled), P(want[kPooled]));
        EXPECT_EQ(a.lastElement(), P(want.back()));
    }
}

int byKeyThenNothing(const void* a, const void* b) {
    long x = reinterpret_cast<long>(*static_cast<void* const*>(a)) / 10;
    long y = reinterpret_cast<long>(*static_cast<void* const*>(b)) / 10;
    return x < y ? -1 : x > y ? 1 : 0;
}

TEST(ExtPtrArray, SortIsStableOverSlots) {
    ExtPtrArray a;
    const long in[] = {31, 12, 33, 11, 32, 13, 5};
    for (long v : in)
        a.append(P(v));
    a.sort(byKeyThenNothing);
    const long out[] = {5, 12, 11, 13, 31, 33, 32};
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(a.elementAt(i), P(out[i])) << i;
}

TEST(ExtPtrArray, DestructionLeavesElementsAlive) {
    StringBuffer* sb = new StringBuffer("survivor");
    {
        ExtPtrArray a;
        a.append(sb);
    }
    EXPECT_STREQ(sb->getString(), "survivor");
    ExtPtrArray owner;
    owner.append(sb);
    owner.removeAllObjects();  // deletes it (leak checkers notice if not)
    EXPECT_EQ(owner.getSize(), 0);
}

TEST(mxQueue, FifoAcrossWrapAndGrowth) {
    _mxQueue q;
    EXPECT_FALSE(q.hasObjects());
    EXPECT_EQ(q.pop(), nullptr);
    long next = 1, expect = 1;
    // Keep the queue partly full while pushing many more than its first
    // capacity, so the ring wraps and grows while wrapped.
    for (int round = 0; round < 50; ++round) {
        for (int i = 0; i < 7 + round; ++i)
            q.push(P(next++));
        for (int i = 0; i < 5; ++i)
            ASSERT_EQ(q.pop(), P(expect++));
    }
    while (q.hasObjects())
        ASSERT_EQ(q.pop(), P(expect++));
    EXPECT_EQ(expect, next);
    EXPECT_EQ(q.pop(), nullptr);
    EXPECT_EQ(q.getSize(), 0);
    q.push(P(1));
    q.clear();
    EXPECT_FALSE(q.hasObjects());
    EXPECT_EQ(q.pop(), nullptr);
}

}  // namespace
