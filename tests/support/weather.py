# SPDX-License-Identifier: Apache-2.0
"""Bad weather for tests in Python: a relay before a server, a disk that fails."""

import json
import os
import pathlib
import re
import subprocess
import tempfile

HERE = pathlib.Path(__file__).resolve().parent


class Relay:
    """relay.py before a port of 127.0.0.1; `weather` are its options. Ended with stop()."""

    def __init__(self, protocol, port, *weather, target="127.0.0.1"):
        handle, self._record = tempfile.mkstemp(prefix="relay-")
        os.close(handle)
        self._process = subprocess.Popen(
            [HERE / "relay.py", protocol, "--to", f"{target}:{port}", "--record", self._record,
             *map(str, weather)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
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


def disk_faults(program, rules, record=None):
    """The environment in which `program` finds such a disk; DiskFaults.h tells of rules.

    The library's path is in VARNEX_DISK_FAULTS_LIBRARY. An address-sanitized program wants its
    runtime loaded before any other library.
    """
    preload = [os.environ["VARNEX_DISK_FAULTS_LIBRARY"]]
    needed = subprocess.run(["ldd", program], capture_output=True, text=True, check=False).stdout
    preload[:0] = re.findall(r"=> (\S*/lib[atu]+san\.so\.\d+)", needed)
    environment = {"LD_PRELOAD": " ".join(preload), "VARNEX_DISK_FAULTS": rules}
    if record:
        environment["VARNEX_DISK_FAULTS_RECORD"] = str(record)
    return environment
