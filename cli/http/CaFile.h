// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_CAFILE_H
#define KEMFFDC_HTTP_CAFILE_H

#include <string>

#include "cli/ExitCodes.h"

namespace Kemffdc {

// Sets VARNEX_CA_FILE, where the platform's download looks for it; an empty name removes it. Before
// any thread is started.
void AnnounceCaFile(const std::string& file);

// Whether certificates can be checked against the file at all. An empty name is no failure: then
// nothing is checked.
Outcome CheckCaFile(const std::string& file);

}  // namespace Kemffdc

#endif
