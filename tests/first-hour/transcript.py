# SPDX-License-Identifier: Apache-2.0
"""Transcripts: what a person types at a terminal, and what he sees.

A transcript is a text file. A line that begins with "$ " is a command, "> " continues one, and what
follows is seen. A line that begins with "~ " is a stage direction and not seen:

    ~ types NAME              once the line above stands there as a question; not echoed
    ~ presses Ctrl-C at TEXT  once the text stands on the screen
    ~ NAME                    something happens behind the scenes, before the next command

A line that begins with "# " tells the reader what this is about. What differs from day to day is
written as <what>: the rules are in RULES, each with its name.
"""

import re
from dataclasses import dataclass, field

DIRECTION, COMMENT, COMMAND, CONTINUATION = "~ ", "#", "$ ", "> "

# Each rule: what is written in its place, and what it stands for.
RULES = [
    ("<utc>", re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ")),
    ("<utc>", re.compile(r"\d{8}T\d{6}Z")),
    ("<fingerprint>", re.compile(r"SHA256:[A-Za-z0-9+/]{43}")),
    ("<fingerprint>", re.compile(r"(?:[0-9A-F]{2}:){31}[0-9A-F]{2}")),
    ("<sum>", re.compile(r"\b[0-9a-f]{64}\b")),
    ("<elapsed>", re.compile(r"^\d+:\d\d(?=  bmc)|(?<=done in )\d+:\d\d")),
    ("<duration>", re.compile(r"\b\d+(?:\.\d+)? s\b|\b\d+:\d\d min\b")),
    ("<rate>", re.compile(r"\b\d+(?:\.\d+)? (?:[KMG]i?)?B/s")),
]


@dataclass
class Scene:
    """One command with what belongs to it."""

    typed: list  # lines, the command and its continuations, as they stand in the transcript
    steps: list = field(default_factory=list)  # what is seen, and directions, in order
    before: list = field(default_factory=list)  # directions that come before it

    def seen(self):
        return [step for step in self.steps if not step.startswith(DIRECTION)]


def read(text):
    """The scenes of a transcript."""
    scenes, before = [], []
    for line in text.splitlines():
        if line.startswith(COMMENT):
            continue
        if line.startswith(COMMAND):
            scenes.append(Scene([line], before=before))
            before = []
        elif scenes and line.startswith(CONTINUATION) and not scenes[-1].steps:
            scenes[-1].typed.append(line)
        elif line.startswith(DIRECTION) and _is_behind_the_scenes(line):
            before.append(line[len(DIRECTION):])
        elif scenes:
            scenes[-1].steps.append(line)
    for scene in scenes:
        while scene.steps and not scene.steps[-1]:
            scene.steps.pop()  # empty lines part the scenes
    return scenes


def _is_behind_the_scenes(line):
    return not line.startswith((DIRECTION + "types ", DIRECTION + "presses "))


def plain(lines):
    """The lines with what differs from day to day named by its rule."""
    return [_plain(line).rstrip() for line in lines]


def _plain(line):
    for name, pattern in RULES:
        line = pattern.sub(name, line)
    return line


def rewritten(text, seen):
    """The transcript with what was seen; directions stay behind the line that they follow, if it is still there."""
    scenes = [_with_directions(scene, lines) for scene, lines in zip(read(text), seen)]
    lines, in_scene = [], False
    for line in text.splitlines():
        if line.startswith(COMMAND):
            lines += [*scenes.pop(0), ""]
            in_scene = True
        elif line.startswith(COMMENT) or (line.startswith(DIRECTION) and _is_behind_the_scenes(line)):
            lines.append(line)
            in_scene = False
        elif not in_scene:
            lines.append(line)
    return "\n".join(lines).rstrip("\n") + "\n"


def _with_directions(scene, seen):
    """The lines that were seen, and each direction where it was: so many lines behind the command."""
    lines = list(seen)
    for number, step in enumerate(scene.steps):
        if step.startswith(DIRECTION):
            lines.insert(min(len(lines), len(scene.typed) + number), step)
    return lines
