# SPDX-License-Identifier: Apache-2.0
# varnex_exports(TARGET MAP): what a shared library exports, and in which version. The linker gets a
# copy by a relative path: with CMake a whole one may not hold a "$", among link options.
function(varnex_exports target map)
  configure_file(${map} ${target}.map COPYONLY)
  set(copy ${CMAKE_CURRENT_BINARY_DIR}/${target}.map)
  set(linked_in ${CMAKE_CURRENT_BINARY_DIR})
  if(CMAKE_GENERATOR MATCHES "Ninja")
    set(linked_in ${CMAKE_BINARY_DIR})
  endif()
  file(RELATIVE_PATH relative ${linked_in} ${copy})
  target_link_options(${target} PRIVATE "LINKER:--version-script=${relative}")
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${copy})
endfunction()
