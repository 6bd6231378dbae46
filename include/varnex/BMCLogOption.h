// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_BMCLOGOPTION_H
#define VARNEX_BMCLOGOPTION_H

#include <cstdint>

namespace Varnex {

// Which service data a Redfish BMC gathers. Any 32-bit value may be cast to it: 1 asks for the
// small collection, every other value for the full one.
enum BMCLogOption : std::int32_t {
    BMCLOG_PROCESSOR_DUMP = 0,  // "ProcessorDump": everything, some minutes and many megabytes
    BMCLOG_MINI_LOG = 1,        // "Mini-log": the logs alone
};

}  // namespace Varnex

#endif
