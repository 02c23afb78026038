// UMutex and UAutoCriticalSection.
#include "Mutex"

#include "Platform"

UMutex::UMutex(const char* name) : m_handle(nullptr), m_owned(false) { init(nullptr, false, name); }

UMutex::UMutex(void* attributes, bool initiallyOwned, const char* name) : m_handle(nullptr), m_owned(false) {
    init(attributes, initiallyOwned, name);
}

UMutex::~UMutex() {
    if (m_handle != nullptr) CloseHandle(m_handle);
}

void UMutex::init(void* attributes, bool initiallyOwned, const char* name) {
    m_handle = CreateMutex(attributes, initiallyOwned ? TRUE : FALSE, name);
    m_owned = m_handle != nullptr && initiallyOwned;
}

int UMutex::Acquire(void* extraHandle, unsigned int timeout) {
    if (m_handle == nullptr) return -1;
    HANDLE handles[2] = {m_handle, extraHandle};
    DWORD result = WaitForMultipleObjects(extraHandle != nullptr ? 2 : 1, handles, FALSE, timeout);
    switch (result) {
        case WAIT_OBJECT_0: m_owned = true; return 0;
        case WAIT_ABANDONED: m_owned = false; return static_cast<int>(WAIT_ABANDONED);
        case 1: case WAIT_TIMEOUT: case WAIT_FAILED: return static_cast<int>(result);
        default: return -1;
    }
}

int UMutex::Release() {
    if (m_handle == nullptr) return 0;
    BOOL released = ReleaseMutex(m_handle);
    if (released) m_owned = false;
    return released;
}

UAutoCriticalSection::UAutoCriticalSection() : m_depth(0) { InitializeCriticalSection(&m_mutex); }

UAutoCriticalSection::~UAutoCriticalSection() { pthread_mutex_destroy(&m_mutex); }

void UAutoCriticalSection::Lock() {
    pthread_mutex_lock(&m_mutex);
    ++m_depth;
}

void UAutoCriticalSection::Unlock() {
    if (m_depth < 1) return;
    --m_depth;
    pthread_mutex_unlock(&m_mutex);
}
