// UFileErrorLogBase and UFileErrorLog: the log file, its headers and its rotation.
#include "FileErrorLog"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "Exception"
#include "LogSettings"
#include "Platform"
#include "StrFormat"
#include "UserFolder"

namespace {

constexpr unsigned int kRotationCheckEvery = 50;
const char kRule[] = "==========================================================================";

// Holds the log's recursive lock for one scope.
class LogLock {
public:
    explicit LogLock(pthread_mutex_t& lock) : m_lock(lock) { pthread_mutex_lock(&m_lock); }
    ~LogLock() { pthread_mutex_unlock(&m_lock); }
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;

private:
    pthread_mutex_t& m_lock;
};

// The writer's process id for the line header (what GetCurrentThreadId() answers), without a system call
// per line: getpid() once, and once more in each child after a fork, whose handler forgets the id.
std::atomic<int> g_writerId{0};

void forgetWriterId() { g_writerId.store(0, std::memory_order_relaxed); }

int writerId() {
    static const bool followsForks = pthread_atfork(nullptr, nullptr, forgetWriterId) == 0;
    if (!followsForks) return static_cast<int>(GetCurrentThreadId());
    int id = g_writerId.load(std::memory_order_relaxed);
    if (id == 0) {
        id = static_cast<int>(GetCurrentThreadId());
        g_writerId.store(id, std::memory_order_relaxed);
    }
    return id;
}

// fopen's mode with the close-on-exec flag added.
CString closeOnExec(const char* mode) {
    CString m(mode != nullptr && *mode != '\0' ? mode : "a");
    if (m.Find('e') < 0) m += 'e';
    return m;
}

}  // namespace

// ---- UFileErrorLogBase ------------------------------------------------------------

UFileErrorLogBase::UFileErrorLogBase()
    : m_processId(static_cast<int>(GetCurrentProcessId())), m_rotationSize(5242880), m_cachedSecond(-1), m_cachedThread(0) {}

void UFileErrorLogBase::setParam(const char* name, const char* value) {
    if (name != nullptr && strcmp(name, "module_name") == 0) {
        m_moduleName = value;
        m_cachedSecond = -1;
    }
}

void UFileErrorLogBase::readSettings() {
    int level = static_cast<int>(ULogSettings::getModuleLogLevel(m_moduleName));
    m_rotationSize = ULogSettings::getFileRotationSize();
    SetLogLevel(level);
}

void UFileErrorLogBase::generateFileHeader(CString& header) {
    struct utsname system = {};
    uname(&system);
    header.Empty();
    header += kRule;
    header += "\nKernel version: ";
    header += system.version;
    header += "\nSystem: ";
    header += system.sysname;
    header += "\nRelease: ";
    header += system.release;
    header += "\nModel: ";
    header += system.machine;
    header += "\nNode name: ";
    header += system.nodename;
    header += "\n";
    header += kRule;
    header += "\n";
}

void UFileErrorLogBase::generateLogLineHeader(CString& header) { header = lineHeader(); }

const CString& UFileErrorLogBase::lineHeader() {
    // The header names the second only (milliseconds always read 000): make it once per second and
    // writer, so that a line written by a forked child names the child.
    time_t now = time(nullptr);
    DWORD thread = static_cast<DWORD>(writerId());
    if (now != m_cachedSecond || thread != m_cachedThread) {
        SYSTEMTIME st;
        GetSystemTime(&st);
        m_cachedHeader.Format("%04d-%02d-%02d,%2d:%02d:%02d:%03d, %d,%d,%s, ", st.wYear, st.wMonth, st.wDay,
                              st.wHour, st.wMinute, st.wSecond, st.wMilliseconds, m_processId,
                              static_cast<int>(thread), static_cast<const char*>(m_moduleName));
        m_cachedSecond = now;
        m_cachedThread = thread;
    }
    return m_cachedHeader;
}

bool UFileErrorLogBase::getFileSize(const char* path, unsigned long long* size) {
    struct stat info;
    if (stat(path, &info) != 0) return false;
    *size = static_cast<unsigned long long>(info.st_size);
    return true;
}

bool UFileErrorLogBase::needRotation(CString& fileName) {
    unsigned long long size;
    return getFileSize(fileName, &size) && size > m_rotationSize;
}

// ---- UFileErrorLog --------------------------------------------------------------------

UFileErrorLog::UFileErrorLog() : m_fileName("log.txt"), m_file(nullptr), m_writeCount(0) {
    InitializeCriticalSection(&m_lock);
}

UFileErrorLog::~UFileErrorLog() {
    Close();
    pthread_mutex_destroy(&m_lock);
}

int UFileErrorLog::Open(const char* fileName, const char* mode) {
    LogLock hold(m_lock);
    if (m_file != nullptr) return 0;

    readSettings();
    unsigned int uid, gid;
    getCurrentUserIDGroupID(&uid, &gid);
    CString folder = userFolder();
    if (!folder.IsEmpty()) prepareUserFolder(folder, uid, gid);

    m_fileName = (fileName != nullptr && *fileName != '\0') ? fileName : "log.txt";
    m_file = fopen(m_fileName, closeOnExec(mode));
    if (m_file == nullptr) return errno;
    setOwnerAndMode(m_fileName, uid, gid, 0644);

    unsigned long long size = 0;
    if (getFileSize(m_fileName, &size) && size == 0) {
        CString header;
        generateFileHeader(header);
        fputs(header, m_file);
    }
    WriteLogStr(" \n");
    WriteLogStr(" =====================================\n");
    WriteLog(48, "current log level = %d\n", m_logLevel);
    return 0;
}

int UFileErrorLog::Close() {
    LogLock hold(m_lock);
    if (m_file != nullptr) {
        fflush(m_file);
        fclose(m_file);
        m_file = nullptr;
    }
    return 0;
}

// Runs one write under the lock while a file is open: the write's result, or -1 when closed or when the
// write threw (the line is dropped, the log goes on). Every write is flushed and counted for rotation.
template <class Body>
int UFileErrorLog::writeLocked(Body body) {
    LogLock hold(m_lock);
    if (m_file == nullptr) return -1;
    int result;
    try {
        result = body();
    } catch (...) {
        result = -1;
    }
    // Lines leave by one system call each (writeToFile); what went through the stream is flushed here.
    // The stream's own lock is not needed: every write holds ours.
    if (__fpending(m_file) != 0) fflush_unlocked(m_file);
    CheckForRotation();
    return result;
}

int UFileErrorLog::WriteLogItem(const char* text) {
    return writeLocked([&] {
        const CString& header = lineHeader();
        if (text == nullptr) text = "";
        size_t length = strlen(text), headerLength = static_cast<size_t>(header.GetLength());
        // The usual line goes out in one piece from the stack; a longer one in two.
        char line[1280];
        if (headerLength + length <= sizeof line) {
            memcpy(line, static_cast<const char*>(header), headerLength);
            memcpy(line + headerLength, text, length);
            iovec whole = {line, headerLength + length};
            return writeToFile(&whole, 1) ? static_cast<int>(length) : -1;
        }
        iovec parts[2] = {{const_cast<char*>(static_cast<const char*>(header)), headerLength},
                          {const_cast<char*>(text), length}};
        return writeToFile(parts, 2) ? static_cast<int>(length) : -1;
    });
}

int UFileErrorLog::WriteLogByte(const char* prefix, unsigned char* data, unsigned int length) {
    return writeLocked([&] {
        CString header;
        generateLogLineHeader(header);
        fputs(header, m_file);
        fputs("4,,,, ", m_file);
        if (prefix != nullptr) fputs(prefix, m_file);
        if (length > 0 && data != nullptr) fwrite(data, 1, length, m_file);
        fputs("\n", m_file);
        return static_cast<int>(length);
    });
}

int UFileErrorLog::WriteLogByte(unsigned char* data, unsigned int length) {
    return writeLocked([&] {
        try {
            if (length > 0 && (data == nullptr || fwrite(data, 1, length, m_file) != length))
                throw UException(-1, "", "UFileErrorLog::WriteLogByte", 1459, "EXCEPTION - %s, %s",
                                 "fwrite() failed (error)", static_cast<const char*>(createString(errno)));
            if (fprintf(m_file, "\n\n") < 0)
                throw UException(-1, "", "UFileErrorLog::WriteLogByte()", 1463, "EXCEPTION - %s, %s",
                                 "_ftprintf() failed (error)", static_cast<const char*>(createString(errno)));
            return static_cast<int>(length);
        } catch (UException&) {
            return -1;  // raised, logged at the throw, and caught here
        }
    });
}

// Writes the parts straight to the file, after whatever the stream still holds (the file header of a new
// file): one system call for the line, as fputs and fflush would make, without the stream's copy.
bool UFileErrorLog::writeToFile(iovec* parts, int count) {
    if (__fpending(m_file) != 0 && fflush_unlocked(m_file) != 0) return false;
    int fd = fileno_unlocked(m_file);
    while (count > 0) {
        ssize_t written = count == 1 ? write(fd, parts->iov_base, parts->iov_len) : writev(fd, parts, count);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        size_t done = static_cast<size_t>(written);
        for (; count > 0 && done >= parts->iov_len; ++parts, --count) done -= parts->iov_len;
        if (count > 0) {
            parts->iov_base = static_cast<char*>(parts->iov_base) + done;
            parts->iov_len -= done;
        }
    }
    return true;
}

void UFileErrorLog::CheckForRotation() {
    if (++m_writeCount % kRotationCheckEvery != 0) return;
    if (!needRotation(m_fileName)) return;
    Close();
    CString backup = m_fileName + ".bak";
    if (rename(m_fileName, backup) != 0) remove(m_fileName);  // no backup: the old lines are lost
    Open(m_fileName, "w");
}

UCommonLibrary::~UCommonLibrary() {
    releaseResources();
    errorLog = nullptr;
}
