# SPDX-License-Identifier: Apache-2.0
# OpenPegasus' C++ client: target Pegasus::client. PEGASUS_ROOT (variable or environment) names its
# installation: PEGASUS_ROOT/include/Pegasus/Client/CIMClient.h and PEGASUS_ROOT/lib.
find_path(Pegasus_INCLUDE_DIR Pegasus/Client/CIMClient.h
          HINTS ${PEGASUS_ROOT} ENV PEGASUS_ROOT PATH_SUFFIXES include src)
find_library(Pegasus_CLIENT_LIBRARY pegclient
             HINTS ${PEGASUS_ROOT} ENV PEGASUS_ROOT ENV PEGASUS_HOME PATH_SUFFIXES lib lib64)
find_library(Pegasus_COMMON_LIBRARY pegcommon
             HINTS ${PEGASUS_ROOT} ENV PEGASUS_ROOT ENV PEGASUS_HOME PATH_SUFFIXES lib lib64)
mark_as_advanced(Pegasus_INCLUDE_DIR Pegasus_CLIENT_LIBRARY Pegasus_COMMON_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Pegasus
  REQUIRED_VARS Pegasus_CLIENT_LIBRARY Pegasus_COMMON_LIBRARY Pegasus_INCLUDE_DIR)

if(Pegasus_FOUND AND NOT TARGET Pegasus::client)
  add_library(Pegasus::common UNKNOWN IMPORTED)
  set_target_properties(Pegasus::common PROPERTIES
    IMPORTED_LOCATION "${Pegasus_COMMON_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${Pegasus_INCLUDE_DIR}")
  add_library(Pegasus::client UNKNOWN IMPORTED)
  set_target_properties(Pegasus::client PROPERTIES
    IMPORTED_LOCATION "${Pegasus_CLIENT_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${Pegasus_INCLUDE_DIR}"
    INTERFACE_LINK_LIBRARIES Pegasus::common)
endif()
