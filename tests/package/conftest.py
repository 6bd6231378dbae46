# SPDX-License-Identifier: Apache-2.0
"""The installed package, once for all tests of a run."""

import shutil

import pytest

from commands import BUILD, CXX, KEPT, ROOT, build_library, configured, run

PARENT = f"""
cmake_minimum_required(VERSION 3.25)
project(Parent LANGUAGES CXX)
include(FetchContent)
FetchContent_Declare(VarnexFfdc SOURCE_DIR "{ROOT}")
FetchContent_MakeAvailable(VarnexFfdc)
add_executable(host "{ROOT}/examples/collect.cpp")
target_link_libraries(host PRIVATE Varnex::ffdc Varnex::platform)
"""
SOURCES = ["CMakeLists.txt", "CHANGELOG.md", "LICENSES", "cmake", "include", "packaging", "platform", "shared", "src"]


@pytest.fixture(scope="session")
def prefix(tmp_path_factory):
    """Where the package lies: not where it was installed, because a prefix may be moved."""
    folder = tmp_path_factory.mktemp("package")
    run("cmake", "--install", BUILD, "--prefix", folder / "installed")
    return (folder / "installed").rename(folder / "moved")


@pytest.fixture(scope="session")
def own_platform():
    """A platform library of a host's own."""
    build_library(ROOT / "examples" / "own-platform", KEPT / "own-platform")
    return KEPT / "own-platform" / "libownplatform.so"


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
def built_in_an_odd_folder(odd_folder, own_platform):
    """The library with that platform, installed: optimised in name alone, because that is quicker."""
    return with_platform(odd_folder / "source", odd_folder / "out", own_platform)


@pytest.fixture(scope="session")
def built_elsewhere(own_platform):
    return with_platform(ROOT, KEPT / "elsewhere", own_platform)


def with_platform(source, folder, platform):
    # Without a compiler cache: it may change paths, or hand out what the other folder has made.
    build_library(source, folder, f"-DVARNEX_PLATFORM={platform}", "-DCMAKE_CXX_COMPILER_LAUNCHER=",
                  "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-g")
    shutil.rmtree(KEPT / "installed" / folder.name, ignore_errors=True)
    run("cmake", "--install", folder, "--prefix", KEPT / "installed" / folder.name)
    return KEPT / "installed" / folder.name


def parent(folder):
    """A project that has the library for a part."""
    text = folder / "CMakeLists.txt"
    folder.mkdir(parents=True, exist_ok=True)
    if not text.is_file() or text.read_text(encoding="utf-8") != PARENT:
        text.write_text(PARENT, encoding="utf-8")
    return folder


@pytest.fixture(scope="session")
def static():
    """Such a project, with static libraries, installed; with debug information."""
    folder = parent(KEPT / "static")
    build_library(folder, folder / "out", "-DBUILD_SHARED_LIBS=OFF", "-DVARNEX_INSTALL=ON", "-DCMAKE_CXX_FLAGS=-g",
                  f"-DCMAKE_INSTALL_PREFIX={folder}/installed",
                  f"-DVARNEX_IPMI={'ON' if configured('VARNEX_IPMI:BOOL=ON') else 'OFF'}")
    shutil.rmtree(folder / "installed", ignore_errors=True)
    run("cmake", "--install", folder / "out")
    return folder
