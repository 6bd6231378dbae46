// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_IPMI_PREFLIGHT_H
#define KEMFFDC_IPMI_PREFLIGHT_H

#include <cstdint>
#include <string>
#include <vector>

#include "cli/Options.h"
#include "cli/report/Report.h"
#include "cli/terminal/Secret.h"

namespace Kemffdc::Ipmi {

// What the data of a Get Device ID answer say (IPMI v2.0, section 20.1). False: they are too short.
bool ReadDeviceId(const std::vector<std::uint8_t>& data, BmcFacts& facts);

// Asks the BMC what it is, over a session of its own. What it does not tell stays empty. Returns
// why it did not answer; empty where it did.
std::string AskDeviceId(const Options& options, const Secret& password, BmcFacts& facts);

// Why nothing answers on the TCP port of the BMC's file service; empty where something does. Takes
// at most some seconds, plus what the system takes to resolve the name.
std::string WhyNoFileService(const std::string& host);

}  // namespace Kemffdc::Ipmi

#endif
