#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""httpbin on a free port of 127.0.0.1. Prints one JSON line when it is ready and ends when its
standard input closes."""

import json
import logging
import os
import sys
import threading

from httpbin import app
from werkzeug.serving import make_server

logging.getLogger('werkzeug').setLevel(logging.ERROR)
server = make_server('127.0.0.1', 0, app, threaded=True)
threading.Thread(target=server.serve_forever, daemon=True).start()
print(json.dumps({'port': server.server_port}), flush=True)
sys.stdin.read()
os._exit(0)
