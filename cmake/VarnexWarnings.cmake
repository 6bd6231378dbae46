# SPDX-License-Identifier: Apache-2.0
# Warnings of every target of ours: link it PRIVATE.
add_library(varnex_warnings INTERFACE)
target_compile_options(varnex_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2 -Wundef
  $<$<BOOL:${VARNEX_WARNINGS_AS_ERRORS}>:-Werror>)

# Instrumented code makes g++ 12 see uninitialised memory inside of standard and Boost headers.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  target_compile_options(varnex_warnings INTERFACE -Wno-maybe-uninitialized)
endif()
