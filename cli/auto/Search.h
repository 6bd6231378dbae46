// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_AUTO_SEARCH_H
#define KEMFFDC_AUTO_SEARCH_H

#include <string>
#include <vector>

#include "cli/Channel.h"
#include "cli/ExitCodes.h"
#include "cli/Options.h"

namespace Kemffdc::Auto {

// The channels that can be found by themselves, the one that is taken first at the beginning.
// Archives of the BMC's own making come first, from whichever channel; one of Redfish's operations
// is a candidate of its own.
const std::vector<const Channel*>& Candidates();

// A channel that may lead to the BMC.
struct Candidate {
    const Channel* channel;
    Options options;     // settled for this channel
    Outcome outcome;     // why it is not to be tried; no failure where it is
    double seconds = 0;  // that it took to answer
};

// Asks the services of all candidates at once which of them answer, with one request each that
// needs no credentials. Candidates whose options do not fit are not asked: without an export URI
// that is CIM, with one IPMI. A service that cannot be used is one candidate. Blocks for about five
// seconds at most, plus what the system takes to resolve a name.
std::vector<Candidate> FindCandidates(const Options& options);

// "ipmi (port 623) and cim (port 5989) answer." for a BMC that does not answer on the channel that
// was named; empty where no other one does. Blocks as FindCandidates does.
std::string OthersThatAnswer(const Channel& named, const Options& options);

}  // namespace Kemffdc::Auto

#endif
