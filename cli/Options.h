// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_OPTIONS_H
#define KEMFFDC_OPTIONS_H

#include <any>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <typeindex>
#include <vector>

#include "cli/ArchiveName.h"

namespace Kemffdc {

enum class Command {
    kCollect,
    kCheck,
    kConfig,
    kHistory,
    kShow,
    kVerify,
    kResume,
    kFleetCollect,
    kFleetCheck,
    kFleetResume,
    kFleetHosts,
    kFleetReport,
    kFleetMerge,
    kFleetPrune,
    kFleetStatus,
};

// Who has said what holds. The higher one counts.
enum class Origin {
    kDefault,
    kSystemFile,
    kUserFile,
    kEnvironment,
    kInventory,  // of a fleet, and the credentials that it names
    kCommandLine,
};

// One option as somebody has set it.
struct Setting {
    Origin origin = Origin::kDefault;
    std::string place;    // "/etc/kemffdc/kemffdc.conf:12", the variable, or the option
    std::string section;  // of the file: "defaults", the pattern, the group; may be empty
};

// What somebody has said of one option.
struct Said {
    Setting setting;
    std::vector<std::string> words;  // none: a password that stands in the environment
};

// One option with the value that holds in the end, as text.
struct HeldSetting {
    std::string name;   // as kemffdc.conf writes it, "cipher_suite"
    std::string value;  // empty: there is none, or it is a password
    Setting setting;
    bool ignored = false;  // somebody has set it, but it does not fit the command or the channel
};

struct ConfigFileSeen {
    std::string path;
    bool exists = false;
};

// Structs of options that the channels declare, each found by its type; one that nobody has touched
// is as its initializers say.
class ChannelOptionsBag {
public:
    template <class T>
    T& Of() {
        std::any& part = m_parts[typeid(T)];
        if (!part.has_value()) part = T();
        return *std::any_cast<T>(&part);
    }
    template <class T>
    const T& Of() const {
        static const T kUntouched;
        const auto part = m_parts.find(typeid(T));
        return part == m_parts.end() ? kUntouched : *std::any_cast<T>(&part->second);
    }

private:
    std::map<std::type_index, std::any> m_parts;
};

// Of which fleet run a run is an attempt, and what earlier ones have left.
struct FleetAttempt {
    std::int64_t fleet = 0;
    int number = 0;  // of the host in it, from 1

    std::string archive;  // path of one that has been brought already; empty: none, as the next two
    std::uint64_t size = 0;
    std::string sha256;
    std::string note;  // for the report; empty: there is nothing to say
};

// What the operator asked for. Holds no password: only where passwords come from.
struct Options {
    Command command = Command::kCollect;
    std::int64_t resumes = 0;  // resume: number of the run, in the history
    std::optional<FleetAttempt> attempt;
    std::string via;   // name of a channel (Channels.h)
    std::string host;  // name or address, IPv6 without brackets; empty: this machine's BMC
    bool ipv6 = false;
    std::uint16_t port = 0;
    std::string user = "admin";
    // At most one of the two; neither: environment or prompt.
    std::string passwordFile;  // "-": standard input
    std::vector<std::string> passwordCommand;
    bool needsPassword = true;

    // What the BMC's certificate is judged by: at most one of these. None: it is remembered at the
    // first use, and later compared.
    std::string caFile;       // PEM file of CAs
    std::string fingerprint;  // SHA-256, as History::ReadFingerprint takes it
    bool insecure = false;    // by nothing

    bool acceptNewCertificate = false;  // another one than is remembered takes its place

    std::string exportUri;  // empty: the archive is downloaded (CIM: never empty)
    std::string exportUser;
    std::string exportPasswordFile;  // as passwordFile
    std::vector<std::string> exportPasswordCommand;
    std::string output = ".";
    std::string nameTemplate = kDefaultNameTemplate;
    std::uint64_t maxSize = std::uint64_t{16} << 30;  // bytes of all downloads; 0: no limit
    std::uint64_t keepFree = std::uint64_t{1} << 30;  // bytes, on the disk of `output`
    std::int64_t deadline = std::int64_t{2} * 3600;   // seconds for the whole run; 0: none

    std::string subject;   // history, show, verify: what they are about, as it was given
    int limit = 50;        // history: runs
    std::string stateDir;  // empty: where History::StateFolder() says
    bool wait = false;     // while another run is at work on the same BMC

    bool json = false;
    bool events = false;
    bool noProxy = false;
    bool liveProgress = false;  // standard error is a terminal that understands cursor control
    std::optional<int> logLevel;
    std::string logFile;

    ChannelOptionsBag own;

    // Who has set which option, by the option's name. Those that hold by default are not in it.
    std::map<std::string, Setting> settings;
    // What kemffdc.conf or the environment sets, but does not fit the command or the channel.
    std::map<std::string, Setting> ignored;

    // For the command `config` alone.
    std::vector<ConfigFileSeen> configFiles;  // that were looked for, the user's first
    std::vector<HeldSetting> held;            // of all that collect has with this channel
    std::string fault;                        // why collect would refuse them; empty: it would not

    bool IsSet(const std::string& option) const { return settings.count(option) > 0; }
    // Notes that a setting that was taken does not count; the caller resets the value.
    void Ignore(const std::string& option) {
        const auto setting = settings.extract(option);
        if (setting) ignored[option] = setting.mapped();
    }
    bool IsOnLine(const std::string& option) const {
        const auto setting = settings.find(option);
        return setting != settings.end() && setting->second.origin == Origin::kCommandLine;
    }
};

}  // namespace Kemffdc

#endif
