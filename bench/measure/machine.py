# SPDX-License-Identifier: Apache-2.0
"""On what it was measured, and with which versions of the peers."""

import os
import pathlib
import platform
import re
import subprocess


def first_line(*command):
    """What a program says of itself; empty where it is not here."""
    try:
        said = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
    except OSError:
        return ""
    return (said.stdout + said.stderr).strip().split("\n", maxsplit=1)[0]


def field(file, name):
    for line in pathlib.Path(file).read_text(encoding="utf-8").splitlines():
        if line.startswith(name):
            return re.split(r"[:=]", line, maxsplit=1)[1].strip().strip('"')
    return "unknown"


def cached(build, name):
    return field(build / "CMakeCache.txt", f"{name}:").rpartition("=")[2]


def package_version(name):
    return first_line("dpkg-query", "-W", "-f", "${Version}", name) or "unknown"


def machine(build):
    memory = int(field("/proc/meminfo", "MemTotal").split()[0]) / 1024 / 1024
    return {
        "processor": field("/proc/cpuinfo", "model name"),
        "cores": os.cpu_count(),
        "memory": f"{memory:.0f} GiB",
        "system": field("/etc/os-release", "PRETTY_NAME"),
        "kernel": platform.release(),
        "compiler": first_line(cached(build, "CMAKE_CXX_COMPILER"), "--version"),
        "build": cached(build, "CMAKE_BUILD_TYPE"),
    }


def with_libraries(program):
    """The environment of a program that was unpacked and not installed."""
    libraries = ":".join(str(path) for path in program.parents[2].glob("usr/lib/*-linux-gnu"))
    return {**os.environ, "LD_LIBRARY_PATH": libraries}


def peers(options):
    nginx = options.peers / "usr/sbin/nginx"
    served_by = "missing: the emulated BMC serves"
    if nginx.exists():
        said = subprocess.run([nginx, "-v"], env=with_libraries(nginx), capture_output=True,
                              text=True, check=False).stderr
        served_by = said.strip().rpartition("/")[2]
    return {
        "libcurl": package_version("libcurl4"),
        "OpenSSH": first_line("ssh", "-V").split(",")[0].removeprefix("OpenSSH_"),
        "nginx": served_by,
        "FreeIPMI": package_version("libfreeipmi17"),
        "ipmitool": package_version("ipmitool"),
        "sblim-wbemcli": package_version("sblim-wbemcli"),
        "OpenSSL": package_version("libssl3"),
    }
