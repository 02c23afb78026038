// Path splitting and trailing separators.
#include <gtest/gtest.h>

#include <string>

#include "Path"

namespace {

std::string text(const CString& s) { return std::string(static_cast<const char*>(s)); }

struct Split {
    const char* path;
    const char* dir;
    const char* name;
};

TEST(ParseFullPath, SplitsAtTheLastSeparatorOfEitherKind) {
    const Split cases[] = {
        {"/usr/lib/x.so", "/usr/lib/", "x.so"},
        {"x.so", "", "x.so"},
        {"a\\b", "a/", "b"},
        {"a/b\\c", "a/b/", "c"},
        {"a\\b/c", "a\\b/", "c"},
        {"/tmp/..", "/tmp/..", ""},
        {"/tmp/.", "/tmp/.", ""},
        {"..", "..", ""},
        {"/", "/", ""},
        {"dir/", "dir/", ""},
        {"", "", ""},
    };
    for (const Split& c : cases) {
        CString dir("stale"), name("stale");
        EXPECT_TRUE(ParseFullPath(c.path, dir, name));
        EXPECT_EQ(c.dir, text(dir)) << c.path;
        EXPECT_EQ(c.name, text(name)) << c.path;
        EXPECT_EQ(c.dir, text(SGetFilePath(c.path, "fallback")));
        EXPECT_EQ(c.name, text(SGetFileName(c.path, "fallback")));
    }
}

TEST(TrailingSlash, AddStripAndTest) {
    EXPECT_EQ("/tmp\\", text(addTrailingSlash("/tmp")));
    EXPECT_EQ("/tmp/", text(addTrailingSlash("/tmp/")));
    EXPECT_EQ("/tmp", text(stripTrailingSlash("/tmp/")));
    EXPECT_EQ("/tmp/", text(stripTrailingSlash("/tmp//")));
    EXPECT_EQ("c:", text(stripTrailingSlash("c:\\")));
    EXPECT_TRUE(hasTralingSlash("a\\"));
    EXPECT_FALSE(hasTralingSlash("a"));
    // Empty texts get a defined answer instead of a read in front of the text.
    EXPECT_FALSE(hasTralingSlash(""));
    EXPECT_EQ("\\", text(addTrailingSlash("")));
    EXPECT_EQ("", text(stripTrailingSlash("")));
}

}  // namespace
