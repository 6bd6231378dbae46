# SPDX-License-Identifier: Apache-2.0
"""The Interop namespace (DMTF DSP1033): which object manager this is, its namespaces, what it has registered.

Loaded when somebody looks there: clients that only collect never do.
"""

from __future__ import annotations

from typing import Mapping, Sequence

from bmc.cim.model import CimClass, Instance, Space
from bmc.cim.paths import Key, ObjectPath
from bmc.cim.values import Property
from bmc.machine import Machine

_MANAGER, _NAMESPACE, _PROFILE = "CIM_ObjectManager", "CIM_Namespace", "CIM_RegisteredProfile"
_SYSTEM = "CIM_ComputerSystem"
_ORGANIZATIONS = {"1": "Other", "2": "DMTF", "11": "SNIA"}
_ADVERTISED = {"1": "Other", "2": "Not Advertised", "3": "SLP"}

_CLASSES = (
    CimClass(
        _MANAGER,
        "The object manager",
        [
            ("SystemCreationClassName", "string", False),
            ("SystemName", "string", False),
            ("CreationClassName", "string", False),
            ("Name", "string", False),
            ("ElementName", "string", False),
            ("Description", "string", False),
            ("Version", "string", False),
            ("Started", "boolean", False),
        ],
        keys=4,
    ),
    CimClass(
        _NAMESPACE,
        "A namespace of the object manager",
        [
            ("SystemCreationClassName", "string", False),
            ("SystemName", "string", False),
            ("ObjectManagerCreationClassName", "string", False),
            ("ObjectManagerName", "string", False),
            ("CreationClassName", "string", False),
            ("Name", "string", False),
        ],
        keys=6,
    ),
    CimClass(
        _PROFILE,
        "A profile that the object manager keeps to",
        [
            ("InstanceID", "string", False),
            ("RegisteredOrganization", "uint16", False),
            ("OtherRegisteredOrganization", "string", False),
            ("RegisteredName", "string", False),
            ("RegisteredVersion", "string", False),
            ("AdvertiseTypes", "uint16", True),
        ],
        keys=1,
        value_maps={"RegisteredOrganization": _ORGANIZATIONS, "AdvertiseTypes": _ADVERTISED},
    ),
)


def interop_space(namespaces: Sequence[str], system: str, machine: Machine) -> Space:
    """`namespaces`: all of them, this one too."""
    manager = {
        "SystemCreationClassName": _SYSTEM, "SystemName": system, "CreationClassName": _MANAGER, "Name": "Tavrin:CIM",
    }
    instances = {
        _MANAGER: [_object_manager(manager, machine)],
        _NAMESPACE: [_namespace(manager, name) for name in namespaces],
        _PROFILE: [_service_data_profile()],
    }
    return Space.of(_CLASSES, instances)


def _object_manager(keys: Mapping[str, str], machine: Machine) -> Instance:
    version = machine.firmware
    about = f"Tavrin CIM Server{f' Version {version}' if version else ''}"
    return _instance(_MANAGER, keys, [
        Property("ElementName", "string", "Tavrin CIM Server"),
        Property("Description", "string", about),
        Property("Version", "string", version),
        Property("Started", "boolean", "TRUE"),
    ])


def _namespace(manager: Mapping[str, str], name: str) -> Instance:
    return _instance(_NAMESPACE, {
        "SystemCreationClassName": manager["SystemCreationClassName"], "SystemName": manager["SystemName"],
        "ObjectManagerCreationClassName": manager["CreationClassName"], "ObjectManagerName": manager["Name"],
        "CreationClassName": _NAMESPACE, "Name": name,
    }, [])


def _service_data_profile() -> Instance:
    """The vendor's own: how service data is exported."""
    return _instance(_PROFILE, {"InstanceID": "ZOR:ServiceData:1.0.0"}, [
        Property("RegisteredOrganization", "uint16", "1"),
        Property("OtherRegisteredOrganization", "string", "Tavrin"),
        Property("RegisteredName", "string", "Service Data"),
        Property("RegisteredVersion", "string", "1.0.0"),
        Property("AdvertiseTypes", "uint16", ["2"], is_array=True),
    ])


def _instance(class_name: str, keys: Mapping[str, str], more: Sequence[Property]) -> Instance:
    path = ObjectPath(class_name, {name: Key(value) for name, value in keys.items()})
    return Instance(path, [*(Property(name, "string", value) for name, value in keys.items()), *more])
