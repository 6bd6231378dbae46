// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HTTP_CAFILE_H
#define KEMFFDC_HTTP_CAFILE_H

#include <string>

#include "cli/ExitCodes.h"
#include "cli/Options.h"

namespace Kemffdc {

// Settles `options.caFile` for a channel with TLS: that of --ca-file, else of VARNEX_CA_FILE. What
// came by the option is set in the environment too, where the platform's download looks for it.
// Before any thread is started.
void SettleCaFile(Options& options);

// Whether certificates can be checked against the file at all. An empty name is no failure: then
// nothing is checked.
Outcome CheckCaFile(const std::string& file);

}  // namespace Kemffdc

#endif
