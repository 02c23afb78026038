// Heap blocks, byte arrays and the locks.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

#include "Array"
#include "AutoMemory"
#include "CapturingLog.h"
#include "Exception"
#include "FailingAllocation.h"
#include "Mutex"

namespace {

TEST(AutoMemory, EnsureDiscardsExpandKeepsCopiesOwn) {
    AutoMemory m;
    EXPECT_EQ(nullptr, m.malloc(0));
    EXPECT_EQ(0u, m.getSize());
    memcpy(m.malloc(4), "abcd", 4);
    EXPECT_EQ(m.getPtr(), m.ensure(2)) << "a large enough block stays";
    m.expand(4);
    EXPECT_EQ(8u, m.getSize());
    EXPECT_EQ(0, memcmp(m.getPtr(), "abcd", 4)) << "expand keeps the bytes";

    AutoMemory copy(m);
    static_cast<char*>(m.getPtr())[0] = 'Q';
    EXPECT_EQ('a', static_cast<char*>(copy.getPtr())[0]);
    m.ensure(64);
    EXPECT_EQ(64u, m.getSize());
}

TEST(AutoMemory, FailedAllocationThrowsLoggedAtTheThrow) {
    ScopedCapturingLog log;
    AutoMemory m("abc", 3);
    {
        FailingAllocation failing;
        try {
            m.expand(40);
            FAIL() << "expected a UException";
        } catch (UException& e) {
            EXPECT_STREQ("AutoMemory::malloc", e.GetFunctionName());
            EXPECT_STREQ("EXCEPTION - malloc error (size), 43", e.GetErrorMessage());
        }
        EXPECT_THROW(AutoMemory(16), UException);
    }
    EXPECT_EQ(3u, m.getSize()) << "a failed expand keeps the old block";
    ASSERT_EQ(2u, log.lines().size());
    EXPECT_EQ(0u, log.lines()[0].find("1, , ")) << log.lines()[0];
    EXPECT_NE(std::string::npos, log.lines()[0].find(", AutoMemory::malloc, EXCEPTION - malloc error (size), 43\n"));
}

TEST(AutoMemory, SaveToFile) {
    char path[] = "/tmp/passway-automemory-XXXXXX";
    close(mkstemp(path));
    EXPECT_EQ(0, AutoMemory("data", 4).SaveToFile(path));
    char back[8] = {};
    FILE* f = fopen(path, "rb");
    EXPECT_EQ(4u, fread(back, 1, sizeof back, f));
    fclose(f);
    unlink(path);
    EXPECT_STREQ("data", back);
    EXPECT_EQ(-1, AutoMemory("x", 1).SaveToFile("/nonexistent-folder/x"));
}

TEST(CArray, SetSizeGrowsByAnEighthWithinBounds) {
    struct Case {
        int first, second, growBy, capacity;
    };
    const Case cases[] = {
        {100, 101, -1, 112},      // 100 / 8 = 12 more
        {100, 5000, -1, 5000},    // never less than asked
        {2, 3, -1, 6},            // at least 4 more
        {20000, 20001, -1, 21024},  // at most 1024 more
        {10, 11, 50, 60},         // an explicit grow step
    };
    for (const Case& c : cases) {
        CArray<unsigned char, unsigned char> a;
        a.SetSize(c.first, c.growBy);
        EXPECT_EQ(c.first, a.GetCapacity()) << "the first block is exact";
        a.SetSize(c.second);
        EXPECT_EQ(c.capacity, a.GetCapacity()) << c.first << " -> " << c.second;
    }
}

TEST(CArray, KeepsOldElementsZeroesNewOnesRefusesNegatives) {
    CArray<unsigned char, unsigned char> a;
    for (int i = 0; i < 300; ++i) a.Add(static_cast<unsigned char>(i));
    a.SetAtGrow(310, 7);
    ASSERT_EQ(311, a.GetSize());
    for (int i = 0; i < 300; ++i) ASSERT_EQ(static_cast<unsigned char>(i), a[i]);
    EXPECT_EQ(0, a[305]);
    a.SetSize(2);
    a.SetSize(5);
    EXPECT_EQ(0, a[3]) << "elements that come back after a shrink are zero again";

    a.SetSize(-1);
    a.SetAtGrow(-4, 9);
    EXPECT_EQ(5, a.GetSize());
    a.Append(a);  // its own elements, read before the block moves
    EXPECT_EQ(10, a.GetSize());
    EXPECT_EQ(1, a[6]);
}

TEST(Locks, MutexNeverLocksCriticalSectionNests) {
    UMutex named("passway");
    EXPECT_EQ(-1, named.Acquire(nullptr, 1000));
    EXPECT_EQ(0, named.Release());
    EXPECT_FALSE(UMutex(nullptr, true, "passway").isOwned());

    UAutoCriticalSection section;
    section.Unlock();
    section.Lock();
    section.Lock();
    EXPECT_EQ(2, section.depth());
    section.Unlock();
    section.Unlock();
    section.Unlock();
    EXPECT_EQ(0, section.depth());
}

}  // namespace
