// Placeholder filling and value-to-text conversions.
#include <gtest/gtest.h>

#include <string>

#include "StrFormat"

namespace {

std::string text(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }
std::string text(const StrFormat& f) { return text(f.str()); }

TEST(StrFormat, FillsTheLowestPlaceholderLeftWithEachArgument) {
    EXPECT_EQ("b a", text(StrFormat("%2 %1").arg("a").arg("b")));
    EXPECT_EQ("x and x", text(StrFormat("%1 and %1").arg("x")));
    EXPECT_EQ("a0", text(StrFormat("%10").arg("a"))) << "only one digit makes a placeholder";
    EXPECT_EQ("first second", text(StrFormat("%0 %1").arg("first").arg("second")));
    EXPECT_EQ("%v", text(StrFormat("%%1").arg("v")));
    EXPECT_EQ("", text(StrFormat(static_cast<const char*>(nullptr)).arg("dropped")));
}

TEST(StrFormat, ValuesWithoutAPlaceholderAreDroppedOrAppended) {
    EXPECT_EQ("x=5", text(StrFormat("x=%1").arg(5).arg(7)));
    EXPECT_EQ("x=5, 7", text(sfmt("x=%1", 5, 7)));
    EXPECT_EQ("plain, a, 2", text(sfmt("plain", "a", 2u)));
}

TEST(StrFormat, InsertedTextTakesPartInLaterArguments) {
    // A value that itself holds "%3" is filled by the next argument: accepted behaviour.
    EXPECT_EQ("a-B-c", text(sfmt("%1-%2", "a", "%3-c", "B")));
}

TEST(StrFormat, ArgumentTypes) {
    const char array[] = "arr";
    CString cs("cs");
    unsigned char byte = 200;
    EXPECT_EQ("arr cs 200 -3 4000000000 (null ok)",
              text(sfmt("%1 %2 %3 %4 %5 %6", array, cs, byte, -3, 4000000000u, "(null ok)")));
    EXPECT_EQ(" true", text(sfmt("%1 %2", static_cast<const char*>(nullptr), true)));
    EXPECT_EQ("0xff", text(StrFormat("%1").argHex(255)));
    EXPECT_EQ("2.500000", text(sfmt("%1", 2.5)));
    EXPECT_EQ("-1", text(sfmt("%1", -1L)));
}

TEST(StrFormat, CopiesKeepTheTextButNotTheAppendFlag) {
    StrFormat a("t");
    a.AppendIfNoPlaceholder(true);
    StrFormat b(a);
    b.arg("dropped");
    a.arg("kept");
    EXPECT_EQ("t", text(b));
    EXPECT_EQ("t, kept", text(a));
}

TEST(CreateString, NumbersAndTheirWidths) {
    EXPECT_EQ("-1", text(createString(-1)));
    EXPECT_EQ("true", text(createString(true)));
    EXPECT_EQ("0xff", text(toHex(255)));
    EXPECT_EQ("0x0", text(toHex(0)));
    EXPECT_EQ("0", text(createString(4294967296UL))) << "unsigned long keeps its low 32 bits";
    EXPECT_EQ("-1", text(createString(4294967295L)));
    EXPECT_EQ("18446744073709551615", text(createString(18446744073709551615ULL)));
    EXPECT_EQ("-9223372036854775807", text(createString(-9223372036854775807LL)));
    EXPECT_EQ("-2", text(createString(static_cast<short>(-2))));
    EXPECT_EQ("0.250000", text(createString(0.25f)));
    EXPECT_EQ("1.500000", text(createString(1.5)));
    std::string pointer = text(createString(static_cast<const void*>(&pointer)));
    EXPECT_EQ(0u, pointer.rfind("0x0x", 0)) << pointer;
}

TEST(CreateString, TextWithLengthAndFallback) {
    EXPECT_EQ("abc", text(createString("abc\0def", 7, "fb")));
    EXPECT_EQ("ab", text(createString("abcdef", 2, "fb")));
    EXPECT_EQ("abcdef", text(createString("abcdef", 0, "fb")));
    EXPECT_EQ("abcdef", text(createString("abcdef", -5, "fb")));
    EXPECT_EQ("fb", text(createString(static_cast<const char*>(nullptr), 3, "fb")));
    EXPECT_EQ("wide", text(createString(L"wide", -1, "fb")));
    EXPECT_EQ("wi", text(createString(L"wide", 2, "fb")));
    EXPECT_EQ("fb", text(createString(static_cast<const wchar_t*>(nullptr), 0, "fb")));
    EXPECT_EQ("wide text", text(StrFormat(L"wide %1").arg("text")));
}

TEST(TextEdits, StripRemovesBothLineEnds) {
    EXPECT_EQ("ab", text(stripCR("a\r\nb\n")));
    EXPECT_EQ("", text(stripCR(nullptr)));
}

}  // namespace
