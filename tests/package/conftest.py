# SPDX-License-Identifier: Apache-2.0
"""The installed package, once for all tests of a run."""

import pathlib
import shutil

import pytest

from commands import BUILD, CXX, KEPT, ROOT, build_library, run

HERE = pathlib.Path(__file__).resolve().parent
SOURCES = ["CMakeLists.txt", "CHANGELOG.md", "LICENSES", "cmake", "include", "packaging", "platform", "shared", "src"]


@pytest.fixture(scope="session")
def prefix(tmp_path_factory):
    """Where the package lies: not where it was installed, because a prefix may be moved."""
    folder = tmp_path_factory.mktemp("package")
    run("cmake", "--install", BUILD, "--prefix", folder / "installed")
    return (folder / "installed").rename(folder / "moved")


@pytest.fixture(scope="session")
def other_platform():
    """A platform library of a host's own."""
    library = KEPT / "libotherplatform.so"
    KEPT.mkdir(exist_ok=True)
    run(CXX, "-std=c++17", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-DVARNEX_PLATFORM_GLOBAL", "-shared", "-fPIC",
        HERE / "otherplatform" / "platform.cpp", f"-I{ROOT}/platform/include",
        "-o", library, "-Wl,-soname,libotherplatform.so")
    return library


@pytest.fixture(scope="session")
def odd_folder():
    """A name that is legal, with what shells, CMake and linkers may stumble over. The sources are there."""
    folder = KEPT / "a blank $HOME and ü"
    shutil.rmtree(folder / "source", ignore_errors=True)
    for name in SOURCES:
        copy = shutil.copytree if (ROOT / name).is_dir() else shutil.copy2
        (folder / "source").mkdir(parents=True, exist_ok=True)
        copy(ROOT / name, folder / "source" / name)
    return folder


@pytest.fixture(scope="session")
def built_in_an_odd_folder(odd_folder, other_platform):
    """The library with the other platform, installed: optimised in name alone, because that is quicker."""
    return with_other_platform(odd_folder / "source", odd_folder / "out", other_platform)


@pytest.fixture(scope="session")
def built_elsewhere(other_platform):
    return with_other_platform(ROOT, KEPT / "elsewhere", other_platform)


def with_other_platform(source, folder, platform):
    build_library(source, folder, f"-DVARNEX_PLATFORM={platform}",
                  "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-g")
    shutil.rmtree(KEPT / "installed" / folder.name, ignore_errors=True)
    run("cmake", "--install", folder, "--prefix", KEPT / "installed" / folder.name)
    return KEPT / "installed" / folder.name
