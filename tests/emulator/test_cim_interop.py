# SPDX-License-Identifier: Apache-2.0
"""Classes and the Interop namespace: the questions of a client that has never met this CIM server."""

from __future__ import annotations

from typing import Any, Iterator
from xml.etree.ElementTree import Element

import pytest

from cim_client import call, class_parameter, exchange, export_parameters, instance_name, invocation
from conftest import Bmc, Starter

DATA_CLASSES = ["ZOR_FFDCService", "ZOR_FFDCData"]
INTEROP_CLASSES = ["CIM_ObjectManager", "CIM_Namespace", "CIM_RegisteredProfile"]
EVERYWHERE = pytest.mark.parametrize("namespace, classes", [("root/cimv2", DATA_CLASSES), ("interop", INTEROP_CLASSES)])


@pytest.fixture(scope="module")
def open_bmc(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Bmc]:
    starter = Starter(tmp_path_factory.mktemp("open"))
    yield starter({"cim": {"authentication": False, "export": {"upload": False}}})
    starter.stop_all()


def flag(name: str, value: bool) -> str:
    return f'<IPARAMVALUE NAME="{name}"><VALUE>{str(value).upper()}</VALUE></IPARAMVALUE>'


def classes_of(bmc: Bmc, namespace: str, parameters: str = "") -> dict[str, Element]:
    return {one.get("NAME"): one for one in call(bmc, "EnumerateClasses", parameters, namespace).xml().iter("CLASS")}


def properties_of(element: Element) -> dict[str, tuple[str, str]]:
    """Kind of element and type, by name."""
    return {one.get("NAME"): (one.tag, one.get("TYPE")) for one in element if one.tag.startswith("PROPERTY")}


@EVERYWHERE
def test_classes_are_listed_whole_and_by_name(open_bmc: Bmc, namespace: str, classes: list[str]) -> None:
    names = [one.get("NAME") for one in call(open_bmc, "EnumerateClassNames", "", namespace).xml().iter("CLASSNAME")]

    assert list(classes_of(open_bmc, namespace)) == names == classes


@EVERYWHERE
def test_each_is_the_one_that_is_read_alone(open_bmc: Bmc, namespace: str, classes: list[str]) -> None:
    origin = flag("IncludeClassOrigin", True)
    for more in ("", flag("IncludeQualifiers", False), flag("IncludeQualifiers", True) + origin):
        listed = classes_of(open_bmc, namespace, more)
        for name in classes:
            alone = call(open_bmc, "GetClass", class_parameter(name) + more, namespace).xml().find(".//CLASS")
            assert as_text(alone) == as_text(listed[name])
        has_qualifiers = any(one.find(".//QUALIFIER") is not None for one in listed.values())
        assert has_qualifiers != ('"IncludeQualifiers"><VALUE>FALSE' in more)


def as_text(element: Element) -> Any:
    return element.tag, element.attrib, (element.text or "").strip(), [as_text(one) for one in element]


@EVERYWHERE
def test_below_a_class_are_no_others(open_bmc: Bmc, namespace: str, classes: list[str]) -> None:
    for method in ("EnumerateClasses", "EnumerateClassNames"):
        below = call(open_bmc, method, class_parameter(classes[0]) + flag("DeepInheritance", True), namespace)
        assert below.error() is None
        assert not list(below.xml().find(".//IRETURNVALUE"))
        assert call(open_bmc, method, class_parameter("CIM_None"), namespace).error()[0] == 5


def test_a_parameter_that_it_does_not_have_is_refused(open_bmc: Bmc) -> None:
    names = '<IPARAMVALUE NAME="PropertyList"><VALUE.ARRAY><VALUE>Name</VALUE></VALUE.ARRAY></IPARAMVALUE>'

    assert call(open_bmc, "EnumerateClasses", names, "interop").error() == (
        4, "CIM_ERR_INVALID_PARAMETER: PropertyList")


@EVERYWHERE
def test_objects_are_what_their_classes_say(open_bmc: Bmc, namespace: str, classes: list[str]) -> None:
    declared = classes_of(open_bmc, namespace)
    for name in classes:
        keys = {
            one.get("NAME") for one in declared[name]
            if any(qualifier.get("NAME") == "Key" for qualifier in one.iter("QUALIFIER"))
        }
        found = call(open_bmc, "EnumerateInstances", class_parameter(name), namespace).xml()
        objects = list(found.iter("VALUE.NAMEDINSTANCE"))
        assert objects
        for path, instance in objects:
            assert path.get("CLASSNAME") == instance.get("CLASSNAME") == name
            assert {binding.get("NAME") for binding in path} == keys
            assert properties_of(instance).items() <= properties_of(declared[name]).items()


def test_a_client_finds_interop_namespace_brand_version_namespaces_and_profiles(start: Starter) -> None:
    """The questions of a client that looks for the Interop namespace under its usual names, one after another."""
    bmc = start({"machine": {"firmware": "7.1"}, "cim": {
        "authentication": False, "namespaces": ["zor/kem7/cimv2"], "system_name": "tower"}})
    tried = {name: call(bmc, "EnumerateInstanceNames", class_parameter("CIM_Namespace"), name)
             for name in ("interop", "root/interop", "root/PG_InterOp")}
    assert [name for name, answer in tried.items() if answer.error() is None] == ["interop"]
    assert {answer.error()[0] for name, answer in tried.items() if name != "interop"} == {3}

    spaces = call(bmc, "EnumerateInstances", class_parameter("CIM_Namespace"), "interop").instances()
    (manager,) = call(bmc, "EnumerateInstances", class_parameter("CIM_ObjectManager"), "interop").instances()
    (profile,) = call(bmc, "EnumerateInstances", class_parameter("CIM_RegisteredProfile"), "interop").instances()

    assert [one["Name"] for one in spaces] == ["zor/kem7/cimv2", "interop"]
    assert {one["ObjectManagerName"] for one in spaces} == {manager["Name"]}
    assert (manager["ElementName"], manager["Version"], manager["SystemName"]) == ("Tavrin CIM Server", "7.1", "tower")
    organizations = value_map(classes_of(bmc, "interop")["CIM_RegisteredProfile"], "RegisteredOrganization")
    assert organizations[profile["RegisteredOrganization"]] == "Other"
    assert (profile["RegisteredName"], profile["RegisteredVersion"]) == ("Service Data", "1.0.0")


def value_map(element: Element, name: str) -> dict[str, str]:
    (declared,) = (one for one in element if one.get("NAME") == name)
    texts = {one.get("NAME"): [value.text for value in one.iter("VALUE")] for one in declared.iter("QUALIFIER")}
    return dict(zip(texts["ValueMap"], texts["Values"], strict=True))


def test_one_of_its_objects_can_be_read(open_bmc: Bmc) -> None:
    name = instance_name("CIM_RegisteredProfile", {"InstanceID": "ZOR:ServiceData:1.0.0"})
    wanted = f'<IPARAMVALUE NAME="InstanceName">{name}</IPARAMVALUE>'

    (profile,) = call(open_bmc, "GetInstance", wanted, "Interop").instances()
    assert profile["RegisteredName"] == "Service Data"


def test_the_interop_namespace_has_no_service_data_and_the_others_no_interop(open_bmc: Bmc) -> None:
    export = exchange(open_bmc, invocation(export_parameters("sftp://x/"), namespace="interop"))

    assert call(open_bmc, "EnumerateInstances", class_parameter("ZOR_FFDCData"), "interop").error()[0] == 5
    assert call(open_bmc, "EnumerateInstances", class_parameter("CIM_Namespace"), "root/cimv2").error()[0] == 5
    assert export.error()[0] == 6


@pytest.mark.parametrize("interop, works, fails", [
    ("root/PG_InterOp", "root/pg_interop", "interop"), (None, None, "interop"), (None, None, ""),
])
def test_a_scenario_names_it_or_leaves_it_out(
    start: Starter, interop: str | None, works: str | None, fails: str
) -> None:
    bmc = start({"cim": {"authentication": False, "interop": interop}})

    assert call(bmc, "EnumerateClassNames", "", fails).error()[0] == 3
    if works:
        assert call(bmc, "EnumerateClassNames", "", works).error() is None
