// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIM_OPTIONS_H
#define KEMFFDC_CIM_OPTIONS_H

#include <cstdint>
#include <optional>

#include "cli/OptionTable.h"

namespace Kemffdc::Cim {

// What only this channel has.
struct ChannelOptions {
    bool plain = false;                 // without TLS
    std::optional<std::uint16_t> node;  // of an enclosure; none: the machine itself
    bool initialize = false;            // sent along as InitializationNeeded
};

inline const ChannelOptions& Own(const Options& options) { return Part<ChannelOptions>(options); }

const OptionGroup& OwnOptions();

}  // namespace Kemffdc::Cim

#endif
