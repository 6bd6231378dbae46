# SPDX-License-Identifier: Apache-2.0
"""Classes, instances, and the two classes of the BMC."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Iterable, Mapping, Sequence

from bmc.cim import errors
from bmc.cim.errors import CimError
from bmc.cim.markup import escaped
from bmc.cim.paths import Key, ObjectPath
from bmc.cim.settings import CimSettings, DataObject
from bmc.cim.values import Property, qualifiers_xml, value_xml

SERVICE, DATA = "ZOR_FFDCService", "ZOR_FFDCData"
SERVICE_NAME = "FFDC"
EXPORT = "ExportData"
PARAMETERS = {
    "InitializationNeeded": "boolean",
    "ExportURI": "string",
    "Username": "string",
    "Password": "string",
    "DataCollectionType": "reference",
}
_COLLECTED = "20240229123456.654321+060"


@dataclass(frozen=True)
class Instance:
    """One object and its properties in their order."""

    path: ObjectPath
    properties: Sequence[Property]
    data: DataObject | None = None

    def xml(self, wanted: Sequence[str] | None = None, origin: bool = False) -> str:
        """The INSTANCE element; `wanted` names the properties to show, in lower case."""
        name = self.path.class_name
        shown = "".join(
            item.xml(name if origin else None)
            for item in self.properties
            if wanted is None or item.name.lower() in wanted
        )
        return f'<INSTANCE CLASSNAME="{name}" >\n{shown}</INSTANCE>\n'


@dataclass(frozen=True)
class CimClass:
    """A class: what it is for, its properties (name, type, array?), how many lead as keys."""

    name: str
    description: str
    properties: Sequence[tuple[str, str, bool]]
    keys: int
    value_maps: Mapping[str, Mapping[str, str]] = field(default_factory=dict)  # by property

    def xml(self, local_names: Sequence[str] | None, qualifiers: bool, origin: bool) -> str:
        shown = "".join(
            self._property(number, qualifiers, origin)
            for number, item in enumerate(self.properties)
            if local_names is None or item[0].lower() in local_names
        )
        about = _text_qualifier("Description", self.description) if qualifiers else ""
        methods = _export_method(self.name, qualifiers, origin) if self.name == SERVICE else ""
        return f'<CLASS NAME="{self.name}" >\n{about}{shown}{methods}</CLASS>\n'

    def _property(self, number: int, qualifiers: bool, origin: bool) -> str:
        name, type_, is_array = self.properties[number]
        tag = "PROPERTY.ARRAY" if is_array else "PROPERTY"
        from_ = f' CLASSORIGIN="{self.name}"' if origin else ""
        is_key = number < self.keys
        inside = _flag_qualifier("Key") + _LENGTH if qualifiers and is_key else ""
        inside += qualifiers_xml(self.value_maps.get(name, {})) if qualifiers else ""
        return f'<{tag} NAME="{name}" {from_} TYPE="{type_}">\n{inside}</{tag}>\n'


@dataclass(frozen=True)
class Space:
    """What there is in a namespace. Throws CimError where something is not."""

    classes: Mapping[str, CimClass]  # by their names in lower case, as the instances
    instances: Mapping[str, Sequence[Instance]]

    @staticmethod
    def of(classes: Iterable[CimClass], instances: Mapping[str, Sequence[Instance]]) -> "Space":
        return Space(
            {one.name.lower(): one for one in classes}, {name.lower(): ones for name, ones in instances.items()})

    def class_named(self, name: str) -> CimClass:
        if name.lower() not in self.classes:
            raise CimError(errors.INVALID_CLASS, name)
        return self.classes[name.lower()]

    def of_class(self, name: str) -> Sequence[Instance]:
        return self.instances[self.class_named(name).name.lower()]

    def find(self, path: ObjectPath) -> Instance:
        for one in self.instances.get(path.class_name.lower(), ()):
            if one.path.identity == path.identity:
                return one
        raise CimError(errors.NOT_FOUND, str(ObjectPath(path.class_name, path.keys)))


CLASSES = (
    CimClass(
        SERVICE,
        "Service object that exports service data",
        [
            ("SystemCreationClassName", "string", False),
            ("SystemName", "string", False),
            ("CreationClassName", "string", False),
            ("Name", "string", False),
            ("ElementName", "string", False),
            ("EnabledState", "uint16", False),
        ],
        keys=4,
    ),
    CimClass(
        DATA,
        "Service data of one kind",
        [
            ("InstanceID", "string", False),
            ("ElementName", "string", False),
            ("Caption", "string", False),
            ("DataCollectionType", "uint16", False),
            ("LastCollected", "datetime", False),
            ("OperationalStatus", "uint16", True),
            ("StatusDescriptions", "string", True),
            ("Present", "boolean", False),
            ("SizeInBytes", "uint64", False),
            ("Progress", "real32", False),
        ],
        keys=1,
    ),
)

_LENGTH = f'<QUALIFIER NAME="MaxLen" TYPE="uint32">\n{value_xml("256")}</QUALIFIER>\n'


def service_instances(settings: CimSettings) -> list[Instance]:
    """One as a rule; more, or none, by scenario."""
    return [
        _service(settings.system_name, SERVICE_NAME + (str(number) if number > 1 else ""))
        for number in range(1, settings.services + 1)
    ]


def _service(system: str, name: str) -> Instance:
    keys = {
        "SystemCreationClassName": "ZOR_ComputerSystem",
        "SystemName": system,
        "CreationClassName": SERVICE,
        "Name": name,
    }
    properties = [Property(key, "string", value) for key, value in keys.items()]
    properties.append(Property("ElementName", "string", 'Service data <export> & "upload"'))
    properties.append(Property("EnabledState", "uint16", "2"))
    return Instance(ObjectPath(SERVICE, {key: Key(value) for key, value in keys.items()}), properties)


def data_instance(item: DataObject, size: int) -> Instance:
    """A data object; what the scenario says goes before what the class has by itself."""
    properties = {
        one.name: one
        for one in (
            Property("InstanceID", "string", item.id),
            # Blanks and control characters as real objects have them: readers stumble over them.
            Property("ElementName", "string", " \t padded name \n "),
            Property("Caption", "string"),
            Property("DataCollectionType", "uint16"),
            Property("LastCollected", "datetime", _COLLECTED),
            Property("OperationalStatus", "uint16", ["2", "32768"], is_array=True),
            Property("StatusDescriptions", "string", ["first one", "second"], is_array=True),
            Property("Present", "boolean", "TRUE"),
            Property("SizeInBytes", "uint64", str(size)),
            Property("Progress", "real32", "1.2500000e+01"),
            *item.properties,
        )
    }
    for name in item.without:
        properties.pop(name, None)
    path = ObjectPath(DATA, {"InstanceID": Key(item.id)})
    return Instance(path, list(properties.values()), item)


def _flag_qualifier(name: str) -> str:
    return f'<QUALIFIER NAME="{name}" TYPE="boolean" OVERRIDABLE="false">\n{value_xml("TRUE")}</QUALIFIER>\n'


def _text_qualifier(name: str, text: str) -> str:
    value = f"<VALUE>{escaped(text)}</VALUE>\n"
    return f'<QUALIFIER NAME="{name}" TYPE="string" TRANSLATABLE="true">\n{value}</QUALIFIER>\n'


def _export_method(class_name: str, qualifiers: bool, origin: bool) -> str:
    from_ = f' CLASSORIGIN="{class_name}"' if origin else ""
    inside = _flag_qualifier("IN") if qualifiers else ""
    parameters = "".join(
        f'<PARAMETER.REFERENCE NAME="{name}" REFERENCECLASS="{DATA}">\n{inside}</PARAMETER.REFERENCE>\n'
        if type_ == "reference"
        else f'<PARAMETER NAME="{name}" TYPE="{type_}">\n{inside}</PARAMETER>\n'
        for name, type_ in PARAMETERS.items()
    )
    return f'<METHOD NAME="{EXPORT}" TYPE="uint32"{from_}>\n{parameters}</METHOD>\n'
