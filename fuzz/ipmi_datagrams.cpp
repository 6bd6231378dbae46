// SPDX-License-Identifier: Apache-2.0
//
// Datagrams around the set-up of a session, and what a BMC says that it is. Each one: a byte whose
// lowest bit tells who sends it, a byte of length, so many bytes. Of the answers to a request of
// the set-up one passes, none to an older request, and whatever is no such answer.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "IpmiSteps.h"
#include "cli/ipmi/Preflight.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

bool IsSetUp(const Bytes& datagram) {
    return datagram.size() >= 19 &&
           (datagram[4] == 0 || (datagram[4] == 6 && datagram[5] >= 0x10 && datagram[5] <= 0x15));
}

// The same datagram a second time is an answer to nothing.
void Receive(IpmiSteps& steps, const Bytes& datagram) {
    const bool passed = steps.Passes(datagram.data(), datagram.size());
    if (!IsSetUp(datagram) && !passed) std::abort();
    if (IsSetUp(datagram) && steps.Passes(datagram.data(), datagram.size())) std::abort();
}

void ReadAsDeviceId(const Bytes& datagram) {
    Kemffdc::BmcFacts facts;
    const bool read = Kemffdc::Ipmi::ReadDeviceId(datagram, facts);
    if (read != (datagram.size() >= 11)) std::abort();
    if (read == facts.firmware.empty()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    IpmiSteps steps;
    std::size_t at = 0;
    while (at + 2 <= size) {
        const std::size_t length = std::min<std::size_t>(data[at + 1], size - at - 2);
        const Bytes datagram(data + at + 2, data + at + 2 + length);
        if ((data[at] & 1U) != 0) {
            Receive(steps, datagram);
        } else {
            steps.Sent(datagram.data(), datagram.size());
        }
        ReadAsDeviceId(datagram);
        at += 2 + length;
    }
    return 0;
}
