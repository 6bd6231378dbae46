# SPDX-License-Identifier: Apache-2.0
"""The kemffdc of a station: how it is started, and how its answer is read."""

from __future__ import absolute_import, division, print_function

import json
import os
import subprocess

__metaclass__ = type

_MOST_WORDS = 2000  # characters of standard error that a failure shows
_LONGEST_PASSWORD = 60000  # bytes: what a pipe takes at once


class Answer(object):
    """How a command ended: its exit code, the JSON object that it printed, and its other words."""

    def __init__(self, code, document, words):
        self.code = code
        self.document = document
        self.words = words

    @property
    def outcome(self):
        return self.document.get("outcome")


class Tool(object):
    """Starts the station's kemffdc. Ends the module where it is not there, or answers nothing."""

    def __init__(self, module):
        self._module = module
        self._program = module.get_bin_path(module.params["executable"], required=True)

    def run(self, words, password=None, export_password=None):
        """Runs a command to its end, which the tool's own deadline bounds.

        Passwords go through pipes: to standard input, and to a descriptor of their own. The tool
        has a session of its own: it asks no terminal, and goes on where the connection to the
        station is lost. What it brings then is in the history.
        """
        command = [self._program] + list(words) + ["--json"]
        if any(len(_line(one)) > _LONGEST_PASSWORD for one in (password, export_password)):
            self._module.fail_json(msg="a password is longer than %d bytes" % _LONGEST_PASSWORD)
        descriptors = []
        if password is not None:
            command += ["--password-file", "-"]
        if export_password is not None:
            descriptors.append(_pipe_with(export_password))
            command += ["--export-password-file", "/dev/fd/%d" % descriptors[0]]
        try:
            process = subprocess.Popen(
                command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                pass_fds=descriptors, start_new_session=True)
        except OSError as error:
            self._module.fail_json(msg="%s: %s" % (self._program, error.strerror))
        finally:
            for descriptor in descriptors:
                os.close(descriptor)
        out, err = process.communicate(_line(password))
        return self._read(" ".join(command[1:3]), process.returncode, out, err)

    def _read(self, command, code, out, err):
        words = err.decode("utf-8", "replace").strip()[-_MOST_WORDS:]
        try:
            document = json.loads(out.decode("utf-8").strip().rsplit("\n", 1)[-1])
        except ValueError:
            document = None
        if not isinstance(document, dict):
            self._module.fail_json(
                msg="%s %s ended with %d and printed no result. %s"
                    % (self._program, command, code, words),
                exit_code=code)
        return Answer(code, document, words)


def options_on_line(params, names):
    """Those of the options that somebody has given, as the tool's command line has them."""
    words = []
    for name in names:
        value = params.get(name)
        flag = "--" + name.replace("_", "-")
        if isinstance(value, bool):
            words += [flag] if value else []
        elif value is not None:
            words += [flag, str(value)]
    return words


def station_arguments():
    """Options that each module has."""
    return dict(
        executable=dict(type="str", default="kemffdc"),
        state_dir=dict(type="path"),
    )


def _line(password):
    return b"" if password is None else password.encode("utf-8") + b"\n"


def _pipe_with(password):
    """The reading end of a pipe that holds the password."""
    reading, writing = os.pipe()
    os.write(writing, _line(password))
    os.close(writing)
    return reading
