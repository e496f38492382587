#include <deque>
#include <random>

#include "foundation/ExtPtrArray.h"
#include "foundation/SmallObjectPool.h"
#include "foundation/StringBuffer.h"
#include "foundation/mxQueue.h"
#include "tests/TestSupport.h"

namespace {

void* P(long i) {
    return reinterpret_cast<void*>(i);
}

// Orders by the value divided by ten, so that equal keys show stability.
int byTens(const void* a, const void* b) {
    const long x = reinterpret_cast<long>(*static_cast<void* const*>(a)) / 10;
    const long y = reinterpret_cast<long>(*static_cast<void* const*>(b)) / 10;
    return x < y ? -1 : x > y ? 1 : 0;
}

// Every edit against a std::vector, from first capacities around the point
// where the slots move from pool blocks to malloc; indexes out of range
// (negative, past the end) included.
TEST(ExtPtrArray, AgreesWithVectorUnderRandomEdits) {
    const int kPooled = static_cast<int>(SmallObjectPool::kMaxBlock / sizeof(void*));
    std::mt19937 rng(3);
    for (int first : {0, 1, 5, kPooled, kPooled + 1}) {
        ExtPtrArray a(first, 5);
        std::vector<void*> model;
        for (long step = 1; step < 4000; ++step) {
            const int size = static_cast<int>(model.size());
            const int at = static_cast<int>(rng() % static_cast<unsigned>(size + 3)) - 1;
            const int op = static_cast<int>(rng() % 10);
            if (op < 4) {
                ASSERT_TRUE(a.append(P(step)));
                model.push_back(P(step));
            } else if (op < 7) {
                ASSERT_TRUE(a.insertAt(at, P(step)));
                model.insert(model.begin() + std::clamp(at, 0, size), P(step));
            } else if (op < 9) {
                const bool inRange = at >= 0 && at < size;
                ASSERT_EQ(a.removeAt(at), inRange ? model[static_cast<size_t>(at)] : nullptr);
                if (inRange) model.erase(model.begin() + at);
            } else {
                ASSERT_EQ(a.pop(), model.empty() ? nullptr : model.back());
                if (!model.empty()) model.pop_back();
            }
            ASSERT_EQ(a.getSize(), static_cast<int>(model.size()));
            ASSERT_EQ(a.elementAt(at),
                      at >= 0 && at < a.getSize() ? model[static_cast<size_t>(at)] : nullptr);
            ASSERT_EQ(a.lastElement(), model.empty() ? nullptr : model.back());
        }
        ASSERT_TRUE(std::equal(model.begin(), model.end(), a.getItems()));
        a.sort(byTens);
        std::stable_sort(model.begin(), model.end(),
                         [](void* x, void* y) { return byTens(&x, &y) < 0; });
        ASSERT_TRUE(std::equal(model.begin(), model.end(), a.getItems())) << first;
        a.removeAll();
        EXPECT_EQ(a.getSize(), 0);
    }
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

// Kept partly full while many more than its first capacity go through, so
// the ring wraps and grows while wrapped.
TEST(mxQueue, AgreesWithDequeAcrossWrapAndGrowth) {
    _mxQueue q;
    std::deque<void*> model;
    std::mt19937 rng(4);
    for (long step = 1; step < 20000; ++step) {
        if (rng() % 5 < 3) {
            q.push(P(step));
            model.push_back(P(step));
        } else {
            ASSERT_EQ(q.pop(), model.empty() ? nullptr : model.front());
            if (!model.empty()) model.pop_front();
        }
        ASSERT_EQ(q.getSize(), static_cast<int>(model.size()));
        ASSERT_EQ(q.hasObjects(), !model.empty());
    }
    q.clear();
    EXPECT_FALSE(q.hasObjects());
    EXPECT_EQ(q.pop(), nullptr);
}

}  // namespace
