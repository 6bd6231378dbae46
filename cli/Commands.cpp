// SPDX-License-Identifier: Apache-2.0
#include "cli/Commands.h"

#include <algorithm>
#include <cctype>

#include "Ipmanip.h"
#include "cli/Channels.h"
#include "cli/CommonOptions.h"
#include "cli/Run.h"
#include "cli/commands/Config.h"
#include "cli/commands/FleetHosts.h"
#include "cli/commands/FleetPrune.h"
#include "cli/commands/FleetReport.h"
#include "cli/commands/FleetRun.h"
#include "cli/commands/FleetStatus.h"
#include "cli/commands/History.h"
#include "cli/commands/Resume.h"
#include "cli/commands/Show.h"
#include "cli/commands/Verify.h"
#include "cli/fleet/Options.h"
#include "cli/terminal/Text.h"
#include "shared/HostName.h"

namespace Kemffdc {
namespace {

constexpr char kCollectExamples[] =
    "  kemffdc collect --via redfish bmc7.example --password-file ~/.bmc7\n"
    "      Gathers the full service data and downloads it into the current folder.\n"
    "  kemffdc collect --via redfish fe80::1%eth0 --log mini --output /ffdc --json\n"
    "      The logs alone, over IPv6, the result as JSON on standard output.\n"
    "  kemffdc collect --via redfish 192.0.2.10 --export-user ffdc \\\n"
    "          --export-uri sftp://192.0.2.1/bmc.tgz --export-password-file ~/.store\n"
    "      The BMC itself sends its archive to a file store.\n"
    "  kemffdc collect --via cim 192.0.2.10 --node 2 --export-user ffdc \\\n"
    "          --export-uri sftp://192.0.2.1/in/ --export-password-file ~/.store\n"
    "      Older machines: an archive for each data object, always sent by the BMC.\n"
    "  kemffdc collect --via ipmi 192.0.2.10 --cipher-suite 3 --output /var/ffdc\n"
    "      By IPMI over the LAN; the files come by SFTP into a folder of their own.\n"
    "  kemffdc collect --via kcs\n"
    "      The same from the server's own BMC, in band: without a password.\n";

constexpr char kCheckExamples[] =
    "  kemffdc check --via redfish 192.0.2.10\n"
    "      Is the BMC there, does it take the password, what is it?\n";

constexpr char kConfigExamples[] =
    "  kemffdc config 192.0.2.10\n"
    "      What kemffdc collect 192.0.2.10 would work with, and which file says so.\n"
    "  kemffdc config 192.0.2.10 --via ipmi --json\n"
    "      The same for another channel, as JSON.\n";

constexpr char kHistoryExamples[] =
    "  kemffdc history bmc7.example\n"
    "      The runs on this BMC, the newest first; also by address or serial number.\n";

constexpr char kShowExamples[] =
    "  kemffdc show 12\n"
    "      Run 12: its steps, and what is inside of the archive that it has brought.\n"
    "  kemffdc show bmc7_20260131T235958Z_ffdc.tar.gz\n"
    "      The same for a file, wherever it has been moved to.\n";

constexpr char kVerifyExamples[] =
    "  kemffdc verify\n"
    "      Are all archives that the history knows as they came?\n"
    "  kemffdc verify /srv/ffdc\n"
    "      Those in this folder, by the records beside them.\n";

constexpr char kFleetReportExamples[] =
    "  kemffdc fleet report --html --output night.html\n"
    "      The newest run as a page, also while it works.\n"
    "  kemffdc fleet report 12 --csv\n"
    "      Run 12 for a spreadsheet, on standard output.\n"
    "  kemffdc fleet report /srv/ffdc/fleet-20260131T235958Z --output /srv/www/night\n"
    "      All three reports of the run in that folder, into a folder.\n";

constexpr char kFleetMergeExamples[] =
    "  kemffdc fleet merge /srv/site1/run /srv/site2/run --output /srv/www/all\n"
    "      Page, table and JSON of the runs whose folders were brought here.\n"
    "  kemffdc fleet merge site1.json site2.json 12 --csv\n"
    "      Two reports of other stations, and run 12 of this one.\n";

constexpr char kFleetPruneExamples[] =
    "  kemffdc fleet prune --keep 7 --dry-run\n"
    "      What would go if seven good archives of each BMC were enough.\n"
    "  kemffdc fleet prune --keep 7\n"
    "      Removes it. The newest good archive of a BMC always stays.\n";

OptionGroups InHistory() { return {&ListOptions(), &StateOptions(), &ResultOptions()}; }
OptionGroups OnArchives() { return {&StateOptions(), &ResultOptions()}; }

// A host or a path, or the number of a run.
std::string TakeSubject(const std::string& text, Options& options) {
    if (HasControl(text)) return " holds control bytes.";
    options.subject = text;
    return text.empty() ? " is empty." : "";
}

constexpr char kResumeExamples[] =
    "  kemffdc resume 17 --password-file ~/.bmc7\n"
    "      Waits for the task that run 17 has started, and fetches its archive.\n"
    "      BMC, user and folder are those of that run.\n";

constexpr char kFleetCollectExamples[] =
    "  kemffdc fleet collect rack.csv --output /srv/ffdc\n"
    "      All BMCs of the spreadsheet, each into a folder of its own.\n"
    "  kemffdc fleet collect --hosts 'bmc[001-400].example' --gathering 400\n"
    "      400 BMCs at once, without a file.\n"
    "  kemffdc fleet collect fleet.yaml -g rack3 --run-deadline 1h --events | jq -c .\n"
    "      Those of one group, for an hour at most, told to a program.\n";

constexpr char kFleetCheckExamples[] =
    "  kemffdc fleet check fleet.yaml --limit 'bmc0*'\n"
    "      Could these be collected from? Nothing is gathered.\n";

constexpr char kFleetResumeExamples[] =
    "  kemffdc fleet resume\n"
    "      Goes on with the newest run that has not ended well.\n"
    "  kemffdc fleet resume 12 --credentials ~/bmc-accounts.yaml --transfers 2\n"
    "      With run 12, by other credentials and more slowly.\n";

constexpr char kFleetHostsExamples[] =
    "  kemffdc fleet hosts rack.csv\n"
    "      All BMCs of the spreadsheet, each with its settings and where they stand.\n"
    "  kemffdc fleet hosts fleet.yaml -g rack3 --exclude 'bmc[017-020]' --json\n"
    "      Those of one group but four, as JSON.\n"
    "  kemffdc fleet hosts --hosts '10.0.[1-4].[1-8]' --shard 2/4 --via ipmi\n"
    "      A quarter of 32 addresses, without a file.\n";

constexpr char kFleetStatusExamples[] =
    "  kemffdc fleet status\n"
    "      Where the newest fleet run is; also after it, and after it was killed.\n"
    "  kemffdc fleet status 12 --watch\n"
    "      Run 12 as it works, until it ends.\n";

OptionGroups InJournal() { return {&WatchOptions(), &StateOptions(), &ResultOptions()}; }

OptionGroups OfFleetRun() {
    return {&Fleet::SelectionOptions(),
            &Fleet::PaceOptions(),
            &Fleet::FolderOptions(),
            &Fleet::FinishOptions(),
            &Fleet::EventsOptions(),
            &StateOptions(),
            &ResultOptions()};
}

OptionGroups OfResumedFleet() {
    return {&Fleet::PasswordOptions(), &Fleet::PaceOptions(), &Fleet::FinishOptions(),
            &Fleet::EventsOptions(),   &StateOptions(),       &ResultOptions()};
}

OptionGroups OfReport() { return {&ReportOptions(), &StateOptions()}; }
OptionGroups OfPruning() { return {&PruneOptions(), &StateOptions(), &ResultOptions()}; }

OptionGroups OfInventory() {
    return {&Fleet::SelectionOptions(), &StateOptions(), &ResultOptions()};
}

// --via, then what channels share, then what each has alone.
OptionGroups GroupsOfChannels() {
    OptionGroups all{&ViaOptions()};
    for (const bool shared : {true, false}) {
        for (const Channel* channel : Channels()) {
            for (const OptionGroup* group : channel->options()) {
                const bool isNew = std::find(all.begin(), all.end(), group) == all.end();
                if (isNew && (TakersOf(*group).size() > 1) == shared) all.push_back(group);
            }
        }
    }
    return all;
}

OptionGroups OnBmc() { return {&RunOptions(), &StateOptions(), &ResultOptions()}; }

bool IsHostByte(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '-' || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

}  // namespace

std::string TakeHost(const std::string& text, Options& options) {
    const bool bracketed = shared::IsInBrackets(text);
    const std::string host = shared::WithoutBrackets(text);
    options.host = host;
    options.ipv6 = Ipmanip::is_ipv6(host);
    if (options.ipv6) return HasControl(host) ? " holds control bytes." : "";
    if (bracketed) return " in brackets is not an IPv6 address.";
    if (host.find("://") != std::string::npos) return " is a name or an address, not a URL.";
    if (host.find(':') != std::string::npos) {
        return " is neither a name nor an address. The port is given with --port.";
    }
    const bool plain = std::all_of(host.begin(), host.end(), IsHostByte);
    return host.empty() || !plain || host.front() == '-' ? " is no host name." : "";
}

const std::vector<CommandEntry>& Commands() {
    using Argument = CommandEntry::Argument;
    using On = CommandEntry::On;
    static const std::vector<CommandEntry> commands{
        {Command::kCollect, "collect", "Gather the service data and fetch it", "HOST",
         Argument::kRequired, TakeHost, On::kBmc, Use::kGather, OnBmc, Run, kCollectExamples},
        {Command::kCheck, "check", "See whether the BMC can be used; gathers nothing", "HOST",
         Argument::kRequired, TakeHost, On::kBmc, Use::kReach, OnBmc, Run, kCheckExamples},
        {Command::kResume, "resume", "Go on with a Redfish run that did not get its archive", "RUN",
         Argument::kRequired, TakeHost, On::kBmc, Use::kGather, OnBmc, Run, kResumeExamples,
         RecallRun},
        {Command::kConfig, "config", "Show which settings hold for a BMC, and from where", "HOST",
         Argument::kOptional, TakeHost, On::kBmc, Use::kGather, OnBmc, ShowConfig, kConfigExamples},
        {Command::kHistory, "history", "List the runs, the newest first", "HOST",
         Argument::kOptional, TakeSubject, On::kRecord, Use::kReach, InHistory, ShowHistory,
         kHistoryExamples},
        {Command::kShow, "show", "Show what is inside of an archive, and where it is from",
         "ARCHIVE|RUN", Argument::kRequired, TakeSubject, On::kRecord, Use::kReach, OnArchives,
         ShowArchive, kShowExamples},
        {Command::kVerify, "verify", "Compare archives with their recorded sums",
         "ARCHIVE|RUN|HOST", Argument::kOptional, TakeSubject, On::kRecord, Use::kReach, OnArchives,
         VerifyArchives, kVerifyExamples},
        {Command::kFleetCollect, "fleet collect", "Collect from all BMCs of an inventory", "FILE",
         Argument::kOptional, Fleet::TakeInventory, On::kFleet, Use::kGather, OfFleetRun, RunFleet,
         kFleetCollectExamples},
        {Command::kFleetCheck, "fleet check", "See which BMCs of an inventory can be used", "FILE",
         Argument::kOptional, Fleet::TakeInventory, On::kFleet, Use::kReach, OfFleetRun, RunFleet,
         kFleetCheckExamples},
        {Command::kFleetResume, "fleet resume", "Go on with a fleet run that has not ended well",
         "RUN", Argument::kOptional, TakeSubject, On::kRecord, Use::kReach, OfResumedFleet,
         ResumeFleet, kFleetResumeExamples},
        {Command::kFleetHosts, "fleet hosts", "Show the BMCs of an inventory and their settings",
         "FILE", Argument::kOptional, Fleet::TakeInventory, On::kFleet, Use::kGather, OfInventory,
         ShowFleetHosts, kFleetHostsExamples},
        {Command::kFleetStatus, "fleet status", "Show where a fleet run is, or what became of it",
         "RUN", Argument::kOptional, TakeSubject, On::kRecord, Use::kReach, InJournal,
         ShowFleetStatus, kFleetStatusExamples},
        {Command::kFleetReport, "fleet report", "Write the report of a fleet run, at any time",
         "RUN", Argument::kOptional, TakeSubject, On::kRecord, Use::kReach, OfReport, ReportFleet,
         kFleetReportExamples},
        {Command::kFleetMerge, "fleet merge", "Write one report of several stations' runs", "RUN",
         Argument::kSeveral, TakeReported, On::kRecord, Use::kReach, OfReport, MergeFleets,
         kFleetMergeExamples},
        {Command::kFleetPrune, "fleet prune", "Remove older archives of fleet runs", "",
         Argument::kNone, nullptr, On::kRecord, Use::kReach, OfPruning, PruneFleets,
         kFleetPruneExamples},
    };
    return commands;
}

const CommandEntry* FindCommand(const std::string& name) {
    for (const CommandEntry& command : Commands()) {
        if (name == command.name) return &command;
    }
    return nullptr;
}

std::string FamilyOf(const CommandEntry& command) {
    const std::string name = command.name;
    const std::size_t blank = name.find(' ');
    return blank == std::string::npos ? "" : name.substr(0, blank);
}

const CommandEntry& EntryOf(Command command) {
    return *std::find_if(Commands().begin(), Commands().end(),
                         [command](const CommandEntry& entry) { return entry.command == command; });
}

bool IsOnOneBmc(const CommandEntry& command) {
    return command.on == CommandEntry::On::kBmc || command.on == CommandEntry::On::kMember;
}

OptionGroups OwnGroups(const CommandEntry& command) {
    OptionGroups groups = command.options();
    if (IsOnOneBmc(command)) groups.insert(groups.begin(), &ViaOptions());
    return groups;
}

OptionGroups AllGroups(const CommandEntry& command) {
    OptionGroups groups = command.options();
    if (command.on == CommandEntry::On::kRecord) return groups;
    static const OptionGroups ofChannels = GroupsOfChannels();
    const bool fleet = command.on == CommandEntry::On::kFleet;
    groups.insert(fleet ? groups.end() : groups.begin(), ofChannels.begin(), ofChannels.end());
    if (fleet) groups.push_back(&RunOptions());
    return groups;
}

bool TakesOption(const CommandEntry& command, const Option& option) {
    if (command.on == CommandEntry::On::kRecord) return true;
    if (command.on != CommandEntry::On::kBmc && option.single) return false;
    return command.use == Use::kGather || option.use == Use::kReach;
}

std::map<std::string, const Option*> LineOptions(const CommandEntry& command) {
    std::map<std::string, const Option*> options;
    for (const OptionGroup* group : AllGroups(command)) {
        for (const Option& option : group->options) {
            if (!option.OnLine() || !TakesOption(command, option)) continue;
            options[option.name] = &option;
            if (*option.letter != '\0') options[option.letter] = &option;
        }
    }
    return options;
}

}  // namespace Kemffdc
