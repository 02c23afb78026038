// Object lists: order, ownership and the typed lists built on them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CapturingLog.h"
#include "FailingAllocation.h"
#include "list"

namespace {

// An object that counts how many of its kind are alive.
struct Tracked : UObject {
    explicit Tracked(int id) : id(id) { ++alive; }
    ~Tracked() override { --alive; }
    int id;
    static int alive;
};
int Tracked::alive = 0;

std::vector<int> ids(const UList& list) {
    std::vector<int> out;
    for (int i = 0; i < list.getCount(); ++i) out.push_back(static_cast<Tracked*>(list.getObject(i))->id);
    return out;
}

TEST(UList, KeepsOrderAndNeverDeletesOnRemove) {
    UList list;
    Tracked a(1), b(2), c(3);
    EXPECT_EQ(0, list.addObject(&a));
    EXPECT_EQ(0, list.addObject(&b));
    EXPECT_EQ(0, list.addObject(&c));
    EXPECT_EQ(0, list.addObject(nullptr));
    EXPECT_EQ((std::vector<int>{1, 2, 3}), ids(list));

    EXPECT_EQ(0, list.removeObject(0));
    EXPECT_EQ((std::vector<int>{2, 3}), ids(list));
    EXPECT_EQ(3, Tracked::alive) << "the removed object still exists";
    EXPECT_EQ(0, list.removeObject(7));
    EXPECT_EQ(0, list.removeObject(-1));
    EXPECT_EQ(2, list.getCount());
    EXPECT_EQ(nullptr, list.getObject(2));
    EXPECT_EQ(nullptr, list.getObject(-1));

    list.removeObject2(1);
    list.removeObject2(0);
    EXPECT_EQ(0, list.getCount());
    list.addObject(&a);
    list.emptyList();
    EXPECT_EQ(0, list.getCount());
    EXPECT_EQ(3, Tracked::alive);
}

TEST(UList, DeleteObjectsDeletesEveryHeldObject) {
    Tracked::alive = 0;
    {
        UList list;
        for (int i = 0; i < 100; ++i) list.addObject(new Tracked(i));
        EXPECT_EQ(100, Tracked::alive);
        EXPECT_EQ(0, list.deleteObjects());
        EXPECT_EQ(0, Tracked::alive);
        EXPECT_EQ(0, list.getCount());
        list.addObject(new Tracked(7));
        list.deleteObject(0);
        list.deleteObject(0);  // out of range: nothing
    }
    EXPECT_EQ(0, Tracked::alive);
}

TEST(UList, AddThatCannotGrowReportsAndLogsAtTheCatchSite) {
    ScopedCapturingLog log;
    UList list;
    UObject object;
    FailingAllocation failing;
    EXPECT_EQ(-1, list.addObject(&object));
    EXPECT_EQ(0, list.getCount());
    ASSERT_EQ(2u, log.lines().size()) << "one line at the throw, one at the catch";
    const std::string& caught = log.lines()[1];
    EXPECT_EQ(0u, caught.find("1, , ")) << caught;
    EXPECT_NE(std::string::npos,
              caught.find(", UList::addObject - EXCEPTION, EXCEPTION caught: EXCEPTION - malloc error (size), 8\n"))
        << caught;
}

TEST(UList, LockIsRecursiveForTheOwningThread) {
    UList list;
    Tracked a(1);
    list.lock();
    EXPECT_EQ(0, list.addObject(&a)) << "an operation under the caller's own lock must not deadlock";
    list.unlock();
    EXPECT_EQ(1, list.getCount());
}

std::vector<std::string> items(const UStrings& s) {
    std::vector<std::string> out;
    for (int i = 0; i < s.getCount(); ++i) out.push_back(s.getItem(i));
    return out;
}

TEST(UStrings, CutsAtTheSeparatorSkippingEmptyPieces) {
    using V = std::vector<std::string>;
    EXPECT_EQ((V{"a", "b"}), items(UStrings("a,,b", ',', 0)));
    EXPECT_EQ((V{"a", ",", ",", "b"}), items(UStrings("a,,b", ',', UStrings::ADD_SEPARATORS)));
    EXPECT_EQ((V{",", "x", ","}), items(UStrings(",x,", ',', UStrings::ADD_SEPARATORS)));
    EXPECT_EQ((V{" a ", " b"}), items(UStrings(" a , b", ',', 0)));
    EXPECT_EQ((V{"a", "b", "\tc"}), items(UStrings(" a , b,\tc ", ',', UStrings::TRIM_ITEMS)));
    EXPECT_EQ((V{"   "}), items(UStrings("   ", ',', 0)));
    EXPECT_EQ(V{}, items(UStrings(nullptr, ',', 0)));
    EXPECT_EQ(V{}, items(UStrings(",,,", ',', 0)));
}

TEST(UStrings, FindRemoveJoinAndCopy) {
    UStrings s("k=v;x;y", ';', UStrings::ADD_SEPARATORS);
    EXPECT_EQ("k=v;x;y", std::string(s.toString()));
    EXPECT_EQ(2, s.find("x"));
    EXPECT_EQ(-1, s.find("z"));
    EXPECT_EQ(-1, s.find(nullptr));
    UStrings copy(s);
    s.removeItem(1);
    EXPECT_EQ("k=vx;y", std::string(s.toString()));
    EXPECT_EQ("k=v;x;y", std::string(copy.toString()));
    s.addItem("tail", 2);
    EXPECT_EQ("ta", std::string(s.getItem(s.getCount() - 1)));
    EXPECT_EQ(nullptr, s.getItem(99));
    s.clear();
    EXPECT_EQ(0, s.getCount());
}

TEST(UStringList, NamesValuesAndSubstringSearch) {
    UStringList list;
    EXPECT_EQ(0, list.addItem("host", "portal.example"));
    EXPECT_EQ(0, list.addItem("port", "443"));
    EXPECT_STREQ("host", list.getItem(0, 0));
    EXPECT_STREQ("443", list.getItem(1, 5));
    EXPECT_EQ(nullptr, list.getItem(2, 0));
    EXPECT_EQ(1, list.findItem("or", 0)) << "names are searched by substring";
    EXPECT_EQ(0, list.findItem("example", 1));
    EXPECT_EQ(-1, list.findItem("example", 0));
    list.removeItem(0);
    EXPECT_STREQ("port", list.getItem(0, 0));
}

TEST(UBlobList, NamedBlocksByExactName) {
    UBlobList blobs;
    const unsigned char bytes[] = {0, 1, 2, 0xFF};
    EXPECT_EQ(0, blobs.addItem("key", bytes, sizeof bytes));
    CArray<unsigned char, unsigned char> array;
    array.Add(9);
    EXPECT_EQ(0, blobs.addItem("keys", &array));
    unsigned int size = 99;
    const unsigned char* got = blobs.getItem("key", &size);
    ASSERT_NE(nullptr, got);
    EXPECT_EQ(4u, size);
    EXPECT_EQ(0, memcmp(bytes, got, 4));
    EXPECT_EQ(1, blobs.findItem("keys"));
    EXPECT_EQ(-1, blobs.findItem("KEY"));
    EXPECT_EQ(nullptr, blobs.getItem("missing", &size));
    EXPECT_EQ(0u, size);
    blobs.removeItem("key");
    EXPECT_EQ(0, blobs.findItem("keys"));
    blobs.removeItem(0);
    EXPECT_EQ(0, blobs.getCount());
}

}  // namespace
