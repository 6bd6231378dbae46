# SPDX-License-Identifier: Apache-2.0
"""What readelf says about the programs and libraries: where they look for others, and how they are
built to stand a memory error."""

import platform
import re

import pytest

from commands import BUILD, CXX, ROOT, configured, run

X86 = platform.machine() == "x86_64"


HARDENED = configured("VARNEX_HARDENING:BOOL=ON")
DEBUG = configured("CMAKE_BUILD_TYPE:STRING=Debug")


def binaries(folder):
    """Every program and shared library below a folder."""
    for file in sorted(folder.rglob("*")):
        if file.is_file() and not file.is_symlink():
            with open(file, "rb") as content:
                head = content.read(18)
            if head[:4] == b"\x7fELF" and head[16] in (2, 3):  # not an object
                yield file


def search_path(file):
    """The elements of RPATH and RUNPATH, as they stand."""
    said = run("readelf", "-dW", file).stdout
    paths = re.findall(r"\((?:RUNPATH|RPATH)\).*\[(.*)\]", said)
    return [element for path in paths for element in path.split(":")]


def weaknesses(file):
    """What a hardened program or library has and this one has not."""
    dynamic = run("readelf", "-dW", file).stdout
    segments = run("readelf", "-lW", file).stdout
    symbols = run("readelf", "--dyn-syms", "-W", file).stdout
    notes = run("readelf", "-nW", file).stdout
    stack = re.search(r"GNU_STACK.* (R\w*) ", segments)
    wanted = {
        "stack protector": "__stack_chk_fail" in symbols,
        "RELRO": "GNU_RELRO" in segments,
        "BIND_NOW": re.search(r"\(FLAGS_1\).*\bNOW\b", dynamic),
        "PIE": "Elf file type is DYN" in segments,
        "stack not executable": stack and stack.group(1) == "RW",
        "CET": not X86 or re.search(r"x86 feature: IBT, SHSTK", notes),
    }
    return {name for name, found in wanted.items() if not found}


@pytest.mark.parametrize("tree", ["built", "installed"])
def test_libraries_are_looked_for_in_whole_named_folders(prefix, tree):
    """An empty or relative element is the folder that the user happens to be in."""
    files = list(binaries(BUILD if tree == "built" else prefix))
    assert {"kemffdc", "libvarnexffdc.so.1.0.0", "libvarnexplatform.so.1.0.0",
            "libvarnexplatform-ipmi.so"} <= {file.name for file in files}

    for file in files:
        for element in search_path(file):
            assert element.startswith(("/", "$ORIGIN")), (file, search_path(file))


def test_one_file_alone_links_freeipmi_and_nothing_links_that_file(prefix):
    """It is under the GPL; the others are not."""
    needed = {file.name: re.findall(r"\(NEEDED\).*\[(.*)\]", run("readelf", "-dW", file).stdout)
              for file in binaries(prefix)}

    assert {name for name, files in needed.items() if "libfreeipmi" in str(files)} == {
        "libvarnexplatform-ipmi.so"}
    assert "varnexplatform-ipmi" not in str(list(needed.values()))


def test_installed_binaries_look_for_libraries_beside_themselves_alone(prefix):
    for file in binaries(prefix):
        assert set(search_path(file)) <= {"$ORIGIN", "$ORIGIN/../lib"}, file


def test_a_relative_element_would_be_seen(tmp_path):
    source = tmp_path / "library.cpp"
    source.write_text("int nothing;\n", encoding="utf-8")
    run(CXX, "-shared", "-fPIC", source, "-o", tmp_path / "library.so", "-Wl,-rpath,lib:")

    assert search_path(tmp_path / "library.so") == ["lib", ""]


def test_hardening_is_the_default(tmp_path):
    """Else the tests of it would be passed over."""
    run("cmake", "-S", ROOT, "-B", tmp_path, "-DVARNEX_PLATFORM=/nowhere/libother.so",
        f"-DCMAKE_CXX_COMPILER={CXX}")

    assert configured("VARNEX_HARDENING:BOOL=ON", tmp_path)


@pytest.mark.skipif(not HARDENED, reason="built with -DVARNEX_HARDENING=OFF")
def test_installed_binaries_are_hardened(prefix):
    found = {file.name: weaknesses(file) for file in binaries(prefix)}
    assert len(found) == 4

    assert found == dict.fromkeys(found, set())


@pytest.mark.skipif(DEBUG or not HARDENED, reason="not checked without optimisation")
def test_calls_that_the_c_library_can_check_are_checked(prefix):
    """Most calls need no check, because the compiler sees that they fit."""
    checked = {file.name for file in binaries(prefix)
               if re.search(r"__\w+_chk@", run("readelf", "--dyn-syms", "-W", file).stdout)}

    assert {"libvarnexffdc.so.1.0.0", "kemffdc"} <= checked


def test_a_weak_program_would_be_seen(tmp_path):
    source = tmp_path / "weak.cpp"
    source.write_text("int main() {}\n", encoding="utf-8")
    run(CXX, "-no-pie", "-fno-stack-protector", "-fcf-protection=none", "-Wl,-z,norelro,-z,lazy",
        "-Wl,-z,execstack", source, "-o", tmp_path / "weak")

    assert weaknesses(tmp_path / "weak") == {
        "stack protector", "RELRO", "BIND_NOW", "PIE", "stack not executable",
        *(["CET"] if X86 else [])}


def test_no_installed_file_is_in_the_way_of_the_next_major_version(prefix):
    """Two major versions lie side by side; what only a compiler reads is the newer one's."""
    for file in binaries(prefix / "lib"):
        inside = str(file.relative_to(prefix))
        assert re.search(r"\.so\.1\.|/varnex-ffdc/1/", inside), inside
