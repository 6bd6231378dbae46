# SPDX-License-Identifier: Apache-2.0
"""Spans of time as people write them, and moments as kemffdc does."""

from __future__ import absolute_import, division, print_function

import calendar
import re
import time

__metaclass__ = type

_SECONDS = {"": 1, "s": 1, "m": 60, "h": 3600, "d": 86400, "w": 604800}


def seconds_of(text):
    """Of 90, 90s, 45m, 24h, 7d or 2w. ValueError with a sentence for anything else."""
    found = re.match(r"^([0-9]+)([smhdw]?)$", text.strip())
    if not found:
        raise ValueError('"%s" is no span of time: a number with s, m, h, d or w' % text)
    return int(found.group(1)) * _SECONDS[found.group(2)]


def age_of(moment):
    """Seconds since a moment of kemffdc's JSON; of one in the future, which a clock that has been
    set back makes, the seconds until then."""
    return abs(time.time() - calendar.timegm(time.strptime(moment, "%Y-%m-%dT%H:%M:%SZ")))


def span_of(module, name):
    """The seconds of an option. Ends the module where it is no span of time."""
    try:
        return seconds_of(module.params[name])
    except ValueError as error:
        module.fail_json(msg="%s: %s" % (name, error))
