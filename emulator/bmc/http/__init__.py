# SPDX-License-Identifier: Apache-2.0
"""The HTTP(S) ground that the web services of the BMC stand on: server, bodies, scripted answers."""
