# SPDX-License-Identifier: Apache-2.0
"""What a person in front of a terminal sees of a fleet run, played to the tool's own view.

The run is a play of the test's (played_fleet.cpp), the terminal is a real one as far as the program can tell.
"""

import contextlib
import os
import pathlib
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(ROOT / "tests" / "first-hour"))

import screen  # noqa: E402

SECONDS = 15
BEGUN = "Run 12 (collect): 400 hosts, into /srv/ffdc/run"
FAILURE = "3:01  bmc400: no answer. Silence."


class Play:
    """The program on a terminal, told what happens through a FIFO."""

    def __init__(self, folder, columns, lines, environment=None):
        (folder / "home").mkdir()
        self._fifo = folder / "lines"
        os.mkfifo(self._fifo)
        kept = {name: value for name, value in os.environ.items() if name in ("ASAN_OPTIONS", "LSAN_OPTIONS")}
        self.terminal = screen.Terminal(folder, {**kept, "PATH": "/usr/bin:/bin", "LANG": "C.UTF-8", **(environment or {})},
                                        float(os.environ.get("KEMFFDC_SLOWNESS", "1")), columns, lines)
        self.command = f"{os.environ['KEMFFDC_PLAYED_FLEET']} {self._fifo}"
        self.terminal.type(f"P={self.command.split()[0]}; clear\n")
        self.terminal.wait_for_prompt(SECONDS)
        self.begin = len(self.terminal.lines()) - 1
        self.terminal.type(f"$P {self._fifo}\n")
        self._lines = self._fifo.open("w", encoding="utf-8", buffering=1)
        self.second = 180

    def tell(self, *lines):
        for line in lines:
            self._lines.write(line + "\n")

    def pass_time(self, seconds):
        """Four ticks each second, as in a run."""
        for _ in range(int(seconds * 4)):
            self.second += 0.25
            self.tell(f"at {self.second}")

    def wait_for(self, text):
        self._tick_until(lambda: text in "\n".join(self.seen()), repr(text))

    def expect(self, lines, chosen=lambda line: True):
        """That these come to stand below the command, of those lines that are chosen."""
        def seen():
            return [line for line in self.seen() if chosen(line)]
        with contextlib.suppress(screen.NotSeen):
            self._tick_until(lambda: seen() == lines, "")
        assert seen() == lines

    def _tick_until(self, seen, what):
        """A tick that comes before the one before it has been drawn is passed over: there is always another."""
        for left in range(SECONDS * 5, -1, -1):
            self.tell(f"at {self.second}")
            try:
                return self.terminal.wait_until(seen, 0.2, what)
            except screen.NotSeen:
                if left == 0:
                    raise

    def seen(self):
        return self.terminal.lines()[self.begin + 1:]

    def close(self):
        self._lines.close()
        self.terminal.stop()


@pytest.fixture
def play(tmp_path):
    playing = []

    def begin(columns, lines, **environment):
        playing.append(Play(tmp_path, columns, lines, environment))
        return playing[-1]

    yield begin
    for one in playing:
        one.close()


def play_to_the_middle(on):
    """Second 182: something is under way."""
    on.wait_for("400 queued")
    on.tell("hosts 1 120 done 20", "hosts 121 128 transferring 70", "hosts 129 300 gathering 80")
    on.pass_time(1)
    on.tell("fail 400 Silence.")
    on.pass_time(1)
    on.wait_for("3:02")


AT_WORK = [f"bmc{121 + number}  transferring     1:52  0 B" for number in range(8)]
SCREENS = {
    (80, 24): [
        "Run 12 (collect), 121 of 400 ended, 3:02, about 6 min left",
        "[##################------------------------------------------]  30 %",
        "120 done, 1 failed, 8 transferring, 172 gathering, 99 queued",
        *AT_WORK, "bmc129  gathering        1:42"],
    (200, 12): [
        "Run 12 (collect), 121 of 400 ended, 3:02, about 6 min left",
        "[##################------------------------------------------]  30 %",
        "120 done, 1 failed, 8 transferring, 172 gathering, 99 queued",
        *AT_WORK[:3]],
    (40, 14): [
        "Run 12 (collect), 121 of 400 ended,",
        "3:02, about 6 min left",
        "[#########----------------------]  30 %",
        "120 done, 1 failed, 8 transferring,",
        "172 gathering, 99 queued",
        "bmc121 transferring    1:52 0 B",
        "bmc122 transferring    1:52 0 B",
        "bmc123 transferring    1:52 0 B"],
}


@pytest.mark.parametrize("columns, lines", SCREENS)
def test_the_table_stands_below_the_failures(play, columns, lines):
    on = play(columns, lines)
    play_to_the_middle(on)
    on.expect([BEGUN, FAILURE, *SCREENS[columns, lines], ""])


def test_the_table_follows_the_window(play):
    on = play(200, 12)
    play_to_the_middle(on)
    on.terminal.resize(80, 24)
    on.expect([BEGUN, FAILURE, *SCREENS[80, 24], ""])
    on.terminal.resize(40, 24)
    on.pass_time(0.25)
    on.tell("fail 399 Nothing.")
    on.pass_time(0.75)
    on.expect([BEGUN[:40], FAILURE[:40], "3:02  bmc399: no answer. Nothing.",
               "Run 12 (collect), 122 of 400 ended,", "3:03, about 6 min left", "[#########----------------------]  30 %",
               "120 done, 2 failed, 8 transferring,", "172 gathering, 98 queued", ""],
              lambda line: not line.startswith("bmc"))


def test_a_hundred_failures_scroll_by(play):
    on = play(80, 24)
    on.wait_for("400 queued")
    for number in range(1, 101):
        on.tell(f"fail {number} Number {number}.")
        on.pass_time(0.25)
    failures = [f"3:{(number - 1) // 4:02}  bmc{number:03}: no answer. Number {number}." for number in range(1, 101)]
    on.expect([BEGUN, *failures,
               "Run 12 (collect), 100 of 400 ended, 3:25, time left unknown",
               "[###############---------------------------------------------]  25 %",
               "100 failed, 300 queued", ""])


def test_nothing_of_the_table_is_left_at_the_end(play):
    on = play(80, 24)
    play_to_the_middle(on)
    on.tell("hosts 121 399 done 20", "end 20")
    on.terminal.wait_for_prompt(SECONDS)
    assert on.seen() == [
        BEGUN, FAILURE, "",
        "Run 12 (collect): 399 of 400 hosts done in 3:02.", "",
        "1 no answer: bmc400",
        "    See whether the BMCs have power and network, and whether a firewall lies in between.", "",
        "Next:    kemffdc fleet resume 12",
        "kemffdc: Only 399 of 400 hosts done. [exit code 20]", "$"]


def test_a_terminal_is_fit_for_use_after_a_kill(play):
    on = play(80, 24)
    play_to_the_middle(on)
    on.wait_for("bmc129")
    on.terminal.kill()
    on.terminal.wait_for_prompt(SECONDS)
    on.terminal.type("stty -a | grep -c ' echo '\n")
    on.terminal.wait_for_prompt(SECONDS)
    lines = on.seen()
    assert lines[:-4] == [BEGUN, FAILURE, *SCREENS[80, 24]]
    assert "Killed" in lines[-4]
    assert lines[-3:] == ["$ stty -a | grep -c ' echo '", "1", "$"]
    assert on.terminal.shows_cursor()


def test_a_table_that_was_stopped_comes_anew_below_what_the_shell_says(play):
    on = play(80, 24)
    play_to_the_middle(on)
    on.wait_for("bmc129")
    on.terminal.type("\x1a")
    on.terminal.wait_for_prompt(SECONDS)
    on.terminal.type("fg\n")
    on.second = 300
    on.wait_for("bmc129  gathering        3:40")
    lines = on.seen()
    again = lines.index("$ fg")
    assert lines[:len(SCREENS[80, 24]) + 2] == [BEGUN, FAILURE, *SCREENS[80, 24]]
    assert lines[again + 2].startswith("Run 12 (collect), 121 of 400 ended, 5:00,")
    on.tell("end 130")
    on.terminal.wait_for_prompt(SECONDS)
    assert on.seen()[:again] == lines[:again]
