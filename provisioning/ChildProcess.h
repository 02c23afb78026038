// Starting a program with a text on its standard input: how the installer and the service are run.
#ifndef PASSWAY_PROVISIONING_CHILDPROCESS_H
#define PASSWAY_PROVISIONING_CHILDPROCESS_H

#include <sys/types.h>

// The log lines of one kind of child (printf formats, levels as noted).
struct ChildLogTexts {
    const char* pipeError;   // level 0, given errno
    const char* forkError;   // level 0, given errno
    const char* beforeExec;  // level 2 in the child, given the path and the argument; may be null
    const char* execFailed;  // level 0 in the child, given errno and its text
};

// Starts `path` (argv[0] = path, then `argument` when it is not null) with `input` written to its standard
// input in one go and the input then closed. Returns the child's pid, or -1 after logging the step that
// failed. The pipe is close-on-exec: only the child's standard input keeps it.
pid_t startWithInput(const char* path, const char* argument, const char* input, const ChildLogTexts& texts);

#endif
