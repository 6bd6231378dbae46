# SPDX-License-Identifier: Apache-2.0
"""The IPMI part of ./demo, beside another demo and beside a foreign service on port 115."""

import os
import pathlib
import re
import shutil
import socket
import subprocess

import pytest

import tool

SCRIPT = 'source tools/lib.sh; source tools/demo-ipmi.sh; collect_over_ipmi'
SECONDS = 120
REAL_ROOT = os.geteuid() == 0 and pathlib.Path("/proc/self/uid_map").read_text("ascii").split()[:2] == ["0", "0"]

pytestmark = pytest.mark.skipif(os.environ.get("VARNEX_PRIVATE_NET") != "private",
                                reason="this machine forbids a network of the test's own")


@pytest.fixture
def start_demo(tmp_path):
    """Starts the part in trees of their own, which have built the tool."""
    started = []

    def start(**environment):
        root = tmp_path / f"tree-{len(started)}"
        shutil.copytree(tool.ROOT / "tools", root / "tools")
        (root / "emulator").symlink_to(tool.ROOT / "emulator")
        (root / "demo-output").mkdir()
        program = root / "build" / "demo" / "bin" / "kemffdc"
        program.parent.mkdir(parents=True)
        program.write_text(f'#!/bin/sh\nexec "{tool.TOOL}" "$@"\n', encoding="utf-8")
        program.chmod(0o755)
        started.append(subprocess.Popen(
            ["bash", "-c", SCRIPT], cwd=root, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, env={**tool.clean_environment(), **environment}))
        return started[-1]

    yield start
    for process in started:
        process.stdout.close()
        process.kill()
        process.wait()


def test_the_whole_demo_shows_reason_record_resume_history_and_a_fleet(tmp_path):
    """Packages and the build apart, which are those of this tree."""
    root = tmp_path / "tree"
    shutil.copytree(tool.ROOT / "tools", root / "tools")
    shutil.copy(tool.ROOT / "demo", root / "demo")
    (root / "emulator").symlink_to(tool.ROOT / "emulator")
    for name, text in (("tools/setup", ""), ("build/demo/bin/kemffdc", f'exec "{tool.TOOL}" "$@"'), ("bin/cmake", "")):
        program = root / name
        program.parent.mkdir(parents=True, exist_ok=True)
        program.write_text(f"#!/bin/sh\n{text}\n", encoding="utf-8")
        program.chmod(0o755)
    home = tmp_path / "home"
    home.mkdir()
    theirs = {name: value for name, value in tool.clean_environment().items() if not name.startswith("XDG_")}
    ended = subprocess.run(
        ["./demo"], cwd=root, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
        timeout=SECONDS * tool.SLOWNESS, check=False,
        env={**theirs, "HOME": str(home), "PATH": f"{root / 'bin'}:{os.environ['PATH']}"})

    assert ended.returncode == 0, ended.stdout
    assert not list(home.rglob("*"))  # the user's own history and settings are not touched
    for text in ("Operation standard is taken", '"serial": "TV', "refused the login of user ffdc.", "store-refused", "ffdc/manifest.json"):
        assert text in ended.stdout, text
    assert len(re.findall(r"^ok  ", ended.stdout, re.MULTILINE)) == 6
    history = ended.stdout.partition("RUN  STARTED")[2].partition("kemffdc show")[0]
    assert re.findall(r"Z  ([a-z-]+) +([a-z]+) ", history) == [
        ("downloaded", "redfish"), ("not-finished", "redfish"), ("store-refused", "redfish"),
        ("downloaded", "ipmi"), ("exported", "cim"), ("downloaded", "redfish"), ("downloaded", "redfish")]
    for text in ("22 of 24 hosts done in ", "\n1 wrong password: bmc011\n", "\n1 no answer: bmc012\n"):
        assert text in ended.stdout, text
    page = re.search(r"The page for people is (\S+):", ended.stdout)[1]
    assert "bmc011" in (root / page).read_text(encoding="utf-8")


def end(process):
    text = process.communicate(timeout=SECONDS * tool.SLOWNESS)[0]
    assert process.returncode == 0, text
    assert len(re.findall(r"unpacks: \d+ entries", text)) > 0, text
    return text


@pytest.fixture
def forbidding(tmp_path):
    """A PATH on which no network of one's own can be had."""
    unshare = tmp_path / "bin" / "unshare"
    unshare.parent.mkdir()
    unshare.write_text("#!/bin/sh\necho 'unshare: Operation not permitted' >&2\nexit 1\n", encoding="utf-8")
    unshare.chmod(0o755)
    return f"{unshare.parent}:{os.environ['PATH']}"


def test_two_demos_run_at_once(start_demo):
    for text in [end(process) for process in [start_demo(), start_demo()]]:
        assert "of 127.0.0.2, in\na network of its own" in text


@pytest.mark.skipif(not REAL_ROOT, reason="only root has the machine's port 115")
def test_without_networks_of_their_own_they_take_turns_and_leave_foreign_services_alone(
        start_demo, forbidding):
    with socket.create_server(("127.0.0.2", 115)):
        for text in [end(process) for process in [start_demo(PATH=forbidding), start_demo(PATH=forbidding)]]:
            assert "taking the machine's ports" in text
            assert "of 127.0.0.3, in\nthis machine" in text


def test_who_may_not_is_told_that_nothing_was_shown(start_demo, forbidding):
    if os.geteuid() == 0:
        pytest.skip("root has port 115")
    text = start_demo(PATH=forbidding).communicate(timeout=SECONDS)[0]
    assert "Collecting over IPMI was NOT shown" in text
