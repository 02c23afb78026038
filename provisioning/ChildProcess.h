// Starting a program with a text on its standard input: how the installer and the service are run.
#ifndef PASSWAY_PROVISIONING_CHILDPROCESS_H
#define PASSWAY_PROVISIONING_CHILDPROCESS_H

#include <cstddef>
#include <sys/types.h>

// The log lines of one kind of child (printf formats, levels as noted).
struct ChildLogTexts {
    const char* pipeError;    // level 0, given errno
    const char* forkError;    // level 0, given errno
    const char* beforeExec;   // level 2 in the child, given the path and the argument; may be null
    const char* execFailed;   // level 0 in the child, given errno and its text
    const char* writeFailed;  // level 0, given errno and its text: the child took not all of its input
};

// Starts `path` (argv[0] = path, then `argument` when it is not null) with `input` written to its standard
// input in one go and the input then closed. Returns the child's pid, or -1 after logging the step that
// failed. The child always gets the pipe as its standard input, even when this process runs with
// descriptor 0 closed; no other descriptor of the pipe survives its exec. A child that ends before it has
// read its input fails the write (logged), never this process: SIGPIPE is held off around the write.
pid_t startWithInput(const char* path, const char* argument, const char* input, const ChildLogTexts& texts);

// Writes `length` bytes to `fd` with SIGPIPE blocked for this thread, and takes back the SIGPIPE that a
// reader gone away raised, so that it is never delivered. Returns 0, or the errno of the failed write.
int writeHoldingOffSigpipe(int fd, const char* data, size_t length);

// The system calls by which children are made, signalled, reaped and waited for. The provisioning code
// calls them only through this table, which a test may replace.
struct ProcessCalls {
    pid_t (*fork)();
    int (*kill)(pid_t pid, int signal);
    pid_t (*waitpid)(pid_t pid, int* status, int options);
    void (*sleep)(unsigned int ms);
};
extern ProcessCalls g_processCalls;

// Leaves a child that this process no longer waits for (one it could not end) to finish on its own;
// reapLeftChildren reaps it once it has, so that it never stays a zombie.
void leaveToFinish(pid_t pid);
// Reaps, without blocking, the children left to finish that have ended (or that are no longer this
// process's to wait for) and logs each; returns how many are still running. The plug-in's entry points
// call it on their way in.
size_t reapLeftChildren();

#endif
