# SPDX-License-Identifier: Apache-2.0
"""The room in which the transcripts take place: BMCs, a file store, and who knows the passwords.

The ports are the usual ones, in a network of the test's own. The first BMC is 127.0.0.2.
"""

import contextlib
import json
import os
import pathlib
import subprocess

import yaml

ROOT = pathlib.Path(__file__).resolve().parents[2]
EMULATOR = ROOT / "emulator"
BMC_PASSWORD, STORE_PASSWORD = "Rack-7-secret", "Store-secret-9"
STORE_ADDRESS, STORE_PORT = "127.0.0.9", 22

_PORTS = ["--redfish-port", "443", "--cim-port", "5988", "--cim-https-port", "5989", "--ipmi-port", "623"]
_FOREIGN = ("REQUESTS_CA_BUNDLE", "CURL_CA_BUNDLE", "SSL_CERT_FILE", "SSL_CERT_DIR")

# By what they are called in the transcripts' directions. The seed makes the same machine every time.
_SCENARIOS = {
    "BMC": {
        "closed": ["cim", "cim-https", "ipmi"],
        "redfish": {
            "archive": {"seed": 7, "size": 3 << 20},
            "task_step_seconds": 8,  # longer than the tool's pause between two looks, so that each state is seen
            "download": {"ranges": True},
            "task_states": [
                "New",
                {"state": "Running", "percent": 10, "messages": ["Reading the event log."]},
                {"state": "Running", "percent": 60, "messages": ["Dumping processor 1."]},
                "Completed",
            ],
        },
    },
}


class Room:
    """What stands in it. Everything is ended with close()."""

    def __init__(self, folder):
        self.folder = folder
        self.slowness = float(os.environ.get("KEMFFDC_SLOWNESS", "1"))
        self._running = []
        self._right_password = ""
        for name in ("home", "bin", "store"):
            (folder / name).mkdir()
        (folder / "bin" / "kemffdc").symlink_to(os.environ["KEMFFDC"])
        self._bmc = self._start_bmc("BMC", "127.0.0.2")
        self._start_store()

    def secret(self, name):
        """What a direction says is typed."""
        return {"the password": BMC_PASSWORD, "a wrong password": "letmein",
                "the store's password": STORE_PASSWORD}[name]

    def happen(self, direction):
        """What a direction says happens behind the scenes."""
        {"the BMC is set up anew, and has another certificate": self._renew_bmc,
         "a rack of six BMCs is switched on; rack.csv and accounts.yaml tell of them": self._start_rack,
         "somebody finds the right password of the account spare": self._correct_password}[direction]()

    def _renew_bmc(self):
        self._end(self._bmc)
        self._bmc = self._start_bmc("BMC", "127.0.0.2", "--new-certificate")

    def _start_rack(self):
        """The seed makes the second one have a password of its own, and the fourth one cut a download.

        They gather for so long that all of them do at once, on a busy machine too.
        """
        _, rack = self._start([EMULATOR / "emulated-fleet", "--count", "6", "--faults", "34", "--seed", "26",
                            "--gathering", "16", "--standard-ports", "--state-dir", self.folder / "rack"])
        accounts = yaml.safe_load(pathlib.Path(rack["credentials"]).read_text(encoding="utf-8"))
        password = pathlib.Path(accounts["fleet"]["password_file"]).read_text(encoding="utf-8").strip()
        self._right_password = password[::-1] + "X"
        self._write("rack.csv", "name,address,credential\n"
                                "bmc001,127.1.0.1,rack\n"
                                "bmc002,127.1.0.2,spare\n"
                                "bmc[003-006],127.1.0.[3-6],rack\n")
        self._write("accounts.yaml", "rack: {user: admin, password_file: ~/.rack}\n"
                                     "spare: {user: admin, password_file: ~/.spare}\n")
        self._write(".rack", password + "\n")
        self._write(".spare", "letmein\n")

    def _correct_password(self):
        self._write(".spare", self._right_password + "\n")

    def _write(self, name, text):
        path = self.folder / "home" / name
        path.write_text(text, encoding="utf-8")
        path.chmod(0o600)

    def as_if_at_home(self, line):
        """The line with the folder of the day's test as a home like anybody's."""
        return line.replace(str(self.folder / "home"), "/home/olga")

    def environment(self):
        """That of a login of somebody who has just installed the tool."""
        kept = {name: value for name, value in os.environ.items()
                if name in ("LSAN_OPTIONS", "ASAN_OPTIONS", "LD_LIBRARY_PATH")}
        return {**kept, "HOME": str(self.folder / "home"), "USER": "olga", "LANG": "C.UTF-8", "TZ": "UTC",
                "PATH": f"{self.folder / 'bin'}:/usr/bin:/bin"}

    def _start_bmc(self, name, address, *more):
        folder = self.folder / f"bmc-{address}"
        folder.mkdir(exist_ok=True)
        scenario = folder / "scenario.yaml"
        scenario.write_text(yaml.safe_dump({"password": BMC_PASSWORD, **_SCENARIOS[name]}), encoding="utf-8")
        process, _ = self._start([EMULATOR / "emulated-bmc", "--scenario", scenario, "--state-dir", folder,
                                  "--bind", address, *_PORTS, *more])
        return process

    def _start_store(self):
        self._start([EMULATOR / "sftp-store", "--bind", STORE_ADDRESS, "--port", str(STORE_PORT), "--user", "ffdc",
                     self.folder / "store"], SFTP_STORE_PASSWORD=STORE_PASSWORD)

    def _start(self, command, **more):
        """The process, and what it says once it is ready."""
        environment = {name: value for name, value in os.environ.items()
                       if name not in _FOREIGN and not name.lower().endswith("_proxy")}
        process = subprocess.Popen(list(map(str, command)), stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                   env={**environment, **more})
        self._running.append(process)
        line = process.stdout.readline()
        assert line, f"{command[0]} did not start"
        return process, json.loads(line)

    def _end(self, process):
        self._running.remove(process)
        process.stdin.close()
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        process.stdout.close()

    def close(self):
        for process in list(self._running):
            self._end(process)


@contextlib.contextmanager
def furnished(folder):
    room = Room(folder)
    try:
        yield room
    finally:
        room.close()
