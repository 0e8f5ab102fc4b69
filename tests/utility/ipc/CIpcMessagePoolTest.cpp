// Spare IPC messages: handed out before new ones are made, moved rather than copied, and
// kept only up to the pool's size.

#include <gtest/gtest.h>

#include <list>
#include <string>

#include "ipc/CIpcMessagePool.h"

TEST(CIpcMessagePool, SparesComeBackInOrderUpToThePoolsSize) {
    CIpcMessagePool pool(2);
    std::list<CIpcMessage> list;
    for (const char* code : {"AAA", "BBB", "CCC"}) {
        pool.Next().SetCode(code);
        pool.MoveNextTo(list);
    }
    const CIpcMessage* first = &list.front();
    pool.Recycle(list);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(&pool.Next(), first);  // the same object: nothing was copied

    for (int i = 0; i < 3; ++i) {
        pool.MoveNextTo(list);
    }
    std::string codes;
    for (const CIpcMessage& message : list) {
        codes += message.GetCode().substr(0, 1);
    }
    EXPECT_EQ(codes, "AB!");  // "CCC" was beyond the size: a new message takes its place
}
