// The settings file as a user or a support engineer sees it: its template, the levels it gives, and
// the in-place edits.
#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "LogSettings"
#include "TempHome.h"

namespace {

const char kTemplate[] =
    "##########################################################################\n"
    "# This file contain Orvane client components settings\n"
    "# \n"
    "# \n"
    "# BASIC     31   Value use to provide basic logs which include user friendly messages, warnings, and errors.\n"
    "#                Valid values are in the range 0 to 31, the highest setting is 31.\n"
    "# EXTENDED  63   Set to provide extended log level.\n"
    "#                Valid values are in the range of 32 to 63, the highest setting is 63.\n"
    "##########################################################################\n\n"
    "\n\n"
    "# default log level for all orvane components\n"
    "default_log_level=63\n\n"
    "\n\n"
    "# tunvo core log level. This setting is used to override the default log level set by default_log_level "
    "setting for tunvo component\n"
    "#tunvo_log_level=63\n\n"
    "\n\n"
    "# tunvo NPAPI plugin log level. This setting is used to override the default log level set by "
    "default_log_level setting for tunvo NPAPI plugin\n"
    "#tunvo_plugin_log_level=63\n\n"
    "\n\n"
    "# endpoint secutity NPAPI plugin. This setting is used to override the default log level set by "
    "default_log_level setting for endpoint secutity NPAPI plugin\n"
    "#vigo_plugin_log_level=63\n\n"
    "\n\n"
    "# Fendral. This setting is used to override the default log level set by default_log_level setting for "
    "Fednral application\n"
    "#fendral_log_level=63\n\n";

mode_t modeOf(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0;
}

TEST(LogSettings, MissingFileIsCreatedFromTheTemplate) {
    TempHome home;
    EXPECT_EQ(5242880u, ULogSettings::getFileRotationSize());
    EXPECT_EQ("", readFile(home.inFolder("orvane.conf"))) << "the rotation size alone creates nothing";

    EXPECT_EQ(63u, ULogSettings::getModuleLogLevel("tunvo_plugin"));
    EXPECT_EQ(kTemplate, readFile(home.inFolder("orvane.conf")));
    EXPECT_EQ(0755u, modeOf(home.path() + "/.Orvane"));
    EXPECT_EQ(0644u, modeOf(home.inFolder("orvane.conf")));
}

TEST(LogSettings, ModuleLinesOverrideTheDefault) {
    TempHome home;
    const std::string conf = home.inFolder("orvane.conf");
    writeFile(conf, "default_log_level=63\ntunvo_plugin_log_level=31\n");
    EXPECT_EQ(31u, ULogSettings::getModuleLogLevel("tunvo_plugin"));
    EXPECT_EQ(63u, ULogSettings::getModuleLogLevel("vigo_plugin"));
    EXPECT_EQ(63u, ULogSettings::getLogLevel());

    writeFile(conf, "default_log_level=31\n#tunvo_plugin_log_level=63\ntunvo_plugin_log_level=abc\n");
    EXPECT_EQ(31u, ULogSettings::getModuleLogLevel("tunvo_plugin")) << "commented or not a number: the default";
    writeFile(conf, "tunvo_plugin_log_level=5\ndefault_log_level=31\ntunvo_plugin_log_level=7\n");
    EXPECT_EQ(7u, ULogSettings::getModuleLogLevel("tunvo_plugin")) << "the last matching line wins";
    writeFile(conf, " default_log_level=5\nDEFAULT_LOG_LEVEL=5\ndefault_log_level =5\n");
    EXPECT_EQ(63u, ULogSettings::getLogLevel()) << "keys start the line, exactly";
}

TEST(LogSettings, RotationSizeKeyTakesAnySeparator) {
    TempHome home;
    const std::string conf = home.inFolder("orvane.conf");
    writeFile(conf, "log_file_size=1048576\n");
    EXPECT_EQ(1048576u, ULogSettings::getFileRotationSize());
    writeFile(conf, "log_file_size 2048\n");
    EXPECT_EQ(2048u, ULogSettings::getFileRotationSize());
    writeFile(conf, "log_file_size=\nlog_file_size=9\n");
    EXPECT_EQ(5242880u, ULogSettings::getFileRotationSize()) << "the first key line decides";
}

TEST(LogSettings, SetLogLevelOverwritesInPlace) {
    TempHome home;
    const std::string conf = home.inFolder("orvane.conf");
    ULogSettings::setLogLevel(63, 0);
    ULogSettings::setLogLevel(31, 0);
    std::string expected = kTemplate;
    expected.replace(expected.find("default_log_level=63"), 20, "default_log_level=31");
    EXPECT_EQ(expected, readFile(conf));

    writeFile(conf, "a\ndefault_log_level=63\nnext\n");
    ULogSettings::setModuleLogLevel("tunvo_plugin", 7);
    EXPECT_EQ("a\ndefault_log_level=7\n\nnext\n", readFile(conf)) << "the shorter line leaves its last byte";
    ULogSettings::setLogLevel(1000, 0);
    EXPECT_EQ("a\ndefault_log_level=1000\nxt\n", readFile(conf)) << "the longer line runs into the next";

    writeFile(conf, "# nothing here\n");
    ULogSettings::setLogLevel(31, 0);
    EXPECT_EQ("# nothing here\n\ndefault_log_level=31\n", readFile(conf));
}

TEST(LogSettings, LongLinesAndJunkGiveDefinedResults) {
    TempHome home;
    const std::string conf = home.inFolder("orvane.conf");
    // A comment of 300 characters whose piece after the 255th starts like a key.
    std::string comment = "#" + std::string(254, 'x') + "default_log_level=5" + std::string(26, 'y') + "\n";
    writeFile(conf, comment + "default_log_level=31\n");
    EXPECT_EQ(31u, ULogSettings::getLogLevel());
    ULogSettings::setLogLevel(40, 0);
    EXPECT_EQ(comment + "default_log_level=40\n", readFile(conf));

    std::string junk;
    for (int i = 0; i < 5000; ++i) junk += static_cast<char>((i * 7919) % 256);
    writeFile(conf, junk);
    EXPECT_EQ(63u, ULogSettings::getModuleLogLevel("tunvo_plugin"));
    EXPECT_EQ(5242880u, ULogSettings::getFileRotationSize());
}

TEST(LogSettings, FilesBelongToTheOwnerOfTheHomeFolder) {
    if (geteuid() != 0) GTEST_SKIP() << "giving files to another user needs root";
    TempHome home;
    ASSERT_EQ(0, chown(home.path().c_str(), 65534, 65534));
    ULogSettings::setLogLevel(31, 0);
    struct stat folder, file;
    ASSERT_EQ(0, stat((home.path() + "/.Orvane").c_str(), &folder));
    ASSERT_EQ(0, stat(home.inFolder("orvane.conf").c_str(), &file));
    EXPECT_EQ(65534u, folder.st_uid);
    EXPECT_EQ(65534u, file.st_uid);
    EXPECT_EQ(65534u, file.st_gid);
}

TEST(LogSettings, UnwritableHomeLeavesTheDefaults) {
    setenv("HOME", "/proc/version", 1);  // not a folder: nothing can be made under it
    EXPECT_EQ(63u, ULogSettings::getModuleLogLevel("tunvo_plugin"));
    ULogSettings::setLogLevel(31, 0);
    EXPECT_EQ(5242880u, ULogSettings::getFileRotationSize());
}

}  // namespace
