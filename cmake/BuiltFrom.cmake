# SPDX-License-Identifier: Apache-2.0
#
# cmake -DSOURCE=FOLDER -DVERSION=1.0.0 -DOUTPUT=FILE -P BuiltFrom.cmake
#
# Writes the source file with what the tool says it was built from. The file is touched only when
# that changes, and holds nothing of when or where: one commit makes one and the same program.

# The commit, where `git archive` packed this file.
set(commit "$Format:%H$")

# The tree's own repository, and not one that it was copied into.
execute_process(COMMAND git -C ${SOURCE} rev-parse --show-toplevel HEAD
  OUTPUT_VARIABLE told ERROR_QUIET RESULT_VARIABLE failed OUTPUT_STRIP_TRAILING_WHITESPACE)
file(REAL_PATH ${SOURCE} source)
if(NOT failed AND told MATCHES "^([^\n]*)\n([0-9a-f]+)$" AND CMAKE_MATCH_1 STREQUAL source)
  set(commit ${CMAKE_MATCH_2})
endif()

if(commit MATCHES "^[0-9a-f]+$")
  string(SUBSTRING ${commit} 0 12 commit)
  set(built_from "commit ${commit}")
else()
  set(built_from "a package of version ${VERSION}, commit unknown")
  if(EXISTS ${SOURCE}/debian/changelog)
    file(STRINGS ${SOURCE}/debian/changelog entry LIMIT_COUNT 1)
    string(REGEX REPLACE "^[^(]*\\(([^)]*)\\).*" "the Debian package \\1, commit unknown" built_from "${entry}")
  endif()
endif()

file(CONFIGURE OUTPUT ${OUTPUT} @ONLY CONTENT [[
// SPDX-License-Identifier: Apache-2.0
#include "cli/BuiltFrom.h"

namespace Kemffdc {

const char kBuiltFrom[] = "@built_from@";

}  // namespace Kemffdc
]])
