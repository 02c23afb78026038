// Texts and lists. CString: edits of shared and locked buffers against std::string twins; what the twins
// cannot see (sharing, locks, wiping); Format against snprintf, and what it cuts. Texts made from it:
// placeholder templates and values as text; path and URL splitting. Codecs (base64, hexadecimal, URL) and
// text-to-value conversions: known answers both ways, every kind of bad input, the log lines of a refusal.
// Lists: objects and texts (on heap blocks that may fail), name/value lists, byte arrays.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <malloc.h>
#include <new>
#include <string>

#include "Array"
#include "AutoMemory"
#include "TestSupport.h"
#include "Convert"
#include "Encoding"
#include "HashTable"
#include "Path"
#include "StrFormat"
#include "String"
#include "Url"
#include "list"

// Every CString buffer comes from operator new[]: a new block holds no stale text (a copy that leaves bytes out
// shows), and while g_watchFrees is set, a block freed with "s3cret" in it is noted.
bool g_watchFrees = false, g_freedASecret = false;
long g_hugeAsks = 0;  // blocks of over 1 GiB asked for, and refused
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    if (size > (size_t{1} << 30)) return ++g_hugeAsks, nullptr;
    void* block = malloc(size != 0 ? size : 1);
    return block != nullptr ? memset(block, 0xA5, size) : nullptr;
}
void* operator new[](size_t size) {
    if (void* block = operator new[](size, std::nothrow)) return block;
    throw std::bad_alloc();
}
void operator delete[](void* block) noexcept {
    if (g_watchFrees && block != nullptr && memmem(block, malloc_usable_size(block), "s3cret", 6))
        g_freedASecret = true;
    free(block);
}
void operator delete[](void* block, size_t) noexcept { operator delete[](block); }

namespace {

using namespace std::string_literals;
const char* at(const CString& s) { return s; }
std::string bytes(const CString& s) { return std::string(at(s), s.GetLength()); }
const unsigned char* u(const char* s) { return reinterpret_cast<const unsigned char*>(s); }

// Each edit, on a string that shares its buffer and on a locked one, against the same edit on a std::string;
// the sharer keeps its text, and its buffer too when nothing changes.
#define EDIT(onCString, onTwin) {#onCString, [](CString& s, std::string& m) { onCString; onTwin; }}
TEST(CString, EditsMatchTheirStdStringTwins) {
    const std::pair<const char*, void (*)(CString&, std::string&)> edits[] = {
        EDIT((strcpy(s.GetBuffer(20) + 8, "gh"), s.ReleaseBuffer(10)), m += "gh"), EDIT(s = s.Mid(9), m = ""),
        EDIT(s.Replace(' ', 'q'), std::replace(m.begin(), m.end(), ' ', 'q')), EDIT(s.SetAt(8, 'Z'), (void)m),
        EDIT(s.Replace(".b", s), m.replace(2, 2, std::string(m))), EDIT(s.GetBufferSetLength(3), m.resize(3)),
        EDIT(s = s.Right(3) + s.Left(2), m = m.substr(5) + " a"), EDIT(s = s.Mid(2, 3), m = m.substr(2, 3)),
        EDIT(s = '\0' + ('<' + s + '>' + '\0') + "!", m = '<' + m + '>' + "!"),  // a '\0' adds nothing
        EDIT(s.Replace("A", nullptr), m.erase(5, 1)), EDIT(s.Format("%s|%d", at(s), 5), m += "|5"),
        EDIT(AppendGrowing(s, "=", 1), m += "="),
        EDIT(AppendGrowing(s, "", 0), (void)m), EDIT((s += 'c', s += '\0'), m += 'c'), EDIT(s += s, m += m),
        EDIT(s.MakeUpper(), m = " A.B A \t"), EDIT(s.SetAt(2, 'Z'), m[2] = 'Z'), EDIT(s.FreeExtra(), (void)m),
        EDIT(s.TrimLeft(), m.erase(0, 1)), EDIT(s = CString("x"), m = "x"), EDIT(s.TrimRight(), m.erase(6)),
        EDIT(s.SecureEmpty(), m = ""), EDIT(s = "ab", m = "ab"), EDIT(s.Empty(), m = ""),
        EDIT((s.GetBufferSetLength(1), s.Empty()), m = ""), EDIT(s = at(s), (void)m), EDIT(s = s.Right(8), (void)m),
        EDIT(s = s.Left(8), (void)m), EDIT((s.GetBuffer(0), s.ReleaseBuffer(0)), m = "")};
    for (const auto& edit : edits)
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

// What the twins cannot see: copies of a locked buffer, what a lock keeps in place, what is wiped.
TEST(CStringSharing, LockedBuffersAreCopiedStayPutAndAreWiped) {
    CString a("abc");
    char* locked = a.LockBuffer();
    a = "xy";
    EXPECT_NE(at(a), at(CString(a))) << "a locked buffer is copied";
    a.UnlockBuffer();
    EXPECT_EQ(at(a), at(CString(a))) << "an unlocked one is shared again";
    {
        CString b("b");
        b = a;
        EXPECT_EQ(at(a), at(b)) << "and assigned by sharing, over a text of its own";
    }
    a.LockBuffer();
    CString other("uv");
    a = other;
    EXPECT_EQ(locked, at(a)) << "a string assigned to a locked one is copied into its buffer";
    a.SecureEmpty();
    EXPECT_EQ(locked, at(a)) << "assigning and SecureEmpty keep a locked buffer";
    EXPECT_EQ(std::string(3, '\0'), std::string(locked, 3)) << "and SecureEmpty overwrites its characters";
    g_watchFrees = true;
    CString("s3cret password").SecureEmpty();  // its own buffer, wiped before it goes back to the heap
    g_watchFrees = false;
    EXPECT_FALSE(g_freedASecret);
}

std::string str(const CString& s) { return bytes(s); }
std::string str(long n) { return std::to_string(n); }
// A row: an expression as written, the text of its value, the text expected.
#define ROW(expression, expected) {#expression, str(expression), expected}
struct Row { const char* what; std::string got, want; };
void expectRows(std::initializer_list<Row> rows) {
    for (const Row& r : rows) EXPECT_EQ(r.want, r.got) << r.what;
}

// Comparisons fold ASCII letters only and see embedded zeros; positions out of range find nothing, not even
// in the buffer's spare room past the text.
TEST(CString, ComparesAndSearchesWithinBounds) {
    const CString s("abcabc"), z("ab\0cd", 5);
    CString dots("a.b\0a.b", 7), spare;
    memset(spare.GetBuffer(20), 'z', 20);
    spare.ReleaseBuffer(2);
    expectRows({
        ROW(CString("\xC4").CompareNoCase("\xE4") != 0, "1"), ROW(CString("AXZ").CompareNoCase("axz"), "0"),
        ROW(CString("0123456789").Mid(7, INT_MAX), "789"), ROW(CString("\x80").CompareNoCase("a") > 0, "1"),
        ROW(CString("abd").CompareNoCase("ABC"), "1"), ROW(z == CString("ab\0cd", 5), "1"), ROW(s[-9], "0"),
        ROW(z != CString("ab\0ce", 5), "1"), ROW(dots.Replace(".", "::"), "2"), ROW(s.ReverseFind('c'), "5"),
        ROW(s.FindOneOf("c", 6), "-1"), ROW(s.FindOneOf("xc"), "2"), ROW(s.Find("abc", 1), "3"),
        ROW(s.Find("x", 99), "-1"), ROW(s.Find('a', -1), "-1"), ROW(s.Find('b', 2), "4"), ROW(s[6], "0"),
        ROW(CString('x', 1), "x"), ROW(CString('x', 0), ""), ROW(CString("a.a").Replace('a', 'a'), "0"),
        ROW(spare.Find('z', 3), "-1"), ROW(spare.Find("z", 3), "-1"), ROW(spare.FindOneOf("z", 3), "-1"),
        ROW(spare.Find('z', 1), "1")});
    EXPECT_EQ(std::string("a::b\0a::b", 9), bytes(dots)) << "Replace goes on past a zero";
    EXPECT_THROW(dots.GetBuffer(INT_MAX), std::bad_alloc);
    // The longest text, its header and its zero fit an int: one character more is refused before any block is
    // asked for.
    const int longest = INT_MAX - static_cast<int>(sizeof(CString::CStringData)) - 1;
    g_hugeAsks = 0;
    EXPECT_THROW(dots.GetBuffer(longest + 1), std::bad_alloc);
    EXPECT_EQ(0, g_hugeAsks);
    EXPECT_THROW(dots.GetBuffer(longest), std::bad_alloc);
    EXPECT_EQ(1, g_hugeAsks) << "the longest text is asked for";
    EXPECT_EQ(std::string("a::b\0a::b", 9), bytes(dots));
}

// A format and its arguments as snprintf prints them, and as CString::Format does.
const auto printed = [](const char* f, auto... a) {
    char out[4096];
    return std::string(out, snprintf(out, sizeof out, f, a...));
};
const auto formatted = [](const char* f, auto... a) { CString s; s.Format(f, a...); return bytes(s); };
#define LIKE_SNPRINTF(...) EXPECT_EQ(printed(__VA_ARGS__), formatted(__VA_ARGS__)) << #__VA_ARGS__

// Every conversion the estimate sizes prints as snprintf does; arguments after a length modifier are
// read in step. What it cannot size is cut to its estimate; a huge width fails; %c stops the process.
TEST(CStringFormatDeathTest, SizedConversionsEqualSnprintfOthersAreCut) {
    LIKE_SNPRINTF("[%d|%i|%u|%x|%X|%o|%p]", -42, 7, 3u, 255, 255, 8, static_cast<const void*>("p"));
    LIKE_SNPRINTF("[%-8d|%+.5i|% d|%#x|%08X|%#-40o|%%]", 1, 2, 3, 4, 5, 6);
    LIKE_SNPRINTF("%%%%%%%%%%%%%%%%%%%%%s|%%d", "after ten %%");
    LIKE_SNPRINTF("[%9s|%10s|%-90s|%s]", "a", "", "c", nullText());  // strings are sized exactly
    LIKE_SNPRINTF("[%*d|%-*s|%*s|%.*s|%*.*f]", 40, 7, -50, "left", 2, "abcdef", 3, "abcdef", 150, 10, 2.5);
    LIKE_SNPRINTF("[%0*d|%s]", 5, 42, "after 0*");
    LIKE_SNPRINTF("[%e|%g|%G|%.30f|%ld|%lu|%hd|%s]", -1.5e-5, 1e-7, 1e6, 1.0 / 3, -5L, 6UL, 7, "after l, h");
    LIKE_SNPRINTF("%d%d%d%d%Lf|%s|%qx|%qi|%s", 1, 2, 3, 4, 1.5L, "after L", 0xfedcba9876ULL, -9LL, "after q");
    EXPECT_EQ(printed("%f", 1e200).substr(0, 128), formatted("%f", 1e200));
    EXPECT_EQ("ab1", formatted("%.0s%.*s%lld", "abc", 2, "abcdef", 123456LL)) << "%ll sized as the text 'd': cut";
    EXPECT_THROW(formatted("%2147483647d", 1), std::bad_alloc);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(formatted("value %5C", 'x'), "%c conversion is not supported");
    EXPECT_DEATH(BinToHex(" ", 1, BINTOHEX_DUMP), "%c conversion is not supported") << "a dump of a printable byte";
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
        ROW(createString("abcdef", 0, "fb"), "abcdef"), ROW(createString(L"wide", 1, "fb"), "w"),
        ROW(createString(static_cast<const char*>(nullptr), 3, "fb"), "fb"), ROW(stripCR("a\r\nb\n"), "ab"),
        ROW(CString(static_cast<const char*>(nullptr), 3), "")});
    CString added("a");
    addToString(added, "b");
    addToString(added, static_cast<const char*>(nullptr));
    addToString(added, -3);
    EXPECT_STREQ("ab-3", added);
}

// A path splits after its last separator of either kind, which becomes a slash.
TEST(Path, SplitsAtTheLastSeparatorAddsAndStripsTrailingOnes) {
    const char* const cases[][2] = {{"/usr/x.so", "/usr/|x.so"}, {"x.so", "|x.so"}, {"a/b\\c", "a/b/|c"},
                                    {"a\\b/c", "a\\b/|c"}, {"/tmp/..", "/tmp/..|"}, {"", "|"}, {"/x", "/|x"}};
    for (const auto& c : cases) {
        CString dir("stale"), name("stale");
        EXPECT_TRUE(ParseFullPath(c[0], dir, name));
        EXPECT_EQ(c[1], bytes(dir) + "|" + bytes(name)) << c[0];
        EXPECT_EQ(c[1], bytes(SGetFilePath(c[0], "")) + "|" + bytes(SGetFileName(c[0], ""))) << c[0];
    }
    expectRows({
        ROW(addTrailingSlash("/tmp"), "/tmp\\"), ROW(addTrailingSlash("/tmp/"), "/tmp/"),
        ROW(stripTrailingSlash("/tmp//"), "/tmp/"), ROW(stripTrailingSlash("c:\\"), "c:"),
        ROW(addTrailingSlash(""), "\\"), ROW(stripTrailingSlash(""), ""), ROW(hasTralingSlash("a\\"), "1"),
        ROW(hasTralingSlash("/"), "1"), ROW(hasTralingSlash("a"), "0"), ROW(hasTralingSlash(""), "0")});
}

// A URL needs a host; a port must be 1 to 65535 in digits, else the scheme's default stays.
// Each case: the URL, then what comes out as "ok scheme host:port path".
TEST(ParseUrl, SchemesHostsPortsAndRefusals) {
    const char* const cases[][2] = {
        {"http://h:81/a", "1 1 h:81 /a"}, {" HTTPS://h", "1 2 h:443 /"}, {"h:65535\\x", "1 0 h:65535 \\x"},
        {"http://h:8o/", "0 1 h:80 /"}, {"ftp://h:0", "0 3 h:21 /"}, {"http://h:65536", "0 1 h:80 /"},
        {"http://h:/", "0 1 h:80 /"}, {"file:///etc", "0 4 :0 /etc"}, {"h/x", "1 0 h:0 /x"}};
    for (const auto& c : cases) {
        unsigned int scheme = 99, port = 99;
        CString host("stale"), path("stale");
        std::string ok = ParseURL_BASIC(c[0], scheme, host, path, port) ? "1 " : "0 ";
        ok += std::to_string(scheme) + " " + bytes(host) + ":" + std::to_string(port) + " " + bytes(path);
        EXPECT_EQ(c[1], ok);
    }
}

// Text and its base64: RFC 4648 section 10 (one per padding length), one long enough for the eight-byte
// steps; then texts only decoded: digits are taken, anything else skipped, a high-bit byte ends the text.
TEST(Base64, KnownAnswersBothWaysAndOddInput) {
    const char* const known[][2] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"}, {"\xfb\xfa\xf9\xf8\xf7\xf6\x01\x02", "+/r5+Pf2AQI="}, {"AB", "QUI"},
        {"ABCABC", "Q U\r\nJ\tDQUJD"}, {"ABC", "QU=JD=="}, {"AB", "QUI\x80QUJD"}, {"", "Q"}, {"", "!!"}};
    for (int i = 0; i < 14; ++i) {
        CString encoded("keep:");  // Encode appends
        CRFCBase64::Encode(u(known[i][0]), i < 8 ? static_cast<int>(strlen(known[i][0])) : 0, encoded);
        EXPECT_EQ("keep:"s + (i < 8 ? known[i][1] : ""), bytes(encoded)) << known[i][0];
        EXPECT_EQ(known[i][0], bytes(CRFCBase64::Decode(known[i][1]))) << known[i][1];
    }
}

// Hexadecimal text of bytes, and back: the result and the four bytes after (0xee before). A dump shows 16
// bytes a line in two groups of eight, then their characters (none printable here), the last line padded.
TEST(Hex, BytesToHexAndBack) {
    const std::string eight = "1f 1f 1f 1f 1f 1f 1f 1f   ", dump = eight + eight + "  ........ ........ \n" +
                                                                "1f " + std::string(49, ' ') + "  .\n";
    expectRows({ROW(BinToHex("\0\xAB\x7F", 3, 0), "00ab7f"), ROW(encodeToHex(u("a\xff")), "%61%FF"),
                ROW(encodeToHex(nullptr), ""), ROW(BinToHex("\xAB", 1, BINTOHEX_SPACED), "ab "),
                ROW(BinToHex("\xAB", 0, 0), ""), ROW(BinToHex("\0\xAB\x7F", 3, BINTOHEX_SPACED), "00 ab 7f "),
                ROW(BinToHex(nullptr, 3, 0), ""), ROW(encodeToHexWithoutPercent(u("a\xff")), "61FF"),
                ROW(BinToHex(std::string(17, '\x1f').data(), 17, BINTOHEX_DUMP), dump)});
    // Each row: the call, what it returns and the four bytes after. An odd last digit is ignored; a bad
    // digit stops, the bytes before it stay; nothing is written past the room; reversed: the room's
    // worth, last byte first.
    const struct { decltype(&HexToBin) call; const char* in; unsigned max; const char* want; } rows[] = {
        {HexToBin, "00aBcD", 4, "0 00abcdee"}, {HexToBin, "ABC", 4, "0 abeeeeee"},
        {HexToBin, "11 2", 4, "-2 11eeeeee"}, {HexToBin, "010203", 1, "-1 01eeeeee"},
        {HexToBin, nullText(), 4, "0 eeeeeeee"}, {HexToBinReverse, "010203", 2, "0 0201eeee"},
        {HexToBinReverse, "0g", 2, "-2 eeeeeeee"}, {HexToBinReverse, nullText(), 2, "0 eeeeeeee"}};
    for (const auto& row : rows) {
        unsigned char out[4] = {0xee, 0xee, 0xee, 0xee};
        int result = row.call(row.in, out, row.max);
        EXPECT_EQ(row.want, std::to_string(result) + " " + bytes(BinToHex(out, 4, 0))) << row.in;
    }
}

// URL encoding escapes all but letters and digits; decoding takes only whole escapes, once.
TEST(UrlCodec, EncodesAllButLettersAndDigitsDecodesWholeEscapesOnce) {
    expectRows({ROW(URLEncode("a b-c"), "a%20b%2Dc"), ROW(URLEncode({"+%\0Z9", 5}), "%2B%25%00Z9"),
                ROW(URLDecode("a+b%20%zz"), "a+b %zz"), ROW(URLDecode("%41%4"), "A%4"),
                ROW(URLDecode("x%00y"), "x\0y"s), ROW(URLDecode("%254A"), "%4A"),
                ROW(URLDecode(URLEncode("p=1&q=a b/c")), "p=1&q=a b/c"), ROW(URLDecode("%"), "%")});
}

// Each row: a call, `ok` as the call left it (a braced list runs in order), the value and `ok` expected.
TEST(Convert, NumbersAcceptedAndRefused) {
    bool ok = false;
    const struct { long long got; bool ok; long long want; bool wantOk; } rows[] = {
        {toInt(" 42 ", 7, &ok), ok, 42, true}, {toInt("4x", 7, &ok), ok, 7, false},
        {toInt("1-2", 7, &ok), ok, 1, true}, {toInt("-", 7, &ok), ok, 7, true},
        {toINT64("-9000000000", 0, &ok), ok, -9000000000LL, true}, {toDWORD("0x1F", 5, &ok), ok, 31, true},
        {toDWORD("0x", 5, &ok), ok, 5, false}, {toDWORD("-2147483648", 5, &ok), ok, 0x80000000, true},
        {toDWORD("-2147483649", 5, &ok), ok, 5, false}, {toDWORD("4294967295", 5, &ok), ok, 0xFFFFFFFF, true},
        {toDWORD("4294967296", 5, &ok), ok, 5, false}, {toDWORD("-1", 5, &ok), ok, 0xFFFFFFFF, true},
        {toDWORD("0x123456789", 5, &ok), ok, 5, false}, {toDWORD(nullText(), 5, &ok), ok, 5, false},
        {strIPtoDWORD("10.0.0.1", 9, &ok), ok, 0xA000001, true}};
    for (size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(std::make_pair(rows[i].want, rows[i].wantOk), std::make_pair(rows[i].got, rows[i].ok)) << i;
    for (const char* s : {"12ab", "0x1G", "", "12345678901"}) EXPECT_EQ(5u, toDWORD(s, 5, nullptr)) << s;
    for (const char* bad : {"10.0.0.1x", "256.0.0.1", "1.2.3", "1000.0.0.1", "", "a.b.c.d"})
        EXPECT_EQ(9u, strIPtoDWORD(bad, 9, nullptr)) << bad;
    EXPECT_EQ(9u, strIPtoDWORD(nullptr, 9, nullptr));
    EXPECT_TRUE(toBool("TRUE", false) && !toBool(" false ", true) && toBool("yes", true));
}

// A copy of a heap block has its own bytes and the same size; a copy of an empty one is empty.
TEST(AutoMemory, CopiesHaveTheirOwnBytes) {
    AutoMemory empty, bytes("abc", 3);
    AutoMemory emptyCopy(empty), copy(bytes);
    EXPECT_EQ(0u, emptyCopy.getSize());
    EXPECT_EQ(nullptr, emptyCopy.getPtr());
    ASSERT_EQ(3u, copy.getSize());
    EXPECT_NE(bytes.getPtr(), copy.getPtr());
    EXPECT_EQ(0, memcmp("abc", copy.getPtr(), 3));
    void* block = copy.getPtr();
    EXPECT_EQ(block, copy.expand(0)) << "nothing to add: the same block";
    copy.expand(1);
    EXPECT_TRUE(copy.getSize() == 4 && memcmp("abc", copy.getPtr(), 3) == 0) << "one byte more, the three kept";
    copy = empty;
    EXPECT_EQ(0u, copy.getSize());
    copy = bytes;
    copy.malloc(0);
    EXPECT_TRUE(copy.getSize() == 0 && copy.getPtr() == nullptr) << "a block of nothing is no block";
    TempHome home;
    const std::string one = home.path() + "/one", none = home.path() + "/none";
    const AutoMemory z("z", 1);
    EXPECT_EQ(0, AutoMemory(z).SaveToFile(one.c_str())) << "a copy of one byte";
    EXPECT_EQ(0, empty.SaveToFile(none.c_str()));
    EXPECT_EQ("z", readFile(one));
    EXPECT_EQ("", readFile(none));
    EXPECT_EQ(-1, bytes.SaveToFile((home.path() + "/no/such/folder").c_str()));
}

// A mask's prefix length: the set bits of 0..16 bytes, each a valid mask byte (a byte's own bits only: the
// bytes' order is not checked); anything else is refused with -1.
TEST(Convert, MaskToPrefixLength) {
    const unsigned char ones[16] = {255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255};
    const unsigned char mask[] = {255, 255, 254, 0}, gap[] = {0, 255}, bad[] = {255, 1};
    const struct { const unsigned char* mask; int bytes; int result; int length; } rows[] = {
        {mask, 4, 0, 23}, {ones, 16, 0, 128}, {ones, 0, 0, 0}, {gap, 2, 0, 8},
        {bad, 2, -1, 99}, {ones, 17, -1, 99}, {ones, -1, -1, 99}, {nullptr, 2, -1, 99}};
    ScopedCapturingLog quiet;
    for (const auto& row : rows) {
        unsigned char length = 99;
        EXPECT_EQ(row.result, mask2plen(row.mask, row.bytes, &length)) << row.bytes;
        EXPECT_EQ(row.length, length) << row.bytes;
    }
}

// A refusal logs where it is raised, and where it is caught while the level is above 0.
TEST(Convert, RefusalsAreLoggedAtTheThrowAndAtTheCatch) {
    ScopedCapturingLog log(1);
    toDWORD("123456789012", 0, nullptr);
    log.SetLogLevel(-1);
    toDWORD(nullptr, 0, nullptr);
    ASSERT_EQ(3u, log.lines().size()) << log.text();
    EXPECT_NE(std::string::npos, log.lines()[0].find("toDWORD(), EXCEPTION - invalid a_str, 123456789012\n"));
    EXPECT_NE(std::string::npos, log.lines()[1].find(", toDWORD() - EXCEPTION, EXCEPTION caught: EXCEPTION - "
                                                     "invalid a_str, 123456789012"));
    EXPECT_NE(std::string::npos, log.lines()[2].find(", toDWORD(), EXCEPTION - a_str is NULL"));
}

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
    expectRows({ROW(list.addObject(&a), "-1"), ROW(list.getCount(), "3")});
    EXPECT_NE(std::string::npos, log.text().find(", UList::addObject - EXCEPTION, EXCEPTION caught: "
                                                 "EXCEPTION - malloc error (size), 32\n"));
}

// deleteObject deletes the one it removes; deleteObjects every object the list holds, the first too.
TEST(UList, DeleteObjectsDeletesEachOne) {
    static int deleted = 0;
    struct Counted : UObject { ~Counted() override { ++deleted; } };
    UList list;
    for (int i = 0; i < 4; ++i) list.addObject(new Counted);
    list.deleteObject(1);
    list.deleteObject(7);
    EXPECT_EQ(1, deleted);
    EXPECT_EQ(0, list.deleteObjects());
    EXPECT_EQ(4, deleted);
    EXPECT_EQ(0, list.getCount());
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
    EXPECT_EQ("k=v;x;y", std::string(UStrings(s).toString())) << "a copy has every item";
    EXPECT_EQ(2, s.find("x"));
    s.removeItem(1);
    EXPECT_EQ("k=vx;y", std::string(s.toString()));
    EXPECT_TRUE(s.fromString(nullptr, ';', 0) == 0 && s.getCount() == 0) << "no text, no items";
}

// Named byte blocks: found by exact name (never a part of one), read back with their size, removed by index
// or name; a missing one reads as null with size 0.
TEST(UBlobList, KeepsNamedBytesFindsExactNamesAndRemoves) {
    UBlobList blobs;
    CArray<unsigned char, unsigned char> bytes;
    bytes.Add(7);
    bytes.Add(0);
    bytes.Add(9);
    EXPECT_EQ(0, blobs.addItem("digest", "\1\2", 2));
    EXPECT_EQ(0, blobs.addItem("digest2", &bytes));
    EXPECT_EQ(0, blobs.addItem("none", nullptr));
    unsigned int size = 99;
    EXPECT_EQ(0, memcmp("\7\0\11", blobs.getItem("digest2", &size), 3));
    EXPECT_EQ(3u, size);
    EXPECT_EQ(0, memcmp("\1\2", blobs.getItem(0, &size), 2));
    EXPECT_EQ(2u, size);
    EXPECT_EQ(1, blobs.findItem("digest2"));
    EXPECT_EQ(-1, blobs.findItem("dig"));
    EXPECT_EQ(nullptr, blobs.getItem("missing", &size));
    EXPECT_EQ(0u, size);
    blobs.removeItem("digest");
    blobs.removeItem(5);
    EXPECT_EQ(2, blobs.getCount());
    EXPECT_EQ(0, blobs.findItem("digest2"));
    blobs.removeItem(0);
    EXPECT_EQ(0, blobs.findItem("none"));
}

// Text pairs: 0 picks the name, anything else the value; a search looks for a part of either.
TEST(UStringList, KeepsPairsAndFindsByNameOrValue) {
    UStringList pairs;
    EXPECT_EQ(0, pairs.addItem("user", "alice"));
    EXPECT_EQ(0, pairs.addItem("host", "vpn.example"));
    expectRows({ROW(pairs.getItem(1, 0), "host"), ROW(pairs.getItem(1, 1), "vpn.example"),
                ROW(pairs.getItem(0, 2), "alice")});
    EXPECT_EQ(nullptr, pairs.getItem(2, 0));
    EXPECT_EQ(1, pairs.findItem("os", 0));
    EXPECT_EQ(1, pairs.findItem("example", 1));
    EXPECT_EQ(-1, pairs.findItem("alice", 0));
    pairs.removeItem(0);
    EXPECT_EQ(0, pairs.findItem("vpn", 1));
}

// Name/value lists: names fold ASCII letters only, the first spelling stays, the first '=' splits.
TEST(UHashTable, ParsesNameValueListsCaseInsensitively) {
    UPropertyList table;
    EXPECT_EQ(3, table.initFromValNameString(" a = 1 & B=2&b=3 & c", '&', '='));
    expectRows({ROW(table.getItemByIndex(0)->m_name, "a"), ROW(table.getValByIndex(0, ""), "1"),
                ROW(table.getItemByIndex(1)->m_name, "B"), ROW(table.getVar("b", ""), "3"),
                ROW(table.getVar("C", "-"), ""), ROW(table.getValByIndex(3, "none"), "none")});
    EXPECT_EQ(2, table.initFromString("; x ;; y", ';', "item"));  // numbered items, from 0
    EXPECT_EQ("x y -", bytes(table.getVar("item0", "")) + " " + bytes(table.getVar("item1", "")) + " " +
                          bytes(table.getVar("item2", "-")));
    const char* const cases[][3] = {{"x=1=2", "x", "1=2"}, {"=v", "", "v"}, {"\xC4=1&\xE4=2", "\xC4", "1"}};
    for (const auto& c : cases) {
        table.initFromValNameString(c[0], '&', '=');
        EXPECT_EQ(c[2], bytes(table.getVar(c[1], "none"))) << c[0];
    }
    // The splitters on their own: at the first or the last separator, trimmed unless asked not to.
    CString l, r = "old";
    const auto shown = [&](int result) {
        return CString((std::to_string(result) + "[" + bytes(l) + "][" + bytes(r) + "]").c_str());
    };
    expectRows({ROW(shown(SplitString(" a = b=c ", l, r, '=', false, false)), "3[a][b=c]"),
                ROW(shown(SplitString(" a = b=c ", l, r, '=', true, true)), "6[ a = b][c ]"),
                ROW(shown(SplitString(" x ", l, r, '=', false, false)), "-1[x][]"),
                ROW(shown(SplitString("", l, r, '=', false, false)), "-1[][]"),
                ROW(shown(ParseNameValue(" n = v=w ", l, r)), "1[n][v=w]"),
                ROW(shown(ParseNameValue("=v", l, r)), "0[n][v=w]"),
                ROW(shown(ParseNameValue("none", l, r)), "0[n][v=w]")});
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
