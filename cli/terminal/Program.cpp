// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>

extern "C" {  // that of glibc 2.36 does not say so itself
#include <sys/pidfd.h>
}

#include "shared/FileDescriptor.h"

namespace Kemffdc {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kSecretVariables[] = {"KEMFFDC_PASSWORD=", "KEMFFDC_EXPORT_PASSWORD="};

// This process's environment without passwords; its texts stay those of the process.
std::vector<char*> Environment() {
    std::vector<char*> variables;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        const bool secret = std::any_of(
            std::begin(kSecretVariables), std::end(kSecretVariables), [variable](const char* name) {
                return std::strncmp(*variable, name, std::strlen(name)) == 0;
            });
        if (!secret) variables.push_back(*variable);
    }
    variables.push_back(nullptr);
    return variables;
}

// What the program starts with: no signal is blocked or ignored as in this process.
class SpawnAttributes {
public:
    SpawnAttributes() {
        posix_spawnattr_init(&m_attributes);
        posix_spawn_file_actions_init(&m_files);
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_setsigmask(&m_attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&m_attributes, &signals);
        posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnAttributes() {
        posix_spawn_file_actions_destroy(&m_files);
        posix_spawnattr_destroy(&m_attributes);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    // Returns the error; 0: it runs, and prints into `output`.
    int Start(const std::vector<std::string>& words, int output, pid_t& process) {
        posix_spawn_file_actions_addopen(&m_files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&m_files, output, STDOUT_FILENO);
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        return posix_spawnp(&process, arguments.front(), &m_files, &m_attributes, arguments.data(),
                            Environment().data());
    }

private:
    posix_spawnattr_t m_attributes{};
    posix_spawn_file_actions_t m_files{};
};

std::mutex g_lock;
pid_t g_running = -1;  // the program that runs, until it has been waited for; -1: none

// A program that runs; killed, and taken away, if it still does at the end. One at a time.
class Child {
public:
    explicit Child(pid_t process) : m_handle(pidfd_open(process, 0)) {
        std::lock_guard<std::mutex> hold(g_lock);
        g_running = process;
    }
    ~Child() {
        KillProgram();
        (void)Reap();
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    int Handle() const { return m_handle.Get(); }  // readable once it has ended

    // Waits for its end. How it ended, as it follows its name; empty: well.
    std::string Reap() {
        std::lock_guard<std::mutex> hold(g_lock);
        if (g_running < 0) return "";
        int status = 0;
        while (waitpid(g_running, &status, 0) < 0 && errno == EINTR) {
        }
        g_running = -1;
        if (WIFSIGNALED(status)) {
            return " was ended by signal " + std::to_string(WTERMSIG(status)) + ".";
        }
        const int code = WEXITSTATUS(status);
        return code == 0 ? "" : " ended with exit code " + std::to_string(code) + ".";
    }

private:
    shared::FileDescriptor m_handle;
};

// Takes what there is now. False: the pipe is at its end, or there is too much.
bool Drain(int pipe, std::size_t most, std::string& printed) {
    while (printed.size() <= most) {
        const std::size_t before = printed.size();
        printed.resize(most + 1);
        const ssize_t got = read(pipe, &printed[before], printed.size() - before);
        const int error = errno;
        printed.resize(before + (got > 0 ? static_cast<std::size_t>(got) : 0));
        if (got < 0 && error == EINTR) continue;
        if (got <= 0) return got < 0 && error == EAGAIN;
    }
    return false;
}

int Milliseconds(Clock::time_point until) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::int64_t{3600} * 1000));
}

// Takes what the program prints until it ends; nothing from a `pipe` of -1. As Reap().
std::string Listen(Child& child, int pipe, std::size_t most, std::chrono::milliseconds limit,
                   std::string& printed) {
    if (child.Handle() < 0) return std::string(" cannot be watched: ") + std::strerror(errno) + ".";
    const Clock::time_point until = Clock::now() + limit;
    std::array<pollfd, 2> waited{{{child.Handle(), POLLIN, 0}, {pipe, POLLIN, 0}}};
    while (true) {
        const int ready = poll(waited.data(), waited.size(), Milliseconds(until));
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) {
            const auto seconds = std::chrono::ceil<std::chrono::seconds>(limit).count();
            return " has not ended within " + std::to_string(seconds) + " s.";
        }
        const bool ended = waited[0].revents != 0;  // before what it has printed is taken
        if (waited[1].fd >= 0 && !Drain(pipe, most, printed)) waited[1].fd = -1;
        if (printed.size() > most) return " prints too much.";
        if (ended) return child.Reap();
    }
}

}  // namespace

void KillProgram() {
    std::lock_guard<std::mutex> hold(g_lock);
    if (g_running > 0) kill(g_running, SIGKILL);
}

std::string RunProgram(const std::vector<std::string>& words, std::chrono::milliseconds limit) {
    pid_t process = -1;
    const int error = SpawnAttributes().Start(words, STDERR_FILENO, process);
    if (error != 0) return std::string(" cannot be run: ") + std::strerror(error) + ".";
    Child child(process);
    std::string nothing;
    return Listen(child, -1, 0, limit, nothing);
}

std::string TakeOutput(const std::vector<std::string>& words, std::size_t most,
                       std::chrono::milliseconds limit, std::string& printed) {
    printed.clear();
    printed.reserve(most + 1);
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        return std::string(" cannot be run: ") + std::strerror(errno) + ".";
    }
    const shared::FileDescriptor output(ends[0]);
    shared::FileDescriptor input(ends[1]);
    fcntl(output.Get(), F_SETFL, O_NONBLOCK);
    pid_t process = -1;
    const int error = SpawnAttributes().Start(words, input.Get(), process);
    if (error != 0) return std::string(" cannot be run: ") + std::strerror(error) + ".";
    Child child(process);
    (void)input.Close();
    return Listen(child, output.Get(), most, limit, printed);
}

}  // namespace Kemffdc
