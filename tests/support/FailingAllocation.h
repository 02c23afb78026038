// Makes every AutoMemory allocation fail for one scope, to reach the out-of-memory paths.
#ifndef PASSWAY_TESTS_FAILINGALLOCATION_H
#define PASSWAY_TESTS_FAILINGALLOCATION_H

#include "AutoMemory"

class FailingAllocation {
public:
    FailingAllocation() : m_saved(g_autoMemoryMalloc) {
        g_autoMemoryMalloc = [](size_t) -> void* { return nullptr; };
    }
    ~FailingAllocation() { g_autoMemoryMalloc = m_saved; }
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

private:
    UMallocFunction m_saved;
};

#endif
