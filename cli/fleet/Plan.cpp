// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Plan.h"

#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <set>
#include <unordered_map>
#include <utility>

#include "cli/Nearest.h"
#include "cli/Passwords.h"
#include "cli/fleet/Credentials.h"
#include "cli/fleet/HostRange.h"
#include "cli/fleet/Inventory.h"

namespace Kemffdc::Fleet {
namespace {

constexpr char kPrompt[] = "Password of the BMCs: ";  // that have no other source of one

std::string PlaceOf(const std::string& path, int line) {
    return line == 0 ? "" : path + ":" + std::to_string(line);
}

void Say(const std::string& path, const Config::Values& values, HostSays& says) {
    for (const auto& [member, value] : values) {
        says[member] = {{Origin::kInventory, PlaceOf(path, value.line), value.section},
                        value.words};
    }
}

// Chooses hosts as --group, --limit, --exclude and --shard say.
class Selection {
public:
    explicit Selection(const FleetOptions& options) : m_options(options) {}

    Outcome Read(const Inventory& inventory) {
        std::string ignored;  // they have been read once, on the command line
        (void)m_limit.Read(m_options.limit, ignored);
        (void)m_exclude.Read(m_options.exclude, ignored);
        std::set<std::string> groups;
        for (const Host& host : inventory.hosts) {
            groups.insert(host.groups.begin(), host.groups.end());
        }
        const std::vector<std::string> known(groups.begin(), groups.end());
        for (const std::string& group : m_options.groups) {
            if (groups.count(group) > 0) continue;
            return Failure(kUsage, known.empty() ? "--group: there are no groups."
                                                 : "--group" + NoneOf(group, known));
        }
        return {};
    }

    bool Takes(const Host& host) const {
        return IsInGroups(host) && (m_options.limit.empty() || m_limit.Matches(host.name)) &&
               (m_options.exclude.empty() || !m_exclude.Matches(host.name)) &&
               ShardOf(host.name, m_options.shard.of) == m_options.shard.number;
    }

private:
    bool IsInGroups(const Host& host) const {
        return m_options.groups.empty() ||
               std::any_of(host.groups.begin(), host.groups.end(), [this](const auto& group) {
                   return std::find(m_options.groups.begin(), m_options.groups.end(), group) !=
                          m_options.groups.end();
               });
    }

    const FleetOptions& m_options;
    HostFilter m_limit;
    HostFilter m_exclude;
};

// One plan in the making.
class Planner {
public:
    Planner(const Options& options, Plan& plan)
        : m_options(Own(options)), m_settling(*m_options.settling), m_plan(plan) {}

    Outcome Make() {
        Outcome outcome = ReadList();
        if (outcome.Ok() && m_inventory.tooLong) outcome = m_faults.Told(m_inventory.path);
        if (outcome.Ok()) outcome = ReadNamedAccounts();
        Selection selection(m_options);
        if (outcome.Ok()) outcome = selection.Read(m_inventory);
        if (!outcome.Ok()) return outcome;
        for (const Host& host : m_inventory.hosts) {
            PlannedHost planned;
            if (Settle(host, planned) && selection.Takes(host)) {
                m_plan.hosts.push_back(std::move(planned));
            }
        }
        outcome = m_faults.Told(m_inventory.path);
        if (outcome.Ok()) outcome = RefuseUseless();
        const bool none = outcome.Ok() && m_plan.hosts.empty();
        return none ? Failure(kUsage,
                              "None of the " + std::to_string(m_plan.all) + " BMCs is chosen.")
                    : outcome;
    }

private:
    Outcome ReadList() {
        Outcome outcome;
        if (m_options.inventory.empty()) {
            HostsOf(m_options.hosts, m_inventory, m_faults);
        } else {
            outcome = ReadInventory(m_options.inventory, m_settling.home, m_settling.members,
                                    m_inventory, m_faults);
        }
        m_plan.inventory = m_inventory.path;
        m_plan.all = m_inventory.hosts.size();
        m_plan.notes = std::move(m_inventory.notes);
        return outcome;
    }

    Outcome ReadNamedAccounts() {
        const std::string& path =
            m_options.credentials.empty() ? m_inventory.credentials : m_options.credentials;
        if (path.empty()) return {};
        m_plan.credentials = path;
        return ReadCredentials(path, m_settling.home, m_settling.credentialMembers, m_credentials);
    }

    // Whether there is nothing wrong with it.
    bool Settle(const Host& host, PlannedHost& planned) {
        HostSays says;
        Say(m_inventory.path, {host.settings.begin(), host.settings.end()}, says);
        SettledHost settled;
        std::string fault = SayAccount(host, says);
        if (fault.empty()) {
            fault = m_settling.settle(host.address, says, settled).reason;
            NoteUsed(settled.options);
        }
        if (fault.empty()) fault = RefuseTwice(host, settled.bmc);
        if (!fault.empty()) {
            const bool onLine = host.line == 0 && fault.rfind("--", 0) != 0;
            m_faults.Add(host.line, (onLine ? host.name + ": " : "") + fault);
            return false;
        }
        Fill(host, settled, planned);
        return true;
    }

    // What the host's credential says counts before its row.
    std::string SayAccount(const Host& host, HostSays& says) const {
        if (host.credential.empty()) return "";
        const auto account = m_credentials.named.find(host.credential);
        if (account == m_credentials.named.end()) return UnknownAccount(host.credential);
        for (const auto& [member, value] : account->second) {
            const std::string option = OptionOnLine(member);
            if (!option.empty()) {
                return option + " is on the command line, and credential \"" + host.credential +
                       "\" has its own. Leave out one of them.";
            }
            for (const std::string& rival :
                 Config::RivalsOf(member, m_settling.credentialMembers)) {
                says.erase(rival);
            }
        }
        Say(m_credentials.path, account->second, says);
        return "";
    }

    std::string UnknownAccount(const std::string& name) const {
        if (m_credentials.path.empty()) {
            return "credential: there is no file of credentials to find \"" + name +
                   "\" in: name one with --credentials.";
        }
        std::vector<std::string> known;
        for (const auto& [one, values] : m_credentials.named) known.push_back(one);
        return "credential: \"" + name + "\" is not in " + m_credentials.path + "." +
               DidYouMean(name, known);
    }

    // The option on the command line that says the same, or a rival; empty: none does.
    std::string OptionOnLine(const std::string& member) const {
        std::vector<std::string> same = Config::RivalsOf(member, m_settling.credentialMembers);
        same.push_back(member);
        for (const std::string& one : same) {
            const auto option = m_settling.line.find(one);
            if (option != m_settling.line.end()) return option->second;
        }
        return "";
    }

    void NoteUsed(const Options& options) {
        for (const auto& [option, setting] : options.settings) {
            if (setting.origin == Origin::kCommandLine) m_used.insert(option);
        }
    }

    // Who gives an option expects something of it.
    Outcome RefuseUseless() const {
        for (const auto& [member, option] : m_settling.line) {
            if (m_used.count(option) > 0) continue;
            return Failure(kUsage,
                           option + " is on the command line, and fits none of these BMCs.");
        }
        return {};
    }

    std::string RefuseTwice(const Host& host, const std::string& bmc) {
        const auto [known, isNew] = m_bmcs.emplace(bmc, &host);
        if (isNew) return "";
        const Host& other = *known->second;
        std::string text = "address: \"" + host.address + "\" is the BMC of \"" + other.name + "\"";
        if (other.line > 0) text += " in line " + std::to_string(other.line);
        return text + ".";
    }

    void Fill(const Host& host, SettledHost& settled, PlannedHost& planned) const {
        const Options& options = settled.options;
        planned.name = host.name;
        planned.host = host.address;
        planned.channel = options.via;
        planned.searches = settled.searches;
        planned.groups = host.groups;
        planned.credential = host.credential;
        planned.place = PlaceOf(m_inventory.path, host.line);
        planned.arguments = std::move(settled.arguments);
        planned.held = std::move(settled.held);
        planned.password = PasswordSource(options);
        planned.exportPassword = ExportPasswordSource(options);
        for (auto* source : {&planned.password, &planned.exportPassword}) {
            if (*source) (*source)->prompt = kPrompt;
        }
        planned.login = LoginOf(options, planned);
    }

    static std::string LoginOf(const Options& options, const PlannedHost& planned) {
        std::string login = options.user;
        if (!planned.credential.empty()) return login + " of credential " + planned.credential;
        if (!planned.password) return login;
        const SecretSource& source = *planned.password;
        if (!source.file.empty()) return login + " with " + source.file;
        if (source.command.empty()) return login;
        return login + " with " + Joined(source.command, " ");
    }

    const FleetOptions& m_options;
    const HostSettling& m_settling;
    Plan& m_plan;
    Inventory m_inventory;
    Credentials m_credentials;
    Faults m_faults;
    std::set<std::string> m_used;  // options on the command line that fit some BMC
    std::unordered_map<std::string, const Host*> m_bmcs;
};

}  // namespace

Outcome MakePlan(const Options& options, Plan& plan) { return Planner(options, plan).Make(); }

int ShardOf(const std::string& name, int of) {
    constexpr std::size_t kBytes = 8;
    std::array<unsigned char, SHA256_DIGEST_LENGTH> sum{};
    SHA256(reinterpret_cast<const unsigned char*>(name.data()), name.size(), sum.data());
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < kBytes; ++i) number = number << 8U | sum[i];
    return static_cast<int>(number % static_cast<std::uint64_t>(of)) + 1;
}

}  // namespace Kemffdc::Fleet
