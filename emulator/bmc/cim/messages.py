# SPDX-License-Identifier: Apache-2.0
"""CIM messages: what a request asks for, and the text of an answer."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any, Sequence

from bmc.cim.errors import CimError, Refusal
from bmc.cim.markup import DECLARATION, Element, NotValid, NotWellFormed, escaped, parse
from bmc.cim.paths import ObjectPath, read_namespace, read_path

_REFERENCES = ("INSTANCENAME", "LOCALINSTANCEPATH", "INSTANCEPATH")


@dataclass(frozen=True)
class Parameter:
    """One parameter. Its value is text, a list of texts, an object path, or None."""

    name: str
    value: Any = None
    type: str | None = None


@dataclass(frozen=True)
class Call:
    """One operation on a namespace, a class or an object."""

    message_id: str
    protocol: str
    intrinsic: bool
    method: str
    namespace: str
    target: ObjectPath | None  # of an extrinsic method; with its namespace
    parameters: Sequence[Parameter]

    @property
    def object_text(self) -> str:
        """What the CIMObject header has to say."""
        return self.namespace if self.target is None else str(self.target)

    @property
    def class_name(self) -> str:
        if self.target is not None:
            return self.target.class_name
        named = next((p.value for p in self.parameters if p.name.lower() == "classname"), None)
        return named.class_name if isinstance(named, ObjectPath) else ""


def read_call(body: bytes) -> Call:
    """The operation in a request's body; throws Refusal."""
    try:
        return _read_root(parse(body))
    except NotValid as error:
        raise Refusal(400, "request-not-valid", str(error)) from None
    except NotWellFormed as error:
        raise Refusal(400, "request-not-well-formed", str(error)) from None


def _read_root(root: Element) -> Call:
    if root.name != "CIM":
        root.refuse("Expected CIM element")
    for attribute, word, label in (("CIMVERSION", "cim", "CIM"), ("DTDVERSION", "dtd", "DTD")):
        version = root.attribute(attribute)
        if not version.startswith("2."):
            text = f'{label} version "{version}" is not supported.'
            raise Refusal(501, f"unsupported-{word}-version", text)
    message = root.child("MESSAGE")
    operation = message.child("SIMPLEREQ").child("IMETHODCALL", "METHODCALL")
    header = (message.attribute("ID"), message.attribute("PROTOCOLVERSION"))
    if not operation.children:
        operation.refuse("Expected LOCALNAMESPACEPATH element")
    if operation.name == "IMETHODCALL":
        return _read_intrinsic(header, operation)
    return _read_extrinsic(header, operation)


def _read_intrinsic(header: tuple[str, str], operation: Element) -> Call:
    namespace = read_namespace(operation.children[0])
    parameters = [_read_parameter(child, "IPARAMVALUE") for child in operation.children[1:]]
    return Call(*header, True, operation.attribute("NAME"), namespace, None, parameters)


def _read_extrinsic(header: tuple[str, str], operation: Element) -> Call:
    target = read_path(operation.children[0])
    if target.namespace is None:
        operation.refuse("Expected LOCALINSTANCEPATH or LOCALCLASSPATH element")
    parameters = [_read_parameter(child, "PARAMVALUE") for child in operation.children[1:]]
    return Call(*header, False, operation.attribute("NAME"), target.namespace, target, parameters)


def _read_parameter(element: Element, expected: str) -> Parameter:
    if element.name != expected:
        element.refuse(f"Expected {expected} element")
    value = _read_value(element.children[0]) if element.children else None
    return Parameter(element.attribute("NAME"), value, element.attributes.get("PARAMTYPE"))


def _read_value(element: Element) -> Any:
    if element.name == "VALUE":
        return element.trimmed
    if element.name == "VALUE.ARRAY":
        return [child.trimmed for child in element.children]
    if element.name == "VALUE.REFERENCE":
        return read_path(element.child(*_REFERENCES, "CLASSNAME", "LOCALCLASSPATH", "CLASSPATH"))
    return read_path(element)


@dataclass(frozen=True)
class Envelope:
    """What stands around the content of an answer."""

    message_id: str
    protocol: str
    kind: str  # IMETHODRESPONSE or METHODRESPONSE
    method: str

    @staticmethod
    def of(call: Call) -> "Envelope":
        kind = "IMETHODRESPONSE" if call.intrinsic else "METHODRESPONSE"
        return Envelope(call.message_id, "1.0", kind, call.method)

    def around(self, content: str) -> str:
        return (
            f'{DECLARATION}<CIM CIMVERSION="2.0" DTDVERSION="2.0">\n'
            f'<MESSAGE ID="{escaped(self.message_id)}" PROTOCOLVERSION="{escaped(self.protocol)}">\n'
            f'<SIMPLERSP>\n<{self.kind} NAME="{escaped(self.method)}">\n'
            f"{content}</{self.kind}>\n</SIMPLERSP>\n</MESSAGE>\n</CIM>\n"
        )


def return_values(content: str) -> str:
    """What an intrinsic operation found."""
    return f"<IRETURNVALUE>\n{content}</IRETURNVALUE>\n"


def return_value(type_: str | None, value: str | None) -> str:
    """What a method returned. Without a value the element is empty; without a type it names none."""
    typed = f' PARAMTYPE="{type_}"' if type_ else ""
    inside = "" if value is None else f"<VALUE>{escaped(value)}</VALUE>\n"
    return f"<RETURNVALUE{typed}>\n{inside}</RETURNVALUE>\n"


def error_element(error: CimError) -> str:
    text = f' DESCRIPTION="{escaped(error.description)}"' if error.description is not None else ""
    return f'<ERROR CODE="{error.code}"{text}/>'
