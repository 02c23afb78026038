#include "RunCommand.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
std::string readAll(int fd) {
    std::string text;
    lseek(fd, 0, SEEK_SET);
    char buffer[4096];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<size_t>(n));
    close(fd);
    return text;
}

int tempFile() {
    char path[] = "/tmp/passway-run-XXXXXX";
    int fd = mkstemp(path);
    unlink(path);
    return fd;
}
}  // namespace

CommandResult runCommand(const std::vector<std::string>& argv) {
    CommandResult result;
    int out = tempFile(), err = tempFile();
    pid_t pid = fork();
    if (pid == 0) {
        int in = open("/dev/null", O_RDONLY);
        dup2(in, 0);
        dup2(out, 1);
        dup2(err, 2);
        std::vector<char*> args;
        for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
    result.out = readAll(out);
    result.err = readAll(err);
    return result;
}
