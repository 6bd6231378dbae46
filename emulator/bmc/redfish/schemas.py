# SPDX-License-Identifier: Apache-2.0
"""Which schema describes a resource, and the vendor's own schemas, which nobody else hands out (DSP0266, DSP0268).

The standard's schemas are named where DMTF publishes them. The vendor's lie in the folder `schemas`.
"""

from __future__ import annotations

import re
from pathlib import Path
from typing import Any, Iterable, Mapping

from bmc.http.bodies import FileBody
from bmc.http.messages import Reply

_FOLDER = Path(__file__).parent / "schemas"
_STANDARD = "http://redfish.dmtf.org/schemas/v1"
_CSDL, _JSON = "/redfish/v1/Schemas", "/redfish/v1/JsonSchemas"
_CONTENT_TYPES = {_CSDL: ("xml", "application/xml; charset=utf-8"), _JSON: ("json", "application/schema+json")}
_VENDOR = re.compile("/Oem(?:/([A-Za-z0-9]+)|$)")

# The vendor's own types by family. Only resources have a JSON schema; the others stand in an Oem member.
OEM_TYPES = {
    "TavrinManager": "TavrinManager.v1_0_0",
    "TavrinServiceData": "TavrinServiceData.v1_0_0",
    "TavrinTask": "TavrinTask.v1_0_0",
}


def csdl_uri(family: str) -> str:
    """Where $metadata leads for a family of types."""
    return f"{_CSDL if family in OEM_TYPES else _STANDARD}/{family}_v1.xml"


def description_of(document: Mapping[str, Any]) -> dict[str, str]:
    """The Link header to the JSON schema of a resource (RFC 8288); none where nobody publishes one."""
    type_ = document.get("@odata.type")
    if not isinstance(type_, str) or is_foreign(document):
        return {}
    namespace = namespace_of(type_)
    top = _JSON if namespace.partition(".")[0] in OEM_TYPES else _STANDARD
    return {"Link": f"<{top}/{namespace}.json>; rel=describedby"}


def namespace_of(type_: str) -> str:
    """Manager.v1_15_0 of "#Manager.v1_15_0.Manager"."""
    return type_.removeprefix("#").rpartition(".")[0]


def is_foreign(document: Mapping[str, Any]) -> bool:
    """Whether the type is one that only the vendor of a shape could describe."""
    vendor = _VENDOR.search(str(document.get("@odata.id")))
    family = namespace_of(document["@odata.type"]).partition(".")[0]
    return vendor is not None and family.startswith(vendor[1] or "") and family not in OEM_TYPES


def references(types: Iterable[str]) -> Iterable[str]:
    """The lines of $metadata that say where the types (Manager.v1_15_0) and their families stand."""
    every = {*types}
    every |= {one.partition(".")[0] for one in every}
    for family in sorted({one.partition(".")[0] for one in every}):
        yield f'  <edmx:Reference Uri="{csdl_uri(family)}">'
        for name in sorted(one for one in every if one.partition(".")[0] == family):
            yield f'    <edmx:Include Namespace="{name}"/>'
        yield "  </edmx:Reference>"


def schema_file(path: str) -> Reply | None:
    """One of the vendor's own schemas; None: there is none of that name."""
    top, _, name = path.rpartition("/")
    ending, content_type = _CONTENT_TYPES.get(top, ("", ""))
    if not ending or name not in {file.name for file in _FOLDER.glob(f"*.{ending}")}:
        return None
    return Reply(200, {"Content-Type": content_type}, FileBody(_FOLDER / name))
