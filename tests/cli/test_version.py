# SPDX-License-Identifier: Apache-2.0
"""What `kemffdc --version` says, held against what is on this machine."""

import pathlib
import re
import shutil
import subprocess

import pytest

import tool

MODULE = pathlib.Path("varnex-ffdc", "1", "libvarnexplatform-ipmi.so")  # below the folder of the libraries


def said(**environment):
    """The first line, and the others by their names."""
    ended = subprocess.run([tool.TOOL, "--version"], capture_output=True, text=True, timeout=60, check=False,
                           env={**tool.run_environment(), **environment})
    assert (ended.returncode, ended.stderr) == (0, "")
    first, *others = ended.stdout.splitlines()
    return first, dict(re.split(r": +", line, maxsplit=1) for line in others)


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, timeout=60, check=True).stdout.strip()


def of_package(name):
    """The version of a library's package, without its epoch and what Debian adds."""
    return re.sub(r"^\d+:|[-+].*$", "", output("dpkg-query", "-W", "-f", "${Version}", name))


def mapped_libraries():
    """Of the tool, by the file that the loader takes: {"libssh": path}."""
    lines = re.findall(r"(\S+?)\.so\S* => (\S+)", output("ldd", tool.TOOL))
    return {name: pathlib.Path(path).resolve() for name, path in lines}


def test_the_first_line_is_the_version_alone():
    assert said()[0] == "kemffdc 1.0.0"


def test_the_commit_is_the_one_that_is_checked_out():
    head = subprocess.run(["git", "-C", tool.ROOT, "rev-parse", "HEAD"], capture_output=True, text=True, check=False)
    if head.returncode != 0:
        pytest.skip("this tree has no repository")
    assert said()[1]["built from"] == f"commit {head.stdout[:12]}"


def test_channels_are_those_of_the_help():
    named = re.findall(r"^  (\w+) ", tool.run(["--help"]).out.partition("Channels (--via):\n")[2].partition("\n\n")[0],
                       re.MULTILINE)
    assert said()[1]["channels"].split(", ") == named
    assert {"redfish", "cim", "ipmi"} <= set(named)


def test_the_client_for_cim_is_the_one_that_is_linked():
    linked = any("pegclient" in name for name in mapped_libraries())
    assert said()[1]["CIM client"] == ("OpenPegasus" if linked else "built in")


def test_libraries_are_those_that_the_loader_takes():
    told = dict(word.rsplit(" ", 1) for word in said()[1]["libraries"].split(", "))
    mapped = mapped_libraries()
    assert set(told) == {"libcurl", "OpenSSL", "libssh", "libarchive", "SQLite", "Boost"}
    for name, file in (("OpenSSL", "libcrypto"), ("libssh", "libssh"), ("libarchive", "libarchive"), ("SQLite", "libsqlite3"),
                       ("libcurl", "libcurl")):
        package = output("dpkg-query", "-S", mapped[file]).partition(":")[0]
        assert told[name] == of_package(package), name
    assert mapped["libboost_json"].name.endswith(f".so.{told['Boost']}.0")


def test_the_module_for_ipmi_tells_its_licence_and_library():
    assert said()[1]["IPMI module"] == f"FreeIPMI {of_package('libfreeipmi17')}, under GPL-3.0-or-later as a whole"


def test_a_missing_module_is_no_failure_and_is_told(tmp_path):
    library = mapped_libraries()["libvarnexplatform"]
    shutil.copy(library, tmp_path / "libvarnexplatform.so.1")
    module = said(LD_LIBRARY_PATH=str(tmp_path))[1]["IPMI module"]
    assert module.startswith(f"IPMI is not available: the module {tmp_path / MODULE} is missing; ")
