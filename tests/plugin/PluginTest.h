// The test plug-in in a fake browser, as a portal page, the local service and the user see it: the helpers
// and fixtures the entry-point, relay and provisioning tests share.
#ifndef PASSWAY_TESTS_PLUGINTEST_H
#define PASSWAY_TESTS_PLUGINTEST_H

#include <gtest/gtest.h>

#include <csignal>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "FakeBrowser.h"
#include "FakeService.h"
#include "PluginInstance.h"
#include "Provisioning.h"
#include "TestSupport.h"

const std::string kRoot = PASSWAY_TEST_ROOT, kRun = kRoot + "var/run/", kPid = std::to_string(getpid());

inline size_t count(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

// A browser with the test plug-in loaded (not initialised), HOME in a fresh folder, an empty test root.
class PluginTest : public ::testing::Test {
protected:
    static int servicePid() { return atoi(readFile(kRun + "tunvo.pid").c_str()); }  // 0 without a pid file
    static void stopService() {
        if (servicePid() > 0) kill(servicePid(), SIGKILL);
        unlink((kRun + "tunvo.pid").c_str());
    }
    void SetUp() override {
        prctl(PR_SET_CHILD_SUBREAPER, 1);  // a service this test kills is reaped here: its pid is free
        stopService();
        runCommand({"/bin/rm", "-rf", kRoot});
        writeFile(kRun + "requests.log", "");
    }
    void TearDown() override { stopService(); }
    std::string log() const { return readFile(home.inFolder("tunvo_plugin.log")); }
    bool logged(const std::string& text, size_t from = 0) const {
        return log().find(text, from) != std::string::npos;
    }
    // Creates an element and expects NPP_New to answer `expected`.
    FakeBrowser::Instance* create(const FakeBrowser::Parameters& parameters, NPError expected = NPERR_NO_ERROR) {
        NPError created = -1;
        FakeBrowser::Instance* instance = browser.create(parameters, &created);
        EXPECT_EQ(expected, created);
        return instance;
    }
    static void installClient() {  // the fake service as a set-user-id tunvo_x86_64, and the version file
        writeFile(kRoot + "etc/version.txt", "7135.2016.429.1");
        ASSERT_EQ(0, runCommand({"/bin/cp", FAKE_SERVICE, kRoot + "tunvo_x86_64"}).exitCode);
        ASSERT_EQ(0, chmod((kRoot + "tunvo_x86_64").c_str(), 04755));
    }
    TempHome home;
    FakeBrowser browser{PASSWAY_TEST_PLUGIN};
};

// Initialised, with a page that records its c_addcomm messages and answers them from `answers` ("" after).
class Live : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        ASSERT_EQ(0, browser.initialize());
        browser.page = [this](const std::string& function, const std::string& argument) {
            if (function != "c_addcomm") return std::optional<std::string>();
            messages.push_back(argument);
            std::string next = answers.empty() ? "" : answers.front();
            if (!answers.empty()) answers.pop_front();
            return std::optional<std::string>(next);
        };
    }
    std::string lastPageCall() const { return browser.urls(true).empty() ? "" : browser.urls(true).back(); }
    std::vector<std::string> messages;
    std::deque<std::string> answers;
};

#endif
