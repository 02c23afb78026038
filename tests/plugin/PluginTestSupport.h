// What the plug-in tests share: a loaded test plug-in with a temporary home, and its log.
#ifndef PASSWAY_TESTS_PLUGINTESTSUPPORT_H
#define PASSWAY_TESTS_PLUGINTESTSUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "FakeBrowser.h"
#include "TempHome.h"

// A browser with the test plug-in loaded (not yet initialised) and HOME in a fresh folder.
class PluginTest : public ::testing::Test {
protected:
    TempHome home;
    FakeBrowser browser{PASSWAY_TEST_PLUGIN};

    std::string log() const { return readFile(home.inFolder("tunvo_plugin.log")); }
    bool logged(const std::string& text) const { return log().find(text) != std::string::npos; }
    static size_t count(const std::vector<std::string>& v, const std::string& item) {
        return static_cast<size_t>(std::count(v.begin(), v.end(), item));
    }
};

// The test plug-in's install root (build/testroot/) and what tests put there.
struct TestRoot {
    static std::string path() { return PASSWAY_TEST_ROOT; }
    // Empties the root, stopping a service left running.
    static void reset();
    // A current client: the fake service as a set-user-id tunvo_x86_64 and the version file.
    static void installClient();
    // The pid in the service's pid file, 0 when there is none.
    static int servicePid();
    static void stopService();
    // The request lines the installed service received.
    static std::vector<std::string> serviceRequests();
};

#endif
