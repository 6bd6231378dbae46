# SPDX-License-Identifier: Apache-2.0
# Two builds in different folders make the same files: none holds the name of a folder. Builds for a
# debugger keep the names, so that it finds the sources by itself.
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  # The last one that fits counts: a build folder may lie in the tree.
  add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}=."
                      "-ffile-prefix-map=${PROJECT_BINARY_DIR}=./build")
endif()
