// Object lists: order, ownership and the typed lists built on them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CapturingLog.h"
#include "FailingAllocation.h"
#include "list"

namespace {

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

TEST(UList, RemoveKeepsOrderAndNeverDeletes) {
    UList list;
    Tracked a(1), b(2), c(3);
    for (Tracked* t : {&a, &b, &c}) list.addObject(t);
    list.addObject(nullptr);
    EXPECT_EQ((std::vector<int>{1, 2, 3}), ids(list));
    EXPECT_EQ(0, list.removeObject(0));
    EXPECT_EQ((std::vector<int>{2, 3}), ids(list));
    EXPECT_EQ(0, list.removeObject(7));
    EXPECT_EQ(nullptr, list.getObject(-1));
    list.emptyList();
    EXPECT_EQ(0, list.getCount());
    EXPECT_EQ(3, Tracked::alive) << "removing and emptying only forget";
}

TEST(UList, DeleteObjectsDeletesEveryHeldObject) {
    Tracked::alive = 0;
    UList list;
    for (int i = 0; i < 100; ++i) list.addObject(new Tracked(i));
    EXPECT_EQ(0, list.deleteObjects());
    EXPECT_EQ(0, Tracked::alive);
    EXPECT_EQ(0, list.getCount());
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
    UStrings strings;
    strings.lock();
    EXPECT_EQ(0, strings.addItem("x")) << "an operation under the caller's own lock must not deadlock";
    strings.unlock();
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
    EXPECT_EQ((V{"a", "b", "\tc"}), items(UStrings(" a , b,\tc ", ',', UStrings::TRIM_ITEMS)))
        << "only spaces are trimmed";
    EXPECT_EQ(V{}, items(UStrings(nullptr, ',', 0)));

    UStrings s("k=v;x;y", ';', UStrings::ADD_SEPARATORS);
    EXPECT_EQ(2, s.find("x"));
    s.removeItem(1);
    EXPECT_EQ("k=vx;y", std::string(s.toString()));
}

TEST(TypedLists, StringPairsBySubstringBlobsByExactName) {
    UStringList pairs;
    pairs.addItem("host", "portal.example");
    pairs.addItem("port", "443");
    EXPECT_STREQ("443", pairs.getItem(1, 5));
    EXPECT_EQ(nullptr, pairs.getItem(2, 0));
    EXPECT_EQ(1, pairs.findItem("or", 0));
    EXPECT_EQ(0, pairs.findItem("example", 1));
    EXPECT_EQ(-1, pairs.findItem("example", 0));

    UBlobList blobs;
    const unsigned char bytes[] = {0, 1, 2, 0xFF};
    blobs.addItem("key", bytes, sizeof bytes);
    blobs.addItem("keys", bytes, 1);
    unsigned int size = 99;
    ASSERT_NE(nullptr, blobs.getItem("key", &size));
    EXPECT_EQ(4u, size);
    EXPECT_EQ(-1, blobs.findItem("KEY"));
    EXPECT_EQ(nullptr, blobs.getItem("missing", &size));
    EXPECT_EQ(0u, size);
    blobs.removeItem("key");
    EXPECT_EQ(0, blobs.findItem("keys"));
}

}  // namespace
