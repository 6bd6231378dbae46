# SPDX-License-Identifier: Apache-2.0
# Warnings of every target of ours: link it PRIVATE.
add_library(varnex_warnings INTERFACE)
target_compile_options(varnex_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wundef
  $<$<BOOL:${VARNEX_WARNINGS_AS_ERRORS}>:-Werror>)
