// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Options.h"

namespace Kemffdc::Cim {

const OptionGroup& OwnOptions() {
    static const OptionGroup group{
        "Service",
        {{"--plain", "", "Speak plain HTTP instead of TLS; port 5988 then",
          Flag(&ChannelOptions::plain), Where::kAnyhow},
         {"--node", "N", "Number of a node in an enclosure of several",
          Number(&ChannelOptions::node, 0, 65535), Where::kAnyhow},
         {"--initialize", "", "Tell the BMC to initialise before it gathers",
          Flag(&ChannelOptions::initialize), Where::kAnyhow, Use::kGather}}};
    return group;
}

}  // namespace Kemffdc::Cim
