// CString::Format: the sized print must equal snprintf for every conversion it sizes, cut (never
// overflow) what it cannot size, and stop the process on a character conversion.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cwchar>
#include <cstdio>
#include <random>
#include <string>

#include "StrFormat"
#include "String"
#include "TestSeed.h"

namespace {

std::string bytes(const CString& s) { return std::string(static_cast<const char*>(s), s.GetLength()); }

template <class... Args>
std::string printed(const char* format, Args... args) {
    int n = snprintf(nullptr, 0, format, args...);
    std::string out(static_cast<size_t>(n), '\0');
    snprintf(&out[0], out.size() + 1, format, args...);
    return out;
}

template <class... Args>
std::string formatted(const char* format, Args... args) {
    CString s;
    s.Format(format, args...);
    return bytes(s);
}

// Random conversions of the three kinds the estimate sizes, with flags, widths and precisions.
class FormatMaker {
public:
    explicit FormatMaker(uint32_t seed) : m_rng(seed) {}

    int pick(int n) { return static_cast<int>(m_rng() % static_cast<uint32_t>(n)); }

    std::string flags() {
        static const char* const options[] = {"", "-", "+", " ", "0", "#", "-+", "0+", "# "};
        return options[pick(9)];
    }
    std::string width() { return pick(3) == 0 ? "" : std::to_string(pick(120)); }
    // Integer precisions stay below 32: a sign in front of 32 or more digits outgrows the 32 sized.
    std::string precision() { return pick(2) == 0 ? "" : "." + std::to_string(pick(32)); }

    std::string integer() { return "%" + flags() + width() + precision() + std::string(1, "diuxXo"[pick(6)]); }
    std::string floating() {
        std::string p = pick(2) == 0 ? "" : "." + std::to_string(pick(20));
        return "%" + flags() + width() + p + std::string(1, "efgG"[pick(4)]);
    }
    // Strings with a precision keep it at least as large as the width: the estimate sizes a string as
    // min(max(length, width), precision), which would cut "%9.2s" (see UnsizedFormsAreCut...).
    std::string string() {
        int w = pick(120);
        std::string p = pick(2) == 0 ? "" : "." + std::to_string(w + pick(40));
        return "%" + std::string(pick(2) ? "-" : "") + (pick(3) == 0 ? "" : std::to_string(w)) + p + "s";
    }
    std::string text() {
        static const char* const options[] = {"", "x", " = ", "%%", "[%%]", "long literal text "};
        return options[pick(6)];
    }

    int intValue() {
        static const int options[] = {0, 1, -1, 42, INT_MAX, INT_MIN, 65535};
        return options[pick(7)];
    }
    double doubleValue() {
        static const double options[] = {0.0, -0.5, 3.14159, 1e6, -123456.789, 1e-7, 99999.99};
        return options[pick(7)];
    }
    std::string stringValue() { return std::string(static_cast<size_t>(pick(200)), "ab c"[pick(4)]); }

private:
    std::mt19937 m_rng;
};

TEST(CStringFormat, EqualsSnprintfForEverySizedConversion) {
    FormatMaker make(testSeed());
    for (int n = 0; n < 3000; ++n) {
        std::string i = make.integer(), d = make.floating(), s = make.string();
        int iv = make.intValue();
        double dv = make.doubleValue();
        std::string sv = make.stringValue();
        std::string fmt;
        std::string expected, actual;
        switch (make.pick(3)) {  // the three kinds in different orders
            case 0:
                fmt = make.text() + i + make.text() + d + make.text() + s + make.text();
                expected = printed(fmt.c_str(), iv, dv, sv.c_str());
                actual = formatted(fmt.c_str(), iv, dv, sv.c_str());
                break;
            case 1:
                fmt = s + make.text() + i + i + make.text();
                expected = printed(fmt.c_str(), sv.c_str(), iv, iv);
                actual = formatted(fmt.c_str(), sv.c_str(), iv, iv);
                break;
            default:
                fmt = d + s + make.text() + d;
                expected = printed(fmt.c_str(), dv, sv.c_str(), dv);
                actual = formatted(fmt.c_str(), dv, sv.c_str(), dv);
                break;
        }
        ASSERT_EQ(expected, actual) << "format \"" << fmt << "\"";
    }
}

TEST(CStringFormat, StarWidthsAndPrecisionsComeFromTheArguments) {
    EXPECT_EQ(printed("[%*d]", 40, 7), formatted("[%*d]", 40, 7));
    EXPECT_EQ(printed("[%-*d|]", 40, 7), formatted("[%-*d|]", 40, 7));
    EXPECT_EQ(printed("[%*s]", -50, "left"), formatted("[%*s]", -50, "left"));
    EXPECT_EQ(printed("[%.*s]", 3, "abcdef"), formatted("[%.*s]", 3, "abcdef"));
    EXPECT_EQ(printed("[%*.*f]", 150, 10, 2.5), formatted("[%*.*f]", 150, 10, 2.5));
    EXPECT_EQ(printed("%.0s|%.s|%2.5s", "abc", "abc", "abc"), formatted("%.0s|%.s|%2.5s", "abc", "abc", "abc"));
}

TEST(CStringFormat, LibraryForms) {
    EXPECT_EQ("(null)", formatted("%s", static_cast<const char*>(nullptr)));
    EXPECT_EQ("123456789abcdef0", formatted("%qx", 0x123456789abcdef0ULL));
    EXPECT_EQ("-9000000000", formatted("%qi", -9000000000LL));
    EXPECT_EQ(printed("%ld|%lu|%p", -5L, 6UL, &errno), formatted("%ld|%lu|%p", -5L, 6UL, &errno));
    EXPECT_EQ("100%", formatted("%d%%", 100));
    EXPECT_EQ("", formatted(""));
    EXPECT_EQ("", formatted(static_cast<const char*>(nullptr)));
    int count = -1;
    EXPECT_EQ("abc", formatted("abc%n", &count));
    EXPECT_EQ(3, count);
}

TEST(CStringFormat, UnsizedFormsAreCutNeverOverflowedOrMisread) {
    // "%lld" sizes as a one-letter text: the output is cut to it.
    EXPECT_EQ("1", formatted("%lld", 1234567890123LL));
    // The arguments after an unsized form are still read in step: no crash, a defined (cut) result.
    std::string cut = formatted("%zu %s", static_cast<size_t>(5), "tail");
    EXPECT_EQ(std::string("5 tail").substr(0, cut.size()), cut);
    std::string mixed = formatted("%hhd %s %Lf %s", 1, "one", 2.0L, "two");
    EXPECT_EQ(printed("%hhd %s %Lf %s", 1, "one", 2.0L, "two").substr(0, mixed.size()), mixed);
    // A string is sized as min(max(length, width), precision), so a width beyond the precision is cut;
    // an integer as max(32, width + precision), which leaves no room for a sign before 32 digits.
    EXPECT_EQ("[   ", formatted("[%5.2s]", "abc"));
    EXPECT_EQ(printed("%+.32d", 5).substr(0, 32), formatted("%+.32d", 5));
    // Floating output beyond the 128 sized for it is cut.
    std::string huge = formatted("%f", 1e200);
    EXPECT_EQ(128u, huge.size());
    EXPECT_EQ(printed("%f", 1e200).substr(0, 128), huge);
    // A width too large to hold fails with std::bad_alloc instead of overflowing.
    EXPECT_THROW(formatted("%2147483647d", 1), std::bad_alloc);
}

TEST(CStringFormat, FormatMayReadItsOwnText) {
    CString s("abc");
    s.Format("%s-%s", static_cast<const char*>(s), static_cast<const char*>(s));
    EXPECT_EQ("abc-abc", bytes(s));
    CString shared(s);
    s.Format("%s!", static_cast<const char*>(s));
    EXPECT_EQ("abc-abc!", bytes(s));
    EXPECT_EQ("abc-abc", bytes(shared));
}

TEST(CStringFormatDeathTest, CharacterConversionStopsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(formatted("%c", 'x'), "%c conversion is not supported");
    EXPECT_DEATH(formatted("value %5C", 'x'), "not supported");
    EXPECT_DEATH(createString('x'), "not supported");
    // With a modifier it is sized 0 and cut instead.
    EXPECT_EQ("", formatted("%lc", static_cast<wint_t>(L'x')));
}

}  // namespace
