// CString: sharing, locking, extraction, edits and buffer access as its callers see them.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "String"

namespace {

std::string bytes(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }

bool shares(const CString& a, const CString& b) {
    return static_cast<const char*>(a) == static_cast<const char*>(b);
}

TEST(CStringSharing, CopiesShareUntilOneIsWritten) {
    CString a("hello");
    CString b(a);
    CString c;
    c = a;
    EXPECT_TRUE(shares(a, b));
    EXPECT_TRUE(shares(a, c));

    b.SetAt(0, 'x');
    EXPECT_FALSE(shares(a, b));
    EXPECT_EQ("hello", bytes(a));
    EXPECT_EQ("xello", bytes(b));
    EXPECT_EQ(5, a.GetLength());
    EXPECT_EQ(5, b.GetLength());
    EXPECT_TRUE(shares(a, c)) << "a write to b must leave the other sharers together";
}

TEST(CStringSharing, EveryWritingMemberForksASharedBuffer) {
    const CString original("  Mixed Text  ");
    using Edit = void (*)(CString&);
    const Edit edits[] = {
        [](CString& s) { s.TrimLeft(); },          [](CString& s) { s.TrimRight(); },
        [](CString& s) { s.MakeUpper(); },         [](CString& s) { s.MakeLower(); },
        [](CString& s) { s.Replace('x', 'y'); },   [](CString& s) { s.Replace("Text", "Words"); },
        [](CString& s) { s += "!"; },              [](CString& s) { s.GetBuffer(100)[0] = '#'; },
        [](CString& s) { s.ReleaseBuffer(3); },    [](CString& s) { s.Format("%d", 7); },
        [](CString& s) { s.SetAt(2, 'Q'); },       [](CString& s) { s.Empty(); },
    };
    for (Edit edit : edits) {
        CString copy(original);
        edit(copy);
        EXPECT_EQ("  Mixed Text  ", bytes(original));
    }
}

TEST(CStringSharing, NoOpEditsDoNotForkButMakeReverseDoes) {
    CString a("abc");
    CString b(a);
    EXPECT_EQ(0, b.Replace('a', 'a'));
    EXPECT_EQ(0, b.Replace("zz", "y"));
    EXPECT_EQ(0, b.Replace("", "y"));
    EXPECT_TRUE(shares(a, b));

    b.MakeReverse();
    EXPECT_FALSE(shares(a, b));
    EXPECT_EQ("abc", bytes(b)) << "MakeReverse keeps the characters in their order";
}

TEST(CStringLocking, LockedBuffersAreCopiedNotShared) {
    CString a("locked");
    a.LockBuffer();
    CString b(a);
    CString c;
    c = a;
    EXPECT_FALSE(shares(a, b));
    EXPECT_FALSE(shares(a, c));
    EXPECT_EQ("locked", bytes(b));

    a.UnlockBuffer();
    CString d(a);
    EXPECT_TRUE(shares(a, d));
}

TEST(CStringLocking, AssigningIntoALockedStringKeepsItsBuffer) {
    CString a("1234567890");
    char* locked = a.LockBuffer();
    a = CString("abc");
    EXPECT_EQ(locked, static_cast<const char*>(a)) << "a locked buffer is written in place";
    EXPECT_EQ("abc", bytes(a));

    a.Empty();
    EXPECT_EQ(locked, static_cast<const char*>(a)) << "Empty keeps a locked string locked";
    EXPECT_EQ(0, a.GetLength());
    a += "x";
    EXPECT_EQ(locked, static_cast<const char*>(a)) << "an append that fits stays in the locked buffer";
}

TEST(CStringLocking, EmptyStringsShareTheStaticBuffer) {
    CString a, b(""), c(static_cast<const char*>(nullptr)), d("x", 0), e('x', -3);
    EXPECT_TRUE(shares(a, b));
    EXPECT_TRUE(shares(a, c));
    EXPECT_TRUE(shares(a, d));
    EXPECT_TRUE(shares(a, e));
    EXPECT_TRUE(shares(a, AfxGetEmptyString()));
    a.LockBuffer();
    a.UnlockBuffer();
    EXPECT_TRUE(shares(a, b)) << "locking the empty string changes nothing";
}

TEST(CStringConstruct, LengthsAndEmbeddedZeros) {
    CString z("ab\0cd", 5);
    EXPECT_EQ(5, z.GetLength());
    EXPECT_EQ(std::string("ab\0cd", 5), bytes(z));
    CString copy(z);
    copy.SetAt(4, 'D');
    EXPECT_EQ(std::string("ab\0cD", 5), bytes(copy));
    EXPECT_EQ("xxx", bytes(CString('x', 3)));
    EXPECT_TRUE(z == CString("ab\0cd", 5));
    EXPECT_TRUE(z != CString("ab\0ce", 5));
}

TEST(CStringConcat, AppendAndPlus) {
    CString s("ab");
    s += '\0';
    EXPECT_EQ(2, s.GetLength()) << "the zero character is never appended";
    s += static_cast<const char*>(nullptr);
    s += CString("cd");
    s += 'e';
    EXPECT_EQ("abcde", bytes(s));

    EXPECT_EQ("abcde!", bytes(s + "!"));
    EXPECT_EQ("!abcde", bytes("!" + s));
    EXPECT_EQ("abcdef", bytes(s + 'f'));
    EXPECT_EQ("zabcde", bytes('z' + s));
    EXPECT_EQ("abcde", bytes(s + static_cast<const char*>(nullptr)));
    EXPECT_EQ("", bytes(CString() + CString()));

    s += s;  // appending itself reads the text before the buffer is replaced
    EXPECT_EQ("abcdeabcde", bytes(s));
}

TEST(CStringAssign, FromItsOwnCharacters) {
    CString s("hello world");
    s = static_cast<const char*>(s) + 6;
    EXPECT_EQ("world", bytes(s));

    CString shared("hello world");
    CString other(shared);
    shared = static_cast<const char*>(shared) + 6;
    EXPECT_EQ("world", bytes(shared));
    EXPECT_EQ("hello world", bytes(other));

    CString t("abc");
    t = static_cast<const char*>(t);
    EXPECT_EQ("abc", bytes(t));
    t = 'q';
    EXPECT_EQ("q", bytes(t));
}

TEST(CStringCompare, CaseFoldingIsAsciiOnly) {
    CString s("abc");
    EXPECT_EQ(0, s.CompareNoCase("ABC"));
    EXPECT_EQ('d' - 'c', CString("abd").CompareNoCase("ABC"));
    EXPECT_LT(s.Compare("abd"), 0);
    EXPECT_GT(s.Compare("ab"), 0);
    EXPECT_NE(0, CString("\xC4").CompareNoCase("\xE4")) << "bytes above 127 are not folded";
    EXPECT_GT(CString("\x80").CompareNoCase("a"), 0) << "bytes compare unsigned";
    EXPECT_TRUE(s == "abc");
    EXPECT_TRUE("abc" == s);
}

TEST(CStringExtract, ClampsCountsAndPositions) {
    CString s("abc");
    EXPECT_EQ("", bytes(s.Mid(5)));
    EXPECT_EQ("ab", bytes(CString("abcdef").Mid(-2, 2)));
    EXPECT_EQ("bc", bytes(s.Mid(1)));
    EXPECT_EQ("c", bytes(s.Mid(2, 99)));
    EXPECT_EQ("", bytes(s.Mid(1, -1)));
    EXPECT_EQ("", bytes(s.Left(-1)));
    EXPECT_EQ("abc", bytes(s.Right(10)));
    EXPECT_EQ("bc", bytes(s.Right(2)));
    EXPECT_EQ("", bytes(s.Right(-4)));
    EXPECT_EQ("abba", bytes(CString("abba:x").SpanIncluding("ab")));
    EXPECT_EQ("", bytes(CString("abba:x").SpanIncluding("x")));
    EXPECT_EQ("abba", bytes(CString("abba:x").SpanExcluding(":")));

    CString big("0123456789");
    EXPECT_EQ("789", bytes(big.Mid(7, 2147483647))) << "first + count must not overflow";
}

TEST(CStringSearch, FindsAndRefusesOutOfRangeStarts) {
    CString s("abcabc");
    EXPECT_EQ(1, s.Find('b'));
    EXPECT_EQ(4, s.Find('b', 2));
    EXPECT_EQ(3, s.Find("abc", 1));
    EXPECT_EQ(-1, s.Find("x", 99));
    EXPECT_EQ(-1, s.Find('a', -1));
    EXPECT_EQ(5, s.ReverseFind('c'));
    EXPECT_EQ(-1, s.ReverseFind('z'));
    EXPECT_EQ(-1, CString("abc").FindOneOf("x", 3));
    EXPECT_EQ(2, CString("abc").FindOneOf("xc", 0));
    EXPECT_EQ('\0', s.GetAt(6));
    EXPECT_EQ('\0', s[-1]);
    s.SetAt(100, 'z');
    EXPECT_EQ("abcabc", bytes(s));
}

TEST(CStringReplace, CountsNonOverlappingMatches) {
    CString s("aaaa");
    EXPECT_EQ(2, s.Replace("aa", "b"));
    EXPECT_EQ("bb", bytes(s));

    CString grow("a-b-c");
    EXPECT_EQ(2, grow.Replace("-", "<=>"));
    EXPECT_EQ("a<=>b<=>c", bytes(grow));

    CString gone("xyxyx");
    EXPECT_EQ(2, gone.Replace("xy", static_cast<const char*>(nullptr)));
    EXPECT_EQ("x", bytes(gone));

    CString zeros("a.b\0a.b", 7);
    EXPECT_EQ(2, zeros.Replace(".", "::")) << "embedded zeros do not end the scan";
    EXPECT_EQ(std::string("a::b\0a::b", 9), bytes(zeros));

    CString self("ab");
    EXPECT_EQ(1, self.Replace("b", self));
    EXPECT_EQ("aab", bytes(self));

    CString chars("banana");
    EXPECT_EQ(3, chars.Replace('a', 'o'));
    EXPECT_EQ("bonono", bytes(chars));
}

TEST(CStringEdit, TrimAndCase) {
    CString s(" \t x y \n ");
    s.TrimLeft();
    EXPECT_EQ("x y \n ", bytes(s));
    s.TrimRight();
    EXPECT_EQ("x y", bytes(s));
    CString blank("   ");
    blank.TrimRight();
    EXPECT_EQ(0, blank.GetLength());
    CString mixed("MiXeD 1");
    mixed.MakeUpper();
    EXPECT_EQ("MIXED 1", bytes(mixed));
    mixed.MakeLower();
    EXPECT_EQ("mixed 1", bytes(mixed));
}

TEST(CStringBuffer, GetBufferReleaseBufferAndFreeExtra) {
    CString s("ab");
    char* p = s.GetBuffer(10);
    EXPECT_EQ("ab", std::string(p)) << "GetBuffer keeps the text";
    strcpy(p, "abcdefgh");
    s.ReleaseBuffer();
    EXPECT_EQ("abcdefgh", bytes(s));
    s.ReleaseBuffer(3);
    EXPECT_EQ("abc", bytes(s));
    s.ReleaseBuffer(1000);
    EXPECT_EQ("abc", bytes(s)) << "a length beyond the capacity is clamped to the text";

    const char* before = s;
    s.FreeExtra();
    EXPECT_NE(before, static_cast<const char*>(s));
    EXPECT_EQ("abc", bytes(s));
    const char* exact = s;
    s.FreeExtra();
    EXPECT_EQ(exact, static_cast<const char*>(s)) << "an exact-size buffer stays";

    CString t;
    char* q = t.GetBufferSetLength(4);
    memcpy(q, "wxyz", 4);
    EXPECT_EQ("wxyz", bytes(t));
    EXPECT_EQ(4, t.GetLength());
}

TEST(CStringBuffer, GetBufferForksSharedText) {
    CString a("shared");
    CString b(a);
    char* p = b.GetBuffer(0);
    p[0] = 'S';
    b.ReleaseBuffer();
    EXPECT_EQ("shared", bytes(a));
    EXPECT_EQ("Shared", bytes(b));
}

TEST(CStringLimits, OverlongLengthsThrowBadAlloc) {
    CString s("x");
    EXPECT_THROW(s.GetBuffer(2147483647), std::bad_alloc);
    EXPECT_EQ("x", bytes(s)) << "a failed allocation leaves the string as it was";
}

}  // namespace
