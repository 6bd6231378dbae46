// SPDX-License-Identifier: Apache-2.0
//
// Cases of a program share its process. What one of them sets for the process is put back after it,
// and a program that ends before its last case has failed.
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "gtest/gtest.h"

namespace {

using Environment = std::map<std::string, std::string>;

Environment CurrentEnvironment() {
    Environment environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const std::size_t end = text.find('=');
        if (end != std::string::npos) environment[text.substr(0, end)] = text.substr(end + 1);
    }
    return environment;
}

// Leaves alone what is the same: another thread may be reading it.
void PutBack(const Environment& before) {
    const Environment now = CurrentEnvironment();
    for (const auto& [name, value] : now) {
        if (before.count(name) == 0) unsetenv(name.c_str());
    }
    for (const auto& [name, value] : before) {
        const auto found = now.find(name);
        if (found == now.end() || found->second != value) setenv(name.c_str(), value.c_str(), 1);
    }
}

mode_t CurrentUmask() {
    const mode_t mask = umask(0);
    umask(mask);
    return mask;
}

class Signals {
public:
    Signals() {
        for (int n = 1; n < NSIG; ++n) sigaction(n, nullptr, &At(n));
        pthread_sigmask(SIG_SETMASK, nullptr, &m_blocked);
    }
    void PutBack() {
        for (int n = 1; n < NSIG; ++n) {
            struct sigaction now {};
            if (sigaction(n, nullptr, &now) == 0 && now.sa_handler != At(n).sa_handler) {
                sigaction(n, &At(n), nullptr);
            }
        }
        pthread_sigmask(SIG_SETMASK, &m_blocked, nullptr);
    }

private:
    struct sigaction& At(int n) {
        return m_actions[static_cast<std::size_t>(n)];
    }

    std::array<struct sigaction, NSIG> m_actions{};
    sigset_t m_blocked{};
};

class Limits {
public:
    Limits() {
        getrlimit(RLIMIT_NOFILE, &m_files);
        getrlimit(RLIMIT_FSIZE, &m_size);
    }
    void PutBack() const {
        setrlimit(RLIMIT_NOFILE, &m_files);
        setrlimit(RLIMIT_FSIZE, &m_size);
    }

private:
    rlimit m_files{};
    rlimit m_size{};
};

struct ProcessState {
    Environment environment = CurrentEnvironment();
    std::filesystem::path folder = std::filesystem::current_path();
    mode_t mask = CurrentUmask();
    Signals signals;
    Limits limits;
};

class KeepProcess : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& /*test*/) override {
        m_before = std::make_unique<ProcessState>();
    }
    void OnTestEnd(const testing::TestInfo& /*test*/) override {
        PutBack(m_before->environment);
        std::filesystem::current_path(m_before->folder);
        umask(m_before->mask);
        m_before->signals.PutBack();
        m_before->limits.PutBack();
    }

    std::unique_ptr<ProcessState> m_before;
};

// A case that calls exit(0) would pass for all that were to come.
class NoticeEarlyEnd : public testing::EmptyTestEventListener {
    void OnTestProgramStart(const testing::UnitTest& /*program*/) override {
        s_running = getpid();
        std::atexit([] {
            if (getpid() != s_running) return;
            std::fputs("The program ended before its last case.\n", stderr);
            _exit(1);
        });
    }
    void OnTestProgramEnd(const testing::UnitTest& /*program*/) override { s_running = 0; }

    static inline pid_t s_running = 0;
};

const bool kListens = [] {
    testing::TestEventListeners& listeners = testing::UnitTest::GetInstance()->listeners();
    listeners.Append(new KeepProcess);
    listeners.Append(new NoticeEarlyEnd);
    return true;
}();

}  // namespace
