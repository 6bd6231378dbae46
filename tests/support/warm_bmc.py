# SPDX-License-Identifier: Apache-2.0
"""Emulated BMCs, and what stands around them, that start at once: forked off a process that has loaded them already.

Most of what an emulated BMC costs is Python loading its modules, and tests start hundreds of them. The
first start() of a test program starts a nursery, which loads emulator/bmc once and forks a process for
each program. That one runs its own main() with its own arguments, environment, working folder and
standard streams, in the caller's process group and network, and ends as the program itself does. What it
is not is a child of the caller, and its command line in the process list is the nursery's.

    process = warm_bmc.start(["--scenario", file], environment)
    process.stdout.readline()
"""

import atexit
import contextlib
import gc
import importlib
import json
import os
import pathlib
import select
import signal
import socket
import subprocess
import sys
import threading
import traceback

EMULATOR = pathlib.Path(__file__).resolve().parents[2] / "emulator"
PROGRAM = EMULATOR / "emulated-bmc"
FLEET = EMULATOR / "emulated-fleet"
STORE = EMULATOR / "sftp-store"
RELAY = pathlib.Path(__file__).resolve().with_name("relay.py")
_MODULES = {str(PROGRAM): "bmc.main", str(FLEET): "bmc.fleet", str(STORE): "bmc.store", str(RELAY): "relay"}
LONGEST_REQUEST = 1 << 18


# ---- in the test program --------------------------------------------------------------------------

def start(arguments, environment, stderr=None, program=PROGRAM):
    """The program with these arguments. `stderr`: subprocess.PIPE, or that of the test program."""
    with _Nursery.guard:
        if _Nursery.running is None:
            _Nursery.running = _Nursery()
        return _Nursery.running.start(str(program), [str(argument) for argument in arguments], environment, stderr)


def run(arguments, environment, program=PROGRAM, timeout=60):
    """A program that ends by itself, as subprocess.run() has it. Its input stays open until then."""
    process = start(arguments, environment, subprocess.PIPE, program)
    with process.stdin, process.stdout, process.stderr:
        try:
            code = process.wait(timeout)
        except subprocess.TimeoutExpired:
            process.kill()
            raise
        return subprocess.CompletedProcess([program, *arguments], code, process.stdout.read(), process.stderr.read())


class Process:
    """The program's process, with those members of subprocess.Popen that tests use. Texts, not bytes."""

    def __init__(self, stdin, stdout, stderr, report):
        self.stdin, self.stdout, self.stderr = stdin, stdout, stderr
        self.returncode = None
        self._report = report
        self.pid = int(self._line())

    def poll(self):
        if self.returncode is None and select.select([self._report], [], [], 0)[0]:
            self.returncode = int(self._line())
            self._report.close()
        return self.returncode

    def wait(self, timeout=None):
        if self.returncode is None and not select.select([self._report], [], [], timeout)[0]:
            raise subprocess.TimeoutExpired("an emulated BMC", timeout)
        return self.poll()

    def send_signal(self, number):
        if self.poll() is None:
            with contextlib.suppress(ProcessLookupError):  # it has ended, and that is on its way here
                os.kill(self.pid, number)

    def kill(self):
        self.send_signal(signal.SIGKILL)

    def _line(self):
        line = self._report.readline()
        assert line, "the nursery of emulated BMCs has ended"
        return line


class _Nursery:
    guard = threading.Lock()
    running = None

    def __init__(self):
        self._control, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        with theirs:
            self._process = subprocess.Popen(
                ["/usr/bin/python3", __file__, str(theirs.fileno())],
                stdin=subprocess.DEVNULL, pass_fds=[theirs.fileno()])
        self._control.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, LONGEST_REQUEST)
        atexit.register(self._end)

    def start(self, program, arguments, environment, stderr):
        stdin, stdout, report = os.pipe(), os.pipe(), os.pipe()
        errors = os.pipe() if stderr == subprocess.PIPE else (None, os.dup(2))
        request = {"program": program, "arguments": arguments, "environment": environment, "folder": os.getcwd()}
        theirs = [stdin[0], stdout[1], errors[1], report[1]]
        socket.send_fds(self._control, [json.dumps(request).encode()], theirs)
        for descriptor in theirs:
            os.close(descriptor)
        return Process(os.fdopen(stdin[1], "w"), os.fdopen(stdout[0]),
                       None if errors[0] is None else os.fdopen(errors[0]), os.fdopen(report[0]))

    def _end(self):
        self._control.close()
        self._process.wait(10)


# ---- in the nursery -------------------------------------------------------------------------------

def _serve(control):
    """Until the test program closes its end. Its BMCs end by themselves, with their standard input."""
    sys.path.insert(0, str(EMULATOR))
    for module in (*_MODULES.values(), "bmc.sftp.service"):  # the last one is loaded where it is asked for
        importlib.import_module(module)
    gc.freeze()
    woken, wake = os.pipe()
    os.set_blocking(wake, False)
    signal.set_wakeup_fd(wake)
    signal.signal(signal.SIGCHLD, lambda *_: None)
    reports = {}
    while True:
        ready, _, _ = select.select([control, woken], [], [])
        if woken in ready:
            os.read(woken, 4096)
            _tell_ends(reports)
        if control in ready and not _start_one(control, reports):
            return


def _start_one(control, reports):
    message, descriptors, _, _ = socket.recv_fds(control, LONGEST_REQUEST, 4)
    if not message:
        return False
    request = json.loads(message)
    *streams, report = descriptors
    pid = os.fork()
    if pid == 0:
        _be_the_program(request, streams)
    os.write(report, f"{pid}\n".encode())
    reports[pid] = report
    for stream in streams:
        os.close(stream)
    return True


def _tell_ends(reports):
    while reports:
        pid, status = os.waitpid(-1, os.WNOHANG)
        if pid == 0:
            return
        report = reports.pop(pid)
        try:
            os.write(report, f"{os.waitstatus_to_exitcode(status)}\n".encode())
        except BrokenPipeError:
            pass  # nobody waits for it
        os.close(report)


def _be_the_program(request, streams):
    """As /usr/bin/python3 runs it; does not return."""
    code = 1
    try:
        signal.set_wakeup_fd(-1)
        signal.signal(signal.SIGCHLD, signal.SIG_DFL)
        for number, stream in enumerate(streams):
            os.dup2(stream, number)
        os.closerange(3, os.sysconf("SC_OPEN_MAX"))
        os.chdir(request["folder"])
        os.environ.clear()
        os.environ.update(request["environment"])
        sys.argv = [request["program"], *request["arguments"]]
        code = importlib.import_module(_MODULES[request["program"]]).main(sys.argv[1:])
    except SystemExit as end:
        code = end.code
    except BaseException:  # whatever it was: this process is no second nursery
        traceback.print_exc()
    finally:
        sys.stdout.flush()
        sys.stderr.flush()
        os._exit(code)


if __name__ == "__main__":
    with socket.socket(fileno=int(sys.argv[1])) as socket_of_the_tests:
        _serve(socket_of_the_tests)
