// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_COMMON_LOG_LINE_H
#define VARNEX_COMMON_LOG_LINE_H

#include <ostream>

#include "Log.h"

// Levels of the host's log.
enum : int { kFailure = 1, kWarning = 2, kMilestone = 3, kTrace = 4 };

// A stream for one record, tagged with the `kLogSource` of the file that logs: the path of that
// file without its extension.
#define LOG_LINE(level) Log((level), kLogSource, __LINE__).Stream()

#endif
