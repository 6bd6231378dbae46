// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TERMINAL_SECRET_H
#define KEMFFDC_TERMINAL_SECRET_H

#include <chrono>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"

namespace Kemffdc {

// A password in memory, overwritten when it goes. Copies that libraries make are theirs.
class Secret {
public:
    Secret() = default;
    explicit Secret(std::string value);
    Secret(Secret&& other) noexcept;
    Secret& operator=(Secret&& other) noexcept;
    ~Secret();

    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;

    const std::string& Reveal() const { return m_value; }
    bool Empty() const { return m_value.empty(); }

private:
    void Wipe();
    std::string m_value;
};

// Where a password may come from, in this order.
struct SecretSource {
    std::string file;      // "-": standard input; empty: none
    const char* variable;  // its value is overwritten in place, so /proc/PID/environ loses it too
    std::string prompt;    // shown on the terminal
    const char* option;    // for texts: "--password-file"
    std::vector<std::string> command;    // between variable and prompt (Program.h)
    std::chrono::milliseconds limit{0};  // for the command
};

// Reads a password. A file's one last line end does not belong to it; other line ends do. Of what a
// command prints the first line counts. Asks only where standard input is a terminal, with echo
// off. kLocalFile: the file cannot be read, or the command fails. kUsage: there is none, it is
// empty, longer than 64 KiB or holds a NUL byte.
Outcome ReadSecret(const SecretSource& source, Secret& secret);

// Ends a prompt, if there is one: echo is on again. Safe from any thread, any time, as are the
// next.
void RestoreTerminal();

// Around a stop of this process: echo is on for the shell, then off again, and the prompt is
// repeated. Both do nothing where there is no prompt.
void LendTerminal();
void TakeTerminalBack();

}  // namespace Kemffdc

#endif
