# SPDX-License-Identifier: Apache-2.0
"""Management stations that Ansible reaches by SSH: one sshd each, which sees an /etc and a /srv of its own."""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import time

import controller
import tool

sys.path.insert(0, str(controller.ROOT / "tests" / "support"))

import openssh_sftp  # noqa: E402

CONFIGURATION = """
Port {port}
ListenAddress {address}
HostKey {folder}/hostkey
AuthorizedKeysFile {folder}/authorized_keys
PidFile none
UsePAM no
PasswordAuthentication no
KbdInteractiveAuthentication no
StrictModes no
PermitRootLogin yes
MaxStartups 100
SetEnv {environment}
"""

INSIDE = """
set -e
folder=$1 program=$2
mount --bind "$folder/etc" /etc
mount --bind "$folder/srv" /srv
mount -t tmpfs -o mode=755 none /run
mkdir -m 755 /run/sshd
exec "$program" -D -e -f "$folder/config"
"""


class Station:
    """One of them, at an address of its own. `folder`/srv is what it has as /srv, and so on."""

    def __init__(self, folder, number, key):
        self.folder = folder
        self.name = f"station{number}"
        self.address = f"127.0.2.{number}"
        self._key = key
        self._program = openssh_sftp.check()
        self._write_files()
        openssh_sftp.make_host_key(folder)
        self.start()

    def start(self):
        libraries = ":".join(str(path) for path in self._program.parents[1].glob("lib/*-linux-gnu"))
        command = ["unshare", "--mount", "--propagation", "private", "sh", "-c", INSIDE, "sh", self.folder,
                   self._program]
        with open(self.folder / "log", "ab") as log:
            self.process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                env={**tool.clean_environment(), "LD_LIBRARY_PATH": libraries})
        openssh_sftp.wait_until_ready(self.process, self.address, 22)

    def _write_files(self):
        (self.folder / "srv").mkdir(parents=True)
        shutil.copytree("/etc", self.folder / "etc", symlinks=True)
        with open(self.folder / "etc" / "passwd", "a", encoding="utf-8") as file:
            file.write("sshd:x:65533:65534::/run/sshd:/usr/sbin/nologin\n")
        shutil.copy(f"{self._key}.pub", self.folder / "authorized_keys")
        environment = {"XDG_STATE_HOME": f"{self.folder}/state", **controller.sanitizers()}
        (self.folder / "config").write_text(
            CONFIGURATION.format(port=22, address=self.address, folder=self.folder,
                                 environment=" ".join(f"{k}={v}" for k, v in environment.items())),
            encoding="utf-8")

    def host(self):
        """As an inventory of Ansible has it."""
        options = f"-o UserKnownHostsFile={self.folder}/known_hosts -o StrictHostKeyChecking=accept-new"
        return {
            "ansible_host": self.address, "ansible_user": "root",
            "ansible_ssh_private_key_file": str(self._key), "ansible_ssh_common_args": options,
            "ansible_remote_tmp": str(self.folder / "remote"),
        }

    def stop(self):
        """Nobody reaches it any more, and connections are gone. What runs on it goes on."""
        self.process.send_signal(signal.SIGSTOP)  # no new ones meanwhile
        for connection in self._connections():
            os.kill(connection, signal.SIGKILL)
        self.process.kill()
        self.process.wait(30)

    def _connections(self):
        parent = self.process.pid
        children = pathlib.Path(f"/proc/{parent}/task/{parent}/children").read_text(encoding="ascii")
        return [int(number) for number in children.split()]

    def conductors(self):
        """The processes of this station that work on a fleet run."""
        home = f"XDG_STATE_HOME={self.folder}/state"
        found = []
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                words = (process / "cmdline").read_bytes().split(b"\0")
                if words[1:3] == [b"fleet", b"collect"] and home.encode() in (process / "environ").read_bytes():
                    found.append(int(process.name))
            except OSError:
                pass  # it has ended
        return found

    def path(self, path):
        """Where a file of the station lies."""
        top, _, rest = path.lstrip("/").partition("/")
        return self.folder / top / rest if top in ("etc", "srv") else pathlib.Path(path)


def make_key(folder):
    """The key that Ansible logs in with."""
    key = folder / "key"
    subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", key], check=True, timeout=60)
    return key


def wait_until(holds, what, seconds=60.0):
    end = time.monotonic() + seconds * tool.SLOWNESS
    while not holds():
        assert time.monotonic() < end, f"not within {seconds} s: {what}"
        time.sleep(0.05)
