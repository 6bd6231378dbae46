# SPDX-License-Identifier: Apache-2.0
"""What becomes of IPMI when its module is missing, cannot be loaded, or is another one."""

from __future__ import annotations

import os
import shutil
import subprocess
from pathlib import Path

import pytest

MODULE = Path("varnex-ffdc", "1", "libvarnexplatform-ipmi.so")  # below the folder of the libraries


@pytest.fixture
def libraries(tmp_path: Path, build_folder: Path) -> Path:
    """The platform library alone in a folder."""
    folder = tmp_path / "lib"
    (folder / MODULE).parent.mkdir(parents=True)
    shutil.copy(build_folder / "lib" / "libvarnexplatform.so.1", folder)
    return folder


def connect(build_folder: Path, *libraries: Path, cwd: Path | None = None,
            then_in: Path | None = None) -> subprocess.CompletedProcess:
    """Started in `cwd`; the program itself then goes to `then_in`."""
    environment = {**os.environ, "LD_LIBRARY_PATH": ":".join(str(folder) for folder in libraries)}
    return subprocess.run(
        [build_folder / "bin" / "ipmi_once", "127.0.0.1", "1", "admin", "secret", "17",
         *([then_in] if then_in else [])],
        env=environment, cwd=cwd, capture_output=True, text=True, timeout=60,
    )


def plant(build_folder: Path, folder: Path) -> None:
    """Another module wherever somebody might look for it; its version shows that it was loaded."""
    for name in (folder / MODULE, folder / MODULE.name, folder / "lib" / MODULE,
                 folder / "lib" / MODULE.name):
        name.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(build_folder / "lib" / "libother_version_module.so", name)


def test_missing_module_is_named_with_what_builds_it(build_folder, libraries):
    answer = connect(build_folder, libraries)

    assert answer.stdout == "connect 1\n"
    assert (f"IPMI is not available: the module {libraries / MODULE} is missing; "
            "it is built with -DVARNEX_IPMI=ON from libfreeipmi-dev: ") in answer.stderr


def test_module_that_cannot_be_loaded_is_named_with_the_loaders_words(build_folder, libraries):
    (libraries / MODULE).write_text("this is no library, only a long enough text" * 10)

    answer = connect(build_folder, libraries)

    assert answer.stdout == "connect 1\n"
    assert (f"IPMI is not available: the module {libraries / MODULE} cannot be loaded; "
            "it needs the package libfreeipmi17: ") in answer.stderr
    assert "invalid ELF header" in answer.stderr


def test_module_of_another_version_is_refused(build_folder, libraries):
    shutil.copy(build_folder / "lib" / "libother_version_module.so", libraries / MODULE)

    answer = connect(build_folder, libraries)

    assert answer.stdout == "connect 1\n"
    assert (f"IPMI is not available: the module {libraries / MODULE} "
            "is of another version than this library") in answer.stderr


def test_module_is_found_beside_the_library_wherever_that_lies(build_folder, libraries):
    shutil.copy(build_folder / "lib" / MODULE, libraries / MODULE)

    answer = connect(build_folder, libraries)

    assert answer.stdout == "connect 4\n"  # refused: the module was there


@pytest.mark.parametrize("there", [True, False])
def test_planted_module_is_not_loaded(build_folder, libraries, tmp_path, there):
    if there:
        shutil.copy(build_folder / "lib" / MODULE, libraries / MODULE)
    planted = tmp_path / "planted"
    plant(build_folder, planted)

    answer = connect(build_folder, libraries, planted, planted / "lib", cwd=planted)

    assert answer.stdout == ("connect 4\n" if there else "connect 1\n")
    assert "another version" not in answer.stderr


def test_module_is_the_libraries_own_though_the_host_changes_its_folder(build_folder, libraries,
                                                                        tmp_path):
    """A library that was found by a relative name has that name for the loader ever after."""
    shutil.copy(build_folder / "lib" / MODULE, libraries / MODULE)
    planted = tmp_path / "planted"
    plant(build_folder, planted)
    shutil.copy(build_folder / "lib" / "libvarnexplatform.so.1", planted / "lib")

    answer = connect(build_folder, Path("lib"), cwd=tmp_path, then_in=planted)

    assert answer.stdout == "connect 4\n"
    assert "another version" not in answer.stderr


def test_platform_library_itself_does_not_need_freeipmi(build_folder):
    needed = subprocess.run(
        ["objdump", "-p", build_folder / "lib" / "libvarnexplatform.so.1"],
        capture_output=True, text=True, check=True, timeout=60,
    ).stdout

    assert "NEEDED" in needed
    assert "freeipmi" not in needed
