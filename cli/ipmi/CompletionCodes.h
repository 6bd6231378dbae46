// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_IPMI_COMPLETIONCODES_H
#define KEMFFDC_IPMI_COMPLETIONCODES_H

#include <cstdint>
#include <string>

#include "cli/ExitCodes.h"

namespace Kemffdc::Ipmi {

// What the completion code of a BMC's answer means (IPMI v2.0, table 5-2), in a few words.
std::string MeaningOf(std::uint8_t completionCode);

// "completion code C1h: the command is unknown to it"
std::string WordsFor(std::uint8_t completionCode);

// Why a request that was answered with the code was refused, as far as a script decides by it.
Cause CauseOf(std::uint8_t completionCode);

}  // namespace Kemffdc::Ipmi

#endif
