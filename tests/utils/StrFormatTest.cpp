// Placeholder templates and values as text; path and URL splitting.
#include <gtest/gtest.h>

#include <string>

#include "Path"
#include "StrFormat"
#include "Url"

namespace {

std::string text(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }
#define ROW(expression, expected) {#expression, expression, expected}
struct Row { const char* what; CString got; const char* want; };
void expectRows(std::initializer_list<Row> rows) {
    for (const Row& r : rows) EXPECT_EQ(r.want, text(r.got)) << r.what;
}

// The lowest placeholder digit takes each argument; with none, the value is dropped or appended. Values
// become text in their own widths (unsigned long and long keep 32 bits); texts fall back when null.
TEST(StrFormat, FillsTheLowestPlaceholderAndWritesValuesInTheirWidths) {
    StrFormat assigned("old");
    assigned.AppendIfNoPlaceholder(true);
    assigned = StrFormat("new");  // takes the text, keeps the flag
    expectRows({
        ROW(StrFormat("%2 %1").arg("a").arg(2).str(), "2 a"), ROW(StrFormat("%10").arg("a").str(), "a0"),
        ROW(StrFormat("%1 and %1").arg("x").str(), "x and x"), ROW(StrFormat("%%1").arg("v").str(), "%v"),
        ROW(StrFormat("x=%1").arg(5).arg(7).str(), "x=5"), ROW(sfmt("x=%1", 5, 7).str(), "x=5, 7"),
        ROW(sfmt("%1-%2", "a", "%3-c", "B").str(), "a-B-c"), ROW(StrFormat(L"%1").argHex(255).str(), "0xff"),
        ROW(sfmt("%1%2%3", static_cast<const char*>(nullptr), true, 4000000000u).str(), "true4000000000"),
        ROW(assigned.arg("v").str(), "new, v"), ROW(StrFormat(assigned).arg("w").str(), "new, v"),
        ROW(createString(4294967296UL), "0"), ROW(createString(4294967295L), "-1"), ROW(toHex(0), "0x0"),
        ROW(createString(18446744073709551615ULL), "18446744073709551615"),
        ROW(createString(static_cast<short>(-2)), "-2"), ROW(createString(0.25f), "0.250000"),
        ROW(createString("abc\0def", 7, "fb"), "abc"), ROW(createString("abcdef", 2, "fb"), "ab"),
        ROW(createString("abcdef", 0, "fb"), "abcdef"), ROW(createString(L"wide", 2, "fb"), "wi"),
        ROW(createString(static_cast<const char*>(nullptr), 3, "fb"), "fb"), ROW(stripCR("a\r\nb\n"), "ab")
    });
}

// A path splits after its last separator of either kind, which becomes a slash.
TEST(Path, SplitsAtTheLastSeparatorAddsAndStripsTrailingOnes) {
    const char* const cases[][2] = {{"/usr/x.so", "/usr/|x.so"}, {"x.so", "|x.so"}, {"a/b\\c", "a/b/|c"},
                                    {"a\\b/c", "a\\b/|c"}, {"/tmp/..", "/tmp/..|"}, {"", "|"}};
    for (const auto& c : cases) {
        CString dir("stale"), name("stale");
        ParseFullPath(c[0], dir, name);
        EXPECT_EQ(c[1], text(dir) + "|" + text(name)) << c[0];
        EXPECT_EQ(c[1], text(SGetFilePath(c[0], "")) + "|" + text(SGetFileName(c[0], ""))) << c[0];
    }
    expectRows({
        ROW(addTrailingSlash("/tmp"), "/tmp\\"), ROW(addTrailingSlash("/tmp/"), "/tmp/"),
        ROW(stripTrailingSlash("/tmp//"), "/tmp/"), ROW(stripTrailingSlash("c:\\"), "c:"),
        ROW(addTrailingSlash(""), "\\"), ROW(stripTrailingSlash(""), "")
    });
    EXPECT_TRUE(hasTralingSlash("a\\") && hasTralingSlash("a/"));
    EXPECT_FALSE(hasTralingSlash("a") || hasTralingSlash(""));
}

// A URL needs a host; a port must be 1 to 65535 in digits, else the scheme's default stays.
// Each case: the URL, then what comes out as "ok scheme host:port path".
TEST(ParseUrl, SchemesHostsPortsAndRefusals) {
    const char* const cases[][2] = {
        {"http://h:81/a", "1 1 h:81 /a"}, {" HTTPS://h", "1 2 h:443 /"}, {"h:65535\\x", "1 0 h:65535 \\x"},
        {"http://h:8o/", "0 1 h:80 /"}, {"ftp://h:0", "0 3 h:21 /"}, {"http://h:65536", "0 1 h:80 /"},
        {"http://h:/", "0 1 h:80 /"}, {"file:///etc", "0 4 :0 /etc"}};
    for (const auto& c : cases) {
        unsigned int scheme = 99, port = 99;
        CString host("stale"), path("stale");
        std::string ok = ParseURL_BASIC(c[0], scheme, host, path, port) ? "1 " : "0 ";
        ok += std::to_string(scheme) + " " + text(host) + ":" + std::to_string(port) + " " + text(path);
        EXPECT_EQ(c[1], ok);
    }
}

}  // namespace
