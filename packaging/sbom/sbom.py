#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""sbom.py --version V --build FOLDER --ninja PROGRAM --output FILE TOOL PART...: an SPDX 2.3 document in JSON.

It says what each of our binaries is made of: libraries that it is linked with, as the binary itself names them,
and code of others that was compiled into it, as the headers and static libraries tell that the build read. Debian's
package database knows whose they are. A PART is NAME=FILE=LICENCE=TARGET[,TARGET...]; the
TOOL is one that tells by --version what it was built from.

Needs a finished build by Ninja on the Debian that the binaries are for. Two runs on one build and one system make the
same document: its time is SOURCE_DATE_EPOCH, or that of the commit.
"""

import argparse
import datetime
import functools
import json
import logging
import os
import pathlib
import re
import subprocess
import uuid
from typing import NamedTuple
from urllib.parse import quote

from debian import copyright as debian_copyright

ROOT = pathlib.Path(__file__).resolve().parents[2]
HOME = "https://varnex-ffdc.example.org/"
AUTHORS = "Organization: The varnex-ffdc authors"

# Debian's short names that mean one licence of SPDX' list; others are told as they are, in a comment.
LICENCES = {
    "Apache-2.0": "Apache-2.0", "BSD-2-clause": "BSD-2-Clause", "BSD-3-clause": "BSD-3-Clause", "BSL-1.0": "BSL-1.0",
    "Expat": "MIT", "GPL-3+": "GPL-3.0-or-later", "LGPL-2.1+": "LGPL-2.1-or-later", "Zlib": "Zlib", "curl": "curl",
}
# Declarations of the kernel's interface: nothing of them is in a binary.
NO_CODE = {"linux"}


class Part(NamedTuple):
    """One of our binaries."""
    name: str
    file: pathlib.Path
    licence: str
    targets: list


class DebianPackage(NamedTuple):
    name: str
    version: str
    source: str
    architecture: str


def output(*command):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, check=True).stdout


def packages_of(paths):
    """Whose files they are. What lies in /lib may be packed below /usr, and the other way round."""
    reals = {path: os.path.realpath(path) for path in paths}
    names = {path: (real, "/usr" + real, real.removeprefix("/usr"), path) for path, real in reals.items()}
    asked = sorted({name for some in names.values() for name in some})
    told = subprocess.run(["dpkg-query", "-S", *asked], capture_output=True, text=True, check=False).stdout
    lines = (line.rsplit(": ", 1) for line in told.splitlines() if not line.startswith("diversion "))
    owners = {path: owner.split(", ")[0] for owner, path in lines}
    unowned = [path for path, some in names.items() if not owners.keys() & set(some)]
    if unowned:
        raise SystemExit(f"sbom.py: no Debian package has {', '.join(unowned)}")
    return {described(next(owners[name] for name in some if name in owners)) for some in names.values()}


@functools.lru_cache(maxsize=None)
def described(name):
    fields = "${binary:Package}\n${Version}\n${source:Package}\n${Architecture}"
    binary, *others = output("dpkg-query", "-W", "-f", fields, name).splitlines()
    return DebianPackage(binary.partition(":")[0], *others)


def needed(file):
    """The libraries that a binary names."""
    return set(re.findall(r"NEEDED +(\S+)", output("objdump", "-p", file)))


def linked_libraries(part, parts):
    """Packages of the libraries that are loaded with it, ours apart."""
    loaded = dict(re.findall(r"^\s*(\S+) => (/\S+)", output("ldd", part.file), re.MULTILINE))
    others = needed(part.file) - {other.file.name for other in parts}
    return packages_of(loaded[name] for name in others & loaded.keys())


def headers_read(ninja, build):
    """What each object was compiled from: {object: [header outside of this tree]}."""
    headers, current = {}, []
    for line in output(ninja, "-C", build, "-t", "deps").splitlines():
        if line.startswith("    /usr/"):
            current.append(line.strip())
        elif line and not line.startswith(" "):
            current = headers.setdefault(line.partition(": #deps")[0], [])
    return headers


def compiled_in(part, headers, build, ninja):
    """Packages whose headers or static libraries became a part of it."""
    folders = tuple(f"/{target}.dir/" for target in part.targets)
    files = {header for name, read in headers.items() if any(folder in name for folder in folders) for header in read}
    link = output(ninja, "-C", build, "-t", "commands", part.file.relative_to(build)).splitlines()[-1]
    files.update(re.findall(r"(?<=\s)/\S+\.a(?=\s|$)", link))
    return packages_of(files)


def licence_of(package):
    """SPDX' expression, or none, and what Debian says."""
    try:
        with open(f"/usr/share/doc/{package.name}/copyright", encoding="utf-8") as file:
            paragraphs = debian_copyright.Copyright(file, strict=False).all_files_paragraphs()
            told = next((paragraph.license.synopsis for paragraph in paragraphs if "*" in paragraph.files), None)
    except (OSError, ValueError, debian_copyright.Error):  # not there, or not for machines
        told = None
    return LICENCES.get(told, "NOASSERTION"), told


def reference(name):
    return "SPDXRef-" + re.sub(r"[^A-Za-z0-9.]", "-", name)


def entry(name, version, licence, **more):
    return {"SPDXID": reference(name), "name": name, "versionInfo": version, "downloadLocation": "NOASSERTION",
            "filesAnalyzed": False, "licenseConcluded": "NOASSERTION", "licenseDeclared": licence,
            "copyrightText": "NOASSERTION", **more}


def entry_of_debian(package, distribution):
    licence, told = licence_of(package)
    locator = (f"pkg:deb/debian/{quote(package.name, safe='')}@{quote(package.version, safe='')}"
               f"?arch={package.architecture}&distro={distribution}")
    copyright_file = f"/usr/share/doc/{package.name}/copyright"
    return entry(package.name, package.version, licence, supplier="Organization: Debian",
                 sourceInfo=f"built from Debian's source package {package.source}",
                 licenseComments=f"Debian's {copyright_file} says {told}" if told else f"see Debian's {copyright_file}",
                 externalRefs=[{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                "referenceLocator": locator}])


def entry_of_ours(name, version, licence, purpose, **more):
    entry_ = entry(name, version, licence, supplier=AUTHORS, primaryPackagePurpose=purpose, **more)
    return {**entry_, "licenseConcluded": licence, "copyrightText": "2026 The varnex-ffdc authors"}


def distribution_here():
    fields = dict(line.split("=", 1) for line in pathlib.Path("/etc/os-release").read_text("utf-8").splitlines() if "=" in line)
    return f"{fields['ID']}-{fields.get('VERSION_ID', 'unstable')}".replace('"', "")


def built_from(tool):
    return "built from " + re.search(r"^built from: +(.*)", output(tool.file, "--version"), re.MULTILINE)[1]


def created():
    seconds = os.environ.get("SOURCE_DATE_EPOCH") or output("git", "-C", ROOT, "log", "-1", "--format=%ct")
    return datetime.datetime.fromtimestamp(int(seconds), datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")


def relation(one, kind, other, comment=None):
    related = {"spdxElementId": one, "relationshipType": kind, "relatedSpdxElement": other}
    return {**related, "comment": comment} if comment else related


def relations_of(part, parts, linked, inside):
    """How a binary stands to the others of ours, and to the packages of Debian."""
    names = {other.file.name: other for other in parts}
    ours = [names[name] for name in sorted(needed(part.file)) if name in names]
    sources = {package.source for package in linked} | NO_CODE  # their headers are no more than the library
    return ([relation(reference("varnex-ffdc"), "CONTAINS", reference(part.name))] +
            [relation(reference(part.name), "DYNAMIC_LINK", reference(other.name)) for other in ours] +
            [relation(reference(part.name), "DYNAMIC_LINK", reference(package.name)) for package in sorted(linked)] +
            [relation(reference(part.name), "STATIC_LINK", reference(package.name), "headers or static library")
             for package in sorted(inside) if package.source not in sources])


def document(arguments):
    headers = headers_read(arguments.ninja, arguments.build)
    packages, relations = {}, [relation("SPDXRef-DOCUMENT", "DESCRIBES", reference("varnex-ffdc"))]
    for part in arguments.parts:
        linked = linked_libraries(part, arguments.parts)
        inside = compiled_in(part, headers, arguments.build, arguments.ninja)
        relations += relations_of(part, arguments.parts, linked, inside)
        packages.update({reference(package.name): package for package in linked | inside})
    loaded = [part for part in arguments.parts if part.file.name not in set().union(*(needed(p.file) for p in arguments.parts))
              and part.file.suffix == ".so"]
    relations += [relation(reference(part.name), "OPTIONAL_COMPONENT_OF", reference("varnex-ffdc"),
                           "loaded at run time where it is installed, and linked by nothing") for part in loaded]
    named = {end for one in relations for end in (one["spdxElementId"], one["relatedSpdxElement"])}
    distribution = distribution_here()
    entries = [entry_of_ours("varnex-ffdc", arguments.version, "Apache-2.0", "SOURCE", homepage=HOME,
                             sourceInfo=built_from(arguments.parts[0]))]
    entries += [entry_of_ours(part.name, arguments.version, part.licence, "LIBRARY" if ".so" in part.file.name else "APPLICATION")
                for part in arguments.parts]
    entries += [entry_of_debian(package, distribution) for name, package in sorted(packages.items()) if name in named]
    name = f"varnex-ffdc-{arguments.version}-{distribution}"
    body = {"packages": entries, "relationships": relations}
    unique = uuid.uuid5(uuid.NAMESPACE_URL, json.dumps(body, sort_keys=True))
    return {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT", "name": name,
            "documentNamespace": f"{HOME}spdx/{name}-{unique}",
            "creationInfo": {"created": created(), "creators": [AUTHORS, f"Tool: varnex-ffdc-sbom-{arguments.version}"]},
            **body}


def part(text):
    name, file, licence, targets = text.split("=")
    return Part(name, pathlib.Path(file), licence, targets.split(","))


def main():
    parser = argparse.ArgumentParser()
    for option in ("--version", "--ninja"):
        parser.add_argument(option, required=True)
    for option in ("--build", "--output"):
        parser.add_argument(option, required=True, type=pathlib.Path)
    parser.add_argument("parts", nargs="+", type=part)
    arguments = parser.parse_args()
    logging.getLogger("debian.copyright").setLevel(logging.ERROR)  # an old address of the format is no news
    text = json.dumps(document(arguments), indent=2, ensure_ascii=False) + "\n"
    arguments.output.write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main()
