# SPDX-License-Identifier: Apache-2.0
"""What bench/run measures, one module for each kind of work, and how it is told."""
