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

TEST(AutoMemory, MallocEnsureAndExpand) {
    AutoMemory m;
    EXPECT_EQ(nullptr, m.malloc(0));
    EXPECT_EQ(nullptr, m.getPtr());
    EXPECT_EQ(0u, m.getSize());

    memcpy(m.malloc(4), "abcd", 4);
    EXPECT_EQ(m.getPtr(), m.ensure(2)) << "a large enough block stays";
    m.expand(4);
    EXPECT_EQ(8u, m.getSize());
    EXPECT_EQ(0, memcmp(m.getPtr(), "abcd", 4)) << "expand keeps the bytes";
    m.expand(-3);
    EXPECT_EQ(8u, m.getSize());

    m.ensure(64);
    EXPECT_EQ(64u, m.getSize());
    m.malloc(-5);
    EXPECT_EQ(nullptr, m.getPtr());
}

TEST(AutoMemory, CopiesOwnTheirBytes) {
    AutoMemory a("xyz", 3);
    AutoMemory b(a);
    AutoMemory c;
    c = a;
    static_cast<char*>(a.getPtr())[0] = 'Q';
    EXPECT_EQ(0, memcmp(b.getPtr(), "xyz", 3));
    EXPECT_EQ(0, memcmp(c.getPtr(), "xyz", 3));
    AutoMemory empty(nullptr, 0);
    EXPECT_EQ(nullptr, empty.getPtr());
}

TEST(AutoMemory, FailedAllocationThrowsAndIsLoggedAtTheThrow) {
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
            EXPECT_EQ(-1, e.GetErrorCode());
        }
        EXPECT_THROW(AutoMemory(16), UException);
    }
    EXPECT_EQ(3u, m.getSize()) << "a failed expand keeps the old block";
    ASSERT_EQ(2u, log.lines().size());
    EXPECT_EQ("1, , ", log.lines()[0].substr(0, 5));
    EXPECT_NE(std::string::npos, log.lines()[0].find(", AutoMemory::malloc, EXCEPTION - malloc error (size), 43\n"));
}

TEST(AutoMemory, SaveToFile) {
    char path[] = "/tmp/passway-automemory-XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    AutoMemory m("data", 4);
    EXPECT_EQ(0, m.SaveToFile(path));
    FILE* f = fopen(path, "rb");
    char back[8] = {};
    ASSERT_EQ(4u, fread(back, 1, sizeof back, f));
    fclose(f);
    EXPECT_STREQ("data", back);
    unlink(path);
    EXPECT_EQ(-1, m.SaveToFile("/nonexistent-folder/x"));
    EXPECT_EQ(-1, m.SaveToFile(nullptr));
}

TEST(CArray, SetSizeGrowsByAnEighthWithinBounds) {
    CArray<unsigned char, unsigned char> a;
    a.SetSize(100);
    EXPECT_EQ(100, a.GetCapacity()) << "the first block is exact";
    a.SetSize(101);
    EXPECT_EQ(112, a.GetCapacity()) << "100 / 8 = 12 more";
    a.SetSize(5000);
    EXPECT_EQ(5000, a.GetCapacity()) << "never less than asked";
    a.SetSize(5001);
    EXPECT_EQ(5625, a.GetCapacity()) << "5000 / 8 = 625 more";
    a.SetSize(0);
    EXPECT_EQ(0, a.GetCapacity());

    CArray<unsigned char, unsigned char> small;
    small.SetSize(2);
    small.SetSize(3);
    EXPECT_EQ(6, small.GetCapacity()) << "at least 4 more";
    CArray<unsigned char, unsigned char> big;
    big.SetSize(20000);
    big.SetSize(20001);
    EXPECT_EQ(21024, big.GetCapacity()) << "at most 1024 more";
    CArray<unsigned char, unsigned char> stepped;
    stepped.SetSize(10, 50);
    stepped.SetSize(11);
    EXPECT_EQ(60, stepped.GetCapacity()) << "an explicit grow step is kept";
}

TEST(CArray, NewElementsAreZeroAndOldOnesKept) {
    CArray<unsigned char, unsigned char> a;
    for (int i = 0; i < 300; ++i) EXPECT_EQ(i, a.Add(static_cast<unsigned char>(i)));
    a.SetAtGrow(310, 7);
    ASSERT_EQ(311, a.GetSize());
    for (int i = 0; i < 300; ++i) ASSERT_EQ(static_cast<unsigned char>(i), a[i]);
    for (int i = 300; i < 310; ++i) EXPECT_EQ(0, a[i]);
    EXPECT_EQ(7, a[310]);
    a.SetSize(2);
    a.SetSize(5);
    EXPECT_EQ(0, a[3]) << "elements that come back after a shrink are zero again";
}

TEST(CArray, RefusesNegativeSizesAndIndices) {
    CArray<unsigned char, unsigned char> a;
    a.Add(1);
    a.SetSize(-1);
    a.SetAtGrow(-4, 9);
    a.SetAt(5, 9);
    EXPECT_EQ(1, a.GetSize());
    EXPECT_EQ(0, a[-1]);
    a.Append(a);  // appending its own elements
    EXPECT_EQ(2, a.GetSize());
    EXPECT_EQ(1, a[1]);
    CArray<unsigned char, unsigned char> copy(a);
    copy.SetAt(0, 5);
    EXPECT_EQ(1, a[0]);
}

TEST(UMutex, NeverLocksOnThisPlatform) {
    UMutex named("passway");
    UMutex owned(nullptr, true, "passway");
    EXPECT_EQ(-1, named.Acquire(nullptr, 1000));
    EXPECT_EQ(0, named.Release());
    EXPECT_FALSE(owned.isOwned());
}

TEST(UAutoCriticalSection, NestsAndIgnoresUnmatchedUnlocks) {
    UAutoCriticalSection section;
    section.Unlock();
    EXPECT_EQ(0, section.depth());
    section.Lock();
    section.Lock();
    EXPECT_EQ(2, section.depth());
    section.Unlock();
    section.Unlock();
    section.Unlock();
    EXPECT_EQ(0, section.depth());
}

}  // namespace
