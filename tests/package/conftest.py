# SPDX-License-Identifier: Apache-2.0
"""The installed package, once for all tests of a run."""

import pytest

from commands import BUILD, run


@pytest.fixture(scope="session")
def prefix(tmp_path_factory):
    """Where the package lies: not where it was installed, because a prefix may be moved."""
    folder = tmp_path_factory.mktemp("package")
    run("cmake", "--install", BUILD, "--prefix", folder / "installed")
    return (folder / "installed").rename(folder / "moved")
