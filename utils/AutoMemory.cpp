// AutoMemory: an owned block from the C heap.
#include "AutoMemory"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Exception"
#include "StrFormat"

UMallocFunction g_autoMemoryMalloc = ::malloc;

void* AutoMemory::allocate(unsigned long long size, int line) {
    void* p = size <= 0xFFFFFFFFull ? g_autoMemoryMalloc(static_cast<size_t>(size)) : nullptr;
    if (p == nullptr)
        throw UException(-1, "", "AutoMemory::malloc", static_cast<unsigned int>(line), "EXCEPTION - %s, %s",
                         "malloc error (size)", static_cast<const char*>(createString(size)));
    return p;
}

void AutoMemory::release() {
    ::free(m_data);
    m_data = nullptr;
    m_size = 0;
}

AutoMemory::AutoMemory(int size) : m_data(nullptr), m_size(0) { mallocEx(size, 1); }

AutoMemory::AutoMemory(const void* bytes, unsigned int size) : m_data(nullptr), m_size(0) {
    if (size > 0) {
        m_data = allocate(size, __LINE__);
        m_size = size;
        if (bytes != nullptr) memcpy(m_data, bytes, size);
    }
}

AutoMemory::AutoMemory(const AutoMemory& other) : UObject(other), m_data(nullptr), m_size(0) {
    if (other.m_size > 0) {
        m_data = allocate(other.m_size, __LINE__);
        m_size = other.m_size;
        memcpy(m_data, other.m_data, m_size);
    }
}

AutoMemory& AutoMemory::operator=(const AutoMemory& other) {
    if (this != &other) {
        AutoMemory copy(other);
        swap(copy);
    }
    return *this;
}

AutoMemory::~AutoMemory() { release(); }

void* AutoMemory::mallocEx(int size, int) {
    release();
    if (size > 0) {
        m_data = allocate(static_cast<unsigned int>(size), __LINE__);
        m_size = static_cast<unsigned int>(size);
    }
    return m_data;
}

void* AutoMemory::ensure(unsigned int size) {
    if (m_size < size) {
        release();
        m_data = allocate(size, __LINE__);
        m_size = size;
    }
    return m_data;
}

void* AutoMemory::expand(int extra) {
    if (extra <= 0) return m_data;
    unsigned long long newSize = static_cast<unsigned long long>(m_size) + static_cast<unsigned int>(extra);
    void* p = allocate(newSize, __LINE__);
    if (m_size > 0) memcpy(p, m_data, m_size);
    ::free(m_data);
    m_data = p;
    m_size = static_cast<unsigned int>(newSize);
    return m_data;
}

int AutoMemory::SaveToFile(const char* path) const {
    FILE* f = path == nullptr ? nullptr : fopen(path, "wb");
    if (f == nullptr) return -1;
    bool ok = m_size == 0 || fwrite(m_data, 1, m_size, f) == m_size;
    if (fclose(f) != 0) ok = false;
    return ok ? 0 : -1;
}
