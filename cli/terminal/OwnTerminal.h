// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TERMINAL_OWNTERMINAL_H
#define KEMFFDC_TERMINAL_OWNTERMINAL_H

namespace Kemffdc {

// In characters.
struct TerminalSize {
    int columns = 80;
    int rows = 24;

    friend bool operator==(TerminalSize a, TerminalSize b) {
        return a.columns == b.columns && a.rows == b.rows;
    }
    friend bool operator!=(TerminalSize a, TerminalSize b) { return !(a == b); }
};

// Of the terminal on standard error at this moment; 80x24 where that is none or does not tell.
TerminalSize SizeOfTerminal();

// Whether this process may write to that terminal now: it is not in the background of its shell.
bool HasTerminal();

}  // namespace Kemffdc

#endif
