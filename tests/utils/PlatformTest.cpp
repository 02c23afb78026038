// The Windows-named shims.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "Debug"
#include "Platform"

namespace {

TEST(Sleep, WaitsAtLeastTheTimeAskedEvenWhenInterrupted) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    ualarm(20000, 0);  // interrupts the wait after 20 ms
    auto start = std::chrono::steady_clock::now();
    Sleep(120);
    auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count(), 120);
}

TEST(Clock, SystemTimeIsLocalWithoutMilliseconds) {
    SYSTEMTIME st;
    time_t now = time(nullptr);
    GetSystemTime(&st);
    struct tm local;
    localtime_r(&now, &local);
    EXPECT_EQ(local.tm_year + 1900, st.wYear);
    EXPECT_EQ(local.tm_mon + 1, st.wMonth);
    EXPECT_EQ(local.tm_mday, st.wDay);
    EXPECT_EQ(0, st.wMilliseconds);
    long a = 1000000000, b = 1000000001;
    int first = cached_localtime(&a)->tm_sec;
    EXPECT_NE(first, cached_localtime(&b)->tm_sec) << "a new second is converted afresh";
}

TEST(Shims, IdentityCountersAndInertHandles) {
    EXPECT_EQ(static_cast<DWORD>(getpid()), GetCurrentThreadId());
    long count = 5;
    EXPECT_EQ(6, InterlockedIncrement(&count));
    EXPECT_EQ(5, InterlockedDecrement(&count));
    EXPECT_EQ(nullptr, CreateMutex(nullptr, TRUE, "name"));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForMultipleObjects(1, nullptr, FALSE, INFINITE));

    pthread_mutex_t mutex;
    InitializeCriticalSection(&mutex);
    pthread_mutex_lock(&mutex);
    EXPECT_EQ(0, pthread_mutex_trylock(&mutex)) << "recursive: the owner may lock again";
    pthread_mutex_unlock(&mutex);
    pthread_mutex_unlock(&mutex);
    pthread_mutex_destroy(&mutex);
}

TEST(IsFileExist, TestsModeBitsNotTypes) {
    char dir[] = "/tmp/passway-exist-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dir));
    std::string fifo = std::string(dir) + "/fifo", dangling = std::string(dir) + "/dangling";
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    ASSERT_EQ(0, symlink("/nonexistent", dangling.c_str()));

    EXPECT_TRUE(isFileExist(dir));
    EXPECT_TRUE(isFileExist("/proc/self/exe")) << "a link counts by its target";
    EXPECT_TRUE(isFileExist("/dev/null")) << "a character device has a bit of 0xA000";
    EXPECT_FALSE(isFileExist(fifo.c_str())) << "a FIFO has none of the bits";
    EXPECT_FALSE(isFileExist(dangling.c_str()));
    EXPECT_FALSE(isFileExist(nullptr));
    unlink(fifo.c_str());
    unlink(dangling.c_str());
    rmdir(dir);
}

TEST(DebugTrace, WritesToStandardOutputWhenAsked) {
    DWORD saved = g_dwDebugFlags;
    g_dwDebugFlags = 1;
    testing::internal::CaptureStdout();
    AfxTrace("value %d\n", 42);
    g_dwDebugFlags = 0;
    AfxTrace("silent\n");
    std::string out = testing::internal::GetCapturedStdout();
    g_dwDebugFlags = saved;
    char expected[64];
    snprintf(expected, sizeof expected, "[%4d] value 42\n", static_cast<int>(getpid()));
    EXPECT_EQ(expected, out);
}

}  // namespace
