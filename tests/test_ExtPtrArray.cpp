// Edits of pointer arrays and the queue are checked against std::vector and
// std::deque by the containers program (fuzz/containers_program.h, replayed
// in test_FuzzReplay.cpp); here, what an array owns.

#include "foundation/ExtPtrArray.h"
#include "foundation/StringBuffer.h"
#include "tests/TestSupport.h"

namespace {

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

}  // namespace
