// Starting the installer or the service with a text on its standard input.
#include "ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "Platform"
#include "PluginLog.h"

ProcessCalls g_processCalls = {::fork, ::kill, ::waitpid, Sleep};

namespace {
std::vector<pid_t>& leftChildren() {
    static std::vector<pid_t> children;
    return children;
}
}  // namespace

void leaveToFinish(pid_t pid) {
    try {
        leftChildren().push_back(pid);
    } catch (...) {
        // No room to remember it: once it ends it stays a zombie until the browser goes.
    }
}

size_t reapLeftChildren() {
    std::vector<pid_t>& children = leftChildren();
    for (size_t i = 0; i < children.size();) {
        int status = 0;
        pid_t reaped = g_processCalls.waitpid(children[i], &status, WNOHANG);
        if (reaped == 0 || (reaped < 0 && errno == EINTR)) {
            ++i;
            continue;
        }
        if (reaped > 0)
            PluginWriteLog(2, "[reapLeftChildren] child %d ended, status=%d\n", static_cast<int>(reaped),
                           status);
        children.erase(children.begin() + static_cast<std::ptrdiff_t>(i));  // ended, or not ours to wait for
    }
    return children.size();
}

int writeHoldingOffSigpipe(int fd, const char* data, size_t length) {
    sigset_t pipeOnly, previous, pending;
    sigemptyset(&pipeOnly);
    sigaddset(&pipeOnly, SIGPIPE);
    sigemptyset(&pending);
    sigpending(&pending);
    bool alreadyPending = sigismember(&pending, SIGPIPE) == 1;  // someone else's: leave it be
    pthread_sigmask(SIG_BLOCK, &pipeOnly, &previous);

    int error = 0;
    while (length > 0) {
        ssize_t n = write(fd, data, length);
        if (n < 0) {
            if (errno == EINTR) continue;
            error = errno;
            break;
        }
        data += n;
        length -= static_cast<size_t>(n);
    }
    if (error == EPIPE && !alreadyPending) {
        // The write raised SIGPIPE at this thread; take it while it is still blocked.
        const struct timespec now = {0, 0};
        while (sigtimedwait(&pipeOnly, nullptr, &now) < 0 && errno == EINTR) {
        }
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return error;
}

pid_t startWithInput(const char* path, const char* argument, const char* input, const ChildLogTexts& texts) {
    int channel[2];
    if (pipe2(channel, O_CLOEXEC) != 0) {
        PluginWriteLog(0, texts.pipeError, errno);
        return -1;
    }
    pid_t pid = g_processCalls.fork();
    if (pid < 0) {
        PluginWriteLog(0, texts.forkError, errno);
        close(channel[0]);
        close(channel[1]);
        return -1;
    }
    if (pid == 0) {
        close(channel[1]);
        if (channel[0] != 0) {
            if (dup2(channel[0], 0) != 0) close(channel[0]);  // kept as it has always been
        } else {
            fcntl(0, F_SETFD, 0);  // the read end already is descriptor 0: let it live through the exec
        }
        if (texts.beforeExec != nullptr) PluginWriteLog(2, texts.beforeExec, path, argument);
        if (argument != nullptr)
            execl(path, path, argument, static_cast<char*>(nullptr));
        else
            execl(path, path, static_cast<char*>(nullptr));
        int error = errno;
        PluginWriteLog(0, texts.execFailed, error, strerror(error));
        _exit(-1);
    }
    close(channel[0]);
    size_t length = input != nullptr ? strlen(input) : 0;
    int error = writeHoldingOffSigpipe(channel[1], input, length);
    if (error != 0) PluginWriteLog(0, texts.writeFailed, error, strerror(error));
    close(channel[1]);
    return pid;
}
