# SPDX-License-Identifier: Apache-2.0
"""Bad weather for tests in Python: a relay before a server, a disk that fails."""

import functools
import json
import os
import pathlib
import re
import subprocess
import tempfile

import warm_bmc


class Relay:
    """relay.py before a port of 127.0.0.1; `weather` are its options. Ended with stop()."""

    def __init__(self, protocol, port, *weather, target="127.0.0.1"):
        handle, self._record = tempfile.mkstemp(prefix="relay-")
        os.close(handle)
        self._process = warm_bmc.start(
            [protocol, "--to", f"{target}:{port}", "--record", self._record, *weather], dict(os.environ),
            program=warm_bmc.RELAY)
        line = self._process.stdout.readline()
        assert line, "the relay did not start"
        ready = json.loads(line)
        self.address, self.port = ready["address"], ready["port"]

    def decisions(self):
        """What was decided so far, in order."""
        return pathlib.Path(self._record).read_text(encoding="utf-8").splitlines()

    def stop(self):
        self._process.stdin.close()
        self._process.wait(10)
        self._process.stdout.close()
        os.unlink(self._record)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()


@functools.lru_cache(maxsize=None)
def sanitizers_of(program):
    """The runtimes that it is linked to."""
    needed = subprocess.run(["ldd", program], capture_output=True, text=True, check=False).stdout
    return re.findall(r"=> (\S*/lib[atu]+san\.so\.\d+)", needed)


def disk_faults(program, rules, record=None):
    """The environment in which `program` finds such a disk; DiskFaults.h tells of rules.

    The library's path is in VARNEX_DISK_FAULTS_LIBRARY. An address-sanitized program wants its
    runtime loaded before any other library.
    """
    preload = [os.environ["VARNEX_DISK_FAULTS_LIBRARY"]]
    preload[:0] = sanitizers_of(program)
    environment = {"LD_PRELOAD": " ".join(preload), "VARNEX_DISK_FAULTS": rules}
    if record:
        environment["VARNEX_DISK_FAULTS_RECORD"] = str(record)
    return environment
