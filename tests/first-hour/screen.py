# SPDX-License-Identifier: Apache-2.0
"""A terminal with a shell on it, and what a person in front of it sees."""

import codecs
import fcntl
import os
import pathlib
import pty
import re
import select
import signal
import struct
import termios
import time

import pyte

COLUMNS, LINES = 80, 24
PROMPT = "$ "
_REMEMBERED = 10000  # lines that have left the screen
_BROKEN_OFF = re.compile(r"\x1b(\[[0-9;<=>?]*)?$")  # a control sequence whose end has not been read yet
# The title of the window counts the prompts: so it is known when the shell waits again.
_SHELL = r"""
PS1='\[\e]2;$((++prompts))\a\]$ '
PS2='> '
bind 'set enable-bracketed-paste off'
unset HISTFILE MAILCHECK
"""


class NotSeen(AssertionError):
    """What was waited for did not come."""


class _Screen(pyte.HistoryScreen):
    """Knows which of its lines go on in the next one, because the terminal broke them."""

    _in_text = False

    def draw(self, data):
        self._in_text = True
        super().draw(data)
        self._in_text = False

    def linefeed(self):
        if self._in_text:
            # Beyond the last column: it goes with the line wherever that goes, and is never shown.
            self.buffer[self.cursor.y][self.columns] = self.cursor.attrs
        super().linefeed()


class Terminal:
    """A shell with nobody's settings. Ended with stop()."""

    def __init__(self, folder, environment, slowness=1.0, columns=COLUMNS, lines=LINES):
        settings = folder / "shellrc"
        settings.write_text(_SHELL, encoding="ascii")
        self._slowness = slowness
        self._screen = _Screen(columns, lines, history=_REMEMBERED)
        self._stream = pyte.Stream(self._screen)
        self._decoder = codecs.getincrementaldecoder("utf-8")("replace")
        self._unread = ""  # by the screen
        self._prompts = 0
        self._shell, self._descriptor = pty.fork()
        if self._shell == 0:
            os.chdir(folder / "home")
            os.execve("/bin/bash", ["bash", "--noprofile", "--rcfile", str(settings), "-i"],
                      {"TERM": "xterm", **environment, "COLUMNS": str(columns), "LINES": str(lines)})
        _set_size(self._descriptor, columns, lines)
        self.wait_for_prompt(20)

    def lines(self):
        """All lines from the first one on, those that have left the screen too; the last is the cursor's.

        A line that the terminal broke is one.
        """
        columns = self._screen.columns
        rows = [*self._screen.history.top, *(self._screen.buffer[y] for y in range(self._screen.cursor.y + 1))]
        lines, is_continued = [], False
        for row in rows:
            text = "".join(row[x].data for x in range(columns))
            if is_continued:
                lines[-1] += text
            else:
                lines.append(text)
            is_continued = columns in row
        return [line.rstrip() for line in lines]

    def resize(self, columns, lines):
        """The window is drawn to another size."""
        self._screen.resize(lines, columns)
        _set_size(self._descriptor, columns, lines)

    def type(self, text):
        os.write(self._descriptor, text.encode())

    def wait_for_prompt(self, seconds):
        """Until the shell waits for the next command."""
        wanted = str(self._prompts + 1)
        self.wait_until(lambda: self._screen.title == wanted, seconds, "the shell's prompt")
        self._prompts += 1

    def wait_for_question(self, text, seconds):
        """Until the cursor stands behind the text, which is all of its line."""
        self.wait_until(lambda: self.lines()[-1] == text, seconds, repr(text))

    def wait_for(self, text, seconds, begin):
        """Until the text stands on the screen, in a line from number `begin` on."""
        self.wait_until(lambda: text in "\n".join(self.lines()[begin:]), seconds, repr(text))

    def wait_until(self, seen, seconds, what):
        """Until the function `seen` says so."""
        end = time.monotonic() + seconds * self._slowness
        while not seen():
            left = end - time.monotonic()
            if left <= 0 or not self._read(left):
                raise NotSeen(f"{what} did not come:\n" + "\n".join(self._screen.display))

    def _read(self, seconds):
        if not select.select([self._descriptor], [], [], seconds)[0]:
            return False
        try:
            data = os.read(self._descriptor, 65536)
        except OSError:  # the shell has ended
            return False
        text = self._unread + self._decoder.decode(data)
        broken_off = _BROKEN_OFF.search(text)
        whole = broken_off.start() if broken_off else len(text)
        self._unread = text[whole:]
        # pyte takes a private mode that it does not know for text.
        self._stream.feed(re.sub(r"\x1b\[[<=>][0-9;]*[a-zA-Z]", "", text[:whole]))
        return bool(data)

    def shows_cursor(self):
        return not self._screen.cursor.hidden

    def kill(self):
        """What the shell runs, so that it cannot do anything about it."""
        children = pathlib.Path(f"/proc/{self._shell}/task/{self._shell}/children")
        for child in children.read_text(encoding="ascii").split():
            os.kill(int(child), signal.SIGKILL)

    def stop(self):
        """Ends the shell and what it runs."""
        os.close(self._descriptor)
        os.kill(self._shell, signal.SIGKILL)
        os.waitpid(self._shell, 0)


def _set_size(descriptor, columns, lines):
    fcntl.ioctl(descriptor, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))
