# SPDX-License-Identifier: Apache-2.0
# What makes a memory error in what is built here harder to use. For every target after it. The
# sanitizers find more, and get in the way of it.
option(VARNEX_HARDENING "Stack protector, checked library calls, RELRO, BIND_NOW, PIE, CET" ON)

if(VARNEX_HARDENING AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)  # CMAKE_POSITION_INDEPENDENT_CODE holds for linking too
  add_compile_options(-fstack-protector-strong)
  # Without optimisation the C library only complains about it.
  add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  add_link_options(LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64)$")
    add_compile_options(-fcf-protection)
    # Said to the linker because the start files of some systems lack the note, and one object
    # without it is enough to lose it.
    add_link_options(LINKER:-z,ibt LINKER:-z,shstk)
  endif()
endif()
