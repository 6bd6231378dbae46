# SPDX-License-Identifier: Apache-2.0
"""What becomes of IPMI when its module is missing, cannot be loaded, or is another one."""

from __future__ import annotations

import os
import shutil
import subprocess
from pathlib import Path

import pytest

MODULE = "libvarnexplatform-ipmi.so"


@pytest.fixture
def libraries(tmp_path: Path, build_folder: Path) -> Path:
    """The platform library alone in a folder."""
    folder = tmp_path / "lib"
    folder.mkdir()
    shutil.copy(build_folder / "lib" / "libvarnexplatform.so.1", folder)
    return folder


def connect(build_folder: Path, libraries: Path) -> subprocess.CompletedProcess:
    environment = {**os.environ, "LD_LIBRARY_PATH": str(libraries)}
    return subprocess.run(
        [build_folder / "bin" / "ipmi_once", "127.0.0.1", "1", "admin", "secret", "17"],
        env=environment, capture_output=True, text=True, timeout=60,
    )


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
    shutil.copy(build_folder / "lib" / MODULE, libraries)

    answer = connect(build_folder, libraries)

    assert answer.stdout == "connect 4\n"  # refused: the module was there


def test_platform_library_itself_does_not_need_freeipmi(build_folder):
    needed = subprocess.run(
        ["objdump", "-p", build_folder / "lib" / "libvarnexplatform.so.1"],
        capture_output=True, text=True, check=True, timeout=60,
    ).stdout

    assert "NEEDED" in needed
    assert "freeipmi" not in needed
