// UException: its fields, copies, and the line it writes when made and when caught.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "CapturingLog.h"
#include "NullText.h"
#include "Exception"

namespace {

using Lines = std::vector<std::string>;

TEST(UException, ShortFormsPrefixTheMessageAndLogThemselves) {
    ScopedCapturingLog log;
    UException e("bad %d", 7);
    EXPECT_EQ(-1, e.GetErrorCode());
    EXPECT_STREQ("EXCEPTION - bad 7", e.GetErrorMessage());

    UException coded(9, "code %s", "nine");
    EXPECT_EQ(9, coded.GetErrorCode());
    EXPECT_EQ((Lines{"1, , 0, , EXCEPTION - bad 7\n", "1, , 0, , EXCEPTION - code nine\n"}), log.lines())
        << "without a place, the code does not show";
}

TEST(UException, PlaceFormShowsTheCodeUnlessItIsMinusOne) {
    ScopedCapturingLog log;
    UException coded(5, "a", "f", 12, "x");
    UException plain(-1, "a", "f", 12, "x");
    UException negative(-2, "a", "f", 12, "x");
    EXPECT_EQ((Lines{"1, a, 12, f, (0x5) x\n", "1, a, 12, f, x\n", "1, a, 12, f, (0xfffffffe) x\n"}), log.lines());
}

// The null formats are the point of this test; -Wformat-security (a hardening flag) would refuse them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
TEST(UException, InvalidInputsGiveFixedMessages) {
    ScopedCapturingLog log;
    UException noFunction(5, "a", nullText(), 12, "x");
    EXPECT_STREQ("UException::UException(int a_code, LPCTSTR a_lpszFileName, LPCTSTR a_lpszFunctionName, "
                 "DWORD a_dwLine, LPCTSTR lpszMsg, ...)  - input parameter is invalid",
                 noFunction.GetErrorMessage());
    EXPECT_EQ(nullptr, noFunction.GetFunctionName());
    EXPECT_STREQ("a", noFunction.GetFileName());

    UException noTemplate(3, nullText());
    EXPECT_STREQ("UException::UException(int a_code, LPCTSTR lpszMsg, ...)  - template parameter is NULL\n",
                 noTemplate.GetErrorMessage());
    UException noTemplateShort(nullText());
    EXPECT_STREQ("UException::UException(LPCTSTR lpszMsg, ...) - template parameter is NULL\n",
                 noTemplateShort.GetErrorMessage());
}
#pragma GCC diagnostic pop

TEST(UException, OverlongNamesAreDroppedWhichChangesTheLine) {
    ScopedCapturingLog log;
    std::string longName(1001, 'n');
    std::string limit(1000, 'n');
    UException dropped(-1, longName.c_str(), longName.c_str(), 0, "m");
    EXPECT_EQ(nullptr, dropped.GetFileName());
    EXPECT_EQ(nullptr, dropped.GetFunctionName());
    UException kept(-1, limit.c_str(), "f", 0, "m");
    EXPECT_EQ(limit, kept.GetFileName());
    EXPECT_EQ("1, , 0, , m\n", log.lines()[0]);
}

TEST(UException, MessagesAreCutAt5118Characters) {
    ScopedCapturingLog log;
    std::string big(6000, 'z');
    UException placed(1, "f", "g", 1, "%s", big.c_str());
    UException shortForm("%s", big.c_str());
    EXPECT_EQ(5118u, strlen(placed.GetErrorMessage()));
    EXPECT_EQ(5118u, strlen(shortForm.GetErrorMessage()));
    EXPECT_EQ("EXCEPTION - zzz", std::string(shortForm.GetErrorMessage()).substr(0, 15));
}

TEST(UException, CopiesAndAssignmentsOwnTheirStrings) {
    UException original(4, "file", "func", 9, "msg");
    UException copy(original), assigned;
    assigned = original;
    original = "replaced";
    EXPECT_STREQ("msg", copy.GetErrorMessage());
    EXPECT_STREQ("func", assigned.GetFunctionName());
    EXPECT_EQ(4, assigned.GetErrorCode());
    EXPECT_EQ(-1, original.GetErrorCode());
    EXPECT_EQ(nullptr, original.GetFileName());

    original = 3;
    EXPECT_STREQ("unknown exception", original.GetErrorMessage());
    EXPECT_EQ(3, original.GetErrorCode());
    EXPECT_EQ(0u, original.GetLine());
}

TEST(UException, CatchSitesWriteTheirOwnLine) {
    ScopedCapturingLog log;
    try {
        throw UException(-1, "", "toDWORD()", 77, "EXCEPTION - %s, %s", "invalid a_str", "12");
    } catch (UException& e) {
        UException caught(e);
        caught.WriteCaught("toDWORD()", 120);
    }
    WriteUnknownExceptionCaught("toInt()", 130);
    EXPECT_EQ((Lines{"1, , 77, toDWORD(), EXCEPTION - invalid a_str, 12\n",
                     "1, , 120, toDWORD() - EXCEPTION, EXCEPTION caught: EXCEPTION - invalid a_str, 12\n",
                     "1, , 130, toInt() - EXCEPTION, EXCEPTION caught: toInt() - EXCEPTION\n"}),
              log.lines());
}

TEST(UException, BreakExceptionsAndUnloggedPathsAreSilent) {
    ScopedCapturingLog log;
    try {
        throw UBreakException();
    } catch (UException& e) {
        EXPECT_FALSE(e.isDefined());
    }
    IUErrorLog* saved = errorLog;
    errorLog = nullptr;
    UException quiet("not logged");
    errorLog = saved;
    EXPECT_TRUE(log.lines().empty());
}

}  // namespace
