// Windows-named shims on POSIX.
#include "Platform"

#include <cerrno>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

void Sleep(unsigned int ms) {
    struct timeval timeout;
    timeout.tv_sec = ms / 1000;
    timeout.tv_usec = static_cast<suseconds_t>(ms % 1000) * 1000;
    // Linux updates the timeout with the time left, so a resumed wait sleeps only the rest.
    while (select(1, nullptr, nullptr, nullptr, &timeout) == -1 && errno == EINTR) {
    }
}

DWORD GetTickCount() {
    struct timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<DWORD>(static_cast<unsigned long long>(now.tv_sec) * 1000u +
                              static_cast<unsigned long long>(now.tv_usec) / 1000u);
}

struct tm* cached_localtime(const long* t) {
    static struct tm cached;
    static long cachedSecond = -1;
    static bool valid = false;
    if (!valid || *t != cachedSecond) {
        time_t when = static_cast<time_t>(*t);
        localtime_r(&when, &cached);
        cachedSecond = *t;
        valid = true;
    }
    return &cached;
}

void GetSystemTime(SYSTEMTIME* st) {
    long now = static_cast<long>(time(nullptr));
    const struct tm* local = cached_localtime(&now);
    st->wYear = static_cast<WORD>(local->tm_year + 1900);
    st->wMonth = static_cast<WORD>(local->tm_mon + 1);
    st->wDayOfWeek = static_cast<WORD>(local->tm_wday);
    st->wDay = static_cast<WORD>(local->tm_mday);
    st->wHour = static_cast<WORD>(local->tm_hour);
    st->wMinute = static_cast<WORD>(local->tm_min);
    st->wSecond = static_cast<WORD>(local->tm_sec);
    st->wMilliseconds = 0;
}

DWORD GetCurrentProcessId() { return static_cast<DWORD>(getpid()); }
DWORD GetCurrentThreadId() { return static_cast<DWORD>(getpid()); }

long InterlockedIncrement(long volatile* value) { return *value = *value + 1; }
long InterlockedDecrement(long volatile* value) { return *value = *value - 1; }

HANDLE CreateMutex(void*, BOOL, const char*) { return nullptr; }
BOOL ReleaseMutex(HANDLE) { return TRUE; }
DWORD WaitForMultipleObjects(DWORD, const HANDLE*, BOOL, DWORD) { return WAIT_OBJECT_0; }
BOOL CloseHandle(HANDLE) { return TRUE; }

void InitializeCriticalSection(pthread_mutex_t* mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

bool isFileExist(const char* path) {
    struct stat info;
    if (path == nullptr || stat(path, &info) != 0) return false;
    return (info.st_mode & (0x8000 | 0xA000 | 0x4000)) != 0;
}

const char* GetProcessArchitecture() { return "x64"; }
const char* GetOSShortName() { return "Linux"; }
