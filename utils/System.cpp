// Process and machine facts: executable path, environment, identifiers.
#include "System"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "Encoding"
#include "ErrorLog"
#include "Exception"
#include "Path"
#include "Platform"
#include "StrFormat"

CString SGetModuleFileName(void*) {
    // The link's target may be longer than the first guess: grow until it fits.
    for (int size = 2000;; size *= 2) {
        CString path;
        char* buffer = path.GetBuffer(size);
        ssize_t n = readlink("/proc/self/exe", buffer, static_cast<size_t>(size));
        if (n < 0) {
            int error = errno;
            path.ReleaseBuffer(0);
            throw UException(-1, "", "SGetModuleFileName", __LINE__, "EXCEPTION - %s, %s", "readlink() failed (error)",
                             static_cast<const char*>(createString(error)));
        }
        if (n < size) {
            path.ReleaseBuffer(static_cast<int>(n));
            return path;
        }
        path.ReleaseBuffer(0);
        if (size > (1 << 24)) throw UException(-1, "", "SGetModuleFileName", __LINE__, "EXCEPTION - %s, %s",
                                               "readlink() failed (error)", "path too long");
    }
}

CString SGetModulePath(void* module) {
    CString dir, name;
    ParseFullPath(SGetModuleFileName(module), dir, name);
    return dir;
}

CString SGetEnvironmentVariable(const char* name, const char* fallback) {
    const char* value = name == nullptr ? nullptr : getenv(name);
    size_t length = value == nullptr ? 0 : strnlen(value, 1000);
    if (length == 0 || length >= 1000) {
        if (errorLog != nullptr && errorLog->GetLogLevel() > 1)
            errorLog->WriteLogStr(sfmt("%1, %2, %3", "GetEnvironmentVariable failed", name, SGetLastError()));
        return CString(fallback);
    }
    return CString(value, static_cast<int>(length));
}

CString SGenerateID() {
    static unsigned long long counter = 0;
    static DWORD startTick = 0;
    static DWORD processId = 0;
    static bool started = false;
    if (!started) {
        startTick = GetTickCount();
        processId = GetCurrentProcessId();
        started = true;
    }
    ++counter;
    return CString(StrFormat("%1-%2-%3")
                       .arg(BinToHex(&counter, sizeof counter, 0))
                       .arg(BinToHex(&startTick, sizeof startTick, 0))
                       .arg(BinToHex(&processId, sizeof processId, 0))
                       .str());
}

namespace orvane {
namespace Features {
namespace UserAgentString {
CString GetUserAgentString() {
    return CString("Mozilla/5.0 (compatible; MSIE 10.0; Windows NT 6.1; Trident/6.0; Orvane Client)");
}
}  // namespace UserAgentString
}  // namespace Features
}  // namespace orvane
