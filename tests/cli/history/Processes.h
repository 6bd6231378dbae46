// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_CLI_HISTORY_PROCESSES_H
#define VARNEX_TESTS_CLI_HISTORY_PROCESSES_H

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <functional>

// Runs `work` in a process of its own, which ends with 0 where that is true.
inline pid_t Process(const std::function<bool()>& work) {
    const pid_t process = fork();
    if (process != 0) return process;
    bool well = false;
    try {
        well = work();
    } catch (const std::exception& failure) {
        (void)std::fprintf(stderr, "%s\n", failure.what());
    }
    _exit(well ? 0 : 1);
}

// Waits for it. Its status: 0 is well.
inline int Ended(pid_t process) {
    int status = -1;
    waitpid(process, &status, 0);
    return status;
}

#endif
