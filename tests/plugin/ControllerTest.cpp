// The controller's calls that no browser can reach, linked in directly.
#include <gtest/gtest.h>

#include <cerrno>
#include <unistd.h>

#include "PluginInstance.h"
#include "Provisioning.h"

namespace {

TEST(Controller, AnswersForALiveProcessAndABrokenCall) {
    errno = 0;
    EXPECT_TRUE(IsProcessRunning(getpid())) << "a live process, even with no error left over";
    EXPECT_EQ(0, PluginInstance_init(nullptr, nullptr));
}

}  // namespace
