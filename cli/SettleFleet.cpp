// SPDX-License-Identifier: Apache-2.0
#include "cli/SettleFleet.h"

#include <memory>
#include <utility>

#include "cli/Channels.h"
#include "cli/CommonOptions.h"
#include "cli/fleet/Options.h"
#include "cli/fleet/Plan.h"

namespace Kemffdc {
namespace {

// The command that each BMC's worker runs, as it is for one of a fleet.
CommandEntry MemberCommand(const CommandEntry& fleet) {
    CommandEntry command = EntryOf(fleet.use == Use::kReach ? Command::kCheck : Command::kCollect);
    command.on = CommandEntry::On::kMember;
    return command;
}

const Option* Find(const CommandEntry& command, const std::string& name) {
    for (const OptionGroup* group : AllGroups(command)) {
        for (const Option& option : group->options) {
            if (name == option.name && TakesOption(command, option)) return &option;
        }
    }
    return nullptr;
}

// The value is wrong whatever the BMC is.
std::string WrongOnLine(const Option& option, const std::string& text) {
    Options scratch;
    std::string fault = option.reading.take(text, scratch);
    if (!fault.empty() || &option != &ViaOptions().options.front()) return fault;
    return FindChannel(text) != nullptr ? "" : NoneOf(text, ChannelNames());
}

bool IsPassword(const Option& option) {
    return *option.secretVariable != '\0' || option.reading.takeWords != nullptr;
}

// --state-dir belongs to the fleet: history and locks of its BMCs are its own.
bool IsOfAFleetsBmc(const Option& option) {
    return !option.Member().empty() && !option.single && !Holds({&StateOptions()}, option.name);
}

bool LogsIn(const Option& option) {
    return Holds({&LoginOptions()}, option.name) ||
           (Holds({&ExportOptions()}, option.name) && std::string(option.name) != "--export-uri");
}

// An inventory runs no programs: it goes from hand to hand. Credentials do.
void PickMembers(const std::vector<Config::Member>& all, Fleet::HostSettling& settling) {
    const auto options = FileOptions();
    const CommandEntry& collect = EntryOf(Command::kCollect);
    for (const Config::Member& member : all) {
        const Option& option = *options.at(member.name);
        if (Find(collect, option.name) == nullptr || !IsOfAFleetsBmc(option)) continue;
        if (!member.command) settling.members.push_back(member);
        if (LogsIn(option)) settling.credentialMembers.push_back(member);
    }
}

// Settles the BMCs of a fleet, one after the other.
class MemberSettler {
public:
    MemberSettler(const CommandEntry& fleet, Sources sources, const Options& shared)
        : m_command(MemberCommand(fleet)),
          m_names(FileOptions()),
          m_sources(std::move(sources)),
          m_shared(shared),
          m_lists(fleet.command == Command::kFleetHosts) {}

    void SayOnLine(const std::string& option, const std::string& text) {
        m_line[option] = {{Origin::kCommandLine, option, ""}, {text}};
    }

    Outcome Settle(const std::string& address, const Fleet::HostSays& says,
                   Fleet::SettledHost& settled) {
        m_sources.inventory = m_line;
        for (const auto& [member, said] : says) {
            m_sources.inventory.emplace(m_names.at(member)->name, said);
        }
        Line line;
        line.argument = address;
        Outcome outcome = Kemffdc::Settle(m_command, line, m_sources, settled.options);
        if (!outcome.Ok()) return outcome;
        ShareState(settled.options);
        settled.searches = FindChannel(settled.options.via) == DefaultChannel();
        settled.bmc = BmcOf(settled.options);
        settled.arguments = ArgumentsOf(settled.options);
        if (m_lists) settled.held = HeldBy(m_command, settled.options);
        settled.options.configFiles.clear();
        return outcome;
    }

private:
    void ShareState(Options& options) const {
        constexpr char kStateDir[] = "--state-dir";
        options.stateDir = m_shared.stateDir;
        options.settings.erase(kStateDir);
        const auto said = m_shared.settings.find(kStateDir);
        if (said != m_shared.settings.end()) options.settings[kStateDir] = said->second;
    }

    // "--user=service": whatever the value is, it is one word.
    std::vector<std::string> ArgumentsOf(const Options& options) const {
        std::vector<std::string> words{m_command.name, options.host, "--via=" + options.via};
        for (const OptionGroup* group : AllGroups(m_command)) {
            for (const Option& option : group->options) {
                const bool said = options.IsSet(option.name) && option.OnLine();
                if (!said || IsPassword(option) || group == &ViaOptions()) continue;
                const std::string value = option.reading.show(options);
                if (option.IsFlag() && value == "true") words.emplace_back(option.name);
                if (!option.IsFlag() && !value.empty())
                    words.push_back(option.name + ("=" + value));
            }
        }
        return words;
    }

    const CommandEntry m_command;
    const std::map<std::string, const Option*> m_names;  // by member
    Sources m_sources;
    const Options m_shared;
    const bool m_lists;
    std::map<std::string, Said> m_line;  // by option
};

// What the line says of a fleet, and of its BMCs.
struct Parts {
    Line fleet;
    Line bmcs;
};

Parts Divide(const CommandEntry& command, const Line& line) {
    Parts parts;
    parts.fleet.argument = line.argument;
    const OptionGroups own = OwnGroups(command);
    for (const auto& [name, text] : line.options) {
        (Holds(own, name) ? parts.fleet : parts.bmcs).options.emplace(name, text);
    }
    return parts;
}

Outcome CheckOfBmcs(const CommandEntry& command, const Line& line) {
    for (const auto& [name, text] : line.options) {
        if (text.empty()) return Failure(kUsage, name + " is empty.");
        const std::string fault = WrongOnLine(*Find(command, name), text);
        if (!fault.empty()) return Failure(kUsage, name + fault);
    }
    return {};
}

Outcome CheckList(const CommandEntry& command, const Fleet::FleetOptions& fleet) {
    const std::string file = command.argument;
    if (fleet.inventory.empty() && fleet.hosts.empty()) {
        return Failure(kUsage, file + " is required: an inventory, or --hosts in its place.");
    }
    if (fleet.inventory.empty() || fleet.hosts.empty()) return {};
    return Failure(kUsage, file +
                               " and --hosts exclude each other: --limit chooses from an "
                               "inventory.");
}

std::shared_ptr<const Fleet::HostSettling> SettlingOf(const CommandEntry& command, const Line& bmcs,
                                                      Sources sources, const Options& shared) {
    auto settling = std::make_shared<Fleet::HostSettling>();
    settling->home = sources.from.home;
    PickMembers(sources.members, *settling);
    const auto settler = std::make_shared<MemberSettler>(command, std::move(sources), shared);
    for (const auto& [name, text] : bmcs.options) {
        settler->SayOnLine(name, text);
        settling->line[Find(command, name)->Label()] = name;
    }
    settling->settle = [settler](const std::string& address, const Fleet::HostSays& says,
                                 Fleet::SettledHost& settled) {
        return settler->Settle(address, says, settled);
    };
    return settling;
}

}  // namespace

Outcome SettleFleet(const CommandEntry& command, const Line& line, const Surroundings& surroundings,
                    Options& options) {
    const Parts parts = Divide(command, line);
    Sources sources;
    Outcome outcome = CheckOfBmcs(command, parts.bmcs);
    if (outcome.Ok()) outcome = ReadSources(surroundings, sources);
    if (outcome.Ok()) outcome = Settle(command, parts.fleet, sources, options);
    auto& fleet = Part<Fleet::FleetOptions>(options);
    if (outcome.Ok()) outcome = CheckList(command, fleet);
    if (outcome.Ok()) {
        fleet.settling = SettlingOf(command, parts.bmcs, std::move(sources), options);
    }
    return outcome;
}

}  // namespace Kemffdc
