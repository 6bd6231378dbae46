// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Options.h"

#include <algorithm>
#include <limits>

namespace Kemffdc::Ipmi {
namespace {

// Those that the platform's IPMI client knows.
const std::vector<std::string>& CipherSuites() {
    static const std::vector<std::string> suites{"0", "1",  "2",  "3",  "6",  "7",
                                                 "8", "11", "12", "15", "16", "17"};
    return suites;
}

Reading CipherSuite() {
    Reading reading = Number(&ChannelOptions::cipherSuite, 0, 255);
    reading.take = [number = reading.take](const std::string& text, Options& options) {
        const auto& known = CipherSuites();
        const bool knows = std::find(known.begin(), known.end(), text) != known.end();
        return knows ? number(text, options)
                     : ": \"" + text + "\" is none of " + Listed(known) + ".";
    };
    return reading;
}

}  // namespace

const OptionGroup& LanOptions() {
    static const OptionGroup group{
        "Session",
        {{"--cipher-suite", "N", "How the session is protected; BMCs of today offer 17 and 3",
          CipherSuite(), Where::kAnyhow}}};
    return group;
}

const OptionGroup& GatherOptions() {
    static const OptionGroup group{
        "Account and files",
        {{"--mode", "N", "Which account and which files, see kemffdc help modes",
          Number(&ChannelOptions::mode, 0, std::numeric_limits<int>::max()), Where::kAnyhow}}};
    return group;
}

}  // namespace Kemffdc::Ipmi
