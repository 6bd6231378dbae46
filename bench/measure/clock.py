# SPDX-License-Identifier: Apache-2.0
"""How long a command takes, and in which order those who are compared take their turns."""

import os
import subprocess
import sys
import time

LONGEST_SECONDS = 1800


def say(what):
    """For the one who waits. Standard output is the result's."""
    print(what, file=sys.stderr, flush=True)


def run(command, text=None, **more):
    """What it printed. Without a text its standard input is empty. A failure shows all of it."""
    finished = subprocess.run([str(word) for word in command], input=text or "", text=True,
                              capture_output=True, timeout=LONGEST_SECONDS, check=False, **more)
    if finished.returncode != 0:
        raise SystemExit(f"bench/run: ended with {finished.returncode}: {command}\n"
                         f"{finished.stdout}{finished.stderr}")
    return finished.stdout


def seconds(command, text=None, **more):
    start = time.perf_counter()
    said = run(command, text, **more)
    return time.perf_counter() - start, said


def in_turns(rounds, *works):
    """A list of times for each: they take turns, so that a busy moment meets all."""
    times = [[work() for work in works] for _ in range(rounds)]
    return [list(column) for column in zip(*times)]


def take(path, size):
    """The file that was fetched goes again, if it is whole."""
    found = path.stat().st_size
    if found != size:
        raise SystemExit(f"bench/run: {path} has {found} bytes instead of {size}")
    path.unlink()


def clean_environment():
    """Without what steers curl and the library from outside."""
    for name in list(os.environ):
        if name.lower().endswith("_proxy") or name in ("SSL_CERT_FILE", "SSL_CERT_DIR",
                                                       "CURL_CA_BUNDLE", "REQUESTS_CA_BUNDLE"):
            del os.environ[name]
