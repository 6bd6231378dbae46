# SPDX-License-Identifier: Apache-2.0
"""ansible-test's own rules, as far as they can be looked at with Debian's packages alone."""

import shutil
import subprocess
import sys

import pytest

import controller
import tool

HERE = [
    "empty-init", "future-import-boilerplate", "ignores", "line-endings", "metaclass-boilerplate", "no-assert",
    "no-basestring", "no-dict-iteritems", "no-get-exception", "no-illegal-filenames", "no-main-display",
    "no-smart-quotes", "no-unicode-literals", "replace-urlopen", "shebang", "symlinks", "use-argspec-type-path",
    "use-compat-six",
]
# They install Python packages by pip, in an environment of their own, also where Debian has these.
BY_PIP = ["ansible-doc", "import", "pep8", "pylint", "runtime-metadata", "validate-modules", "yamllint"]


def test_rules_that_need_no_packages_hold(tmp_path):
    folder = tmp_path / "ansible_collections" / "varnex" / "ffdc"
    shutil.copytree(controller.COLLECTION, folder, ignore=shutil.ignore_patterns("__pycache__"))
    tests = [word for name in HERE for word in ("--test", name)]
    version = f"{sys.version_info.major}.{sys.version_info.minor}"

    done = subprocess.run(
        ["ansible-test", "sanity", "--python", version, *tests], cwd=folder, capture_output=True, text=True,
        env={**tool.clean_environment(), "HOME": str(tmp_path), "LC_ALL": "C.UTF-8"}, timeout=120, check=False)

    assert done.returncode == 0, done.stdout + done.stderr
    for name in HERE:
        assert f'Running sanity test "{name}"' in done.stdout + done.stderr


@pytest.mark.parametrize("name", BY_PIP)
def test_rules_that_need_packages(name):
    pytest.skip(f"{name} installs Python packages by pip; nothing is fetched here")
