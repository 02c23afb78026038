// The log file as its reader sees it (system header, banner, line headers, rotation) and the settings
// file that gives its levels and rotation size.
#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <regex>
#include <sys/stat.h>

#include "FileErrorLog"
#include "LogSettings"
#include "TempHome.h"

namespace {

// A log of module "tunvo_plugin" opened in a fresh home whose settings file holds `conf`.
struct HomeLog : TempHome {
    explicit HomeLog(const std::string& conf = "") : path(inFolder("tunvo_plugin.log")) {
        writeFile(inFolder("orvane.conf"), conf);
        log.setParam("module_name", "tunvo_plugin");
        EXPECT_EQ(0, log.Open(path.c_str(), "a"));
    }
    std::string path;
    UFileErrorLog log;
};

unsigned int modeOf(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

TEST(UFileErrorLog, WhatTheReaderSeesThroughAReopen) {
    time_t now = time(nullptr);
    struct tm utc;
    gmtime_r(&now, &utc);
    setenv("TZ", ("PWY" + std::to_string(utc.tm_hour - 9)).c_str(), 1);  // local = UTC - offset: 9 o'clock
    tzset();
    HomeLog home;
    unsigned char bytes[] = {'a', 0, 'b'};
    EXPECT_EQ(1, home.log.WriteLogByte(bytes, 1));
    EXPECT_EQ(3, home.log.WriteLogByte("dump: ", bytes, 3));
    EXPECT_EQ(-1, home.log.WriteLogByte(nullptr, 1)) << "no data: the write fails, the log goes on";
    home.log.Close();
    writeFile(home.inFolder("orvane.conf"), "tunvo_plugin_log_level=31\n");
    EXPECT_EQ(0, home.log.Open(home.path.c_str(), "a"));
    writeFile(home.inFolder("orvane.conf"), "");
    EXPECT_EQ(0, home.log.Open(home.path.c_str(), "a")) << "already open: the settings are not read again";
    home.log.WriteLog(5, "five\n");
    // "2016-04-29, 9:05:07:000, 4711,4711,tunvo_plugin, ": local time, space-padded hour, no milliseconds.
    std::string pid = std::to_string(getpid()), rule = "={74}\n";
    std::string h = "\\d{4}-\\d\\d-\\d\\d, 9:\\d\\d:\\d\\d:000, " + pid + "," + pid + ",tunvo_plugin, ";
    std::regex expected(rule + "Kernel version: .+\nSystem: Linux\nRelease: .+\nModel: .+\nNode name: .+\n" +
                        rule + h + "0,,,,  \n" + h + "0,,,,  =+\n" + h + "48,,,, current log level = 63\n" +
                        "a\n\n" + h + "4,,,, dump: a\\0b\n" +                                  // raw bytes
                        h + "0,,,,  \n" + h + "0,,,,  =+\n" + h + "5,,,, five\n");             // reopened at 31
    EXPECT_TRUE(std::regex_match(readFile(home.path), expected)) << readFile(home.path);
    EXPECT_EQ(0644u, modeOf(home.path));
}

// Rotation is checked on every 50th write (opening writes 3 lines); the limit is relative to the size
// after 50 writes. The new file has the system header (7 lines) and the banner.
TEST(UFileErrorLog, RotatesOnTheFiftiethWritePastTheSize) {
    const char* line = "0123456789012345678901234567890123456789\n";
    size_t size50;
    {
        HomeLog home;
        for (int i = 0; i < 47; ++i) home.log.WriteLogStr(line);
        size50 = readFile(home.path).size();
    }
    struct Row { const char* shows; int limit, writes; bool blocked; long lines; bool backup; };
    const Row rows[] = {
        {"at the limit: kept", 0, 47, false, 7 + 50, false},
        {"past it, 49th write: kept", -1, 46, false, 7 + 49, false},
        {"past it, 50th write: rotated", -1, 47, false, 7 + 3, true},
        {"no backup possible: lost", -1, 47, true, 7 + 3, false},
    };
    for (const Row& row : rows) {
        HomeLog home("log_file_size=" + std::to_string(size50 + row.limit) + "\n");
        if (row.blocked) writeFile(home.path + ".bak/keep", "a folder in the way");
        for (int i = 0; i < row.writes; ++i) home.log.WriteLogStr(line);
        std::string live = readFile(home.path);
        EXPECT_EQ(row.lines, std::count(live.begin(), live.end(), '\n')) << row.shows;
        EXPECT_EQ(row.backup ? size50 : 0, readFile(home.path + ".bak").size()) << row.shows;
    }
    struct Probe : UFileErrorLog { using UFileErrorLogBase::getFileSize; };
    unsigned long long size = 0;
    EXPECT_FALSE(Probe::getFileSize("/nonexistent", &size)) << "a missing file has no size to rotate at";
}

TEST(UFileErrorLog, ProgramsStartedLaterDoNotInheritTheFile) {
    int next = dup(0);  // the lowest free descriptor: the log file's
    close(next);
    HomeLog home;
    EXPECT_EQ(FD_CLOEXEC, fcntl(next, F_GETFD));
}

TEST(UFileErrorLog, UnwritableHomeIsAnErrorNotACrash) {
    setenv("HOME", "/proc/version", 1);  // not a folder: nothing can be made under it
    UFileErrorLog log;
    EXPECT_NE(0, log.Open("/proc/version/.Orvane/tunvo_plugin.log", "a"));
    EXPECT_EQ(-1, log.WriteLogItem("dropped\n"));
    EXPECT_EQ(63u, ULogSettings::getModuleLogLevel("tunvo_plugin"));
    EXPECT_EQ(-1, errorLog->WriteLogItem("the process log exists from load time, not open\n"));
}

// Settings-file texts and the levels (the module's, the default) and rotation size they give.
TEST(LogSettings, ValuesReadFromTheFile) {
    const std::string longLine = "#" + std::string(254, 'x') + "default_log_level=5\n", m = "tunvo_plugin_log_level=";
    std::string junk;
    for (int i = 0; i < 5000; ++i) junk += static_cast<char>((i * 7919) % 256);
    struct Row { const char* shows; std::string text; unsigned module, all, rotation; };
    const Row rows[] = {
        {"no keys: defaults", "# x\n", 63, 63, 5242880},
        {"module line overrides", "default_log_level=40\n" + m + "31\nvigo_plugin_log_level=5\n", 31, 40, 5242880},
        {"commented, not a number", "default_log_level=31\n#" + m + "6\n" + m + "x\n", 31, 31, 5242880},
        {"last wins, but first for all", "default_log_level=5\ndefault_log_level=6\n" + m + "7\n", 7, 5, 5242880},
        {"keys start lines exactly", " default_log_level=5\nDEFAULT_LOG_LEVEL=5\n", 63, 63, 5242880},
        {"rotation size", "log_file_size=1048576\n", 63, 63, 1048576},
        {"any separator", "log_file_size 2048\n", 63, 63, 2048},
        {"first size line decides", "log_file_size=\nlog_file_size=9\n", 63, 63, 5242880},
        {"only a line's first 255 hold keys", longLine + "default_log_level=31\n", 31, 31, 5242880},
        {"junk", junk, 63, 63, 5242880},
    };
    for (const Row& row : rows) {
        TempHome home;
        writeFile(home.inFolder("orvane.conf"), row.text);
        EXPECT_EQ(row.module, ULogSettings::getModuleLogLevel("tunvo_plugin")) << row.shows;
        EXPECT_EQ(row.all, ULogSettings::getLogLevel()) << row.shows;
        EXPECT_EQ(row.rotation, ULogSettings::getFileRotationSize()) << row.shows;
    }
}

// The default level is overwritten in place, whatever that does to the next line, or appended; a missing
// file is made from a commented template, 0644 in a 0755 folder (asking the rotation size makes nothing).
TEST(LogSettings, SetLogLevelEditsTheFile) {
    struct Row { const char* shows; std::string before; unsigned level; std::string after; };
    const Row rows[] = {
        {"shorter leaves a byte", "a\ndefault_log_level=63\nnext\n", 7, "a\ndefault_log_level=7\n\nnext\n"},
        {"longer runs on", "a\ndefault_log_level=63\nnext\n", 1000, "a\ndefault_log_level=1000\nxt\n"},
        {"missing: appended", "# nothing\n", 31, "# nothing\n\ndefault_log_level=31\n"},
        {"no file: the template", "", 31, "default_log_level=31"},
    };
    for (const Row& row : rows) {
        TempHome home;
        const std::string conf = home.inFolder("orvane.conf");
        if (!row.before.empty()) writeFile(conf, row.before);
        EXPECT_EQ(5242880u, ULogSettings::getFileRotationSize());
        EXPECT_EQ(!row.before.empty(), modeOf(home.path() + "/.Orvane") != 0) << row.shows;
        ULogSettings::setModuleLogLevel("tunvo_plugin", row.level);
        std::string after = readFile(conf);
        if (row.before.empty()) after = std::regex_replace(after, std::regex("#.*|\n"), "");  // the keys alone
        EXPECT_EQ(row.after, after) << row.shows;
        EXPECT_EQ(0755u, modeOf(home.path() + "/.Orvane")) << row.shows;
        EXPECT_EQ(0644u, modeOf(conf)) << row.shows;
    }
}

}  // namespace
