// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Options.h"

#include <algorithm>
#include <boost/tokenizer.hpp>

#include "cli/CommonOptions.h"
#include "cli/fleet/HostRange.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Fleet {
namespace {

constexpr std::int64_t kMostAtOnce = 100000;

Reading Hosts() {
    Reading reading = Text(&FleetOptions::hosts);
    reading.take = [](const std::string& text, Options& options) -> std::string {
        if (HasControl(text)) return " holds control bytes.";
        std::vector<std::string> hosts;
        std::string error;
        if (!ExpandHosts(text, hosts, error)) return ": " + error + ".";
        Part<FleetOptions>(options).hosts = text;
        return "";
    };
    return reading;
}

// Expressions and patterns.
Reading Filter(std::string FleetOptions::*member) {
    Reading reading = Text(member);
    reading.take = [member](const std::string& text, Options& options) -> std::string {
        if (HasControl(text)) return " holds control bytes.";
        HostFilter filter;
        std::string error;
        if (!filter.Read(text, error)) return ": " + error + ".";
        Part<FleetOptions>(options).*member = text;
        return "";
    };
    return reading;
}

Reading Groups() {
    Reading reading;
    reading.take = [](const std::string& text, Options& options) -> std::string {
        if (HasControl(text)) return " holds control bytes.";
        std::vector<std::string>& groups = Part<FleetOptions>(options).groups;
        groups.clear();
        for (std::size_t at = 0; at <= text.size();) {
            const std::size_t comma = std::min(text.find(',', at), text.size());
            if (comma > at) groups.push_back(text.substr(at, comma - at));
            at = comma + 1;
        }
        return groups.empty() ? " names no group." : "";
    };
    reading.show = [](const Options& options) { return Joined(Own(options).groups, ","); };
    return reading;
}

Reading ShardText() {
    Reading reading;
    reading.take = [](const std::string& text, Options& options) -> std::string {
        const std::size_t slash = text.find('/');
        const Kind<std::int64_t> number = NumberFrom(1, kMostAtOnce);
        std::int64_t share = 0;
        std::int64_t of = 0;
        const bool good = slash != std::string::npos &&
                          number.take(text.substr(0, slash), share).empty() &&
                          number.take(text.substr(slash + 1), of).empty() && share <= of;
        if (!good) return ": \"" + text + "\" is no share like 2/10, the second of ten.";
        Part<FleetOptions>(options).shard = {static_cast<int>(share), static_cast<int>(of)};
        return "";
    };
    reading.show = [](const Options& options) -> std::string {
        const Shard& shard = Own(options).shard;
        if (shard.of == 1) return "";
        return std::to_string(shard.number) + "/" + std::to_string(shard.of);
    };
    return reading;
}

Option Named(const OptionGroup& group, const std::string& name) {
    return *std::find_if(group.options.begin(), group.options.end(),
                         [&name](const Option& option) { return name == option.name; });
}

Reading ProgramText() {
    Reading reading = Text(&FleetOptions::onFinish);
    reading.take = [](const std::string& text, Options& options) -> std::string {
        if (HasControl(text)) return " holds control bytes.";
        if (ProgramWords(text).empty()) {
            return ": \"" + text +
                   "\" names no program. A backslash stands before a quote or another backslash.";
        }
        Part<FleetOptions>(options).onFinish = text;
        return "";
    };
    return reading;
}

}  // namespace

const OptionGroup& SelectionOptions() {
    static const OptionGroup group{
        "Which BMCs",
        {{"--hosts", "EXPR", "These instead of an inventory: 'bmc[001-400].example,10.0.0.7'",
          Hosts(), Where::kLine, Use::kReach, true},
         {"--group", "GROUP", "Those of this group alone, or of several: rack3,rack4", Groups(),
          Where::kLine, Use::kReach, true, "", "", "", false, "-g"},
         {"--limit", "PATTERN", "Those alone whose names match: 'bmc0*', 'bmc[001-020]'",
          Filter(&FleetOptions::limit), Where::kLine, Use::kReach, true},
         {"--exclude", "PATTERN", "Without those whose names match", Filter(&FleetOptions::exclude),
          Where::kLine, Use::kReach, true},
         {"--shard", "K/N", "The K-th of N shares, by the name: the same host in the same share",
          ShardText(), Where::kLine, Use::kReach, true},
         {"--credentials", "FILE", "File of named accounts, which only you can read",
          Path(&FleetOptions::credentials), Where::kAnyhow, Use::kReach, true}}};
    return group;
}

const OptionGroup& PaceOptions() {
    static const OptionGroup group{
        "Pace",
        {{"--gathering", "N", "BMCs at once that gather",
          Number(&FleetOptions::gathering, 1, kMostAtOnce), Where::kAnyhow, Use::kReach, true},
         {"--transfers", "N", "BMCs at once that are downloaded from",
          Number(&FleetOptions::transfers, 1, kMostAtOnce), Where::kAnyhow, Use::kGather, true},
         {"--starts", "N", "BMCs a second that are begun with",
          Number(&FleetOptions::startsPerSecond, 1, kMostAtOnce), Where::kAnyhow},
         {"--retries", "N", "Further tries of a BMC where another one may end better",
          Number(&FleetOptions::retries, 0, 1000), Where::kAnyhow, Use::kReach, true},
         {"--retry-pause", "TIME", "Before the first of them; each pause is longer than the last",
          Time(&FleetOptions::retryPause), Where::kAnyhow},
         {"--host-deadline", "TIME", "End all tries of a BMC after this time; 0 is never",
          Time(&FleetOptions::hostDeadline), Where::kAnyhow},
         {"--run-deadline", "TIME", "End the whole run after this time; 0 is never",
          Time(&FleetOptions::runDeadline), Where::kAnyhow, Use::kReach, true}}};
    return group;
}

const OptionGroup& FolderOptions() {
    static const OptionGroup group{
        "Folder",
        {{"--output", "DIR", "Folder that the run's own folder is made in", Path(&Options::output),
          Where::kAnyhow, Use::kReach, true}}};
    return group;
}

const OptionGroup& EventsOptions() {
    static const OptionGroup group{
        "Events",
        {{"--events", "", "Print a JSON line for each change, and the result as the last one",
          Flag(&Options::events)}}};
    return group;
}

const OptionGroup& PasswordOptions() {
    static const OptionGroup group{
        "Passwords",
        {Named(SelectionOptions(), "--credentials"), Named(LoginOptions(), "--password-file"),
         Named(ExportOptions(), "--export-password-file")}};
    return group;
}

const OptionGroup& FinishOptions() {
    static const OptionGroup group{
        "At the end",
        {{"--keep", "N", "Remove older archives of each BMC but N good ones; 0 removes none",
          Number(&FleetOptions::keep, 0, 1000000), Where::kAnyhow, Use::kGather},
         {"--metrics", "FILE", "Write the outcomes as a text file for Prometheus",
          Path(&FleetOptions::metrics), Where::kAnyhow},
         {"--on-finish", "COMMAND", "Run this program, with the path of report.json at its end",
          ProgramText(), Where::kLine}}};
    return group;
}

std::vector<std::string> ProgramWords(const std::string& text) {
    std::vector<std::string> words;
    try {
        const boost::escaped_list_separator<char> blanks("\\", " ", "\"'");
        for (const std::string& word : boost::tokenizer(text, blanks)) {
            if (!word.empty()) words.push_back(word);
        }
    } catch (const boost::escaped_list_error&) {
        words.clear();
    }
    return words;
}

std::string TakeInventory(const std::string& text, Options& options) {
    if (HasControl(text)) return " holds control bytes.";
    Part<FleetOptions>(options).inventory = text;
    return text.empty() ? " is empty." : "";
}

}  // namespace Kemffdc::Fleet
