// Seeds for randomised tests: PASSWAY_TEST_SEED when set, else the clock. The seed is printed so
// that a failing run can be repeated.
#ifndef PASSWAY_TESTS_TESTSEED_H
#define PASSWAY_TESTS_TESTSEED_H

#include <cstdint>

uint32_t testSeed();

#endif
