# SPDX-License-Identifier: Apache-2.0
"""The failing disk in a program that knows nothing of it, sanitized or not."""

import os
import subprocess

import pytest

import weather

PROGRAM = os.environ["VARNEX_DISK_FAULTS_PROGRAM"]
ORDER = ["open", "write", "fsync", "close", "rename", "unlink"]


def run(folder, rules, record=None):
    environment = {**os.environ, **weather.disk_faults(PROGRAM, rules, record)}
    return subprocess.run([PROGRAM, folder], env=environment, capture_output=True, text=True,
                          timeout=60, check=False)


@pytest.mark.parametrize("call", ORDER)
@pytest.mark.parametrize("error, text", [
    ("EIO", "Input/output error"),
    ("ENOSPC", "No space left on device"),
    ("EINTR", "Interrupted system call"),
])
def test_each_call_fails_with_each_error(tmp_path, call, error, text):
    ended = run(tmp_path, f"{call}:{tmp_path}:1:{error}", tmp_path.with_suffix(".record"))

    assert (ended.returncode, ended.stdout, ended.stderr) == (1, f"{call}: {text}\n", "")
    path = tmp_path / ("name" if call == "unlink" else "name.part")
    assert tmp_path.with_suffix(".record").read_text() == f"{call} 1 {error} {path}\n"


def test_a_disk_that_never_fails_tells_which_calls_there_are(tmp_path):
    record = tmp_path.with_suffix(".record")
    rules = ";".join(f"{call}:{tmp_path}:*:none" for call in ORDER)

    ended = run(tmp_path, rules, record)

    assert (ended.returncode, ended.stdout, ended.stderr) == (0, "done\n", "")
    assert [line.split()[0] for line in record.read_text().splitlines()] == ORDER


def test_short_writes_are_carried_on_by_the_program(tmp_path):
    record = tmp_path.with_suffix(".record")

    ended = run(tmp_path, f"write:{tmp_path}:*:short=2", record)

    assert (ended.returncode, ended.stdout) == (0, "done\n")
    assert len(record.read_text().splitlines()) == 5


def test_a_slow_disk_takes_its_time(tmp_path):
    record = tmp_path.with_suffix(".record")

    ended = run(tmp_path, f"fsync:{tmp_path}:1:delay=300", record)

    assert (ended.returncode, ended.stdout) == (0, "done\n")
    assert record.read_text() == f"fsync 1 delay=300 {tmp_path}/name.part\n"


def test_rules_that_cannot_be_read_end_the_program(tmp_path):
    ended = run(tmp_path, "write:/:1:EWHAT")

    assert ended.returncode == 2
    assert ended.stderr == "VARNEX_DISK_FAULTS: no rule of a failing disk: write:/:1:EWHAT\n"
