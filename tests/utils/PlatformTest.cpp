// File existence by mode bits, and environment variables with a fallback.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include "Platform"
#include "System"
#include "TestSupport.h"

namespace {

// isFileExist tests mode bits, not file types: a FIFO has none of them.
TEST(IsFileExist, ModeBitsDecide) {
    TempHome home;
    const std::string fifo = home.path() + "/fifo";
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    const std::pair<const char*, bool> rows[] = {{home.path().c_str(), true}, {"/proc/self/exe", true},
        {"/dev/null", true}, {fifo.c_str(), false}, {"/nonexistent", false}, {nullptr, false}};
    for (const auto& row : rows) EXPECT_EQ(row.second, isFileExist(row.first)) << row.first;
}

// Unset, empty and 1,000-character values give the fallback.
TEST(SGetEnvironmentVariable, FallsBackForEmptyUnsetAndOverlongValues) {
    const std::string v999(999, 'v'), v1000(1000, 'v');
    const std::pair<const char*, std::string> rows[] = {
        {"value", "value"}, {"", "fb"}, {v999.c_str(), v999}, {v1000.c_str(), "fb"}, {nullptr, "fb"}};
    for (const auto& row : rows) {
        if (row.first) setenv("PASSWAY_TEST_VAR", row.first, 1); else unsetenv("PASSWAY_TEST_VAR");
        EXPECT_STREQ(row.second.c_str(), SGetEnvironmentVariable("PASSWAY_TEST_VAR", "fb")) << row.second.size();
    }
}

}  // namespace
