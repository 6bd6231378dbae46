# SPDX-License-Identifier: Apache-2.0
"""The tool's own descriptors, and standard streams that somebody has closed."""

import pathlib
import signal
import stat
import time

import tool

O_CLOEXEC = 0o2000000
SLOW = {"redfish": {"archive": {"size": 60000000}, "task_states": ["Completed"],
                    "answers": {"GET /download/*": [{"rate": 1000000}]}}}


def descriptors(process):
    """Flags and targets of what is open beyond the standard streams."""
    found = {}
    for link in pathlib.Path(f"/proc/{process.pid}/fd").iterdir():
        if int(link.name) > 2:
            info = pathlib.Path(f"/proc/{process.pid}/fdinfo/{link.name}").read_text(encoding="ascii")
            found[str(link.readlink())] = int(info.partition("flags:")[2].split()[0], 8)
    return found


def local_pairs():
    """Sockets that lead nowhere else: libcurl wakes itself up with a pair that is not close-on-exec."""
    lines = pathlib.Path("/proc/net/unix").read_text(encoding="ascii", errors="replace").splitlines()[1:]
    return {f"socket:[{line.split()[6]}]" for line in lines if len(line.split()) == 7}


def test_no_descriptor_of_the_tool_would_reach_a_child(start_bmc, tmp_path):
    bmc = start_bmc(SLOW)
    output = tmp_path / "out"
    running = tool.Running(
        tool.collect(bmc, output, "--log-file", str(tmp_path / "log")), password=bmc.password)
    bmc.wait_for("/download")
    time.sleep(0.3)
    pairs = local_pairs()
    found = {target: flags for target, flags in descriptors(running.process).items() if target not in pairs}
    assert running.interrupt().code == 130
    kinds = " ".join(found)
    for expected in ("socket:", "eventfd", "signalfd", "/log", "/.kemffdc-"):
        assert expected in kinds, f"{expected} is not among {found}"
    assert [target for target, flags in found.items() if not flags & O_CLOEXEC] == []


def test_closed_streams_are_no_files_of_the_tool(start_bmc, tmp_path):
    """What is meant for them goes nowhere, and the tool can be interrupted."""
    bmc = start_bmc(SLOW)
    output, log = tmp_path / "out", tmp_path / "log"
    arguments = [a for a in tool.collect(bmc, output, "--log-file", str(log)) if a not in ("--password-file", "-")]
    running = tool.Running(
        arguments, environment={"KEMFFDC_PASSWORD": bmc.password},
        prefix=["sh", "-c", 'exec "$0" "$@" <&- >&- 2>&-'])
    bmc.wait_for("/download")
    streams = [pathlib.Path(f"/proc/{running.process.pid}/fd/{n}") for n in range(3)]
    assert all(stat.S_ISCHR(stream.stat().st_mode) for stream in streams), [s.readlink() for s in streams]
    assert running.interrupt(signal.SIGTERM).code == 130
    assert not output.exists()
    lines = log.read_text(encoding="utf-8").splitlines()
    assert lines and all(line.startswith("20") for line in lines), lines
