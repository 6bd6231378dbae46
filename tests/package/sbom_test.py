# SPDX-License-Identifier: Apache-2.0
"""The SPDX document that is installed: its form, and whether it says what the binaries say themselves.

No program that judges SPDX is in Debian 12. What its version 2.3 wants of the members that stand here is
written out; licence expressions are judged by python3-license-expression.
"""

import functools
import json
import re
import subprocess

import license_expression
import pytest

from commands import ROOT

ID = re.compile(r"SPDXRef-[A-Za-z0-9.-]+")
TIME = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ")
PURL = re.compile(r"pkg:deb/debian/[a-z0-9](?:[a-z0-9.-]|%2B)+@[A-Za-z0-9.%~-]+\?arch=[a-z0-9]+&distro=debian-\d+")
SOMEBODY = re.compile(r"(Person|Organization): \S.*")
CREATOR = re.compile(r"(Person|Organization|Tool): \S.*")
PURPOSES = {"APPLICATION", "LIBRARY", "SOURCE"}
RELATIONS = {"DESCRIBES", "CONTAINS", "DYNAMIC_LINK", "STATIC_LINK", "OPTIONAL_COMPONENT_OF"}
TEXTS = {"SPDXID", "name", "versionInfo", "downloadLocation", "licenseConcluded", "licenseDeclared", "copyrightText", "supplier"}
OTHERS = {"filesAnalyzed", "primaryPackagePurpose", "homepage", "sourceInfo", "licenseComments", "externalRefs"}


@pytest.fixture(scope="module")
def document(prefix):
    return json.loads((prefix / "share/doc/VarnexFfdc/varnex-ffdc.spdx.json").read_text(encoding="utf-8"))


def package(document, name):
    return next(one for one in document["packages"] if one["name"] == name)


def related(document, name, kind):
    """Names of the packages that stand so to this one."""
    names = {one["SPDXID"]: one["name"] for one in document["packages"]}
    ends = [one["relatedSpdxElement"] for one in document["relationships"]
            if one["relationshipType"] == kind and names.get(one["spdxElementId"]) == name]
    return {names[end] for end in ends}


def output(*command):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, check=True).stdout


def needed(file):
    return set(re.findall(r"NEEDED +(\S+)", output("objdump", "-p", file)))


@functools.lru_cache(maxsize=None)
def provided():
    return [line.split(None, 1) for line in output("dpkg-query", "-W", "-f", "${Package} ${Provides}\n").splitlines()]


def providers_of(virtual):
    return {name for name, *names in provided() if names and re.search(rf"(^|\s){re.escape(virtual)}\b(?!-)", names[0])}


def test_the_document_is_spdx_2_3(document):
    assert set(document) == {"spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace", "creationInfo", "packages",
                             "relationships"}
    assert (document["spdxVersion"], document["dataLicense"], document["SPDXID"]) == ("SPDX-2.3", "CC0-1.0", "SPDXRef-DOCUMENT")
    assert re.fullmatch(r"https://[^\s#]+/varnex-ffdc-[^\s#]+-[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}", document["documentNamespace"])
    assert TIME.fullmatch(document["creationInfo"]["created"])
    assert document["creationInfo"]["creators"]
    assert all(CREATOR.fullmatch(one) for one in document["creationInfo"]["creators"])


def test_packages_have_what_spdx_wants_of_them(document):
    judge = license_expression.get_spdx_licensing()
    identifiers = [one["SPDXID"] for one in document["packages"]]
    assert len(set(identifiers)) == len(identifiers)
    for one in document["packages"]:
        assert ID.fullmatch(one["SPDXID"]), one
        assert TEXTS <= set(one) <= TEXTS | OTHERS
        assert all(isinstance(one[member], str) and one[member] for member in TEXTS)
        assert one["filesAnalyzed"] is False  # so there is no verification code of files
        assert SOMEBODY.fullmatch(one["supplier"])
        assert one.get("primaryPackagePurpose", "LIBRARY") in PURPOSES
        for member in ("licenseConcluded", "licenseDeclared"):
            assert one[member] == "NOASSERTION" or not judge.validate(one[member], strict=True).errors, one


def test_relationships_name_what_is_there(document):
    known = {one["SPDXID"] for one in document["packages"]} | {document["SPDXID"]}
    assert {one["relationshipType"] for one in document["relationships"]} == RELATIONS
    for one in document["relationships"]:
        assert {one["spdxElementId"], one["relatedSpdxElement"]} <= known
    described = [one for one in document["relationships"] if one["relationshipType"] == "DESCRIBES"]
    assert [(one["spdxElementId"], one["relatedSpdxElement"]) for one in described] == [("SPDXRef-DOCUMENT", "SPDXRef-varnex-ffdc")]
    met = {end for one in document["relationships"] for end in (one["spdxElementId"], one["relatedSpdxElement"])}
    assert met == known  # nothing stands there that nobody has to do with


@pytest.mark.parametrize("name, file", [
    ("kemffdc", "bin/kemffdc"), ("libvarnexffdc", "lib/*/libvarnexffdc.so.1"), ("libvarnexplatform", "lib/*/libvarnexplatform.so.1"),
    ("libvarnexplatform-ipmi", "lib/*/varnex-ffdc/1/libvarnexplatform-ipmi.so")])
def test_each_binary_is_linked_with_what_it_says_itself(document, prefix, name, file):
    """As the file names them, and as Debian's own lists of libraries say who may have them."""
    binary = next(iter(prefix.glob(file)), None) or next(prefix.glob(file.replace("*/", "")))
    owners = {"libvarnexffdc.so.1": {"libvarnexffdc"}, "libvarnexplatform.so.1": {"libvarnexplatform"}}
    listed = output("sh", "-c", "cat /var/lib/dpkg/info/*.shlibs")
    for library, version, owner in re.findall(r"^(?:\w+: )?(\S+) (\S+) ([a-z0-9][a-z0-9.+-]+)", listed, re.MULTILINE):
        for soname in (f"{library}.so.{version}", f"{library}-{version}.so"):
            owners.setdefault(soname, set()).update({owner, *providers_of(owner)})
    possible = [owners[library] for library in needed(binary) if not library.startswith("ld-linux")]
    told = related(document, name, "DYNAMIC_LINK")
    assert all(told & some for some in possible)
    assert all(any(one in some for some in possible) for one in told)


def test_code_that_was_compiled_in_is_named_and_declarations_are_not(document):
    assert {"libcli11-dev", "libsqlitecpp-dev"} <= related(document, "kemffdc", "STATIC_LINK")
    assert any(name.startswith("libboost") for name in related(document, "libvarnexplatform", "STATIC_LINK"))
    everything = {one["name"] for one in document["packages"]}
    assert not everything & {"libcurl4-openssl-dev", "libssl-dev", "libarchive-dev", "linux-libc-dev", "libfreeipmi-dev", "libgtest-dev"}


def test_packages_of_debian_are_those_of_this_machine(document):
    ours = {"varnex-ffdc", "kemffdc", "libvarnexffdc", "libvarnexplatform", "libvarnexplatform-ipmi"}
    for one in document["packages"]:
        if one["name"] in ours:
            continue
        installed = {line.split()[0] for line in output("dpkg-query", "-W", "-f", "${Version}\n", one["name"]).splitlines()}
        assert one["versionInfo"] in installed
        references = [(ref["referenceCategory"], ref["referenceType"]) for ref in one["externalRefs"]]
        assert references == [("PACKAGE-MANAGER", "purl")]
        assert PURL.fullmatch(one["externalRefs"][0]["referenceLocator"]), one


def test_the_module_for_ipmi_is_optional_and_under_the_gpl(document):
    assert package(document, "libvarnexplatform-ipmi")["licenseConcluded"] == "GPL-3.0-or-later"
    assert package(document, "kemffdc")["licenseConcluded"] == "Apache-2.0"
    assert related(document, "libvarnexplatform-ipmi", "OPTIONAL_COMPONENT_OF") == {"varnex-ffdc"}
    assert "libfreeipmi17" not in related(document, "kemffdc", "DYNAMIC_LINK")


def test_it_tells_the_same_commit_as_the_tool(document, prefix):
    told = re.search(r"^built from: +(.*)$", output(prefix / "bin" / "kemffdc", "--version"), re.MULTILINE)[1]
    assert package(document, "varnex-ffdc")["sourceInfo"] == f"built from {told}"
    header = (ROOT / "include/varnex/version.h").read_text(encoding="utf-8")
    version = re.findall(r"^#define VARNEX_FFDC_VERSION_[A-Z]+ (\d+)$", header, re.MULTILINE)
    assert package(document, "varnex-ffdc")["versionInfo"] == ".".join(version)
