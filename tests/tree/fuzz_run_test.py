# SPDX-License-Identifier: Apache-2.0
"""fuzz/run tells what each target has done, and fails when one finds something."""

import pathlib
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
DONE = 'echo "Done 1234 runs in 2 second(s)" >&2'


@pytest.fixture
def build(tmp_path):
    """A build folder whose targets are scripts, one for each folder of seeds."""
    names = sorted(path.name for path in (ROOT / "fuzz" / "seeds").iterdir())
    (tmp_path / "fuzz-targets").write_text("".join(f"{name}\n" for name in names), encoding="utf-8")
    (tmp_path / "bin").mkdir()
    for name in names:
        write_target(tmp_path, name, DONE)
    return tmp_path


def write_target(build, name, script):
    program = build / "bin" / f"fuzz_{name}"
    program.write_text(f"#!/bin/sh\n{script}\n", encoding="utf-8")
    program.chmod(0o755)


def run(build, *arguments):
    return subprocess.run([ROOT / "fuzz" / "run", build, *arguments], capture_output=True, text=True,
                          timeout=60, check=False)


def test_each_target_is_run_and_told(build):
    ended = run(build, "5")

    names = (build / "fuzz-targets").read_text(encoding="utf-8").split()
    assert (ended.returncode, ended.stderr) == (0, "")
    assert sorted(ended.stdout.splitlines()) == [f"fuzz_{name}: 1234 executions in 2 s" for name in names]


def test_time_and_seeds_are_handed_on(build):
    write_target(build, "json", f'printf "%s\\n" "$@" >"{build}/words"; {DONE}')

    assert run(build, "7", "json").returncode == 0

    words = (build / "words").read_text(encoding="utf-8").splitlines()
    assert "-max_total_time=7" in words
    assert words[-1] == str(ROOT / "fuzz" / "seeds" / "json")


def test_a_find_fails_the_run_and_is_shown(build):
    write_target(build, "json", "echo 'SUMMARY: it broke' >&2; exit 77")

    ended = run(build, "5")

    assert ended.returncode != 0
    assert "SUMMARY: it broke" in ended.stdout
    assert "fuzz_json found something" in ended.stderr


def test_a_target_without_seeds_fails_the_run(build):
    assert "has no seeds" in run(build, "5", "unheard_of").stderr


def test_seeds_without_a_target_fail_the_run(build):
    (build / "fuzz-targets").write_text("json\n", encoding="utf-8")

    assert "no fuzz target has the seeds" in run(build, "5").stderr
