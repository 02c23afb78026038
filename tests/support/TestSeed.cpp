#include "TestSeed.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

uint32_t testSeed() {
    const char* fixed = getenv("PASSWAY_TEST_SEED");
    uint32_t seed = fixed != nullptr ? static_cast<uint32_t>(strtoul(fixed, nullptr, 10))
                                     : static_cast<uint32_t>(
                                           std::chrono::steady_clock::now().time_since_epoch().count());
    printf("random seed: %u (repeat with PASSWAY_TEST_SEED=%u)\n", seed, seed);
    ::testing::Test::RecordProperty("seed", std::to_string(seed));
    return seed;
}
