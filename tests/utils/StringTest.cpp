// CString: the sharing and locking contract, and the edge rules the random model test does not reach.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "String"

namespace {

std::string bytes(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }
bool shares(const CString& a, const CString& b) { return static_cast<const char*>(a) == static_cast<const char*>(b); }

TEST(CStringSharing, EveryWritingMemberForksASharedBuffer) {
    const CString original("  Mixed Text  ");
    using Edit = void (*)(CString&);
    const Edit edits[] = {
        [](CString& s) { s.TrimLeft(); },        [](CString& s) { s.TrimRight(); },
        [](CString& s) { s.MakeUpper(); },       [](CString& s) { s.MakeLower(); },
        [](CString& s) { s.Replace('x', 'y'); }, [](CString& s) { s.Replace("Text", "Words"); },
        [](CString& s) { s += "!"; },            [](CString& s) { s.GetBuffer(100)[0] = '#'; },
        [](CString& s) { s.ReleaseBuffer(3); },  [](CString& s) { s.Format("%d", 7); },
        [](CString& s) { s.SetAt(2, 'Q'); },     [](CString& s) { s.Empty(); },
    };
    for (Edit edit : edits) {
        CString copy(original), other(original);
        EXPECT_TRUE(shares(copy, original));
        edit(copy);
        EXPECT_EQ("  Mixed Text  ", bytes(original));
        EXPECT_TRUE(shares(other, original)) << "the other sharers stay together";
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

TEST(CStringLocking, LockedBuffersAreCopiedAndWrittenInPlace) {
    CString a("1234567890");
    char* locked = a.LockBuffer();
    CString b(a), c;
    c = a;
    EXPECT_FALSE(shares(a, b));
    EXPECT_FALSE(shares(a, c));

    a = CString("abc");
    a += "x";
    EXPECT_EQ(locked, static_cast<const char*>(a)) << "assignments and appends that fit stay in place";
    a.Empty();
    EXPECT_EQ(locked, static_cast<const char*>(a)) << "Empty keeps a locked string locked";
    EXPECT_EQ(0, a.GetLength());

    a.UnlockBuffer();
    a = "shareable";
    CString d(a);
    EXPECT_TRUE(shares(a, d));
    d.UnlockBuffer();  // not locked: must not disturb the sharing count
    d.SetAt(0, 'S');
    EXPECT_EQ("shareable", bytes(a));
}

TEST(CStringLocking, EmptyStringsShareTheStaticBuffer) {
    CString a, b(""), c(static_cast<const char*>(nullptr)), d("x", 0), e('x', -3);
    for (const CString* s : std::initializer_list<const CString*>{&b, &c, &d, &e, &AfxGetEmptyString()})
        EXPECT_TRUE(shares(a, *s));
    a.LockBuffer();
    a.UnlockBuffer();
    EXPECT_TRUE(shares(a, b)) << "locking the empty string changes nothing";
}

TEST(CStringText, EmbeddedZerosAndSelfReferences) {
    CString z("ab\0cd", 5);
    EXPECT_EQ(std::string("ab\0cd", 5), bytes(z));
    EXPECT_TRUE(z == CString("ab\0cd", 5));
    EXPECT_TRUE(z != CString("ab\0ce", 5));

    CString s("ab");
    s += '\0';
    s += static_cast<const char*>(nullptr);
    EXPECT_EQ("ab", bytes(s)) << "the zero character and null texts append nothing";
    s += s;
    EXPECT_EQ("abab", bytes(s));
    EXPECT_EQ("!abab", bytes('!' + s + static_cast<const char*>(nullptr)));

    CString tail("hello world"), sharer(tail);
    tail = static_cast<const char*>(tail) + 6;
    EXPECT_EQ("world", bytes(tail));
    EXPECT_EQ("hello world", bytes(sharer));
    CString own("hello world");
    own = static_cast<const char*>(own) + 6;
    EXPECT_EQ("world", bytes(own));
}

TEST(CStringCompare, CaseFoldingIsAsciiOnly) {
    EXPECT_EQ(0, CString("abc").CompareNoCase("ABC"));
    EXPECT_EQ('d' - 'c', CString("abd").CompareNoCase("ABC"));
    EXPECT_NE(0, CString("\xC4").CompareNoCase("\xE4")) << "bytes above 127 are not folded";
    EXPECT_GT(CString("\x80").CompareNoCase("a"), 0) << "bytes compare unsigned";
    EXPECT_LT(CString("abc").Compare("abd"), 0);
}

TEST(CStringExtract, ClampsCountsAndPositions) {
    CString s("abc");
    EXPECT_EQ("", bytes(s.Mid(5)));
    EXPECT_EQ("ab", bytes(CString("abcdef").Mid(-2, 2)));
    EXPECT_EQ("", bytes(s.Mid(1, -1)));
    EXPECT_EQ("", bytes(s.Left(-1)));
    EXPECT_EQ("abc", bytes(s.Right(10)));
    EXPECT_EQ("789", bytes(CString("0123456789").Mid(7, 2147483647))) << "first + count must not overflow";
    EXPECT_EQ("abba", bytes(CString("abba:x").SpanIncluding("ab")));
    EXPECT_EQ("abba", bytes(CString("abba:x").SpanExcluding(":")));
}

TEST(CStringSearch, OutOfRangePositionsFindNothingAndWriteNothing) {
    CString s("abcabc");
    EXPECT_EQ(4, s.Find('b', 2));
    EXPECT_EQ(3, s.Find("abc", 1));
    EXPECT_EQ(5, s.ReverseFind('c'));
    EXPECT_EQ(-1, s.Find("x", 99));
    EXPECT_EQ(-1, s.Find('a', -1));
    EXPECT_EQ(-1, CString("abc").FindOneOf("x", 3));
    EXPECT_EQ(2, CString("abc").FindOneOf("xc"));
    EXPECT_EQ('\0', s[6]);
    EXPECT_EQ('\0', s[-1]);
    s.SetAt(100, 'z');
    s.SetAt(-1, 'z');
    EXPECT_EQ("abcabc", bytes(s));
}

TEST(CStringReplace, CountsNonOverlappingMatchesAcrossEmbeddedZeros) {
    CString s("aaaa");
    EXPECT_EQ(2, s.Replace("aa", "b"));
    EXPECT_EQ("bb", bytes(s));
    CString gone("xyxyx");
    EXPECT_EQ(2, gone.Replace("xy", static_cast<const char*>(nullptr)));
    EXPECT_EQ("x", bytes(gone));
    CString zeros("a.b\0a.b", 7);
    EXPECT_EQ(2, zeros.Replace(".", "::"));
    EXPECT_EQ(std::string("a::b\0a::b", 9), bytes(zeros));
    CString self("ab");
    EXPECT_EQ(1, self.Replace("b", self));
    EXPECT_EQ("aab", bytes(self));
}

TEST(CStringBuffer, ReleaseBufferClampsAndFreeExtraFitsExactly) {
    CString s("ab");
    char* p = s.GetBuffer(10);
    EXPECT_STREQ("ab", p) << "GetBuffer keeps the text";
    strcpy(p, "abcdefgh");
    s.ReleaseBuffer();
    EXPECT_EQ("abcdefgh", bytes(s));
    s.ReleaseBuffer(3);
    s.ReleaseBuffer(1000);
    EXPECT_EQ("abc", bytes(s)) << "a length beyond the capacity is clamped to the text";

    const char* roomy = s;
    s.FreeExtra();
    EXPECT_NE(roomy, static_cast<const char*>(s));
    const char* exact = s;
    s.FreeExtra();
    EXPECT_EQ(exact, static_cast<const char*>(s)) << "an exact-size buffer stays";
    EXPECT_EQ("abc", bytes(s));

    memcpy(s.GetBufferSetLength(4), "wxyz", 4);
    EXPECT_EQ("wxyz", bytes(s));
    EXPECT_THROW(s.GetBuffer(2147483647), std::bad_alloc);
    EXPECT_EQ("wxyz", bytes(s)) << "a failed allocation leaves the string as it was";
}

TEST(CStringSecret, SecureEmptyClearsOnlyWhatNoOneElseHolds) {
    CString secret("hunter2");
    CString shared(secret);
    secret.SecureEmpty();
    EXPECT_EQ("hunter2", bytes(shared)) << "a sharer keeps its text";
    shared.LockBuffer();
    const char* locked = shared;
    shared.SecureEmpty();
    EXPECT_EQ(0, shared.GetLength());
    EXPECT_EQ(std::string(7, '\0'), std::string(locked, 7)) << "the characters are overwritten in place";
}

}  // namespace
