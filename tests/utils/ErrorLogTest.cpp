// The lines the process log's sink receives: from the log interface's write forms at a log level, from
// the level-named writes, and from UException as it is made and caught.
#include <gtest/gtest.h>

#include <functional>

#include "TestSupport.h"
#include "Exception"

namespace {

const std::string big(6000, 'x');
using Write = std::function<void(IUErrorLog&)>;

// The null formats are part of the point; -Wformat-security (a hardening flag) would refuse them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
TEST(ErrorLog, LinesHandedToTheSinkAtALogLevel) {
    const auto levels = [](IUErrorLog&) { ERRORLOGLEVEL0("z"); ERRORLOGLEVEL1("o%d", 1); ERRORLOGLEVEL2("t"); };
    struct Row { const char* shows; int logLevel; Write write; std::vector<std::string> lines; };
    const Row rows[] = {
        {"up to the level", 31, [](auto& l) { l.WriteLog(31, "f%d\n", 5); l.WriteLog(32, "x"); }, {"31,,,, f5\n"}},
        {"negative: only errors", -1, [](auto& l) { l.WriteLog(0, "0"); l.WriteLogStr("s"); l.WriteErrorStr("e"); },
         {"0,,,, e"}},
        {"plain form is an error", -1, [](auto& l) { l.WriteLog("p%d", 1); }, {"0,,,, p1"}},
        {"Str: column 0 or given", 1, [](auto& l) { l.WriteLogStr("s"); l.WriteLogStr(-120, "n"); },
         {"0,,,, s", "-120,,,, n"}},
        {"cut at 5119", 63, [](auto& l) { l.WriteLog(5, "%s", big.c_str()); }, {"5,,,, " + big.substr(881)}},
        {"Str not cut", 1, [](auto& l) { l.WriteErrorStr(big.c_str()); }, {"0,,,, " + big}},
        {"null format", 3, [](auto& l) { l.WriteLog(3, nullText()); },
         {"3,,,, IUErrorLog::WriteLog(int a_iPriority, LPCTSTR lpszMsg, ...) - template is NULL\n"}},
        {"0 is 1; changes logged", 1, [](auto& l) { l.SetLogLevel(0); l.SetLogLevel(63); l.SetLogLevel(63); },
         {"0,,,, log level has been changed to 63\n"}},
        // The level-named writes: a column of their own and a threshold each.
        {"LEVEL0 at any level", -5, levels, {"1,,,, z"}},
        {"LEVEL1 not at 1", 1, levels, {"1,,,, z"}},
        {"LEVEL1 from 2", 2, levels, {"1,,,, z", "2,,,, o1"}},
        {"LEVEL2 not at 47", 47, levels, {"1,,,, z", "2,,,, o1"}},
        {"LEVEL2 from 48", 48, levels, {"1,,,, z", "2,,,, o1", "48,,,, t"}},
        {"LEVEL0 not cut", 1, [](auto&) { ERRORLOGLEVEL0("%s", big.c_str()); }, {"1,,,, " + big}},
        {"LEVEL0 null format", 1, [](auto&) { ERRORLOGLEVEL0(nullText()); },
         {"1,,,, ERRORLOGLEVELx() wrong parameter"}},
        // UException: the place shows with the code unless it is -1; without a place the code never shows.
        {"short form", 1, [](auto&) { UException(9, "bad %d", 7); }, {"1, , 0, , EXCEPTION - bad 7\n"}},
        {"place, code", 1, [](auto&) { UException(5, "a", "f", 12, "x"); }, {"1, a, 12, f, (0x5) x\n"}},
        {"place, code -1", 1, [](auto&) { UException(-1, "a", "f", 12, "x"); }, {"1, a, 12, f, x\n"}},
        {"null function", 1, [](auto&) { UException(-1, "a", nullText(), 2, "x"); },
         {"1, a, 2, , UException::UException(int a_code, LPCTSTR a_lpszFileName, LPCTSTR a_lpszFunctionName, "
          "DWORD a_dwLine, LPCTSTR lpszMsg, ...)  - input parameter is invalid\n"}},
        {"1,001-character names dropped", 1, [](auto&) { UException(-1, &big[4999], &big[4999], 0, "m"); },
         {"1, , 0, , m\n"}},
        {"cut at 5118", 1, [](auto&) { UException(-1, "f", "g", 1, "%s", big.c_str()); },
         {"1, f, 1, g, " + big.substr(882) + "\n"}},
        {"caught", 1, [](auto&) { UException(-1, "", "toDWORD()", 77, "E").WriteCaught("toDWORD()", 120); },
         {"1, , 77, toDWORD(), E\n", "1, , 120, toDWORD() - EXCEPTION, EXCEPTION caught: E\n"}},
        {"copies own their strings", 1, [](auto&) {
             UException original(4, "", "f", 7, "E"), assigned, copy(original);
             assigned = copy; original = 3; copy = "s";
             assigned.WriteToLog(); original.WriteToLog(); copy.WriteToLog(); },
         {"1, , 7, f, (0x4) E\n", "1, , 7, f, (0x4) E\n", "1, , 0, , unknown exception\n", "1, , 0, , s\n"}},
        {"unknown caught", 1, [](auto&) { WriteUnknownExceptionCaught("toInt()", 130); },
         {"1, , 130, toInt() - EXCEPTION, EXCEPTION caught: toInt() - EXCEPTION\n"}},
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

}  // namespace
