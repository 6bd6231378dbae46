// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/OwnTerminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace Kemffdc {

TerminalSize SizeOfTerminal() {
    TerminalSize size;
    winsize told{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &told) != 0) return size;
    if (told.ws_col != 0) size.columns = told.ws_col;
    if (told.ws_row != 0) size.rows = told.ws_row;
    return size;
}

bool HasTerminal() {
    const pid_t foreground = tcgetpgrp(STDERR_FILENO);
    return foreground < 0 || foreground == getpgrp();
}

}  // namespace Kemffdc
