// The Windows-named shims.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "Debug"
#include "Platform"

namespace {

// A fresh folder under /tmp, removed with its files at the end of the scope.
class TempFolder {
public:
    TempFolder() {
        char pattern[] = "/tmp/passway-platform-XXXXXX";
        m_path = mkdtemp(pattern);
    }
    ~TempFolder() { (void)system(("rm -rf '" + m_path + "'").c_str()); }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

TEST(Sleep, WaitsAtLeastTheTimeAskedEvenWhenInterrupted) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    ualarm(20000, 0);  // interrupts the wait after 20 ms
    auto start = std::chrono::steady_clock::now();
    Sleep(120);
    auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count(), 120);
    Sleep(0);
}

TEST(Clock, TickCountAndLocalSystemTime) {
    DWORD before = GetTickCount();
    Sleep(5);
    EXPECT_GE(static_cast<DWORD>(GetTickCount() - before), 5u);

    SYSTEMTIME st;
    time_t now = time(nullptr);
    GetSystemTime(&st);
    struct tm local;
    localtime_r(&now, &local);
    EXPECT_EQ(local.tm_year + 1900, st.wYear);
    EXPECT_EQ(local.tm_mon + 1, st.wMonth);
    EXPECT_EQ(local.tm_mday, st.wDay);
    EXPECT_EQ(local.tm_wday, st.wDayOfWeek);
    EXPECT_EQ(0, st.wMilliseconds);

    long a = 1000000000, b = 1000000001;
    int hourA = cached_localtime(&a)->tm_sec;
    EXPECT_NE(hourA, cached_localtime(&b)->tm_sec) << "a new second is converted afresh";
}

TEST(Identity, ProcessAndThreadAreBothThePid) {
    EXPECT_EQ(static_cast<DWORD>(getpid()), GetCurrentProcessId());
    EXPECT_EQ(GetCurrentProcessId(), GetCurrentThreadId());
    EXPECT_STREQ("x64", GetProcessArchitecture());
    EXPECT_STREQ("Linux", GetOSShortName());
}

TEST(Interlocked, ReturnsTheNewValue) {
    long count = 5;
    EXPECT_EQ(6, InterlockedIncrement(&count));
    EXPECT_EQ(5, InterlockedDecrement(&count));
    EXPECT_EQ(5, count);
}

TEST(HandleShims, AreInert) {
    EXPECT_EQ(nullptr, CreateMutex(nullptr, TRUE, "name"));
    EXPECT_TRUE(ReleaseMutex(nullptr));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(1, nullptr, FALSE, INFINITE));
    EXPECT_TRUE(CloseHandle(nullptr));

    pthread_mutex_t mutex;
    InitializeCriticalSection(&mutex);
    EXPECT_EQ(0, pthread_mutex_lock(&mutex));
    EXPECT_EQ(0, pthread_mutex_trylock(&mutex)) << "recursive: the owner may lock again";
    pthread_mutex_unlock(&mutex);
    pthread_mutex_unlock(&mutex);
    pthread_mutex_destroy(&mutex);
}

TEST(IsFileExist, TestsModeBitsNotTypes) {
    TempFolder dir;
    std::string file = dir / "file", fifo = dir / "fifo", link = dir / "link", dangling = dir / "dangling";
    std::string sock = dir / "sock";
    FILE* f = fopen(file.c_str(), "w");
    fclose(f);
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    ASSERT_EQ(0, symlink(file.c_str(), link.c_str()));
    ASSERT_EQ(0, symlink((dir / "missing").c_str(), dangling.c_str()));
    int s = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", sock.c_str());
    ASSERT_EQ(0, bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address));

    EXPECT_TRUE(isFileExist(file.c_str()));
    EXPECT_TRUE(isFileExist(dir.path().c_str()));
    EXPECT_TRUE(isFileExist(link.c_str()));
    EXPECT_TRUE(isFileExist("/dev/null")) << "a character device has a bit of 0xA000";
    EXPECT_TRUE(isFileExist(sock.c_str()));
    EXPECT_FALSE(isFileExist(fifo.c_str())) << "a FIFO has none of the bits";
    EXPECT_FALSE(isFileExist(dangling.c_str()));
    EXPECT_FALSE(isFileExist((dir / "missing").c_str()));
    EXPECT_FALSE(isFileExist(nullptr));
    close(s);
}

TEST(DebugTrace, WritesToStandardOutputWhenAsked) {
    DWORD saved = g_dwDebugFlags;
    g_dwDebugFlags = 1;
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, AfxTrace("value %d\n", 42));
    std::string out = testing::internal::GetCapturedStdout();
    char expected[64];
    snprintf(expected, sizeof expected, "[%4d] value 42\n", static_cast<int>(getpid()));
    EXPECT_EQ(expected, out);

    g_dwDebugFlags = 0;
    testing::internal::CaptureStdout();
    AfxTrace("silent\n");
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    g_dwDebugFlags = saved;
    AfxAssertFailed("1 == 2", __FILE__, __LINE__, __func__);  // reports and continues
}

}  // namespace
