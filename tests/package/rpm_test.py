# SPDX-License-Identifier: Apache-2.0
"""The RPM spec, as far as Debian's tools can judge it: nothing is built here."""

import fnmatch
import re
import subprocess

import pytest

from commands import ROOT, run

SPEC = ROOT / "packaging/rpm/varnex-ffdc.spec"
EMULATOR = {"/usr/bin/emulated-bmc", "/usr/bin/emulated-fleet", "/usr/share/kemffdc-emulator",
            "/usr/share/ansible/collections/ansible_collections/varnex"}  # copied by the spec itself


def lint(spec):
    said = subprocess.run(["rpmlint", "-r", SPEC.with_suffix(".rpmlintrc"), spec], capture_output=True, text=True, timeout=60,
                          check=False).stdout
    return re.search(r"1 specfiles checked; (\d+) errors, (\d+) warnings", said).groups(), said


@pytest.fixture(scope="module")
def lists(prefix):
    """%files of each package as patterns of whole paths, with folders as this machine's installation has them."""
    library_folder = "/usr/" + next(prefix.rglob("libvarnexffdc.so.1")).parent.relative_to(prefix).as_posix()
    spec = run("rpmspec", "-P", "-D", f"_libdir {library_folder}", SPEC).stdout
    return {name or "varnex-ffdc": re.findall(r"^(?:%dir )?(/\S+)$", text, re.MULTILINE)
            for name, text in re.findall(r"^%files(?: (?:-n )?(\S+))?\n(.*?)(?=^%files|^%changelog)", spec, re.MULTILINE | re.DOTALL)}


def test_rpmlint_finds_nothing():
    counts, said = lint(SPEC)
    assert counts == ("0", "0"), said


def test_rpmlint_would_find_something(tmp_path):
    spec = tmp_path / SPEC.name
    spec.write_text(SPEC.read_text("utf-8").replace("License:        Apache-2.0\n", "", 1), encoding="utf-8")
    assert lint(spec)[0] != ("0", "0")


def test_rpmspec_reads_it_with_the_version_of_the_headers():
    asked = run("rpmspec", "-q", "--queryformat", "%{NAME} %{VERSION} %{LICENSE}\n", SPEC)
    assert asked.stderr == ""
    header = (ROOT / "include/varnex/version.h").read_text(encoding="utf-8")
    version = ".".join(re.findall(r"^#define VARNEX_FFDC_VERSION_[A-Z]+ (\d+)$", header, re.MULTILINE))
    names = ("varnex-ffdc", "varnex-ffdc-libs", "varnex-ffdc-ipmi", "varnex-ffdc-devel", "kemffdc", "kemffdc-emulator",
             "ansible-collection-varnex-ffdc")
    assert asked.stdout.splitlines() == [
        f"{name} {version} {'GPL-3.0-or-later' if name == 'varnex-ffdc-ipmi' else 'Apache-2.0'}" for name in names]


def test_every_installed_file_is_in_one_package(lists, prefix):
    patterns = [pattern for some in lists.values() for pattern in some]
    for path in prefix.rglob("*"):
        if path.is_dir():
            continue
        name = "/usr/" + path.relative_to(prefix).as_posix()
        if name.startswith("/usr/share/doc/VarnexFfdc/"):
            continue  # the spec removes them: %doc and %license name their sources
        fitting = [one for one in patterns if fnmatch.fnmatchcase(name, one) or name.startswith(one + "/")]
        expected = 1 if "libvarnexplatform-ipmi" not in name else 3  # its folders are named, too
        assert len(fitting) == expected, (name, fitting)


def test_every_listed_file_is_installed_or_in_the_tree(lists, prefix):
    installed = ["/usr/" + path.relative_to(prefix).as_posix() for path in prefix.rglob("*")]
    for pattern in (pattern for some in lists.values() for pattern in some):
        assert pattern in EMULATOR or fnmatch.filter(installed, pattern), pattern
    text = SPEC.read_text(encoding="utf-8")
    for line in re.findall(r"^%(?:doc|license) (.*)$", text, re.MULTILINE):
        for name in line.split():
            assert (ROOT / name).exists(), name
    for name in re.search(r'^cp -a (emulator/.*) "\$emulator"$', text, re.MULTILINE)[1].split():
        assert (ROOT / name).exists(), name


def test_the_emulators_folders_are_all_packed():
    """Whatever the emulated BMC reads is in both kinds of packages."""
    spec = SPEC.read_text(encoding="utf-8")
    debian = (ROOT / "debian/kemffdc-emulator.install").read_text(encoding="utf-8")
    for path in (ROOT / "emulator").iterdir():
        if path.suffix == ".md" or path.name == "__pycache__":
            continue
        assert f"emulator/{path.name} " in spec, path
        assert f"emulator/{path.name} " in debian, path
