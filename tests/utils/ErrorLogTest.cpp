// The level rules of the log interface and the lines they hand to the sink.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CapturingLog.h"
#include "NullText.h"
#include "ErrorLog"

namespace {

using Lines = std::vector<std::string>;

TEST(IUErrorLog, SetLogLevelStoresZeroAsOneAndLogsChanges) {
    CapturingLog log(1);
    log.SetLogLevel(0);
    EXPECT_EQ(1, log.GetLogLevel());
    EXPECT_TRUE(log.lines().empty()) << "no change, no line";

    log.SetLogLevel(31);
    log.clear();
    log.SetLogLevel(63);
    EXPECT_EQ((Lines{"0,,,, log level has been changed to 63\n"}), log.lines());
    log.SetLogLevel(63);
    EXPECT_EQ(1u, log.lines().size());
}

TEST(IUErrorLog, MessageLevelsPassUpToTheLogLevel) {
    CapturingLog basic(31);
    basic.WriteLog(5, "five %d\n", 5);
    basic.WriteLog(48, "forty-eight\n");
    basic.WriteLog(31, "edge\n");
    EXPECT_EQ((Lines{"5,,,, five 5\n", "31,,,, edge\n"}), basic.lines());

    CapturingLog extended(63);
    extended.WriteLog(5, "five\n");
    extended.WriteLog(48, "forty-eight\n");
    extended.WriteLog(0, "error\n");
    EXPECT_EQ((Lines{"5,,,, five\n", "48,,,, forty-eight\n", "0,,,, error\n"}), extended.lines());
}

TEST(IUErrorLog, NegativeLevelsSilenceAllButTheUnfilteredForms) {
    CapturingLog log(1);
    log.SetLogLevel(-1);
    log.clear();
    log.WriteLog(1, "one\n");
    log.WriteLogStr("str\n");
    log.WriteLog(0, "level 0 passes only at levels that are not negative\n");
    log.WriteErrorStr("error\n");
    log.WriteLog("plain %s\n", "form");
    EXPECT_EQ((Lines{"0,,,, error\n", "0,,,, plain form\n"}), log.lines());

    log.SetLogLevel(1);
    log.clear();
    log.WriteLogStr(60, "the message level is not compared\n");
    EXPECT_EQ((Lines{"60,,,, the message level is not compared\n"}), log.lines());
}

TEST(IUErrorLog, LongMessagesAreCutAt5119Characters) {
    CapturingLog log(63);
    std::string big(6000, 'x');
    log.WriteLog(5, "%s", big.c_str());
    log.WriteLog("%s", big.c_str());
    ASSERT_EQ(2u, log.lines().size());
    EXPECT_EQ("5,,,, " + std::string(5119, 'x'), log.lines()[0]);
    EXPECT_EQ("0,,,, " + std::string(5119, 'x'), log.lines()[1]);
}

// The null formats are the point of this test; -Wformat-security (a hardening flag) would refuse them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
TEST(IUErrorLog, NullFormatsWriteTheirOwnTexts) {
    CapturingLog log(63);
    log.WriteLog(3, nullText());
    log.WriteLog(nullText());
    EXPECT_EQ((Lines{"3,,,, IUErrorLog::WriteLog(int a_iPriority, LPCTSTR lpszMsg, ...) - template is NULL\n",
                     "0,,,, IUErrorLog::WriteLog(LPCTSTR lpszMsg, ...) - template is NULL\n"}),
              log.lines());
}
#pragma GCC diagnostic pop

TEST(IUErrorLog, WriteAsHexWritesLinesOf32Bytes) {
    CapturingLog log(5);
    unsigned char data[33];
    for (int i = 0; i < 33; ++i) data[i] = static_cast<unsigned char>(i * 7);
    EXPECT_EQ(0, log.WriteAsHex(5, data, 33));
    ASSERT_EQ(2u, log.lines().size());
    EXPECT_EQ("5,,,,   0  7  E 15", log.lines()[0].substr(0, 18));
    EXPECT_EQ(6u + 32 * 3 + 1, log.lines()[0].size());
    EXPECT_EQ("5,,,,  E0\n", log.lines()[1]);

    log.clear();
    log.WriteAsHex(6, data, 33);
    EXPECT_TRUE(log.lines().empty());
}

TEST(ErrorLogLevels, ColumnsAndThresholds) {
    struct Case {
        int logLevel;
        Lines expected;
    };
    const Case cases[] = {
        {-5, {"1,,,, zero 0"}},
        {1, {"1,,,, zero 0"}},
        {2, {"1,,,, zero 0", "2,,,, one 1"}},
        {47, {"1,,,, zero 0", "2,,,, one 1"}},
        {48, {"1,,,, zero 0", "2,,,, one 1", "48,,,, two 2"}},
    };
    for (const Case& c : cases) {
        ScopedCapturingLog log(c.logLevel);
        ERRORLOGLEVEL0("zero %d", 0);
        ERRORLOGLEVEL1("one %d", 1);
        ERRORLOGLEVEL2("two %d", 2);
        ERRORLOGLEVEL3("never");
        ERRORLOGLEVEL4("never");
        ERRORLOGLEVEL5("never");
        EXPECT_EQ(c.expected, log.lines()) << "log level " << c.logLevel;
    }
}

// The null formats are the point of this test; -Wformat-security (a hardening flag) would refuse them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
TEST(ErrorLogLevels, LongTextsAreWrittenWholeAndNullFormatsNamed) {
    ScopedCapturingLog log(1);
    std::string big(10000, 'y');
    ERRORLOGLEVEL0("%s", big.c_str());
    ERRORLOGLEVEL0(nullText());
    ASSERT_EQ(2u, log.lines().size());
    EXPECT_EQ("1,,,, " + big, log.lines()[0]);
    EXPECT_EQ("1,,,, ERRORLOGLEVELx() wrong parameter", log.lines()[1]);
}
#pragma GCC diagnostic pop

TEST(UOutputErrorLog, PrintsTimeThreadAndLine) {
    UOutputErrorLog out;
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, out.WriteLogItem("0,,,, with newline\n"));
    EXPECT_EQ(0, out.WriteLogItem("0,,,, without"));
    std::string printed = testing::internal::GetCapturedStdout();

    std::string thread = "(" + std::to_string(getpid()) + ")  ";
    size_t first = printed.find('\n');
    ASSERT_NE(std::string::npos, first);
    std::string line = printed.substr(0, first);
    ASSERT_GE(line.size(), 14u);
    EXPECT_EQ(':', line[2]);
    EXPECT_EQ(":000, ", line.substr(8, 6)) << "milliseconds always read 000";
    EXPECT_EQ(thread + "0,,,, with newline", line.substr(14));
    EXPECT_EQ("\n\n", printed.substr(first, 2)) << "puts adds a newline after the line's own";
    EXPECT_NE(std::string::npos, printed.find(thread + "0,,,, without\r\n\n"));
}

}  // namespace
