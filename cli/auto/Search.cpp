// SPDX-License-Identifier: Apache-2.0
#include "cli/auto/Search.h"

#include <chrono>
#include <future>

#include "cli/OptionTable.h"
#include "cli/cim/Channel.h"
#include "cli/ipmi/Channel.h"
#include "cli/redfish/Channel.h"

namespace Kemffdc::Auto {
namespace {

using Clock = std::chrono::steady_clock;

std::string Named(const Candidate& candidate) {
    return std::string(candidate.channel->name) + " (port " +
           std::to_string(candidate.options.port) + ")";
}

// The options as they would be had the operator named the channel.
Candidate Settled(const Channel& channel, const Options& options) {
    Candidate candidate{&channel, options, {}, 0};
    candidate.options.via = channel.name;
    candidate.options.port = 0;
    const std::string fault = channel.complete(candidate.options);
    if (!fault.empty()) {
        candidate.outcome = Failure(kLimited, Cause::kUnsupported, "Passed over: " + fault);
    } else if (options.exportUri.empty() && !Holds(channel.options(), "--output")) {
        candidate.outcome = Failure(
            kLimited, Cause::kUnsupported,
            "Passed over: it needs --export-uri, as the BMC uploads its archives by itself.");
    } else if (!options.exportUri.empty() && !Holds(channel.options(), "--export-uri")) {
        candidate.outcome = Failure(kLimited, Cause::kUnsupported,
                                    "Passed over: it sends no archive to --export-uri.");
    }
    return candidate;
}

// How it answers, and after which time.
Candidate Knocked(Candidate candidate) {
    const Clock::time_point begin = Clock::now();
    candidate.outcome = candidate.channel->knock(candidate.options);
    candidate.seconds = std::chrono::duration<double>(Clock::now() - begin).count();
    return candidate;
}

// All of them at once. Those that have an outcome already are not asked.
std::vector<Candidate> KnockAtAll(const std::vector<Candidate>& candidates) {
    std::vector<std::future<Candidate>> asked;
    for (const Candidate& candidate : candidates) {
        const auto how = candidate.outcome.Ok() ? std::launch::async : std::launch::deferred;
        asked.push_back(std::async(
            how, [candidate] { return candidate.outcome.Ok() ? Knocked(candidate) : candidate; }));
    }
    std::vector<Candidate> answered;
    for (std::future<Candidate>& one : asked) answered.push_back(one.get());
    return answered;
}

}  // namespace

const std::vector<const Channel*>& Candidates() {
    static const std::vector<const Channel*> candidates{&Redfish::kChannel, &Ipmi::kLanChannel,
                                                        &Cim::kChannel};
    return candidates;
}

std::vector<Candidate> FindCandidates(const Options& options) {
    std::vector<Candidate> candidates;
    for (const Channel* channel : Candidates()) candidates.push_back(Settled(*channel, options));
    return KnockAtAll(candidates);
}

std::string OthersThatAnswer(const Channel& named, const Options& options) {
    std::vector<Candidate> candidates;
    for (const Channel* channel : Candidates()) {
        if (channel == &named) continue;
        candidates.push_back(Settled(*channel, options));
        // Whether its other options fit is told when the operator takes it.
        candidates.back().outcome = {};
    }
    std::vector<std::string> names;
    for (const Candidate& candidate : KnockAtAll(candidates)) {
        if (candidate.outcome.Ok()) names.push_back(Named(candidate));
    }
    if (names.empty()) return "";
    return Listed(names) + (names.size() == 1 ? " answers." : " answer.");
}

}  // namespace Kemffdc::Auto
