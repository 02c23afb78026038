// Codecs (base64, hexadecimal, URL) and text-to-value conversions: known answers both ways, every kind of
// bad input, and the log lines of a refusal.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "TestSupport.h"
#include "Convert"
#include "Encoding"
#include "HashTable"

namespace {

using namespace std::string_literals;
std::string text(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }
const unsigned char* u(const char* s) { return reinterpret_cast<const unsigned char*>(s); }

// Text and its base64: RFC 4648 section 10 (one per padding length), one long enough for the eight-byte
// steps; then texts only decoded: digits are taken, anything else skipped, a high-bit byte ends the text.
TEST(Base64, KnownAnswersBothWaysAndOddInput) {
    const char* const known[][2] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"}, {"\xfb\xfa\xf9\xf8\xf7\xf6\x01\x02", "+/r5+Pf2AQI="}, {"AB", "QUI"},
        {"ABC", "Q U\r\nJ\tD"}, {"ABC", "QU=JD=="}, {"AB", "QUI\x80QUJD"}, {"", "Q"}, {"", "!!"}};
    for (int i = 0; i < 14; ++i) {
        CString encoded("keep:");  // Encode appends
        CRFCBase64::Encode(u(known[i][0]), i < 8 ? static_cast<int>(strlen(known[i][0])) : 0, encoded);
        EXPECT_EQ("keep:"s + (i < 8 ? known[i][1] : ""), text(encoded)) << known[i][0];
        EXPECT_EQ(known[i][0], text(CRFCBase64::Decode(known[i][1]))) << known[i][1];
    }
}

// Hexadecimal text of bytes, and back: the result and the four bytes after (0xee before).
TEST(Hex, BytesToHexAndBack) {
    const char* bytes = "\0\xAB\x7F";
    EXPECT_EQ("00ab7f|00 ab 7f ",
              text(BinToHex(bytes, 3, 0)) + "|" + text(BinToHex(bytes, 3, BINTOHEX_SPACED)));
    EXPECT_EQ("|%61%FF|61FF", text(BinToHex(nullptr, 3, 0)) + "|" + text(encodeToHex(u("a\xff"))) + "|" +
                                  text(encodeToHexWithoutPercent(u("a\xff"))));
    auto run = [](decltype(&HexToBin) convert, const char* hex, unsigned int max) {
        unsigned char out[4] = {0xee, 0xee, 0xee, 0xee};
        std::string result = std::to_string(convert(hex, out, max)) + " ";
        return result + text(BinToHex(out, 4, 0));
    };
    EXPECT_EQ("0 00abcdee", run(HexToBin, "00aBcD", 4));
    EXPECT_EQ("0 abeeeeee", run(HexToBin, "ABC", 4)) << "an odd last digit is ignored";
    EXPECT_EQ("-2 11eeeeee", run(HexToBin, "11 2", 4)) << "a bad digit stops; the bytes before it stay";
    EXPECT_EQ("-1 01eeeeee", run(HexToBin, "010203", 1)) << "nothing is written past the room";
    EXPECT_EQ("0 eeeeeeee", run(HexToBin, nullText(), 4));
    EXPECT_EQ("0 0201eeee", run(HexToBinReverse, "010203", 2)) << "the room's worth, last byte first";
    EXPECT_EQ("-2 eeeeeeee", run(HexToBinReverse, "0g", 2));
    EXPECT_EQ("0 eeeeeeee", run(HexToBinReverse, nullText(), 2));
}

// URL encoding escapes all but letters and digits; decoding takes only whole escapes, once.
TEST(UrlCodec, EncodesAllButLettersAndDigitsDecodesWholeEscapesOnce) {
    EXPECT_EQ("a%20b%2Dc|%2B%25%00Z9", text(URLEncode("a b-c")) + "|" + text(URLEncode({"+%\0Z9", 5})));
    EXPECT_EQ("a+b %zz|A%4|%|x\0y|%4A|p=1&q=a b/c"s,
              text(URLDecode("a+b%20%zz")) + "|" + text(URLDecode("%41%4")) + "|" + text(URLDecode("%")) +
                  "|" + text(URLDecode("x%00y")) + "|" + text(URLDecode("%254A")) + "|" +
                  text(URLDecode(URLEncode("p=1&q=a b/c"))));
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
    EXPECT_TRUE(toBool("TRUE", false) && !toBool(" false ", true) && toBool("yes", true));
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

// Name/value lists: names fold ASCII letters only, the first spelling stays, the first '=' splits.
TEST(UHashTable, ParsesNameValueListsCaseInsensitively) {
    UPropertyList table;
    EXPECT_EQ(3, table.initFromValNameString(" a = 1 & B=2&b=3 & c", '&', '='));
    EXPECT_EQ("a=1|B=3|c=|none",
              text(table.getItemByIndex(0)->m_name) + "=" + text(table.getValByIndex(0, "")) + "|" +
                  text(table.getItemByIndex(1)->m_name) + "=" + text(table.getVar("b", "")) + "|c=" +
                  text(table.getVar("C", "-")) + "|" + text(table.getValByIndex(3, "none")));
    const char* const cases[][3] = {{"x=1=2", "x", "1=2"}, {"=v", "", "v"}, {"\xC4=1&\xE4=2", "\xC4", "1"}};
    for (const auto& c : cases) {
        table.initFromValNameString(c[0], '&', '=');
        EXPECT_EQ(c[2], text(table.getVar(c[1], "none"))) << c[0];
    }
}

}  // namespace
