// Object and text lists (on heap blocks that may fail) and byte arrays.
#include <gtest/gtest.h>

#include <string>

#include "Array"
#include "TestSupport.h"
#include "list"

namespace {

TEST(UList, KeepsOrderIgnoresBadIndexesFailsWhenItCannotGrow) {
    ScopedCapturingLog log;
    UList list;
    UObject a, b, c;
    for (UObject* object : {&a, &b, &c, static_cast<UObject*>(nullptr)}) EXPECT_EQ(0, list.addObject(object));
    for (int index : {3, -1, 0}) EXPECT_EQ(0, list.removeObject(index));
    EXPECT_TRUE(list.getCount() == 2 && list.getObject(0) == &b && list.getObject(1) == &c);
    list.lock();
    EXPECT_EQ(0, list.addObject(&a)) << "an operation under the caller's own lock must not deadlock";
    list.unlock();
    FailingAllocation failing;
    EXPECT_EQ(-1, list.addObject(&a));
    EXPECT_EQ(3, list.getCount());
    EXPECT_NE(std::string::npos, log.text().find(", UList::addObject - EXCEPTION, EXCEPTION caught: "
                                                 "EXCEPTION - malloc error (size), 32\n"));
}

// Texts are cut at the separator: empty pieces skipped, separators kept on request, only spaces trimmed.
TEST(UStrings, CutsAtTheSeparatorFindsAndJoins) {
    const struct { const char* text; int flags; const char* items; } cases[] = {
        {"a,,b", 0, "a|b|"}, {"a,,b", UStrings::ADD_SEPARATORS, "a|,|,|b|"}, {"abc", 0, "abc|"}, {"", 0, ""},
        {",x,", UStrings::ADD_SEPARATORS, ",|x|,|"}, {" a , b,\tc ", UStrings::TRIM_ITEMS, "a|b|\tc|"}};
    for (const auto& c : cases) {
        UStrings s(c.text, ',', c.flags);
        std::string items;
        for (int i = 0; i < s.getCount(); ++i) items += s.getItem(i) + std::string("|");
        EXPECT_EQ(c.items, items) << c.text << " " << c.flags;
    }
    UStrings s("k=v;x;y", ';', UStrings::ADD_SEPARATORS);
    EXPECT_EQ(2, s.find("x"));
    s.removeItem(1);
    EXPECT_EQ("k=vx;y", std::string(s.toString()));
}

// An array keeps its elements when it grows, zeroes the new ones, and can append itself.
TEST(CArray, KeepsOldElementsZeroesNewOnesAppendsItself) {
    CArray<unsigned char, unsigned char> a;
    for (int i = 0; i < 300; ++i) a.Add(static_cast<unsigned char>(i));
    a.SetAtGrow(310, 7);
    EXPECT_TRUE(a.GetSize() == 311 && a[299] == 43 && a[300] == 0 && a[309] == 0 && a[310] == 7);
    a.SetSize(2);
    a.SetSize(5);
    a.Append(a);  // its own elements, read before the block moves
    EXPECT_TRUE(a.GetSize() == 10 && a[1] == 1 && a[2] == 0 && a[4] == 0 && a[6] == 1 && a[9] == 0);
}

}  // namespace
