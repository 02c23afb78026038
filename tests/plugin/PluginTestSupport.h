// What the plug-in tests share: the test plug-in in a fake browser, a temporary home, the test root.
#ifndef PASSWAY_TESTS_PLUGINTESTSUPPORT_H
#define PASSWAY_TESTS_PLUGINTESTSUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <vector>

#include "FakeBrowser.h"
#include "RunCommand.h"
#include "TempHome.h"

// The test plug-in's install root (build/testroot/) and the service the tests install there.
const std::string kRoot = PASSWAY_TEST_ROOT;
inline int servicePid() { return atoi(readFile(kRoot + "var/run/tunvo.pid").c_str()); }
inline void stopService() {
    if (servicePid() > 0) kill(servicePid(), SIGKILL);
    unlink((kRoot + "var/run/tunvo.pid").c_str());
}
// A current client: the fake service as a set-user-id tunvo_x86_64, and the version file.
inline void installClient() {
    writeFile(kRoot + "etc/version.txt", "7135.2016.429.1");
    ASSERT_EQ(0, runCommand({"/bin/cp", FAKE_SERVICE, kRoot + "tunvo_x86_64"}).exitCode);
    ASSERT_EQ(0, chmod((kRoot + "tunvo_x86_64").c_str(), 04755));
}
inline std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> all;
    for (size_t start = 0, nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        all.push_back(text.substr(start, nl - start));
    return all;
}
inline size_t count(const std::vector<std::string>& v, const std::string& item) {
    return static_cast<size_t>(std::count(v.begin(), v.end(), item));
}

// A browser with the test plug-in loaded (not initialised), HOME in a fresh folder, an empty test root.
class PluginTest : public ::testing::Test {
protected:
    void SetUp() override {
        prctl(PR_SET_CHILD_SUBREAPER, 1);  // so that a service this test killed is reaped and its pid is free
        stopService();
        runCommand({"/bin/rm", "-rf", kRoot});
        writeFile(kRoot + "var/run/requests.log", "");
    }
    void TearDown() override { stopService(); }
    std::string log() const { return readFile(home.inFolder("tunvo_plugin.log")); }
    bool logged(const std::string& text) const { return log().find(text) != std::string::npos; }

    TempHome home;
    FakeBrowser browser{PASSWAY_TEST_PLUGIN};
};

// The same, initialised, with a page that records its c_addcomm messages and answers them from `answers`
// ("" once they run out).
class LivePluginTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        ASSERT_EQ(0, browser.initialize());
        browser.page = [this](const std::string& function, const std::string& argument) -> std::optional<std::string> {
            if (function != "c_addcomm") return std::nullopt;
            messages.push_back(argument);
            std::string next = answers.empty() ? "" : answers.front();
            if (!answers.empty()) answers.erase(answers.begin());
            return next;
        };
    }
    std::string lastPageCall() const { return browser.urls(true).empty() ? "" : browser.urls(true).back(); }
    std::vector<std::string> messages, answers;
};

#endif
