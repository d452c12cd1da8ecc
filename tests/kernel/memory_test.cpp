#include <gtest/gtest.h>
#include "zvmemory.h"

struct Sample : ZvGlobalObject {
    int a[64];
};

TEST(KernelMemory, ObjectsStartZeroFilledAndFreeCleanly)
{
    for (int round = 0; round < 3; round++) {
        Sample *s = new Sample;
        ASSERT_NE(s, nullptr);
        for (int v : s->a)
            EXPECT_EQ(v, 0);
        EXPECT_GE(ZvMem_Size(s), sizeof(Sample));
        s->a[3] = 7;
        delete s;
    }
    ZvMem_Free(nullptr);
    EXPECT_EQ(ZvMem_Size(nullptr), 0u);
}
