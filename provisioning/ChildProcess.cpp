// Starting the installer or the service with a text on its standard input.
#include "ChildProcess.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "PluginLog.h"

pid_t startWithInput(const char* path, const char* argument, const char* input, const ChildLogTexts& texts) {
    int channel[2];
    if (pipe2(channel, O_CLOEXEC) != 0) {
        PluginWriteLog(0, texts.pipeError, errno);
        return -1;
    }
    pid_t pid = fork();
    if (pid < 0) {
        PluginWriteLog(0, texts.forkError, errno);
        close(channel[0]);
        close(channel[1]);
        return -1;
    }
    if (pid == 0) {
        close(channel[1]);
        if (channel[0] != 0 && dup2(channel[0], 0) != 0) close(channel[0]);  // kept as it has always been
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
    if (length > 0 && write(channel[1], input, length) < 0) {
        // The child sees the end of its input; what it makes of that is its own affair.
    }
    close(channel[1]);
    return pid;
}
