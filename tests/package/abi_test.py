# SPDX-License-Identifier: Apache-2.0
"""The binary interface of 1.0: what a host that was built with it stands on, in names, signatures and
layouts. docs/linking.md tells how to renew it, and when one may."""

import pathlib
import platform
import subprocess

import pytest

from commands import CXX, KEPT, ROOT, run

BASELINES = pathlib.Path(__file__).resolve().parent / "abi"
FACADE, PLATFORM = "libvarnexffdc-1.0.xml", "libvarnexplatform-1.0.xml"

pytestmark = pytest.mark.skipif(platform.machine() != "x86_64", reason="the layouts are those of x86-64")


def written(library, headers, name):
    """What the public headers and the symbols of a library come to."""
    (KEPT / "abi").mkdir(exist_ok=True)
    run("abidw", "--suppressions", BASELINES / "not-ours.ini", "--headers-dir", headers, "--drop-private-types",
        "--exported-interfaces-only", "--no-show-locs", "--no-corpus-path", "--no-comp-dir-path",
        "--no-elf-needed", "--no-parameter-names", "--type-id-style", "hash", library,
        "--out-file", KEPT / "abi" / name)
    return KEPT / "abi" / name


def differences(before, after):
    """Why a host built with `before` may not run with `after`. What is new is in nobody's way."""
    compared = subprocess.run(["abidiff", "--no-added-syms", before, after], capture_output=True, text=True,
                              timeout=300, check=False)
    assert compared.returncode & 3 == 0, compared.stderr  # it could not compare
    return compared.stdout if compared.returncode else ""


@pytest.fixture(scope="module")
def facade(built_elsewhere):
    return written(built_elsewhere / "lib" / "libvarnexffdc.so", built_elsewhere / "include" / "varnex", FACADE)


@pytest.fixture(scope="module")
def services(static):
    """Of the objects in the static library, because these have debug information."""
    installed, library = static / "installed", KEPT / "libvarnexplatform.so"
    run(CXX, "-shared", f"-Wl,--version-script={ROOT}/platform/src/exports.map", "-Wl,-soname,libvarnexplatform.so.1",
        "-Wl,--whole-archive", installed / "lib" / "libvarnexplatform.a", "-Wl,--no-whole-archive", "-o", library,
        "-lcurl", "-lssh", "-lspdlog", "-lfmt", "-lcrypto")
    return written(library, installed / "include" / "varnex" / "platform", PLATFORM)


def test_the_facade_is_that_of_1_0(facade):
    assert differences(BASELINES / FACADE, facade) == "", f"see docs/linking.md; the interface as it is: {facade}"


def test_the_services_are_those_of_1_0(services):
    assert differences(BASELINES / PLATFORM, services) == "", f"see docs/linking.md; the interface as it is: {services}"


@pytest.mark.parametrize("now,was,named", [
    ("SetTrialCountEi", "SetTrialCountEl", "SetTrialCount"),
    ("'ciphersuite' type-id='149c6638'", "'ciphersuite' type-id='3ff5601b'", "ciphersuite"),
])
def test_a_change_would_be_seen(facade, now, was, named, tmp_path):
    """As if a function had had another signature in 1.0, or a member another type."""
    baseline = (BASELINES / FACADE).read_text(encoding="utf-8")
    assert now in baseline
    (tmp_path / FACADE).write_text(baseline.replace(now, was), encoding="utf-8")

    assert named in differences(tmp_path / FACADE, facade)
