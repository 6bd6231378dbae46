// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_STANDARD_COLLECT_H
#define KEMFFDC_REDFISH_STANDARD_COLLECT_H

#include "cli/ExitCodes.h"
#include "cli/redfish/standard/LogServices.h"

namespace Kemffdc {
struct Context;
}

namespace Kemffdc::Redfish {

// Service data by LogService.CollectDiagnosticData (DSP0268): the request, the wait for its log
// entry, the download of the entry's data. The preflight has been made and has found the services.
Outcome CollectStandard(Context& run, const LogServices& services);

// Goes on with the task of the earlier run that the options name.
Outcome ResumeStandard(Context& run);

}  // namespace Kemffdc::Redfish

#endif
