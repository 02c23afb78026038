// The plug-in's log as a support engineer reads it: where it is, its banner, and what each call writes.
#include <gtest/gtest.h>

#include <string>
#include <unistd.h>

#include "ErrorLog"
#include "PluginLog.h"
#include "TempHome.h"

namespace {

size_t count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

const char kDashes[] = "[PluginOpenLog] -------------------------------------------------------------\n";

TEST(PluginLog, EachOpenWritesTheBannerTheFileHeaderOnce) {
    TempHome home;
    PluginOpenLog();
    PluginWriteLog(5, "[PluginInstance_URLNotify] aPlugin=%d, url=%s, reason=%d, type=%d\n", 1, "javascript:x()", 0, 2);
    PluginCloseLog();
    PluginWriteLog(0, "[nowhere] dropped while closed\n");
    PluginOpenLog();  // the next instance
    PluginCloseLog();

    std::string text = readFile(home.inFolder("tunvo_plugin.log"));
    EXPECT_EQ(1u, count(text, "Kernel version: "));
    EXPECT_EQ(2u, count(text, ",tunvo_plugin, 0,,,, [PluginOpenLog] Plugin name:'Orvane Passway plugin'\n"));
    EXPECT_EQ(2u, count(text, "0,,,, [PluginOpenLog] Plugin version:'7135.2016.429.1'\n"));
    EXPECT_EQ(2u, count(text,
                        "0,,,, [PluginOpenLog] Plugin mime:'application/x-orvane-sslvpn:xvpn:Orvane Passway plugin'\n"));
    EXPECT_EQ(4u, count(text, std::string("0,,,, ") + kDashes));
    EXPECT_EQ(1u, count(text, "0,,,, [PluginInstance_URLNotify] aPlugin=1, url=javascript:x(), reason=0, type=2\n"))
        << "level 5 is written, with level column 0";
    EXPECT_EQ(0u, count(text, "dropped while closed"));
}

TEST(PluginLog, LowestLevelStillWritesEveryLine) {
    TempHome home;
    writeFile(home.inFolder("orvane.conf"), "default_log_level=0\n");
    PluginOpenLog();
    EXPECT_EQ(1, errorLog->GetLogLevel()) << "0 is stored as 1";
    PluginWriteLog(5, "[test] still written\n");
    PluginCloseLog();
    EXPECT_EQ(1u, count(readFile(home.inFolder("tunvo_plugin.log")), "0,,,, [test] still written\n"));
}

TEST(PluginLog, LongLinesAreWrittenWhole) {
    TempHome home;
    PluginOpenLog();
    std::string big(100000, 'z');
    PluginWriteLog(3, "[test] %s\n", big.c_str());
    PluginCloseLog();
    EXPECT_EQ(1u, count(readFile(home.inFolder("tunvo_plugin.log")), "[test] " + big + "\n"));
}

TEST(PluginLog, WithoutAHomeFolderNothingIsWrittenAnywhere) {
    TempHome home;
    setenv("HOME", "/proc/version", 1);
    PluginOpenLog();
    PluginWriteLog(0, "[test] dropped\n");
    EXPECT_EQ(0, PluginCloseLog());
    IUErrorLog* saved = errorLog;
    errorLog = nullptr;
    PluginOpenLog();
    PluginWriteLog(0, "[test] no log at all\n");
    EXPECT_EQ(0, PluginCloseLog());
    errorLog = saved;
}

}  // namespace
