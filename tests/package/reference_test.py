# SPDX-License-Identifier: Apache-2.0
"""The installed reference: a site that is whole, and asks nobody else for anything."""

import html.parser
import re
import urllib.parse

import pytest


class Page(html.parser.HTMLParser):
    """What a page links to, and what can be linked to in it."""

    def __init__(self, file):
        super().__init__()
        self.links, self.resources, self.places, self.words = [], [], set(), []
        self.feed(file.read_text(encoding="utf-8"))

    def handle_starttag(self, tag, attrs):
        given = dict(attrs)
        self.places |= {given[name] for name in ("id", "name") if given.get(name)}
        if tag == "a" and given.get("href"):
            self.links.append(given["href"])
        elif tag in ("link", "script", "img", "iframe", "object") or given.get("src"):
            self.resources.append(given.get("href") or given.get("src") or given.get("data"))

    def handle_data(self, data):
        self.words.append(data)


@pytest.fixture(scope="module")
def site(prefix):
    return next((prefix / "share" / "doc").glob("*/html"))


@pytest.fixture(scope="module")
def pages(site):
    return {file.name: Page(file) for file in site.glob("*.html")}


def test_every_link_leads_to_a_place_that_is_there(pages):
    broken = []
    for name, page in pages.items():
        for link in page.links:
            where = urllib.parse.urlsplit(link)
            there = pages.get(urllib.parse.unquote(where.path) or name)
            if where.scheme or there is None or (where.fragment and where.fragment not in there.places):
                broken.append((name, link))
    assert broken == []


def test_no_page_needs_scripts_or_anything_from_elsewhere(site, pages):
    needed = {resource for page in pages.values() for resource in page.resources}
    assert needed and all((site / resource).is_file() for resource in needed), needed
    for sheet in site.glob("*.css"):
        for resource in re.findall(r"url\(['\"]?([^'\")]+)", sheet.read_text(encoding="utf-8")):
            assert (site / resource).is_file(), (sheet.name, resource)
    assert not list(site.rglob("*.js"))


def test_each_public_header_and_each_page_of_the_guide_is_there(prefix, pages):
    headers = {file.name for file in (prefix / "include" / "varnex").rglob("*.h")}
    shown = {word.strip() for page in pages.values() for word in page.words}
    assert len(headers) > 15 and {f"{name} File Reference" for name in headers} <= shown
    assert {"Linking the library", "Overview", "Result codes", "Log catalogue", "The platform services",
            "Bringing a platform of your own"} <= shown


def test_what_a_header_says_is_shown_as_it_stands_there(pages):
    facade = " ".join("".join(pages["classVarnex_1_1KEMFfdc.html"].words).split())
    assert "Mind the third argument: a bare integer after a uri converts to bool and means CIM." in facade
    assert "(conn, outputPath, mode) OEM IPMI commands, over the LAN or in band" in facade
    record = " ".join("".join(pages["structVarnex_1_1LogRecord.html"].words).split())
    assert "1 error, 2 warning, 3 info, 4 debug" in record
