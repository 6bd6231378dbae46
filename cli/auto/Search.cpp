// SPDX-License-Identifier: Apache-2.0
#include "cli/auto/Search.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <map>

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

bool IsSameService(const Candidate& a, const Candidate& b) {
    return a.channel->name == std::string(b.channel->name);
}

// Of a service that does not answer, or that no option fits, one candidate tells.
std::vector<Candidate> WithoutRepetitions(const std::vector<Candidate>& candidates) {
    std::vector<Candidate> kept;
    for (auto one = candidates.begin(); one != candidates.end(); ++one) {
        const auto same = [one](const Candidate& other) { return IsSameService(*one, other); };
        const auto useful = [&same](const Candidate& other) {
            return same(other) && other.outcome.Ok();
        };
        const bool told = std::any_of(candidates.begin(), one, same) ||
                          std::any_of(candidates.begin(), candidates.end(), useful);
        if (one->outcome.Ok() || !told) kept.push_back(*one);
    }
    return kept;
}

// All services at once, each with one question. Candidates that have an outcome already need none.
std::vector<Candidate> KnockAtAll(std::vector<Candidate> candidates) {
    std::map<std::string, std::shared_future<Candidate>> asked;
    for (const Candidate& candidate : candidates) {
        const std::string name = candidate.channel->name;
        if (!candidate.outcome.Ok() || asked.count(name) > 0) continue;
        asked[name] =
            std::async(std::launch::async, [candidate] { return Knocked(candidate); }).share();
    }
    for (Candidate& candidate : candidates) {
        if (!candidate.outcome.Ok()) continue;
        const Candidate& answer = asked[candidate.channel->name].get();
        candidate.outcome = answer.outcome;
        candidate.seconds = answer.seconds;
    }
    return WithoutRepetitions(candidates);
}

}  // namespace

const std::vector<const Channel*>& Candidates() {
    static const std::vector<const Channel*> candidates{&Redfish::kOemChannel, &Ipmi::kLanChannel,
                                                        &Cim::kChannel, &Redfish::kStandardChannel,
                                                        &Redfish::kTreeChannel};
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
        const auto isSame = [channel](const Candidate& other) {
            return other.channel->name == std::string(channel->name);
        };
        const bool isListed = std::any_of(candidates.begin(), candidates.end(), isSame);
        if (isListed || channel->name == std::string(named.name)) continue;
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
