// The lines the process log's sink receives: from the log interface's write forms at a log level, from
// the level-named writes, and from UException as it is made and caught.
#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <unistd.h>

#include "CapturingLog.h"
#include "Exception"
#include "NullText.h"

namespace {

using Lines = std::vector<std::string>;
const std::string big(6000, 'x');
const char* kInvalid = "UException::UException(int a_code, LPCTSTR a_lpszFileName, LPCTSTR a_lpszFunctionName, "
                       "DWORD a_dwLine, LPCTSTR lpszMsg, ...)  - input parameter is invalid";

// The null formats are part of the point; -Wformat-security (a hardening flag) would refuse them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
TEST(ErrorLog, LinesHandedToTheSinkAtALogLevel) {
    unsigned char hex[33] = {10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10,
                             10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 0xFF};
    std::string hexLine = "5,,,, ";
    for (int i = 0; i < 32; ++i) hexLine += "  A";
    struct Row { const char* shows; int logLevel; std::function<void(IUErrorLog&)> write; Lines expected; };
    const Row rows[] = {
        {"level up to the log level", 31, [](IUErrorLog& l) { l.WriteLog(31, "f%d\n", 5); }, {"31,,,, f5\n"}},
        {"level above it dropped", 31, [](IUErrorLog& l) { l.WriteLog(48, "x"); }, {}},
        {"level 0 an error line", 63, [](IUErrorLog& l) { l.WriteLog(0, "e"); }, {"0,,,, e"}},
        {"negative log: level 0 dropped", -1, [](IUErrorLog& l) { l.WriteLog(0, "e"); }, {}},
        {"negative log: Str dropped", -1, [](IUErrorLog& l) { l.WriteLogStr("s"); }, {}},
        {"errors pass any level", -1, [](IUErrorLog& l) { l.WriteErrorStr("e"); }, {"0,,,, e"}},
        {"plain form is an error", -1, [](IUErrorLog& l) { l.WriteLog("p %s", "f"); }, {"0,,,, p f"}},
        {"Str writes column 0", 1, [](IUErrorLog& l) { l.WriteLogStr("s"); }, {"0,,,, s"}},
        {"Str level not compared", 1, [](IUErrorLog& l) { l.WriteLogStr(-120, "s"); }, {"-120,,,, s"}},
        {"cut at 5119", 63, [](IUErrorLog& l) { l.WriteLog(5, "%s", big.c_str()); }, {"5,,,, " + big.substr(881)}},
        {"Str not cut", 1, [](IUErrorLog& l) { l.WriteErrorStr(big.c_str()); }, {"0,,,, " + big}},
        {"null format", 3, [](IUErrorLog& l) { l.WriteLog(3, nullText()); },
         {"3,,,, IUErrorLog::WriteLog(int a_iPriority, LPCTSTR lpszMsg, ...) - template is NULL\n"}},
        {"hex by 32", 5, [&](IUErrorLog& l) { l.WriteAsHex(5, hex, 33); }, {hexLine + "\n", "5,,,,  FF\n"}},
        {"hex above the level", 5, [&](IUErrorLog& l) { l.WriteAsHex(6, hex, 33); }, {}},
        {"0 stored as 1, no line", 1, [](IUErrorLog& l) { l.SetLogLevel(0); l.WriteLog(1, "%d", l.GetLogLevel()); },
         {"1,,,, 1"}},
        {"change logged once", 31, [](IUErrorLog& l) { l.SetLogLevel(63); l.SetLogLevel(63); },
         {"0,,,, log level has been changed to 63\n"}},
        // The level-named writes: a column of their own and a threshold each.
        {"LEVEL0 at any level", -5, [](IUErrorLog&) { ERRORLOGLEVEL0("%s", big.c_str()); }, {"1,,,, " + big}},
        {"LEVEL0 null format", 1, [](IUErrorLog&) { ERRORLOGLEVEL0(nullText()); }, {"1,,,, ERRORLOGLEVELx() wrong parameter"}},
        {"LEVEL1 below 2", 1, [](IUErrorLog&) { ERRORLOGLEVEL1("o"); }, {}},
        {"LEVEL1 from 2", 2, [](IUErrorLog&) { ERRORLOGLEVEL1("o%d", 1); }, {"2,,,, o1"}},
        {"LEVEL2 below 48", 47, [](IUErrorLog&) { ERRORLOGLEVEL2("t"); }, {}},
        {"LEVEL2 from 48", 48, [](IUErrorLog&) { ERRORLOGLEVEL2("t%d", 2); ERRORLOGLEVEL3("n"); }, {"48,,,, t2"}},
        // UException: the place shows with the code unless it is -1; without a place the code never shows.
        {"short form", 1, [](IUErrorLog&) { UException(9, "bad %d", 7); }, {"1, , 0, , EXCEPTION - bad 7\n"}},
        {"place, code", 1, [](IUErrorLog&) { UException(5, "a", "f", 12, "x"); }, {"1, a, 12, f, (0x5) x\n"}},
        {"place, code -1", 1, [](IUErrorLog&) { UException(-1, "a", "f", 12, "x"); }, {"1, a, 12, f, x\n"}},
        {"place, code -2", 1, [](IUErrorLog&) { UException(-2, "a", "f", 1, "x"); }, {"1, a, 1, f, (0xfffffffe) x\n"}},
        {"null function", 1, [](IUErrorLog&) { UException(-1, "a", nullText(), 2, "x"); },
         {std::string("1, a, 2, , ") + kInvalid + "\n"}},
        {"null format", 1, [](IUErrorLog&) { UException(3, nullText()); },
         {"1, , 0, , UException::UException(int a_code, LPCTSTR lpszMsg, ...)  - template parameter is NULL\n\n"}},
        {"short null format", 1, [](IUErrorLog&) { UException{nullText()}; },
         {"1, , 0, , UException::UException(LPCTSTR lpszMsg, ...) - template parameter is NULL\n\n"}},
        {"1000-character names kept", 1, [](IUErrorLog&) { UException(-1, big.c_str() + 5000, big.c_str() + 5000, 0, "m"); },
         {"1, " + big.substr(5000) + ", 0, " + big.substr(5000) + ", m\n"}},
        {"longer names dropped", 1, [](IUErrorLog&) { UException(-1, big.c_str() + 4999, big.c_str() + 4999, 0, "m"); },
         {"1, , 0, , m\n"}},
        {"cut at 5118", 1, [](IUErrorLog&) { UException(-1, "f", "g", 1, "%s", big.c_str()); },
         {"1, f, 1, g, " + big.substr(882) + "\n"}},
        {"short cut at 5118", 1, [](IUErrorLog&) { UException("%s", big.c_str()); },
         {"1, , 0, , EXCEPTION - " + big.substr(894) + "\n"}},
        {"caught", 1, [](IUErrorLog&) { UException(-1, "", "toDWORD()", 77, "E").WriteCaught("toDWORD()", 120); },
         {"1, , 77, toDWORD(), E\n", "1, , 120, toDWORD() - EXCEPTION, EXCEPTION caught: E\n"}},
        {"unknown caught", 1, [](IUErrorLog&) { WriteUnknownExceptionCaught("toInt()", 130); },
         {"1, , 130, toInt() - EXCEPTION, EXCEPTION caught: toInt() - EXCEPTION\n"}},
        {"break", 1, [](IUErrorLog&) { EXPECT_FALSE(UBreakException().isDefined()); }, {}},
    };
    for (const Row& row : rows) {
        ScopedCapturingLog log(row.logLevel);
        row.write(log);
        EXPECT_EQ(row.expected, log.lines()) << row.shows;
    }
    errorLog = nullptr;
    UException("no log, no crash");
}
#pragma GCC diagnostic pop

TEST(UException, CopiesAndAssignmentsOwnTheirStrings) {
    UException original(4, "file", "func", 9, "msg");
    UException copy(original), assigned;
    assigned = original;
    original = "replaced";
    EXPECT_STREQ("msg", copy.GetErrorMessage());
    EXPECT_STREQ("func", assigned.GetFunctionName());
    EXPECT_EQ(4, assigned.GetErrorCode());
    EXPECT_EQ(nullptr, original.GetFileName());
    EXPECT_EQ(-1, original.GetErrorCode());
    original = 3;
    EXPECT_STREQ("unknown exception", original.GetErrorMessage());
    EXPECT_EQ(3, original.GetErrorCode());
    EXPECT_EQ(9, UException(9, "c").GetErrorCode());
}

TEST(UOutputErrorLog, PrintsTimeThreadAndLine) {
    UOutputErrorLog out;
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, out.WriteLogItem("0,,,, with newline\n"));
    EXPECT_EQ(0, out.WriteLogItem("0,,,, without"));
    std::string printed = testing::internal::GetCapturedStdout(), thread = "\\(" + std::to_string(getpid()) + "\\)  ";
    std::regex shape("[ 12]\\d:\\d\\d:\\d\\d:000, " + thread + "0,,,, with newline\n\n[ 12]\\d:\\d\\d:\\d\\d:000, " + thread + "0,,,, without\r\n\n");
    EXPECT_TRUE(std::regex_match(printed, shape)) << printed << "puts adds a newline";
}

}  // namespace
