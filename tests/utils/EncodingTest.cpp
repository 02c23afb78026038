// Base64, hexadecimal and URL codecs: known answers and every kind of bad input.
#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <random>
#include <string>
#include <vector>

#include "Encoding"
#include "TestSeed.h"

namespace {

std::string text(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }

std::string encode(const std::string& bytes) {
    CString out;
    CRFCBase64::Encode(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()), out);
    return text(out);
}

std::string decode(const char* b64) { return text(CRFCBase64::Decode(b64)); }

TEST(Base64, KnownAnswersForEveryPaddingLength) {
    // RFC 4648 section 10.
    const char* const plain[] = {"", "f", "fo", "foo", "foob", "fooba", "foobar"};
    const char* const coded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(coded[i], encode(plain[i]));
        EXPECT_EQ(plain[i], decode(coded[i]));
    }
    EXPECT_EQ("AA==", encode(std::string(1, '\0')));
    CString out("keep:");
    EXPECT_EQ(4, CRFCBase64::Encode(reinterpret_cast<const unsigned char*>("foo"), 3, out));
    EXPECT_EQ("keep:Zm9v", text(out)) << "Encode appends";
}

TEST(Base64, DecodingSkipsNonDigitsAndStopsAtHighBitBytes) {
    EXPECT_EQ("AB", decode("QUI")) << "no padding needed";
    EXPECT_EQ("ABC", decode("Q U\r\nJ\tD"));
    EXPECT_EQ("ABC", decode("QU=JD=="));
    EXPECT_EQ("AB", decode("QUI\x80QUJD")) << "a high-bit byte ends the text";
    EXPECT_EQ("", decode("Q")) << "six leftover bits are dropped";
    EXPECT_EQ("", decode("!!!!"));
    EXPECT_EQ("", decode(nullptr));
}

TEST(Base64, DecodeFormsAndZeroBytes) {
    const char* b64 = "QQBC";  // 'A', 0, 'B'
    EXPECT_EQ(std::string("A\0B", 3), decode(b64));
    EXPECT_EQ("A", text(CRFCBase64::Decode(b64, 0u)));
    CString cut;
    EXPECT_EQ(3, CRFCBase64::Decode(b64, cut));
    EXPECT_EQ("A", text(cut));
    CArray<unsigned char, unsigned char> bytes;
    bytes.Add(9);
    EXPECT_EQ(3, CRFCBase64::Decode(b64, bytes));
    EXPECT_EQ(4, bytes.GetSize()) << "Decode appends";
    EXPECT_EQ("", text(CRFCBase64::Decode("", 0u)));
}

TEST(Base64, MatchesOpenSslOnRandomData) {
    std::mt19937 rng(testSeed());
    for (int n = 0; n < 300; ++n) {
        std::string bytes(rng() % 200, '\0');
        for (char& c : bytes) c = static_cast<char>(rng());
        std::string expected(4 * ((bytes.size() + 2) / 3) + 1, '\0');
        int len = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&expected[0]),
                                  reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
        expected.resize(static_cast<size_t>(len));
        ASSERT_EQ(expected, encode(bytes));
        ASSERT_EQ(bytes, decode(expected.c_str()));
    }
}

TEST(Hex, BinToHexAndBack) {
    const unsigned char bytes[] = {0x00, 0xAB, 0x7F};
    EXPECT_EQ("00ab7f", text(BinToHex(bytes, 3, 0)));
    EXPECT_EQ("00 ab 7f ", text(BinToHex(bytes, 3, BINTOHEX_SPACED)));
    EXPECT_EQ("", text(BinToHex(nullptr, 3, 0)));

    unsigned char out[4] = {};
    EXPECT_EQ(0, HexToBin("ABC", out, 4));
    EXPECT_EQ(0xAB, out[0]) << "an odd last digit is ignored";
    EXPECT_EQ(0, HexToBin("00aBcD", out, 4));
    EXPECT_EQ(0xCD, out[2]);
    EXPECT_EQ(-2, HexToBin("zz", out, 4)) << "not a digit";
    EXPECT_EQ(-2, HexToBin("11 2", out, 4)) << "a blank is not a digit either";
    EXPECT_EQ(0x11, out[0]) << "bytes before the bad digit stay written";
    out[1] = 0;
    EXPECT_EQ(-1, HexToBin("0102", out, 1)) << "more pairs than room";
    EXPECT_EQ(0x01, out[0]);
    EXPECT_EQ(0x00, out[1]) << "nothing is written past max";

    EXPECT_EQ(0, HexToBinReverse("0102", out, 2));
    EXPECT_EQ(0x02, out[0]);
    EXPECT_EQ(0x01, out[1]);
    EXPECT_EQ(0, HexToBinReverse("010203", out, 2)) << "only max pairs are read";
    EXPECT_EQ(0x01, out[1]);
    EXPECT_EQ(-2, HexToBinReverse("0g", out, 2));
}

TEST(Hex, EncodeToHexOfText) {
    const unsigned char abc[] = "a\xff";
    EXPECT_EQ("%61%FF", text(encodeToHex(abc)));
    EXPECT_EQ("61FF", text(encodeToHexWithoutPercent(abc)));
}

TEST(Url, EncodeEverythingButLettersAndDigits) {
    EXPECT_EQ("a%20b%2Dc", text(URLEncode("a b-c")));
    EXPECT_EQ("%2B%25%00Z9", text(URLEncode(CString("+%\0Z9", 5))));
    EXPECT_EQ("", text(URLEncode("")));
}

TEST(Url, DecodeKeepsWhatIsNotAnEscape) {
    EXPECT_EQ("a%2", text(URLDecode("a%2")));
    EXPECT_EQ("A%4", text(URLDecode("%41%4")));
    EXPECT_EQ("%", text(URLDecode("%")));
    EXPECT_EQ("a+b %zz", text(URLDecode("a+b%20%zz")));
    EXPECT_EQ(std::string("x\0y", 3), text(URLDecode("x%00y")));
    EXPECT_EQ("%4A", text(URLDecode("%254A"))) << "decoded once";
    CString round = URLDecode(URLEncode("p=1&q=a b/c"));
    EXPECT_EQ("p=1&q=a b/c", text(round));
}

}  // namespace
