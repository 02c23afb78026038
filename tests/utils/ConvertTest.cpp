// Conversions: what they accept, their defaults and the lines a rejection writes.
#include <gtest/gtest.h>

#include <string>

#include "CapturingLog.h"
#include "Convert"

namespace {

TEST(ToInt, AcceptsDigitsAndMinusOnly) {
    bool ok = false;
    EXPECT_EQ(42, toInt(" 42 ", 7, &ok));
    EXPECT_TRUE(ok);
    EXPECT_EQ(7, toInt("4x", 7, &ok));
    EXPECT_FALSE(ok);
    EXPECT_EQ(1, toInt("1-2", 7, &ok)) << "passes the character test, reads the leading number";
    EXPECT_EQ(7, toInt("-", 7, &ok));
    EXPECT_TRUE(ok) << "no number read: the default, but accepted";
    EXPECT_EQ(7, toInt(nullptr, 7, nullptr));
    EXPECT_EQ(-9000000000L, toINT64("-9000000000", 0, nullptr));
    EXPECT_EQ(18000000000000000000UL, toUINT64("18000000000000000000", 0, nullptr));
    EXPECT_TRUE(isNumber(" -12 "));
    EXPECT_FALSE(isNumber("1.5"));
    EXPECT_FALSE(isNumber(""));
}

TEST(ToDWORD, DecimalHexAndTheirLimits) {
    bool ok = false;
    EXPECT_EQ(31u, toDWORD("0x1F", 0, &ok));
    EXPECT_TRUE(ok);
    EXPECT_EQ(0xFFFFFFFFu, toDWORD("-1", 0, &ok));
    EXPECT_EQ(4294967295u, toDWORD("4294967295", 0, &ok));
    EXPECT_EQ(0x80000000u, toDWORD("-2147483648", 0, &ok));
    const char* const rejected[] = {"0x", "0x123456789", "123456789012", "4294967296", "-2147483649",
                                    "12ab", "0x1G", "", nullptr};
    for (const char* text : rejected) {
        EXPECT_EQ(5u, toDWORD(text, 5, &ok)) << (text ? text : "(null)");
        EXPECT_FALSE(ok);
    }
}

TEST(ToDWORD, RejectionLogsAtTheThrowAndAtTheCatch) {
    ScopedCapturingLog log(1);
    toDWORD("123456789012", 0, nullptr);
    ASSERT_EQ(2u, log.lines().size());
    EXPECT_NE(std::string::npos, log.lines()[0].find(", toDWORD(), EXCEPTION - invalid a_str, 123456789012\n"));
    EXPECT_NE(std::string::npos,
              log.lines()[1].find(", toDWORD() - EXCEPTION, EXCEPTION caught: EXCEPTION - invalid a_str, 123456789012"));
    log.SetLogLevel(-1);
    log.clear();
    toDWORD(nullptr, 0, nullptr);
    EXPECT_EQ(1u, log.lines().size()) << "the catch line only above level 0";
}

TEST(ToBool, TrueFalseAnyCaseElseTheDefault) {
    ScopedCapturingLog log(1);
    EXPECT_TRUE(toBool("TRUE", false));
    EXPECT_FALSE(toBool(" false ", true));
    EXPECT_TRUE(toBool("yes", true));
    EXPECT_FALSE(toBool(nullptr, false));
    EXPECT_TRUE(toBool("  ", true));
    EXPECT_NE(std::string::npos, log.text().find("EXCEPTION - unknow value, expected 'true' or 'false'"));
    EXPECT_NE(std::string::npos, log.text().find("toInt() - EXCEPTION, EXCEPTION caught: EXCEPTION - a_str is NULL"));
    EXPECT_NE(std::string::npos, log.text().find("EXCEPTION - input value is empty string"));
}

TEST(IPv4, DottedQuadsBothWays) {
    bool ok = false;
    EXPECT_EQ(0x0A000001u, strIPtoDWORD("10.0.0.1", 9, &ok));
    EXPECT_TRUE(ok);
    for (const char* bad : {"10.0.0.1x", "256.0.0.1", "1.2.3", "1000.0.0.1", "", "a.b.c.d"})
        EXPECT_EQ(9u, strIPtoDWORD(bad, 9, nullptr)) << bad;
    EXPECT_EQ(9u, strIPtoDWORD(nullptr, 9, nullptr));
    EXPECT_STREQ("10.0.0.1", IPv4toString(0x0100000A));
}

TEST(Mask2plen, CountsPrefixBitsOfValidBytes) {
    ScopedCapturingLog log(1);
    unsigned char plen = 0;
    const unsigned char good[] = {255, 255, 255, 0};
    EXPECT_EQ(0, mask2plen(good, 4, &plen));
    EXPECT_EQ(24, plen);
    const unsigned char bad[] = {255, 253, 0, 0};
    EXPECT_EQ(-1, mask2plen(bad, 4, &plen));
    EXPECT_NE(std::string::npos, log.text().find("Invalid byte, 1"));
    EXPECT_EQ(-1, mask2plen(good, 17, &plen));
    EXPECT_NE(std::string::npos, log.text().find("Incorrect byte count, 17"));
    EXPECT_EQ(-1, mask2plen(nullptr, 4, &plen));
    EXPECT_NE(std::string::npos, log.text().find("mask2plen, EXCEPTION - Invalid parameter"));
}

}  // namespace
