# SPDX-License-Identifier: Apache-2.0
# Headers of others, compiled once for many sources: a fifth of the sanitized build's time. Builds
# without it show what a source has forgotten to include.
option(VARNEX_PCH "Precompile the headers of others" OFF)

set(varnex_standard_headers
  <algorithm> <array> <atomic> <charconv> <chrono> <condition_variable> <cstdint> <cstdlib> <cstring> <ctime>
  <deque> <filesystem> <fstream> <functional> <iostream> <iterator> <map> <memory> <mutex> <optional> <set>
  <sstream> <stdexcept> <string> <string_view> <system_error> <thread> <unordered_map> <utility> <vector>)

if(VARNEX_PCH)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # ccache wants the first; the second spares g++ from going through all of the headers for garbage.
    add_compile_options(-fpch-preprocess --param=ggc-min-heapsize=1000000)
  endif()
  # What ccache does not look into otherwise. Its file of hashes spares it from reading the headers for each source.
  if(CMAKE_CXX_COMPILER_LAUNCHER MATCHES "ccache$")
    list(PREPEND CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros CCACHE_INODECACHE=1)
  endif()
endif()

# varnex_precompiled(TARGET HEADERS...): these and the standard ones.
function(varnex_precompiled target)
  if(VARNEX_PCH)
    target_precompile_headers(${target} PRIVATE ${varnex_standard_headers} ${ARGN})
  endif()
endfunction()

# varnex_precompiled_tests(TARGET): GoogleTest's and the standard ones, for a program.
function(varnex_precompiled_tests target)
  if(NOT VARNEX_PCH)
    return()
  endif()
  if(NOT TARGET varnex_test_headers)
    set(empty ${PROJECT_BINARY_DIR}/varnex_test_headers.cpp)
    file(CONFIGURE OUTPUT ${empty} CONTENT "int main() {}\n")
    add_executable(varnex_test_headers EXCLUDE_FROM_ALL ${empty})
    target_link_libraries(varnex_test_headers PRIVATE GTest::gmock varnex_warnings)
    varnex_precompiled(varnex_test_headers <gmock/gmock.h> <gtest/gtest.h>)
  endif()
  target_precompile_headers(${target} REUSE_FROM varnex_test_headers)
endfunction()
