// The lines the process log's sink receives: from the log interface's write forms at a log level, from
// the level-named writes, and from UException as it is made and caught.
#include <gtest/gtest.h>

#include <functional>

#include "CapturingLog.h"
#include "Exception"
#include "NullText.h"

namespace {

const std::string big(6000, 'x');
const std::string k1000 = big.substr(5000);

// The null formats are part of the point; -Wformat-security (a hardening flag) would refuse them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
TEST(ErrorLog, LinesHandedToTheSinkAtALogLevel) {
    unsigned char hex[33] = {};
    hex[32] = 0xAB;
    std::string zeros;
    for (int i = 0; i < 32; ++i) zeros += "  0";
    const auto levels = [](IUErrorLog&) { ERRORLOGLEVEL1("o%d", 1); ERRORLOGLEVEL2("t"); ERRORLOGLEVEL3("n"); };
    struct Row {
        const char* shows;
        int logLevel;
        std::function<void(IUErrorLog&)> write;
        std::vector<std::string> lines;
    };
    const Row rows[] = {
        {"up to the level", 31, [](auto& l) { l.WriteLog(31, "f%d\n", 5); l.WriteLog(32, "x"); }, {"31,,,, f5\n"}},
        {"0 is an error", 63, [](auto& l) { l.WriteLog(0, "e"); }, {"0,,,, e"}},
        {"negative: only errors", -1, [](auto& l) { l.WriteLog(0, "0"); l.WriteLogStr("s"); l.WriteErrorStr("e"); },
         {"0,,,, e"}},
        {"plain form is an error", -1, [](auto& l) { l.WriteLog("p%d", 1); }, {"0,,,, p1"}},
        {"Str: column 0 or given", 1, [](auto& l) { l.WriteLogStr("s"); l.WriteLogStr(-120, "n"); },
         {"0,,,, s", "-120,,,, n"}},
        {"cut at 5119", 63, [](auto& l) { l.WriteLog(5, "%s", big.c_str()); }, {"5,,,, " + big.substr(881)}},
        {"Str not cut", 1, [](auto& l) { l.WriteErrorStr(big.c_str()); }, {"0,,,, " + big}},
        {"null format", 3, [](auto& l) { l.WriteLog(3, nullText()); },
         {"3,,,, IUErrorLog::WriteLog(int a_iPriority, LPCTSTR lpszMsg, ...) - template is NULL\n"}},
        {"hex, 32 a line", 5, [&](auto& l) { l.WriteAsHex(5, hex, 33); },
         {"5,,,, " + zeros + "\n", "5,,,,  AB\n"}},
        {"0 stored as 1", 1, [](auto& l) { l.SetLogLevel(0); l.WriteLog(1, "%d", l.GetLogLevel()); }, {"1,,,, 1"}},
        {"change logged once", 31, [](auto& l) { l.SetLogLevel(63); l.SetLogLevel(63); },
         {"0,,,, log level has been changed to 63\n"}},
        // The level-named writes: a column of their own and a threshold each.
        {"LEVEL0 at any level", -5, [](auto&) { ERRORLOGLEVEL0("%s", big.c_str()); }, {"1,,,, " + big}},
        {"LEVEL0 null format", 1, [](auto&) { ERRORLOGLEVEL0(nullText()); }, {"1,,,, ERRORLOGLEVELx() wrong parameter"}},
        {"LEVEL1 not at 1", 1, levels, {}},
        {"LEVEL1 at 2", 2, levels, {"2,,,, o1"}},
        {"LEVEL2 not at 47", 47, levels, {"2,,,, o1"}},
        {"LEVEL2 at 48", 48, levels, {"2,,,, o1", "48,,,, t"}},
        // UException: the place shows with the code unless it is -1; without a place the code never shows.
        {"short form", 1, [](auto&) { UException(9, "bad %d", 7); }, {"1, , 0, , EXCEPTION - bad 7\n"}},
        {"place, code", 1, [](auto&) { UException(5, "a", "f", 12, "x"); }, {"1, a, 12, f, (0x5) x\n"}},
        {"place, code -1", 1, [](auto&) { UException(-1, "a", "f", 12, "x"); }, {"1, a, 12, f, x\n"}},
        {"place, code -2", 1, [](auto&) { UException(-2, "a", "f", 1, "x"); }, {"1, a, 1, f, (0xfffffffe) x\n"}},
        {"null function", 1, [](auto&) { UException(-1, "a", nullText(), 2, "x"); },
         {"1, a, 2, , UException::UException(int a_code, LPCTSTR a_lpszFileName, LPCTSTR a_lpszFunctionName, "
          "DWORD a_dwLine, LPCTSTR lpszMsg, ...)  - input parameter is invalid\n"}},
        {"null format", 1, [](auto&) { UException(3, nullText()); },
         {"1, , 0, , UException::UException(int a_code, LPCTSTR lpszMsg, ...)  - template parameter is NULL\n\n"}},
        {"1000-character names kept", 1, [](auto&) { UException(-1, k1000.c_str(), k1000.c_str(), 0, "m"); },
         {"1, " + k1000 + ", 0, " + k1000 + ", m\n"}},
        {"longer names dropped", 1, [](auto&) { UException(-1, &big[4999], &big[4999], 0, "m"); }, {"1, , 0, , m\n"}},
        {"cut at 5118", 1, [](auto&) { UException(-1, "f", "g", 1, "%s", big.c_str()); },
         {"1, f, 1, g, " + big.substr(882) + "\n"}},
        {"short form cut at 5118", 1, [](auto&) { UException("%s", big.c_str()); },
         {"1, , 0, , EXCEPTION - " + big.substr(894) + "\n"}},
        {"caught", 1, [](auto&) { UException(-1, "", "toDWORD()", 77, "E").WriteCaught("toDWORD()", 120); },
         {"1, , 77, toDWORD(), E\n", "1, , 120, toDWORD() - EXCEPTION, EXCEPTION caught: E\n"}},
        {"unknown caught", 1, [](auto&) { WriteUnknownExceptionCaught("toInt()", 130); },
         {"1, , 130, toInt() - EXCEPTION, EXCEPTION caught: toInt() - EXCEPTION\n"}},
        {"break", 1, [](auto&) { EXPECT_FALSE(UBreakException().isDefined()); }, {}},
    };
    for (const Row& row : rows) {
        ScopedCapturingLog log(row.logLevel);
        row.write(log);
        EXPECT_EQ(row.lines, log.lines()) << row.shows;
    }
    errorLog = nullptr;
    UException("no log, no crash");
}
#pragma GCC diagnostic pop

TEST(UException, CopiesAndAssignmentsOwnTheirStrings) {
    UException original(4, "file", "func", 9, "msg"), assigned;
    UException copy(original);
    assigned = original;
    original = "replaced";
    EXPECT_STREQ("msg", copy.GetErrorMessage());
    EXPECT_EQ(4, assigned.GetErrorCode());
    EXPECT_EQ(-1, original.GetErrorCode());
    EXPECT_STREQ("func", assigned.GetFunctionName());
    EXPECT_EQ(nullptr, original.GetFileName());
    original = 3;
    EXPECT_STREQ("unknown exception", original.GetErrorMessage());
    EXPECT_EQ(3, original.GetErrorCode());
    EXPECT_EQ(9, UException(9, "c").GetErrorCode());
}

}  // namespace
