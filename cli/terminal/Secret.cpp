// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/Secret.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "cli/terminal/Program.h"

namespace Kemffdc {
namespace {

constexpr std::size_t kMaxSecret = std::size_t{64} * 1024;

std::mutex g_terminalLock;
int g_terminal = -1;  // the terminal whose echo is off, or -1; what follows counts with it
bool g_lent = false;  // its echo is on for the moment
std::string g_prompt;
termios g_terminalBefore;
termios g_terminalSilent;

void Say(int terminal, const std::string& text) {
    (void)!write(terminal, text.data(), text.size());  // who cannot be asked cannot answer either
}

// Switches the echo off and asks.
bool Ask(int terminal, const std::string& prompt) {
    std::lock_guard<std::mutex> hold(g_terminalLock);
    if (tcgetattr(terminal, &g_terminalBefore) != 0) return false;
    g_terminalSilent = g_terminalBefore;
    g_terminalSilent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    if (tcsetattr(terminal, TCSAFLUSH, &g_terminalSilent) != 0) return false;
    g_terminal = terminal;
    g_lent = false;
    g_prompt = prompt;
    Say(terminal, prompt);
    return true;
}

// Whether there is a prompt, and the terminal is this process's to change. In the background it is
// the shell's, and who changes it there is stopped.
bool HoldsTerminal() { return g_terminal >= 0 && tcgetpgrp(g_terminal) == getpgrp(); }

// The next bytes of `descriptor`, a whole password at most. Stops at a line end if `line`.
bool ReadBytes(int descriptor, bool line, std::string& bytes) {
    bytes.reserve(kMaxSecret + 2);  // grows never: no copies are left behind
    char byte = 0;
    while (bytes.size() <= kMaxSecret + 1) {
        const ssize_t got = read(descriptor, &byte, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0 || (line && byte == '\n')) return true;
        bytes.push_back(byte);
    }
    return true;
}

void DropLineEnd(std::string& text) {
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
        if (!text.empty() && text.back() == '\r') text.pop_back();
    }
}

Outcome Judge(std::string bytes, const std::string& origin, Secret& secret) {
    Secret candidate(std::move(bytes));
    if (candidate.Empty())
        return Failure(kUsage, Cause::kNoPassword, "The password from " + origin + " is empty.");
    if (candidate.Reveal().size() > kMaxSecret) {
        return Failure(kUsage, Cause::kNoPassword,
                       "The password from " + origin + " is longer than 64 KiB.");
    }
    if (candidate.Reveal().find('\0') != std::string::npos) {
        return Failure(kUsage, Cause::kNoPassword,
                       "The password from " + origin + " holds a NUL byte.");
    }
    secret = std::move(candidate);
    return {};
}

Outcome FromFile(const SecretSource& source, Secret& secret) {
    const bool standardInput = source.file == "-";
    const std::string origin = standardInput ? "standard input" : "file " + source.file;
    const int descriptor =
        standardInput ? STDIN_FILENO : open(source.file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        return Failure(kLocalFile, "Cannot open the password file " + source.file + ": " +
                                       std::strerror(errno) + ".");
    }
    std::string bytes;
    const bool read = ReadBytes(descriptor, false, bytes);
    const std::string why = read ? "" : std::strerror(errno);
    if (!standardInput) close(descriptor);
    if (!read)
        return Failure(kLocalFile, "Cannot read the password from " + origin + ": " + why + ".");
    DropLineEnd(bytes);
    return Judge(std::move(bytes), origin, secret);
}

Outcome FromPrompt(const SecretSource& source, Secret& secret) {
    const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC);
    if (terminal < 0 || !Ask(terminal, source.prompt)) {
        if (terminal >= 0) close(terminal);
        return Failure(kUsage, Cause::kNoPassword,
                       "Cannot ask for a password on this terminal; use " +
                           std::string(source.option) + " FILE.");
    }
    std::string bytes;
    const bool read = ReadBytes(terminal, true, bytes);
    Say(terminal, "\n");
    RestoreTerminal();
    close(terminal);
    if (!read) return Failure(kUsage, Cause::kNoPassword, "The terminal gave no password.");
    return Judge(std::move(bytes), "the terminal", secret);
}

Outcome FromCommand(const SecretSource& source, Secret& secret) {
    const std::string origin = "the password command " + source.command.front();
    std::string bytes;
    const std::string why = TakeOutput(source.command, kMaxSecret + 1, source.limit, bytes);
    const Secret printed(std::move(bytes));
    if (!why.empty()) return Failure(kLocalFile, "T" + origin.substr(1) + why);
    std::string line = printed.Reveal().substr(0, printed.Reveal().find('\n'));
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return Judge(std::move(line), origin, secret);
}

bool FromEnvironment(const SecretSource& source, Secret& secret) {
    char* value = std::getenv(source.variable);
    if (value == nullptr || *value == '\0') return false;
    secret = Secret(value);
    explicit_bzero(value, std::strlen(value));
    unsetenv(source.variable);
    return true;
}

}  // namespace

Secret::Secret(std::string value) : m_value(std::move(value)) {}

Secret::Secret(Secret&& other) noexcept : m_value(std::move(other.m_value)) { other.Wipe(); }

Secret& Secret::operator=(Secret&& other) noexcept {
    if (this != &other) {
        Wipe();
        m_value = std::move(other.m_value);
        other.Wipe();
    }
    return *this;
}

Secret::~Secret() { Wipe(); }

void Secret::Wipe() {
    m_value.resize(m_value.capacity());  // a short text that was moved away still stands there
    explicit_bzero(m_value.data(), m_value.size());
    m_value.clear();
}

Outcome ReadSecret(const SecretSource& source, Secret& secret) {
    const bool terminal = isatty(STDIN_FILENO) == 1;
    // "-" on a terminal means typing: then with echo off.
    if (!source.file.empty() && !(source.file == "-" && terminal)) return FromFile(source, secret);
    if (source.file.empty() && FromEnvironment(source, secret)) return {};
    if (source.file.empty() && !source.command.empty()) return FromCommand(source, secret);
    if (terminal) return FromPrompt(source, secret);
    return Failure(kUsage, Cause::kNoPassword,
                   "No password: use " + std::string(source.option) +
                       " FILE (- is standard input) or the environment variable " +
                       source.variable + ".");
}

void RestoreTerminal() {
    std::lock_guard<std::mutex> hold(g_terminalLock);
    if (HoldsTerminal()) tcsetattr(g_terminal, TCSANOW, &g_terminalBefore);
    g_terminal = -1;
}

void LendTerminal() {
    std::lock_guard<std::mutex> hold(g_terminalLock);
    if (!HoldsTerminal()) return;
    tcsetattr(g_terminal, TCSANOW, &g_terminalBefore);
    g_lent = true;
}

void TakeTerminalBack() {
    std::lock_guard<std::mutex> hold(g_terminalLock);
    if (!HoldsTerminal()) return;
    tcsetattr(g_terminal, TCSANOW, &g_terminalSilent);
    if (g_lent) Say(g_terminal, "\n" + g_prompt);  // what was typed so far is gone
    g_lent = false;
}

}  // namespace Kemffdc
