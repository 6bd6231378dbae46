#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""filter.py FILE: a header or a page of docs/ as Doxygen wants to read it, on standard output.

Headers are commented in plain words, for who reads them in an editor: nothing there is written for
Doxygen. Pages link to each other by their files' names; what the site does not have is named and not
linked.
"""

import pathlib
import re
import sys

ALONE = re.compile(r"^( *)//(?! NOLINT)(.*)$")
BEHIND = re.compile(r"^( *[^\s/}#].*?[;,{)] *)// (.*)$|^( *\w[\w ]*(?:= *\d+)? +)// (.*)$")
LINK = re.compile(r"\[([^\]]+)\]\(([^)#\s]*)(?:#([^)\s]*))?\)")
PAGES = {"linking": "docs", "overview": "docs", "result-codes": "docs", "log-catalogue": "docs",
         "porting-the-platform": "docs", "README": "platform"}


def plain(text):
    """Words that Doxygen takes for nothing else, but for `code`. Addresses are examples, and no links."""
    pieces = text.split("`")
    for at in range(0, len(pieces), 2):
        pieces[at] = re.sub(r"[\\@%#<>&$]", r"\\\g<0>", pieces[at]).replace("://", ":<b></b>//")
    return "`".join(pieces)


def block(lines):
    """A comment of some lines. What is indented, but for lists, is a table or an example."""
    kind, blank = "text", []
    for line in lines:
        before = kind
        if not line.strip():
            blank.append("")
            continue
        if re.match(r" +- ", line):
            kind = "list"
        elif not line.startswith("   "):
            kind = "text"
        elif kind == "text":
            kind = "table"
        if before == "list" and kind == "text":
            blank = [""]  # or it would go on with the last item
        if before == "table" != kind:
            yield "```"
        yield from blank
        if kind == "table" != before:
            yield "```{.unparsed}"
        yield line if kind == "table" else plain(line)
        blank = []
    if kind == "table":
        yield "```"


def header(text):
    """Comments before a declaration as ///, behind one as ///<."""
    shown, pending, column = ["/// @file"], [], None

    def flush():
        nonlocal pending
        indent = " " * pending[0][0] if pending else ""
        shown.extend(f"{indent}///{line}" for line in block([line for _, line in pending]))
        pending = []

    # Without the licence, and without what is private: Doxygen would link to a place for it.
    text = re.sub(r"^( *)private:\n.*?(?=^\1};)", "", text, flags=re.MULTILINE | re.DOTALL)
    for line in text.splitlines()[1:]:
        alone, behind = ALONE.match(line), BEHIND.match(line)
        if alone and column == len(alone[1]):
            shown.append(f"{alone[1]}///<{plain(alone[2])}")
        elif alone:
            pending.append((len(alone[1]), alone[2]))
        else:
            flush()
            column = None
            if behind:
                code, said = [group for group in behind.groups() if group is not None]
                column = len(code)
                line = f"{code}///< {plain(said)}"
            shown.append(line)
    return "\n".join(shown) + "\n"


def anchor(heading):
    return re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")


def page(text, name):
    def target(match):
        words, file, place = match.groups()
        there = pathlib.PurePosixPath(file).stem if file else name
        if file.endswith(".h"):
            return f"[{words}](@ref {pathlib.PurePosixPath(file).name})"
        if there in PAGES and (not file or file.endswith(".md")):
            return f"[{words}](@ref {there}{'-' + place if place else ''})"
        return words if "://" not in file else match[0]

    fenced, shown = False, []
    for line in text.splitlines():
        fenced ^= line.startswith("```")
        if not fenced and not line.startswith("    "):
            line = LINK.sub(target, line)
            heading = re.match(r"(#+) (.*)$", line)
            if heading:
                label = name if heading[1] == "#" else f"{name}-{anchor(heading[2])}"
                line = f"{line.replace('`', '')} {{#{label}}}"
        shown.append(line)
    return "\n".join(shown) + "\n"


def main():
    file = pathlib.Path(sys.argv[1])
    text = file.read_text(encoding="utf-8")
    sys.stdout.write(header(text) if file.suffix == ".h" else page(text, file.stem))


if __name__ == "__main__":
    main()
