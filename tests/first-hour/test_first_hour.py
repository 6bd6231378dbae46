# SPDX-License-Identifier: Apache-2.0
"""A new user's first hour, and his first fleet: what the transcripts in this folder say is typed, and has to be seen.

    FIRST_HOUR_WRITE=1 writes what was seen into the transcripts; read the difference before you commit it.
"""

import os
import pathlib

import pytest

import room
import screen
import transcript

FOLDER = pathlib.Path(__file__).parent
SECONDS = 30

pytestmark = pytest.mark.skipif(os.environ.get("VARNEX_PRIVATE_NET") != "private",
                                reason="this machine forbids a network of the test's own")


def play(scene, terminal, behind):
    """Types a scene's command, does what the directions say, and returns what was seen."""
    for direction in scene.before:
        behind.happen(direction)
    begin = len(terminal.lines()) - 1
    for number, line in enumerate(scene.typed):
        if number:  # the shell itself says when it wants more; what is typed before may stand there twice
            terminal.wait_for_question(transcript.CONTINUATION.rstrip(), SECONDS)
        terminal.type(line[len(transcript.COMMAND):] + "\n")
    last = ""
    for step in scene.steps:
        if step.startswith(transcript.DIRECTION):
            follow(step[len(transcript.DIRECTION):], last, terminal, behind, begin)
        last = step
    terminal.wait_for_prompt(SECONDS)
    return [behind.as_if_at_home(line) for line in terminal.lines()[begin:-1]]


def follow(direction, last, terminal, behind, begin):
    """One stage direction; `last` is the line above it."""
    verb, _, what = direction.partition(" ")
    if verb == "types":
        terminal.wait_for_question(last, SECONDS)
        terminal.type(behind.secret(what) + "\n")
    else:
        key, _, text = what.partition(" at ")
        assert (verb, key) == ("presses", "Ctrl-C"), direction
        terminal.wait_for(text, SECONDS, begin)
        terminal.type("\x03")


@pytest.mark.parametrize("file", sorted(FOLDER.glob("*.transcript")), ids=lambda file: file.stem)
def test_the_transcript_holds(file, tmp_path):
    text = file.read_text(encoding="utf-8")
    scenes = transcript.read(text)
    with room.furnished(tmp_path) as behind:
        terminal = screen.Terminal(tmp_path, behind.environment(), behind.slowness)
        try:
            seen = [transcript.plain(play(scene, terminal, behind)) for scene in scenes]
        finally:
            terminal.stop()
    if os.environ.get("FIRST_HOUR_WRITE"):
        file.write_text(transcript.rewritten(text, seen), encoding="utf-8")
        return
    for scene, lines in zip(scenes, seen):
        assert lines == [*scene.typed, *scene.seen()]
