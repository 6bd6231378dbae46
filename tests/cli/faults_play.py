# SPDX-License-Identifier: Apache-2.0
"""What the tests that play docs/faults.md have in common, whichever the channel."""

import contextlib
import os
import re
import socket
import subprocess

import tool


@contextlib.contextmanager
def closed_port():
    yield "127.0.0.1", tool.free_port()


@contextlib.contextmanager
def unknown_host():
    yield "no-such-bmc.invalid", 443


@contextlib.contextmanager
def mute_server():
    """Accepts connections and says nothing."""
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        listener.listen()
        yield "127.0.0.1", listener.getsockname()[1]


def special_folder(folder, options):
    """A command prefix under which `folder` is a small or a read-only file system of its own; None: not on this machine.

    It exists for the tool alone, so what is left in it is listed before it goes.
    """
    script = (
        f'mount -t tmpfs -o {options} tmpfs "$0" || exit 99; "$@"; code=$?; '
        'find "$0" -mindepth 1 | sed s/^/LEFT:/ >&2; exit $code'
    )
    user = [] if os.geteuid() == 0 else ["--user", "--map-root-user"]
    prefix = ["unshare", *user, "--mount", "sh", "-c", script, str(folder)]
    probe = subprocess.run([*prefix, "true"], capture_output=True, timeout=20, check=False)
    return prefix if probe.returncode == 0 else None


def check_texts(ended, log, secrets):
    """No secret, nor a line of one, and nothing that a terminal obeys, in what a run has said."""
    texts = {"output": ended.out + ended.err, "log": log, "process list": ended.command_line}
    parts = {line for secret in secrets for line in secret.splitlines() if len(line) > 5} | set(secrets)
    for place, text in texts.items():
        for secret in parts:
            assert secret not in text, f"a secret stands in the {place}"
        assert "\x1b" not in text and "\x07" not in text, place


def check_reason(row, place, ended):
    """It ended as the row says. Whether the run can be continued."""
    reason, command = re.fullmatch(
        r"(.*?)( This run can be continued: kemffdc resume \d+)?", ended.json["reason"], re.DOTALL).groups()
    assert re.fullmatch(row.pattern(*map(str, place)), reason), reason
    assert f"kemffdc: {ended.json['reason']} [exit code {row.code}]" in ended.err
    return command is not None
