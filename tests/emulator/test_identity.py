# SPDX-License-Identifier: Apache-2.0
"""What the BMC tells of itself and its server, over Redfish and over IPMI, and what it can leave out."""

from __future__ import annotations

import re
import subprocess
import sys

import pytest

from conftest import EMULATOR, EXPORT, FULL_EXPORT, ROOT, Bmc, Starter, clean_environment

sys.path.insert(0, str(EMULATOR))
from bmc.ipmi.inventory import Inventory  # noqa: E402
from bmc.machine import Identity, Machine  # noqa: E402

SERVICE_DATA = ROOT + "Managers/1/Oem/Tavrin/ServiceData"


def ipmitool(bmc: Bmc, *arguments: str) -> str:
    """Out of Debian's package of that name, over the network."""
    done = subprocess.run(
        ["/usr/bin/ipmitool", "-I", "lanplus", "-C", "17", "-H", bmc.address, "-p", str(bmc.ready["ipmi"]["port"]),
         "-U", bmc.user, "-P", bmc.password, *arguments],
        capture_output=True, text=True, timeout=60, env=clean_environment(),
    )
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def field(text: str, name: str) -> str:
    found = re.search(rf"^ *{name} *: *(.*?) *$", text, re.MULTILINE)
    assert found, text
    return found[1]


def test_redfish_tells_serial_number_uuid_model_and_firmware(bmc: Bmc) -> None:
    machine = bmc.ready["machine"]
    root, manager, system = (bmc.get(ROOT + path).json() for path in ("", "Managers/1", "Systems/1"))

    assert root["UUID"] == manager["UUID"] == system["UUID"] == machine["uuid"]
    assert manager["SerialNumber"] == system["SerialNumber"] == machine["serial"]
    assert system["Model"] == machine["model"] == "TX-2200"
    assert manager["FirmwareVersion"] == machine["firmware"] == "4.20.1183"


def test_a_scenario_says_who_the_machine_is_or_leaves_it_out(start: Starter) -> None:
    bmc = start({"machine": {"serial": "../\x1b[1m é/x", "uuid": None, "model": "", "firmware": None}})
    root, manager, system = (bmc.get(ROOT + path).json() for path in ("", "Managers/1", "Systems/1"))

    assert system["SerialNumber"] == "../\x1b[1m é/x"
    assert system["Model"] == ""
    assert not {"UUID", "FirmwareVersion"} & (set(root) | set(manager) | set(system))
    assert "/" not in bmc.archive["name"]


def test_nothing_at_all_may_be_known(start: Starter) -> None:
    nobody = dict.fromkeys(("serial", "uuid", "model", "firmware"))
    bmc = start({"machine": nobody})

    assert bmc.ready["machine"] == nobody
    for path in ("", "Managers/1", "Systems/1", "Chassis/1"):
        assert not {"UUID", "SerialNumber", "FirmwareVersion"} & set(bmc.get(ROOT + path).json())


def test_ipmitool_reads_device_guid_and_inventory(bmc: Bmc) -> None:
    machine = bmc.ready["machine"]
    device, product = ipmitool(bmc, "mc", "info"), ipmitool(bmc, "fru", "print", "0")

    assert (field(device, "Firmware Revision"), field(device, "IPMI Version")) == ("4.20", "2.0")
    assert field(ipmitool(bmc, "mc", "guid", "ipmi"), "System GUID") == machine["uuid"]
    assert field(product, "Product Manufacturer") == "Tavrin"
    assert field(product, "Product Name") == machine["model"]
    assert field(product, "Product Serial") == machine["serial"]


@pytest.mark.parametrize("length", [0, 1, 62, 63, 64, 300])
def test_the_inventory_holds_any_serial_number(start: Starter, length: int) -> None:
    serial = ("SN-0123456789" * 30)[:length]
    bmc = start({"machine": {"serial": serial}})
    product = ipmitool(bmc, "fru", "print", "0")

    if length:
        assert field(product, "Product Serial") == serial[:63]
    stored = Inventory(Machine(1, Identity(serial=serial))).content
    area = stored[8:8 + 8 * stored[9]]
    assert sum(stored[:8]) % 256 == sum(area) % 256 == 0
    assert len(stored) == 8 + len(area)


def test_the_action_is_listed_by_the_manager_and_its_service_data(bmc: Bmc) -> None:
    listed = bmc.get(ROOT + "Managers/1").json()["Actions"]["Oem"]

    assert listed["#TavrinServiceData.ExportFFDCData"]["target"] == EXPORT
    assert bmc.get(SERVICE_DATA).json()["Actions"] == listed


def test_a_bmc_can_lack_the_action(start: Starter) -> None:
    bmc = start({"redfish": {"export_action": "missing"}})

    assert bmc.get(ROOT + "Managers/1").json()["Actions"]["Oem"] == {}
    assert bmc.get(SERVICE_DATA).json()["Actions"] == {}
    assert bmc.post(EXPORT, FULL_EXPORT).status == 404


def test_a_bmc_can_have_the_action_without_saying_so(start: Starter) -> None:
    bmc = start({"redfish": {"export_action": "unlisted"}})

    assert bmc.get(ROOT + "Managers/1").json()["Actions"]["Oem"] == {}
    assert bmc.post(EXPORT, FULL_EXPORT).status == 202
