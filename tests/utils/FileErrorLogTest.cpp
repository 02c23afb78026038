// The log file as its reader sees it (system header, banner, line headers, rotation) and the settings
// file that gives its levels and rotation size.
#include <gtest/gtest.h>

#include <algorithm>
#include <fcntl.h>
#include <regex>
#include <sys/stat.h>

#include "FileErrorLog"
#include "LogSettings"
#include "TestSupport.h"

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

TEST(UFileErrorLog, WhatTheReaderSeesThroughAReopen) {
    time_t now = time(nullptr);
    setenv("TZ", ("PWY" + std::to_string(gmtime(&now)->tm_hour - 9)).c_str(), 1);  // local = UTC - offset = 9h
    tzset();
    int next = open("/dev/null", O_RDONLY);  // the lowest free descriptor: the log file's next
    close(next);
    HomeLog home;
    EXPECT_EQ(FD_CLOEXEC, fcntl(next, F_GETFD)) << "programs started later do not inherit the file";
    unsigned char bytes[] = {'a', 0, 'b'};
    EXPECT_EQ(1, home.log.WriteLogByte(bytes, 1));
    EXPECT_EQ(3, home.log.WriteLogByte("dump: ", bytes, 3));
    EXPECT_EQ(-1, home.log.WriteLogByte(nullptr, 1)) << "no data: the write fails, the log goes on";
    home.log.Close();
    writeFile(home.inFolder("orvane.conf"), "tunvo_plugin_log_level=31\n");
    EXPECT_EQ(0, home.log.Open(home.path.c_str(), "a"));
    home.log.WriteLog(5, "five\n");
    // "2016-04-29, 9:05:07:000, 4711,4711,tunvo_plugin, ": local time, space-padded hour, no milliseconds.
    std::string pid = std::to_string(getpid()), rule = "={74}\n";
    std::string h = "\\d{4}-\\d\\d-\\d\\d, 9:\\d\\d:\\d\\d:000, " + pid + "," + pid + ",tunvo_plugin, ";
    std::regex expected(rule + "Kernel version: .+\nSystem: Linux\nRelease: .+\nModel: .+\nNode name: .+\n" +
                        rule + h + "0,,,,  \n" + h + "0,,,,  =+\n" + h + "48,,,, current log level = 63\n" +
                        "a\n\n" + h + "4,,,, dump: a\\0b\n" +                                  // raw bytes
                        h + "0,,,,  \n" + h + "0,,,,  =+\n" + h + "5,,,, five\n");             // reopened at 31
    EXPECT_TRUE(std::regex_match(readFile(home.path), expected)) << readFile(home.path);
    struct stat info;
    EXPECT_EQ(0644u, stat(home.path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0);
    setenv("HOME", "/proc/version", 1);  // not a folder: nothing can be made under it
    UFileErrorLog homeless;
    EXPECT_NE(0, homeless.Open("/proc/version/.Orvane/tunvo_plugin.log", "a"));
    EXPECT_EQ(-1, homeless.WriteLogItem("dropped\n")) << "an error, not a crash";
}

// Rotation is checked on every 50th write (opening writes 3 lines), against the limit in the settings.
// The new file has the system header (7 lines) and the banner.
TEST(UFileErrorLog, RotatesOnTheFiftiethWritePastTheSize) {
    const char* line = "0123456789012345678901234567890123456789\n";
    size_t size50;
    {
        HomeLog home;
        for (int i = 0; i < 47; ++i) home.log.WriteLogStr(line);
        size50 = readFile(home.path).size();
    }
    struct Row { const char* shows; size_t limit; int writes; bool blocked; long lines; bool backup; };
    const Row rows[] = {
        {"at the limit: kept", size50, 47, false, 7 + 50, false},
        {"past it: rotated", size50 - 1, 47, false, 7 + 3, true},
        {"49th write: not checked", 10, 46, false, 7 + 49, false},
        {"no backup possible: lost", 10, 47, true, 7 + 3, false},
    };
    for (const Row& row : rows) {
        HomeLog home("log_file_size=" + std::to_string(row.limit) + "\n");
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

// Settings-file texts and the levels (the module's, the default) and rotation size they give.
TEST(LogSettings, ValuesReadFromTheFile) {
    const std::string longLine = "#" + std::string(254, 'x') + "default_log_level=5\n", m = "tunvo_plugin_log_level=";
    struct Row { const char* shows; std::string text; unsigned module, all, rotation; };
    const Row rows[] = {
        {"no keys: defaults", "# x\n", 63, 63, 5242880},
        {"module line overrides", "default_log_level=40\n" + m + "31\nvigo_plugin_log_level=5\n", 31, 40, 5242880},
        {"commented, not a number", "default_log_level=31\n#" + m + "6\n" + m + "x\n", 31, 31, 5242880},
        {"last wins, but first for all", "default_log_level=5\ndefault_log_level=6\n" + m + "7\n", 7, 5, 5242880},
        {"any separator", "log_file_size 2048\n", 63, 63, 2048},
        {"only a line's first 255 hold keys", longLine + "default_log_level=31\n", 31, 31, 5242880},
    };
    for (const Row& row : rows) {
        TempHome home;
        writeFile(home.inFolder("orvane.conf"), row.text);
        EXPECT_EQ(row.module, ULogSettings::getModuleLogLevel("tunvo_plugin")) << row.shows;
        EXPECT_EQ(row.all, ULogSettings::getLogLevel()) << row.shows;
        EXPECT_EQ(row.rotation, ULogSettings::getFileRotationSize()) << row.shows;
    }
}

// The default level is overwritten in place or appended; a missing file is made from a commented template.
TEST(LogSettings, SetLogLevelEditsTheFile) {
    struct Row { const char* shows; std::string before, after; };
    const Row rows[] = {
        {"in place", "a\ndefault_log_level=63\nnext\n", "a\ndefault_log_level=31\nnext\n"},
        {"missing: appended", "# nothing\n", "# nothing\n\ndefault_log_level=31\n"},
        {"no file: the template's keys", "", "default_log_level=31"},
    };
    for (const Row& row : rows) {
        TempHome home;
        const std::string conf = home.inFolder("orvane.conf");
        if (!row.before.empty()) writeFile(conf, row.before);
        ULogSettings::setModuleLogLevel("tunvo_plugin", 31);
        std::string after = readFile(conf);
        if (row.before.empty()) after = std::regex_replace(after, std::regex("#.*|\n"), "");  // no comments
        EXPECT_EQ(row.after, after) << row.shows;
    }
}

}  // namespace
