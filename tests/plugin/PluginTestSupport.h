// What the plug-in tests share: a loaded test plug-in with a temporary home, and its log.
#ifndef PASSWAY_TESTS_PLUGINTESTSUPPORT_H
#define PASSWAY_TESTS_PLUGINTESTSUPPORT_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

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

#endif
