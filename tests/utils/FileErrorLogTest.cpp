// The log file as a person reading it sees it: system header, banner, line headers, levels, rotation.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pwd.h>
#include <regex>
#include <string>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <vector>

#include "FileErrorLog"
#include "Platform"
#include "TempHome.h"
#include "UserFolder"

namespace {

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    size_t start = 0;
    for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        out.push_back(text.substr(start, nl - start));
    return out;
}

std::string systemHeader() {
    struct utsname u;
    uname(&u);
    std::string rule(74, '=');
    return rule + "\nKernel version: " + u.version + "\nSystem: " + u.sysname + "\nRelease: " + u.release +
           "\nModel: " + u.machine + "\nNode name: " + u.nodename + "\n" + rule + "\n";
}

// "2016-04-29, 9:05:07:000, 4711,4711,tunvo_plugin, " followed by the body.
std::regex headerThen(const std::string& body) {
    std::string pid = std::to_string(getpid());
    return std::regex("\\d{4}-\\d{2}-\\d{2},[ 12]\\d:\\d{2}:\\d{2}:000, " + pid + "," + pid + ",tunvo_plugin, " + body);
}

struct OpenLog {
    explicit OpenLog(const TempHome& home, const char* mode = "a") : path(home.inFolder("tunvo_plugin.log")) {
        log.setParam("module_name", "tunvo_plugin");
        result = log.Open(path.c_str(), mode);
    }
    std::string path;
    UFileErrorLog log;
    int result;
};

TEST(UFileErrorLog, NewFileGetsTheSystemHeaderThenTheBanner) {
    TempHome home;
    OpenLog open(home);
    ASSERT_EQ(0, open.result);
    open.log.WriteLogStr("[PluginOpenLog] Plugin version:'7135.2016.429.1'\n");
    std::string text = readFile(open.path);
    ASSERT_EQ(0u, text.find(systemHeader()));
    std::vector<std::string> body = lines(text.substr(systemHeader().size()));
    ASSERT_EQ(4u, body.size());
    EXPECT_TRUE(std::regex_match(body[0], headerThen("0,,,,  "))) << body[0];
    EXPECT_TRUE(std::regex_match(body[1], headerThen("0,,,,  =====================================")));
    EXPECT_TRUE(std::regex_match(body[2], headerThen("48,,,, current log level = 63"))) << body[2];
    EXPECT_TRUE(std::regex_match(body[3], headerThen("0,,,, \\[PluginOpenLog\\] Plugin version:'7135.2016.429.1'")));

    struct stat info;
    ASSERT_EQ(0, stat(open.path.c_str(), &info));
    EXPECT_EQ(0644u, info.st_mode & 07777);
}

TEST(UFileErrorLog, ReopenAppendsBannerOnlyAndOpenIsOnce) {
    TempHome home;
    { OpenLog first(home); }
    writeFile(home.inFolder("orvane.conf"), "default_log_level=31\n");
    OpenLog second(home);
    EXPECT_EQ(31, second.log.GetLogLevel());
    std::string text = readFile(second.path);
    EXPECT_EQ(0u, text.find(systemHeader()));
    EXPECT_EQ(std::string::npos, text.find("Kernel version: ", text.find("Kernel version: ") + 1))
        << "one system header for both opens";
    EXPECT_EQ(std::string::npos, text.find("current log level = 31")) << "48 does not pass at 31";

    writeFile(home.inFolder("orvane.conf"), "default_log_level=63\n");
    EXPECT_EQ(0, second.log.Open(second.path.c_str(), "a"));
    EXPECT_EQ(31, second.log.GetLogLevel()) << "a second Open neither reopens nor rereads";
}

TEST(UFileErrorLog, LevelRulesAt31And63) {
    TempHome home;
    writeFile(home.inFolder("orvane.conf"), "default_log_level=31\n");
    OpenLog open(home);
    open.log.WriteLog(5, "five\n");
    open.log.WriteLog(48, "forty-eight\n");
    open.log.SetLogLevel(63);
    open.log.WriteLog(48, "forty-eight again\n");
    std::string text = readFile(open.path);
    EXPECT_NE(std::string::npos, text.find(", 5,,,, five\n"));
    EXPECT_EQ(std::string::npos, text.find("forty-eight\n"));
    EXPECT_NE(std::string::npos, text.find(", 0,,,, log level has been changed to 63\n"));
    EXPECT_NE(std::string::npos, text.find(", 48,,,, forty-eight again\n"));
}

TEST(UFileErrorLog, RawBytesWithAndWithoutPrefix) {
    TempHome home;
    OpenLog open(home);
    unsigned char bytes[] = {'a', 0, 'b'};
    EXPECT_EQ(3, open.log.WriteLogByte(bytes, 3));
    EXPECT_EQ(3, open.log.WriteLogByte("dump: ", bytes, 3));
    std::string text = readFile(open.path);
    EXPECT_NE(std::string::npos, text.find(std::string("a\0b\n\n", 5)));
    EXPECT_NE(std::string::npos, text.find(std::string(", 4,,,, dump: a\0b\n", 18)));
}

// Size of a log after its banner and `writes` lines of 40 characters, with rotation far away.
unsigned long long sizeAfter(int writes) {
    TempHome home;
    OpenLog open(home);
    for (int i = 0; i < writes; ++i) open.log.WriteLogStr("0123456789012345678901234567890123456789\n");
    struct stat info;
    stat(open.path.c_str(), &info);
    return static_cast<unsigned long long>(info.st_size);
}

TEST(UFileErrorLog, RotatesOnTheFiftiethWritePastTheSize) {
    // Opening writes three lines (the banner and the level line at 63): 47 more make 50.
    const unsigned long long size50 = sizeAfter(47);
    for (unsigned long long limit : {size50, size50 - 1}) {
        TempHome home;
        writeFile(home.inFolder("orvane.conf"), "log_file_size=" + std::to_string(limit) + "\n");
        OpenLog open(home);
        for (int i = 0; i < 46; ++i) open.log.WriteLogStr("0123456789012345678901234567890123456789\n");
        EXPECT_FALSE(isFileExist((open.path + ".bak").c_str())) << "not before the 50th write";
        open.log.WriteLogStr("0123456789012345678901234567890123456789\n");
        bool rotated = limit < size50;
        EXPECT_EQ(rotated, isFileExist((open.path + ".bak").c_str())) << "limit " << limit << " size " << size50;
        if (rotated) {
            EXPECT_EQ(size50, readFile(open.path + ".bak").size());
            std::string fresh = readFile(open.path);
            EXPECT_EQ(0u, fresh.find(systemHeader())) << "the new file starts with the system header";
            EXPECT_EQ(3u, lines(fresh.substr(systemHeader().size())).size()) << "and the banner";
        }
    }
}

TEST(UFileErrorLog, WithoutABackupTheLogStartsAfresh) {
    TempHome home;
    writeFile(home.inFolder("orvane.conf"), "log_file_size=10\n");
    writeFile(home.inFolder("tunvo_plugin.log.bak/keep"), "a folder in the way of the backup");
    OpenLog open(home);
    for (int i = 0; i < 47; ++i) open.log.WriteLogStr("line to be lost\n");
    std::string text = readFile(open.path);
    EXPECT_EQ(0u, text.find(systemHeader()));
    EXPECT_EQ(std::string::npos, text.find("line to be lost")) << "the old lines are deleted";
    EXPECT_EQ("a folder in the way of the backup", readFile(home.inFolder("tunvo_plugin.log.bak/keep")));
}

TEST(UFileErrorLog, FileIsCloseOnExecAndNamesDefault) {
    TempHome home;
    OpenLog open(home);
    int flags = -1;
    for (int fd = 0; fd < 1024; ++fd) {
        char link[64], target[4096] = {};
        snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
        if (readlink(link, target, sizeof target - 1) > 0 && open.path == target) flags = fcntl(fd, F_GETFD);
    }
    ASSERT_NE(-1, flags);
    EXPECT_TRUE(flags & FD_CLOEXEC);

    char cwd[4096];
    ASSERT_NE(nullptr, getcwd(cwd, sizeof cwd));
    ASSERT_EQ(0, chdir(home.path().c_str()));
    UFileErrorLog unnamed;
    EXPECT_EQ(0, unnamed.Open("", "a"));
    EXPECT_STREQ("log.txt", unnamed.GetLogName());
    EXPECT_TRUE(isFileExist((home.path() + "/log.txt").c_str()));
    ASSERT_EQ(0, chdir(cwd));
}

TEST(UFileErrorLog, SingleDigitHoursAreSpacePadded) {
    // A time zone that puts the local time in the 9 o'clock hour right now.
    time_t now = time(nullptr);
    struct tm utc;
    gmtime_r(&now, &utc);
    std::string zone = "PWY" + std::to_string(utc.tm_hour - 9);  // POSIX: local = UTC - offset
    setenv("TZ", zone.c_str(), 1);
    tzset();
    TempHome home;
    OpenLog open(home);
    std::vector<std::string> body = lines(readFile(open.path).substr(systemHeader().size()));
    ASSERT_FALSE(body.empty());
    EXPECT_EQ(", 9:", body[0].substr(10, 4)) << body[0];
    unsetenv("TZ");
    tzset();
}

TEST(UserFolder, WithoutHomeThePasswordDatabaseDecides) {
    unsetenv("HOME");
    const struct passwd* entry = getpwuid(geteuid());
    ASSERT_NE(nullptr, entry);
    EXPECT_STREQ(entry->pw_dir, getCurrentUserHomeFolder());
    setenv("HOME", "", 1);
    EXPECT_STREQ(entry->pw_dir, getCurrentUserHomeFolder()) << "an empty HOME counts as missing";
}

TEST(UFileErrorLog, UnwritableHomeIsAnErrorNotACrash) {
    setenv("HOME", "/proc/version", 1);
    UFileErrorLog log;
    EXPECT_NE(0, log.Open("/proc/version/.Orvane/tunvo_plugin.log", "a"));
    EXPECT_EQ(-1, log.WriteLogItem("dropped\n"));
    EXPECT_EQ(0, log.Close());
}

TEST(ProcessLog, IsTheCommonLibraryFromLoadTime) {
    EXPECT_EQ(static_cast<IUErrorLog*>(&gCommonLibrary), errorLog);
    EXPECT_FALSE(gCommonLibrary.isOpen());
    EXPECT_EQ(-1, errorLog->WriteLogItem("nothing is open\n"));
}

}  // namespace
