# SPDX-License-Identifier: Apache-2.0
include(GoogleTest)

# varnex_test(NAME LABEL label SOURCES... LIBRARIES... [PROCESSES n] [ALONE case...] [TIMEOUT seconds]
#             [PROPERTIES...]): a GoogleTest program.
#
# Its cases share a process, which is one test of ctest, NAME; or n processes, NAME.1 to NAME.n: for
# programs that wait a lot. What a case sets for its process (environment, folder, umask, limits,
# signals) is put back after it. Cases that read or leave behind what lives as long as the process,
# a configuration that is read once, a secret that is hidden from then on, are named by ALONE,
# patterns as of --gtest_filter ("*": all). Each of them has a process, and is a test of ctest.
# TIMEOUT is for each process. PROPERTIES are those of each test.
function(varnex_test name)
  cmake_parse_arguments(arg "" "LABEL;TIMEOUT;PROCESSES" "SOURCES;LIBRARIES;ALONE;PROPERTIES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} varnex_test_process GTest::gmock
                        GTest::gtest_main varnex_warnings)
  varnex_precompiled_tests(${name})
  set(properties LABELS "${arg_LABEL}" ${arg_PROPERTIES})
  set(environment)
  if(VARNEX_PEERS)
    set(environment "VARNEX_PEERS=${VARNEX_PEERS}")
  endif()
  list(JOIN arg_ALONE ":" alone)
  if(alone)
    varnex_test_each_alone(${name})
  endif()
  if(NOT alone STREQUAL "*")
    varnex_test_together(${name})
  endif()
endfunction()

# Both see the variables of varnex_test.
function(varnex_test_each_alone name)
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 60)
  endif()
  if(environment)
    list(APPEND properties ENVIRONMENT "${environment}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 TEST_FILTER "${alone}"
    PROPERTIES TIMEOUT ${arg_TIMEOUT} ${properties})
endfunction()

function(varnex_test_together name)
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 300)
  endif()
  if(NOT arg_PROCESSES)
    set(arg_PROCESSES 1)
  endif()
  set(filter)
  if(alone)
    set(filter "--gtest_filter=-${alone}")
  endif()
  foreach(process RANGE 1 ${arg_PROCESSES})
    set(test ${name})
    if(arg_PROCESSES GREATER 1)
      set(test ${name}.${process})
    endif()
    math(EXPR index "${process} - 1")
    add_test(NAME ${test} COMMAND ${name} ${filter})
    set_tests_properties(${test} PROPERTIES TIMEOUT ${arg_TIMEOUT} COST 30 ${properties}
      ENVIRONMENT "GTEST_TOTAL_SHARDS=${arg_PROCESSES};GTEST_SHARD_INDEX=${index};${environment}")
  endforeach()
endfunction()

# tools/sum-up counts the cases of a program by its last lines: so ctest keeps them.
file(WRITE ${CMAKE_BINARY_DIR}/CTestCustom.cmake
  "set(CTEST_CUSTOM_MAXIMUM_PASSED_TEST_OUTPUT_SIZE 0)  # all of it
set(CTEST_CUSTOM_TEST_OUTPUT_TRUNCATION middle)
")
