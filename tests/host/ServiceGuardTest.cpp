// The host's guard: when the host ends, it stops the service its host's plug-in started and never stopped,
// and nothing else.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "ServiceGuard.h"
#include "TestSupport.h"

namespace {

// A stand-in service under a root of its own: `sleep` installed as the service executable and started by
// that path (so its argv[0] is the service's), its pid in the pid file.
class StandInService {
public:
    StandInService() {
        root = home.path() + "/client/";
        mkdir(root.c_str(), 0755);
        mkdir((root + "var").c_str(), 0755);
        mkdir((root + "var/run").c_str(), 0755);
        std::string executable = root + "tunvo_x86_64";
        writeFile(executable, readFile("/bin/sleep"));
        chmod(executable.c_str(), 0755);
        pid = fork();
        if (pid == 0) {
            execl(executable.c_str(), executable.c_str(), "300", static_cast<char*>(nullptr));
            _exit(127);
        }
        while (readFile("/proc/" + std::to_string(pid) + "/cmdline").rfind(executable, 0) != 0) usleep(1000);
        writeFile(root + "var/run/tunvo.pid", std::to_string(pid) + "\n");
    }
    ~StandInService() {
        if (pid > 0 && kill(pid, SIGKILL) == 0) waitpid(pid, nullptr, 0);
    }
    // Whether it still runs (a process that ended is reaped here, and never signalled again).
    bool running() {
        if (pid > 0 && waitpid(pid, nullptr, WNOHANG) == 0) return true;
        pid = 0;
        return false;
    }
    // Waits until it ends; true when SIGTERM ended it.
    bool terminated() {
        int status = 0;
        bool ended = pid > 0 && waitpid(pid, &status, 0) == pid;
        pid = 0;
        return ended && WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM;
    }

    TempHome home;
    std::string root;
    pid_t pid = 0;
};

// What the guard does once its host has said `lines` and ended.
std::string guardAfter(const std::string& lines, const std::string& root) {
    int ends[2];
    if (pipe(ends) != 0) return "no pipe";
    if (write(ends[1], lines.data(), lines.size()) != static_cast<ssize_t>(lines.size())) return "no write";
    close(ends[1]);
    errno = EINTR;  // a stale one changes nothing
    return guardService(ends[0], root);
}

TEST(ServiceGuard, StopsOnlyTheServiceItsHostStartedAndNeverStopped) {
    StandInService service;
    ServiceProcess found;
    ASSERT_TRUE(runningService(service.root, found));
    pid_t pid = service.pid;
    EXPECT_EQ(pid, found.pid);
    std::string owned = "owned " + std::to_string(found.pid) + " " + std::to_string(found.started) + "\n";
    std::string another = "owned " + std::to_string(found.pid) + " " + std::to_string(found.started + 1) + "\n";

    const struct { const char* shows; std::string lines, root; bool stays; } rows[] = {
        {"the host said nothing", "", service.root, true},
        {"the plug-in stopped it itself", owned + "released\n", service.root, true},
        {"another process under the same pid", another, service.root, true},
        {"not the service of this root", owned, service.home.path() + "/other/", true},
        // 257 bytes: the line's last byte is read on its own
        {"the host started it and ended", std::string(256 - owned.size(), 'x') + "\n" + owned, service.root, false},
    };
    for (const auto& row : rows) {
        std::string done = guardAfter(row.lines, row.root);
        EXPECT_TRUE(row.stays ? service.running() : service.terminated()) << row.shows << ": " << done;
        EXPECT_EQ(row.stays, done.empty()) << row.shows << ": " << done;
    }
    EXPECT_FALSE(runningService(service.root, found)) << "a service that ended is not running";
}

// The guard the host starts: told the service is owned, it stops the service once the host's end closes.
TEST(ServiceGuard, TheGuardTheHostStartsStopsItsServiceWhenTheHostEnds) {
    StandInService service;
    ServiceProcess found;
    ASSERT_TRUE(runningService(service.root, found));
    {
        ServiceGuard guard;
        pid_t host = getpid();
        ASSERT_TRUE(guard.start(service.root));
        ASSERT_EQ(host, getpid()) << "the guard is the child";
        guard.owned(found);
    }
    for (int tries = 0; tries < 1000 && service.running(); ++tries) usleep(10000);
    EXPECT_FALSE(service.running());
}

// A guard that has gone (its end of the pipe closed) holds up nothing: telling it fails and returns.
TEST(ServiceGuard, AGuardThatWentIsToldInVain) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ServiceGuard guard;
    guard.attach(ends[1]);
    close(ends[0]);
    signal(SIGPIPE, SIG_IGN);  // as in the host
    guard.released();
    signal(SIGPIPE, SIG_DFL);
}

}  // namespace
