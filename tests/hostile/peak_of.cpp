// SPDX-License-Identifier: Apache-2.0
//
// peak_of REPORT SECONDS PROGRAM [ARGUMENT...]: runs a program, killed after so many seconds and
// held below 4 GiB of addresses, and writes "PEAK-KIB MILLISECONDS CODE" to the file REPORT; of one
// that a signal ended, the code is the signal's number, negative. A process counts the memory of
// what it was before it became another program: so this one is small.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr rlim_t kMostAddresses = 4UL << 30U;

void BecomeProgram(char** command, const sigset_t& ends) {
    const rlimit limit{kMostAddresses, kMostAddresses};
    setrlimit(RLIMIT_AS, &limit);
    sigprocmask(SIG_UNBLOCK, &ends, nullptr);
    execv(command[0], command);
    std::perror(command[0]);
    _exit(127);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    const auto began = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid == 0) BecomeProgram(argv + 3, ends);

    const timespec patience{std::atol(argv[2]), 0};
    if (sigtimedwait(&ends, nullptr, &patience) < 0) kill(pid, SIGKILL);
    int status = 0;
    rusage used{};
    if (wait4(pid, &status, 0, &used) != pid) return 1;
    const auto time = std::chrono::steady_clock::now() - began;

    std::FILE* report = std::fopen(argv[1], "w");
    if (report == nullptr) return 1;
    const long milliseconds =
        static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    std::fprintf(report, "%ld %ld %d\n", used.ru_maxrss, milliseconds, code);
    return std::fclose(report) == 0 ? 0 : 1;
}
