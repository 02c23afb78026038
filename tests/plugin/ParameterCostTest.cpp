// What the plug-in's texts cost to build, counted rather than timed: every CString buffer comes from
// operator new[], which this program replaces to add up the bytes asked for while the plug-in works.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "FakeBrowser.h"
#include "TempHome.h"

namespace {
bool g_counting = false;
size_t g_bytes = 0;
}  // namespace

void* operator new[](size_t size) {
    if (g_counting) g_bytes += size;
    if (void* block = malloc(size != 0 ? size : 1)) return block;
    throw std::bad_alloc();
}
void operator delete[](void* block) noexcept { free(block); }
void operator delete[](void* block, size_t) noexcept { free(block); }

namespace {

// Bytes the plug-in allocates for its texts while the browser creates one element with `parameters`.
size_t bytesToCreate(const FakeBrowser::Parameters& parameters) {
    TempHome home;
    FakeBrowser browser(PASSWAY_TEST_PLUGIN);
    browser.initialize();
    browser.destroy(browser.create({}));  // the log file is opened once, outside the count
    g_bytes = 0;
    g_counting = true;
    browser.destroy(browser.create(parameters));
    g_counting = false;
    return g_bytes;
}

// The text for the service grows by doubling (at most about 4x its length) and the log line that shows it is
// formatted and written: a fixed multiple (about 6x measured), where copying the text on every append costs its
// length times the number of appends (4,000x for 2,000 parameters). A parameter the service never sees makes
// no room in its text.
TEST(ParameterCost, TheParameterTextCostsInStepWithItsLength) {
    FakeBrowser::Parameters many;
    for (int i = 0; i < 2000; ++i) many.push_back({"p" + std::to_string(i), std::string(200, 'v')});
    const struct { const char* shows; FakeBrowser::Parameters parameters; size_t text; } rows[] = {
        {"many parameters", many, 2000 * (200 + 6)},
        {"a few long ones", {{"a", std::string(1 << 20, 'v')}, {"b", std::string(1 << 20, 'w')}}, 2 * (1 << 20)},
        {"a long one not for the service", {{"_probevpn", std::string(1 << 21, 'v')}}, 0},
    };
    for (const auto& row : rows) EXPECT_LT(bytesToCreate(row.parameters), 12 * row.text + (1 << 16)) << row.shows;
}

}  // namespace
