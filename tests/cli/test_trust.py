# SPDX-License-Identifier: Apache-2.0
"""Whom the tool trusts with a password: certificates, CA files, impostors."""

import pytest

import tool


def with_authorization(bmc):
    return [r for r in bmc.requests() if any(name.lower() == "authorization" for name in r["headers"])]


@pytest.mark.parametrize("how", ["option", "environment"])
def test_an_unusable_ca_file_ends_the_run_at_once(bmc, tmp_path, how):
    file = str(tmp_path / "absent.pem")
    arguments = tool.collect(bmc, tmp_path / "out", *(["--ca-file", file] if how == "option" else []))
    environment = {"VARNEX_CA_FILE": file} if how == "environment" else {}
    ended = tool.run(arguments, password=bmc.password, environment=environment)
    assert ended.code == 8
    assert ended.err == (
        f"kemffdc: The CA file {file} cannot be read: No such file or directory. "
        "Correct --ca-file or VARNEX_CA_FILE. [exit code 8]\n")
    assert bmc.requests() == []
    assert not (tmp_path / "out").exists()
