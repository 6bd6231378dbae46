#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""foreign_redfish.py APPLICATION CERTIFICATE [PORT]: serves a stranger's Redfish service over HTTPS.

APPLICATION is the file with its Flask application, as fwupd's source package has one; CERTIFICATE holds
certificate and key in PEM. Prints its port when it listens on the loopback address, and ends when its
standard input closes.
"""

import logging
import runpy
import sys
import threading

from werkzeug.serving import make_server


def main(application, certificate, port="0"):
    logging.getLogger("werkzeug").setLevel(logging.CRITICAL)
    app = runpy.run_path(application)["app"]
    server = make_server("127.0.0.1", int(port), app, threaded=True, ssl_context=(certificate, certificate))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    print(server.server_port, flush=True)
    sys.stdin.read()


if __name__ == "__main__":
    main(*sys.argv[1:])
