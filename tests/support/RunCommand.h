// Runs a program and collects what it printed and how it ended, for tests of command-line tools.
#ifndef PASSWAY_TESTS_RUNCOMMAND_H
#define PASSWAY_TESTS_RUNCOMMAND_H

#include <string>
#include <vector>

struct CommandResult {
    int exitCode = -1;  // the exit status, or -1 when the program did not exit normally
    std::string out;
    std::string err;
};

// Runs `argv[0]` with the arguments (no shell), standard input from /dev/null.
CommandResult runCommand(const std::vector<std::string>& argv);

#endif
