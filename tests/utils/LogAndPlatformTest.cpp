// The process log and the platform it stands on: the lines the log's sink receives (from the log interface's
// write forms at a log level, from the level-named writes, from UException as it is made and caught); the
// log file as its reader sees it (system header, banner, line headers, rotation) and the settings file that
// gives its levels and rotation size; file existence by mode bits; environment variables with a fallback.
#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <climits>
#include <functional>
#include <thread>
#include <pwd.h>
#include <regex>
#include <tuple>
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TestSupport.h"
#include "Debug"
#include "Encoding"
#include "Exception"
#include "FileErrorLog"
#include "LogSettings"
#include "Mutex"
#include "Platform"
#include "System"
#include "UserFolder"

namespace {

const std::string big(6000, 'x');
using Write = std::function<void(IUErrorLog&)>;

// The null formats are part of the point; -Wformat-security (a hardening flag) would refuse them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
TEST(ErrorLog, LinesHandedToTheSinkAtALogLevel) {
    const auto levels = [](auto&) { ERRORLOGLEVEL0("z"); ERRORLOGLEVEL1("o%d", 1); ERRORLOGLEVEL2("t"); };
    const struct { const char* shows; int logLevel; Write write; std::vector<std::string> lines; } rows[] = {
        {"up to the level", 31,
         [](auto& l) { l.WriteLog(31, "f%d\n", 5); EXPECT_EQ(0, l.WriteLog(32, "x")) << "nothing written"; },
         {"31,,,, f5\n"}},
        {"negative: only errors", -1,
         [](auto& l) { l.WriteLog(0, "0"); l.WriteLogStr("s"); l.WriteErrorStr("e"); }, {"0,,,, e"}},
        {"plain form is an error", -1, [](auto& l) { l.WriteLog("p%d", 1); }, {"0,,,, p1"}},
        {"Str: column 0 or given", 1, [](auto& l) { l.WriteLogStr("s"); l.WriteLogStr(-120, "n"); },
         {"0,,,, s", "-120,,,, n"}},
        {"cut at 5119", 63, [](auto& l) { l.WriteLog(5, "%s", big.c_str()); }, {"5,,,, " + big.substr(881)}},
        {"Str not cut", 1, [](auto& l) { l.WriteErrorStr(big.c_str()); }, {"0,,,, " + big}},
        {"null format", 3, [](auto& l) { l.WriteLog(3, nullText()); },
         {"3,,,, IUErrorLog::WriteLog(int a_iPriority, LPCTSTR lpszMsg, ...) - template is NULL\n"}},
        {"hex: 32 bytes a line, up to the level", 5, [](auto& l) {
             unsigned char bytes[33];
             for (unsigned char i = 0; i < 33; ++i) bytes[i] = i;
             EXPECT_EQ(0, l.WriteAsHex(5, bytes, 33) + l.WriteAsHex(6, bytes, 1) + l.WriteAsHex(5, nullptr, 4)); },
         {"5,,,,   0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F 10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F\n",
          "5,,,,  20\n"}},
        {"0 is 1; changes logged", 1, [](auto& l) { l.SetLogLevel(0); l.SetLogLevel(63); l.SetLogLevel(63); },
         {"0,,,, log level has been changed to 63\n"}},
        // The level-named writes: a column of their own and a threshold each.
        {"LEVEL0 at any level", INT_MIN, levels, {"1,,,, z"}}, {"LEVEL1 not at 1", 1, levels, {"1,,,, z"}},
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
        {"1,000-character names kept", 1, [](auto&) { UException(-1, &big[5000], &big[5000], 0, "m"); },
         {"1, " + big.substr(5000) + ", 0, " + big.substr(5000) + ", m\n"}},
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
         {"1, , 130, toInt() - EXCEPTION, EXCEPTION caught: toInt() - EXCEPTION\n"}}};
    for (const auto& row : rows) {
        ScopedCapturingLog log(row.logLevel);
        row.write(log);
        EXPECT_EQ(row.lines, log.lines()) << row.shows;
    }
    errorLog = nullptr;
    UException("no log, no crash");
}
#pragma GCC diagnostic pop

// A log of module "tunvo_plugin" opened in a fresh home whose settings file holds `conf`.
struct HomeLog : TempHome {
    explicit HomeLog(const std::string& conf = "") : path(inFolder("tunvo_plugin.log")) {
        writeFile(inFolder("orvane.conf"), conf);
        log.setParam("module_name", "tunvo_plugin");
        EXPECT_EQ(0, log.Open(path.c_str(), "a"));
        EXPECT_EQ(0, log.Open(path.c_str(), "a")) << "open already: nothing to do";
    }
    std::string path;
    UFileErrorLog log;
};

TEST(UFileErrorLog, WhatTheReaderSeesThroughAReopen) {
    time_t now = time(nullptr);
    // local time = UTC - the zone's offset = 9 o'clock
    setenv("TZ", ("PWY" + std::to_string(gmtime(&now)->tm_hour - 9)).c_str(), 1);
    tzset();
    int next = open("/dev/null", O_RDONLY);  // the lowest free descriptor: the log file's next
    close(next);
    HomeLog home;
    EXPECT_EQ(FD_CLOEXEC, fcntl(next, F_GETFD)) << "programs started later do not inherit the file";
    unsigned char bytes[] = {'a', 0, 'b'};
    EXPECT_EQ(1, home.log.WriteLogByte(bytes, 1));
    EXPECT_EQ("a\n\n", readFile(home.path).substr(readFile(home.path).size() - 3)) << "in the file at once";
    EXPECT_EQ(3, home.log.WriteLogByte("dump: ", bytes, 3));
    EXPECT_EQ(-1, home.log.WriteLogByte(nullptr, 1)) << "no data: the write fails, the log goes on";
    home.log.Close();
    writeFile(home.inFolder("orvane.conf"), "tunvo_plugin_log_level=31\n");
    EXPECT_EQ(0, home.log.Open(home.path.c_str(), "a"));
    home.log.WriteLog(5, "five\n");
    // "2016-04-29, 9:05:07:000, 4711,4711,tunvo_plugin, ": local time, space-padded hour, no milliseconds.
    std::string pid = std::to_string(getpid()), rule = "={74}\n";
    char today[16];
    strftime(today, sizeof today, "%Y-%m-%d", localtime(&now));
    std::string h = today + std::string(", 9:\\d\\d:\\d\\d:000, ") + pid + "," + pid + ",tunvo_plugin, ";
    std::regex expected(rule + "Kernel version: .+\nSystem: Linux\nRelease: .+\nModel: .+\nNode name: .+\n" +
                        rule + h + "0,,,,  \n" + h + "0,,,,  =+\n" + h + "48,,,, current log level = 63\n" +
                        "a\n\n" + h + "4,,,, dump: a\\0b\n" +  // raw bytes
                        h + "0,,,,  \n" + h + "0,,,,  =+\n" + h + "5,,,, five\n");  // reopened at 31
    EXPECT_TRUE(std::regex_match(readFile(home.path), expected)) << readFile(home.path);
    EXPECT_EQ(3, home.log.WriteLogByte("no data: ", nullptr, 3)) << "the line is written without the bytes";
    struct stat info;
    EXPECT_EQ(0644u, stat(home.path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0);
    pid_t full = fork();  // a file that takes no more: the line is an error, not reported as written
    if (full == 0) {
        signal(SIGXFSZ, SIG_IGN);
        const struct rlimit size = {static_cast<rlim_t>(info.st_size), static_cast<rlim_t>(info.st_size)};
        _exit(setrlimit(RLIMIT_FSIZE, &size) == 0 && home.log.WriteLogItem("lost\n") == -1 ? 0 : 1);
    }
    int status = -1;
    waitpid(full, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ(5, home.log.WriteLogItem("kept\n")) << "a line written whole counts its bytes";
    setenv("HOME", "/proc/version", 1);  // not a folder: nothing can be made under it
    UFileErrorLog homeless;
    EXPECT_NE(0, homeless.Open("/proc/version/.Orvane/tunvo_plugin.log", "a"));
    EXPECT_EQ(-1, homeless.WriteLogItem("dropped\n")) << "an error, not a crash";
}

// Started by root for a user (a home that is someone else's), the log's folder and file go to the home's owner.
TEST(UFileErrorLog, ItsFolderAndFileBelongToTheHomesOwner) {
    if (geteuid() != 0) GTEST_SKIP() << "giving files away needs root";
    TempHome home;
    ASSERT_EQ(0, chown(home.path().c_str(), 4321, 8765));
    UFileErrorLog log;
    ASSERT_EQ(0, log.Open(home.inFolder("tunvo_plugin.log").c_str(), "a"));
    for (const std::string& path : {home.inFolder(""), home.inFolder("tunvo_plugin.log")}) {
        struct stat info = {};
        stat(path.c_str(), &info);
        EXPECT_EQ(std::make_pair(4321u, 8765u), std::make_pair(info.st_uid, info.st_gid)) << path;
    }
}

// A forked child, and its own child, write their own ids in their lines' headers, even within the second
// whose header the parent already made; the first id stays the one the log was made with.
TEST(UFileErrorLog, AForkedChildNamesItselfInItsLines) {
    HomeLog home;
    const auto writeOwnId = [&home](const char* who) {
        home.log.WriteLog(0, "%s %d\n", who, static_cast<int>(getpid()));
    };
    writeOwnId("parent");
    pid_t child = fork();
    if (child == 0) {
        writeOwnId("child");
        pid_t grandchild = fork();
        if (grandchild == 0) {
            writeOwnId("grandchild");
            _exit(0);
        }
        waitpid(grandchild, nullptr, 0);
        writeOwnId("child");
        _exit(0);
    }
    ASSERT_GT(child, 0);
    waitpid(child, nullptr, 0);
    writeOwnId("parent");
    const std::regex line(", (\\d+),(\\d+),tunvo_plugin, 0,,,, (parent|child|grandchild) (\\d+)\n");
    const std::string text = readFile(home.path), pid = std::to_string(getpid());
    std::vector<std::string> writers;
    for (std::sregex_iterator at(text.begin(), text.end(), line), end; at != end; ++at) {
        EXPECT_EQ(pid, (*at)[1]) << at->str();
        EXPECT_EQ((*at)[4], (*at)[2]) << at->str();
        writers.push_back((*at)[3]);
    }
    EXPECT_EQ((std::vector<std::string>{"parent", "child", "grandchild", "child", "parent"}), writers);
}

// Rotation is checked on every 50th write (opening writes 3 lines), against the limit in the settings.
// The new file has the system header (7 lines) and the banner.
TEST(UFileErrorLog, RotatesOnTheFiftiethWritePastTheSize) {
    const char* line = "0123456789012345678901234567890123456789\n";
    const size_t size50 = [line] {
        HomeLog home;
        for (int i = 0; i < 47; ++i) home.log.WriteLogStr(line);
        return readFile(home.path).size();
    }();
    // Lines are counted after the 7-line system header.
    const struct { const char* shows; size_t limit; int writes; bool blocked, backup; long lines; } rows[] = {
        {"at limit: kept", size50, 47, false, false, 50}, {"past: rotated", size50 - 1, 47, false, true, 3},
        {"49th: not checked", 10, 46, false, false, 49}, {"no backup: lost", 10, 47, true, false, 3}};
    for (const auto& row : rows) {
        HomeLog home("log_file_size=" + std::to_string(row.limit) + "\n");
        if (row.blocked) writeFile(home.path + ".bak/keep", "a folder in the way");
        for (int i = 0; i < row.writes; ++i) home.log.WriteLogStr(line);
        std::string live = readFile(home.path);
        EXPECT_EQ(7 + row.lines, std::count(live.begin(), live.end(), '\n')) << row.shows;
        EXPECT_EQ(row.backup ? size50 : 0, readFile(home.path + ".bak").size()) << row.shows;
    }
    struct Probe : UFileErrorLog { using UFileErrorLogBase::getFileSize; };
    unsigned long long size = 0;
    EXPECT_FALSE(Probe::getFileSize("/nonexistent", &size)) << "a missing file has no size to rotate at";
}

// Settings-file texts and the levels (the module's, the default) and rotation size they give.
TEST(LogSettings, ValuesReadFromTheFile) {
    const std::string d = "default_log_level=", m = "tunvo_plugin_log_level=";
    const struct { const char* shows; std::string text; unsigned module, all, rotation; } rows[] = {
        {"no keys", "# x\n", 63, 63, 5242880}, {"any separator", "log_file_size 2048\n", 63, 63, 2048},
        {"module line overrides", d + "40\n" + m + "31\nvigo_plugin_log_level=5\n", 31, 40, 5242880},
        {"commented, not a number", d + "31\n#" + m + "6\n" + m + "x\n", 31, 31, 5242880},
        {"last wins, but first for all", d + "5\n" + d + "6\n" + m + "7\n", 7, 5, 5242880},
        {"only a line's first 255", "#" + std::string(254, 'x') + d + "5\n" + d + "31\n", 31, 31, 5242880}};
    for (const auto& row : rows) {
        TempHome home;
        writeFile(home.inFolder("orvane.conf"), row.text);
        EXPECT_EQ(row.module, ULogSettings::getModuleLogLevel("tunvo_plugin")) << row.shows;
        EXPECT_EQ(row.all, ULogSettings::getLogLevel()) << row.shows;
        EXPECT_EQ(row.rotation, ULogSettings::getFileRotationSize()) << row.shows;
    }
}

// The default level is overwritten in place or appended; a missing file is made from a commented template.
TEST(LogSettings, SetLogLevelEditsTheFile) {
    const struct { const char* shows; std::string before, after; } rows[] = {
        {"in place, the first only", "a\ndefault_log_level=63\nnext\ndefault_log_level=48\n",
         "a\ndefault_log_level=31\nnext\ndefault_log_level=48\n"},
        {"missing: appended", "# nothing\n", "# nothing\n\ndefault_log_level=31\n"},
        {"no file: the template's keys", "", "default_log_level=31"}};
    for (const auto& row : rows) {
        TempHome home;
        const std::string conf = home.inFolder("orvane.conf");
        if (!row.before.empty()) writeFile(conf, row.before);
        ULogSettings::setModuleLogLevel("tunvo_plugin", 31);
        std::string after = readFile(conf);
        if (row.before.empty()) after = std::regex_replace(after, std::regex("#.*|\n"), "");  // no comments
        EXPECT_EQ(row.after, after) << row.shows;
    }
}

// On this platform a UMutex has no handle and never locks: Acquire fails, Release does nothing, and it is
// never owned, not even one asked to start owned.
TEST(UMutex, NeverLocksOnThisPlatform) {
    UMutex plain("passway-test"), owned(nullptr, true, "passway-test");
    for (UMutex* mutex : {&plain, &owned}) {
        EXPECT_FALSE(mutex->isOwned());
        EXPECT_EQ(-1, mutex->Acquire(nullptr, 0));
        EXPECT_EQ(0, mutex->Release());
        EXPECT_FALSE(mutex->isOwned());
    }
}

// A critical section counts how deep its thread holds it; an unlock too many does nothing, and one lock
// after another leaves it free for another thread.
TEST(UAutoCriticalSection, CountsItsDepthAndIgnoresAnUnlockTooMany) {
    UAutoCriticalSection section;
    section.Lock(), section.Lock();
    EXPECT_EQ(2, section.depth());
    section.Unlock(), section.Unlock(), section.Unlock();
    EXPECT_EQ(0, section.depth());
    std::thread([&section] { section.Lock(), section.Unlock(); }).join();
}

// Traces go to standard output as "[pid] text" when asked (a null format leaves the prefix, a long text is cut
// to 10,238 bytes in all); flags 0 stop them.
TEST(AfxTrace, WritesThePrefixedTextToStandardOutputOnlyWhenAsked) {
    TempHome home;
    const std::string out = home.path() + "/out";
    int saved = dup(1), file = open(out.c_str(), O_WRONLY | O_CREAT, 0600);
    dup2(file, 1), close(file);
    const DWORD flags = g_dwDebugFlags;
    g_dwDebugFlags = 1;
    AfxTrace("shown %d\n", 5);
    int (*untyped)(const char*, ...) = AfxTrace;  // no format check for the null format
    untyped(nullText());
    AfxTrace("%s", big.c_str());
    AfxTrace("%s%s", big.c_str(), big.c_str());
    g_dwDebugFlags = 0;
    AfxTrace("hidden\n");
    g_dwDebugFlags = flags;
    dup2(saved, 1), close(saved);
    char pid[16];
    snprintf(pid, sizeof pid, "[%4d] ", static_cast<int>(getpid()));
    const std::string cut = pid + big + std::string(pid).append(10238 - strlen(pid), 'x');
    const std::string traced = readFile(out);
    EXPECT_TRUE(pid + std::string("shown 5\n") + pid + cut == traced) << traced.size() << " bytes";
}

// Sleep ends when its time is up, whatever an earlier call left in errno.
TEST(Sleep, EndsWithAStaleInterruptInErrno) {
    errno = EINTR;
    Sleep(1);
}

// The log's local time is the second asked for, each time another one.
TEST(CachedLocaltime, IsTheSecondAskedFor) {
    for (long second : {1000000000L, 1000000000L, 1000000061L, 1000003600L}) {
        time_t when = second;
        struct tm expected = {};
        localtime_r(&when, &expected);
        const struct tm* got = cached_localtime(&second);
        EXPECT_EQ(std::make_tuple(expected.tm_hour, expected.tm_min, expected.tm_sec),
                  std::make_tuple(got->tm_hour, got->tm_min, got->tm_sec)) << second;
    }
}

// isFileExist tests mode bits, not file types: a FIFO has none of them.
TEST(IsFileExist, ModeBitsDecide) {
    TempHome home;
    const std::string fifo = home.path() + "/fifo";
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const std::pair<const char*, bool> rows[] = {{home.path().c_str(), true}, {"/proc/self/exe", true},
        {"/dev/null", true}, {fifo.c_str(), false}, {"/nonexistent", false}, {nullptr, false}};
    for (const auto& row : rows) EXPECT_EQ(row.second, isFileExist(row.first)) << row.first;
}

// An empty HOME is no home: the user's own folder comes from the password database.
TEST(UserFolder, AnEmptyHomeIsNone) {
    const std::string saved = getenv("HOME") != nullptr ? getenv("HOME") : "";
    setenv("HOME", "", 1);
    const std::string home = getCurrentUserHomeFolder() != nullptr ? getCurrentUserHomeFolder() : "(none)";
    setenv("HOME", saved.c_str(), 1);
    EXPECT_EQ(getpwuid(geteuid())->pw_dir, home);
}

// Unset, empty and 1,000-character values give the fallback.
TEST(SGetEnvironmentVariable, FallsBackForEmptyUnsetAndOverlongValues) {
    const std::string v999(999, 'v'), v1000(1000, 'v');
    const std::pair<const char*, std::string> rows[] = {
        {"value", "value"}, {"", "fb"}, {v999.c_str(), v999}, {v1000.c_str(), "fb"}, {nullptr, "fb"}};
    for (const auto& row : rows) {
        if (row.first) setenv("PASSWAY_VAR", row.first, 1); else unsetenv("PASSWAY_VAR");
        EXPECT_STREQ(row.second.c_str(), SGetEnvironmentVariable("PASSWAY_VAR", "fb")) << row.second.size();
    }
}

// Ids count from 1; the start and the pid stay. Each number is in its bytes' memory order.
TEST(SGenerateID, CountsFromOneAfterTheStartAndThePid) {
    const std::string first(SGenerateID()), second(SGenerateID());
    const DWORD pid = GetCurrentProcessId();
    EXPECT_EQ("0100000000000000-", first.substr(0, 17));
    EXPECT_EQ("0200000000000000" + first.substr(16), second);
    EXPECT_EQ(std::string(BinToHex(&pid, sizeof pid, 0)), first.substr(26)) << first;
}

}  // namespace
