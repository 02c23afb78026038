#include "RunCommand.h"

#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
// A file already unlinked, for one stream of the child's output.
int tempFile() {
    char path[] = "/tmp/passway-run-XXXXXX";
    int fd = mkstemp(path);
    unlink(path);
    return fd;
}

std::string readAll(int fd) {
    std::string text;
    char buffer[4096];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t n; (n = read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<size_t>(n));
    close(fd);
    return text;
}
}  // namespace

CommandResult runCommand(const std::vector<std::string>& argv) {
    CommandResult result;
    int out = tempFile(), err = tempFile();
    pid_t pid = fork();
    if (pid == 0) {
        dup2(open("/dev/null", O_RDONLY), 0);
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
