// The host's guard: stops the service the host's plug-in started when the host ends without stopping it.
#include "ServiceGuard.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include "HostLog.h"
#include "InstallPaths.h"

namespace {

std::string readFile(const std::string& path, size_t limit) {
    std::ifstream in(path, std::ios::binary);
    std::string text(limit, '\0');
    in.read(&text[0], static_cast<std::streamsize>(limit));
    text.resize(static_cast<size_t>(in.gcount()));
    return text;
}

// The process's start time: field 22 of /proc/PID/stat, counted after the command name's closing
// parenthesis (the name may hold blanks and parentheses). 0 when the process is gone.
unsigned long long startTime(pid_t pid) {
    std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat", 4096);
    size_t name = stat.rfind(')');
    if (name == std::string::npos) return 0;
    std::istringstream fields(stat.substr(name + 1));
    std::string field;
    for (int index = 3; index <= 22 && fields >> field; ++index)
        if (index == 22) return strtoull(field.c_str(), nullptr, 10);
    return 0;
}

}  // namespace

std::string clientRoot() {
    const char* root = getenv("PASSWAY_HOST_CLIENT_ROOT");
    if (root == nullptr || *root == '\0') return PASSWAY_INSTALL_ROOT;
    std::string text = root;
    return text.back() == '/' ? text : text + "/";
}

bool runningService(const std::string& root, ServiceProcess& service) {
    std::string pidText = readFile(root + TUNVO_PID_FILE_NAME, 32);
    long pid = strtol(pidText.c_str(), nullptr, 10);
    if (pid <= 0) return false;
    std::string argv0 = readFile("/proc/" + std::to_string(pid) + "/cmdline", 4096);
    if (argv0.c_str() != root + TUNVO_EXECUTABLE_NAME) return false;  // gone, or not the service
    service.pid = static_cast<pid_t>(pid);
    service.started = startTime(service.pid);
    return service.started != 0;
}

// ---- the host's side ---------------------------------------------------------------------------------

bool ServiceGuard::start(const std::string& root) {
    int ends[2];
    if (pipe(ends) != 0) {
        hostLog("no guard for the service: pipe failed: %s", strerror(errno));
        return false;
    }
    fflush(stderr);
    pid_t pid = fork();
    if (pid < 0) {
        hostLog("no guard for the service: fork failed: %s", strerror(errno));
        close(ends[0]);
        close(ends[1]);
        return false;
    }
    if (pid == 0) {
        close(ends[1]);
        setsid();
        int null = open("/dev/null", O_RDWR);
        dup2(null, 0);
        dup2(null, 1);
        for (int fd = 3; fd < 1024; ++fd)
            if (fd != ends[0]) close(fd);
        std::string done = guardService(ends[0], root);
        if (!done.empty()) hostLog("%s", done.c_str());
        _exit(0);
    }
    close(ends[0]);
    fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    m_pipe = ends[1];
    return true;
}

void ServiceGuard::tell(const std::string& line) {
    if (m_pipe < 0) return;
    ssize_t written;
    do written = write(m_pipe, line.data(), line.size());
    while (written < 0 && errno == EINTR);
}

void ServiceGuard::owned(const ServiceProcess& service) {
    tell("owned " + std::to_string(service.pid) + " " + std::to_string(service.started) + "\n");
}

void ServiceGuard::released() { tell("released\n"); }

ServiceGuard::~ServiceGuard() {
    if (m_pipe >= 0) close(m_pipe);
}

// ---- the guard's side --------------------------------------------------------------------------------

std::string guardService(int fd, const std::string& root) {
    ServiceProcess owned;
    bool owns = false;
    std::string pending;
    char buffer[256];
    for (;;) {
        ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;  // the host is gone
        pending.append(buffer, static_cast<size_t>(n));
        for (size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
            std::istringstream line(pending.substr(0, end));
            std::string word;
            line >> word;
            if (word == "owned") owns = static_cast<bool>(line >> owned.pid >> owned.started);
            else if (word == "released") owns = false;
        }
        if (pending.size() > 1024) pending.clear();  // no line of ours is that long
    }
    close(fd);
    if (!owns) return "";
    ServiceProcess now;
    if (!runningService(root, now) || now.pid != owned.pid || now.started != owned.started)
        return "";  // the service stopped, or another one runs now
    if (kill(owned.pid, SIGTERM) != 0)
        return "the host ended without stopping the service; kill(" + std::to_string(owned.pid) +
               ") failed: " + strerror(errno);
    return "the host ended without stopping the service it started: sent SIGTERM to " + std::to_string(owned.pid);
}
