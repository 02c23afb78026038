// CString: edits of shared and locked buffers against std::string twins; what the twins
// cannot see (sharing, locks, wiping); Format against snprintf, and what it cuts.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>

#include "TestSupport.h"
#include "String"

namespace {

int s_any;  // an address to print
const char* at(const CString& s) { return s; }
std::string bytes(const CString& s) { return std::string(at(s), s.GetLength()); }
std::string replaced(std::string s, const std::string& from, const std::string& to) {
    for (size_t i = s.find(from); i != std::string::npos; i = s.find(from, i + to.size()))
        s.replace(i, from.size(), to);
    return s;
}

// Each edit, on a string that shares its buffer and on a locked one, against the same edit on a std::string;
// the sharer keeps its text, and its buffer too when nothing changes.
#define EDIT(onCString, onTwin) {#onCString, [](CString& s, std::string& m) { onCString; onTwin; }}
TEST(CString, EditsMatchTheirStdStringTwins) {
    const std::pair<const char*, void (*)(CString&, std::string&)> edits[] = {
        EDIT(s = "ab", m = "ab"), EDIT(s = CString("x"), m = "x"), EDIT(s += s, m += m),
        EDIT((s += 'c', s += '\0'), m += 'c'), EDIT(s = '<' + s + '>' + "!", m = '<' + m + '>' + "!"),
        EDIT(s.SetAt(2, 'Z'), m[2] = 'Z'), EDIT(s.SetAt(9, 'Z'), (void)m),
        EDIT(s.Replace('a', 'q'), std::replace(m.begin(), m.end(), 'a', 'q')),
        EDIT(s.Replace(".b", s), m = replaced(m, ".b", m)), EDIT(s.Replace("A", nullptr), m.erase(5, 1)),
        EDIT(s.TrimLeft(), m.erase(0, 1)), EDIT(s.TrimRight(), m.erase(6)), EDIT(s = s.Mid(9), m = ""),
        EDIT(s = s.Mid(2, 3), m = m.substr(2, 3)), EDIT(s = s.Right(3) + s.Left(2), m = m.substr(5) + " a"),
        EDIT(s.MakeUpper(), m = " A.B A \t"), EDIT(s.Format("%s|%d", at(s), 5), m += "|5"),
        EDIT((strcpy(s.GetBuffer(20) + 8, "gh"), s.ReleaseBuffer(10)), m += "gh"),
        EDIT(s.GetBufferSetLength(3), m.resize(3)), EDIT(s.FreeExtra(), (void)m), EDIT(s.Empty(), m = ""),
        EDIT(s.SecureEmpty(), m = ""), EDIT(AppendGrowing(s, "=", 1), m += "="),
        EDIT(AppendGrowing(s, "", 0), (void)m)};
    for (const auto& edit : edits) {
        for (bool lock : {false, true}) {
            CString s(" a.b A \t"), sharer(s);
            std::string m(" a.b A \t");
            if (lock) s.LockBuffer();
            edit.second(s, m);
            EXPECT_TRUE(m == bytes(s) && m.size() == strlen(s)) << edit.first << (lock ? " locked" : "");
            EXPECT_EQ(" a.b A \t", bytes(sharer)) << edit.first;
            EXPECT_TRUE(lock || m != bytes(sharer) || at(sharer) == at(s)) << edit.first << " forks";
        }
    }
}

// What the twins cannot see: copies of a locked buffer, what a lock keeps in place, what is wiped.
TEST(CStringSharing, LockedBuffersAreCopiedStayPutAndAreWiped) {
    CString a("abc");
    char* locked = a.LockBuffer();
    a = "xy";
    EXPECT_NE(at(a), at(CString(a))) << "a locked buffer is copied";
    a.SecureEmpty();
    EXPECT_EQ(locked, at(a)) << "assigning and SecureEmpty keep a locked buffer";
    EXPECT_EQ(std::string(3, '\0'), std::string(locked, 3)) << "and SecureEmpty overwrites its characters";
}

#define ROW(expression, expected) {#expression, static_cast<long>(expression), expected}
struct Row { const char* what; long got, want; };

// Comparisons fold ASCII letters only and see embedded zeros; positions out of range find nothing.
TEST(CString, ComparesAndSearchesWithinBounds) {
    const CString s("abcabc"), z("ab\0cd", 5);
    CString dots("a.b\0a.b", 7);
    const Row rows[] = {
        ROW(CString("XYZ").CompareNoCase("xyz"), 0), ROW(CString("abd").CompareNoCase("ABC"), 1),
        ROW(CString("\xC4").CompareNoCase("\xE4") != 0, 1), ROW(CString("\x80").CompareNoCase("a") > 0, 1),
        ROW(z == CString("ab\0cd", 5), 1), ROW(z != CString("ab\0ce", 5), 1), ROW(s.Find('b', 2), 4),
        ROW(s.Find("abc", 1), 3), ROW(s.Find("x", 99), -1), ROW(s.Find('a', -1), -1), ROW(s[6], 0),
        ROW(s.ReverseFind('c'), 5), ROW(s.FindOneOf("xc"), 2), ROW(s.FindOneOf("c", 6), -1), ROW(s[-9], 0),
        ROW(CString("0123456789").Mid(7, INT_MAX) == "789", 1), ROW(dots.Replace(".", "::"), 2)};
    for (const Row& r : rows) EXPECT_EQ(r.want, r.got) << r.what;
    EXPECT_EQ(std::string("a::b\0a::b", 9), bytes(dots)) << "Replace goes on past a zero";
    EXPECT_THROW(dots.GetBuffer(INT_MAX), std::bad_alloc);
}

template <class... A>
std::string printed(const char* format, A... args) {
    char out[4096];
    snprintf(out, sizeof out, format, args...);
    return out;
}
template <class... A>
std::string formatted(const char* format, A... args) {
    CString s;
    s.Format(format, args...);
    return bytes(s);
}
#define LIKE_SNPRINTF(...) EXPECT_EQ(printed(__VA_ARGS__), formatted(__VA_ARGS__)) << #__VA_ARGS__

// Every conversion the estimate sizes prints as snprintf does; arguments after a length modifier are
// read in step. What it cannot size is cut to its estimate; a huge width fails; %c stops the process.
TEST(CStringFormatDeathTest, SizedConversionsEqualSnprintfOthersAreCut) {
    LIKE_SNPRINTF("[%d|%i|%u|%x|%X|%o|%p|%#-40o|%%]", -42, 7, 3u, 255, 255, 8, static_cast<void*>(&s_any), 6);
    LIKE_SNPRINTF("[%-8d|%+.5i|% d|%#x|%08X]", 1, 2, 3, 4, 5);
    LIKE_SNPRINTF("[%9s|%10s|%-90s|%s]", "a", "", "c", nullText());  // strings are sized exactly
    LIKE_SNPRINTF("[%*d|%-*s|%*s|%.*s|%*.*f]", 40, 7, -50, "left", 2, "abcdef", 3, "abcdef", 150, 10, 2.5);
    LIKE_SNPRINTF("[%e|%g|%G|%.30f|%ld|%lu|%hd|%s]", -1.5e-5, 1e-7, 1e6, 1.0 / 3, -5L, 6UL, 7, "after l, h");
    LIKE_SNPRINTF("%d%d%d%d%Lf|%s|%qx|%qi|%s", 1, 2, 3, 4, 1.5L, "after L", 0xfedcba9876ULL, -9LL, "after q");
    EXPECT_EQ(printed("%f", 1e200).substr(0, 128), formatted("%f", 1e200));
    EXPECT_THROW(formatted("%2147483647d", 1), std::bad_alloc);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(formatted("value %5C", 'x'), "%c conversion is not supported");
}

}  // namespace
