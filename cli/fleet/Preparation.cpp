// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Preparation.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "cli/Passwords.h"
#include "cli/UserFolders.h"
#include "cli/config/Members.h"
#include "cli/fleet/Arguments.h"
#include "cli/fleet/Credentials.h"
#include "cli/fleet/FolderNames.h"

namespace Kemffdc::Fleet {
namespace {

using History::FleetHostRow;
using History::FleetRunRow;

constexpr char kStandardInput[] = "-";
constexpr char kOutput[] = "--output";
constexpr char kPrompt[] = "Password of the BMCs: ";

std::string Absolute(const std::string& path) {
    std::error_code ignored;
    return path.empty() ? "" : std::filesystem::absolute(path, ignored).lexically_normal().string();
}

// The file that a resume can read the password from again; empty: there is none.
std::string FileAgain(const PlannedHost& host, const std::optional<SecretSource>& source) {
    if (!host.credential.empty() || !source || source->file == kStandardInput) return "";
    return Absolute(source->file);
}

HostLogin LoginOf(const PlannedHost& host) {
    // Without a password there is nothing that could lock an account of another host.
    return {host.password ? host.login : "nobody on " + host.name, host.password,
            host.exportPassword};
}

FleetHostRow RowOf(const PlannedHost& host, int number) {
    FleetHostRow row;
    row.number = number;
    row.name = host.name;
    row.host = host.host;
    if (!host.searches) row.channel = host.channel;
    row.group = host.groups.empty() ? "" : host.groups.front();
    row.credential = host.credential;
    row.arguments = ToJson(host.arguments);
    return row;
}

Outcome MakeFolders(Preparation& made) {
    std::vector<std::string> names;
    for (const FleetHostRow& row : made.hosts) names.push_back(row.name);
    names = FolderNames(names);
    Outcome outcome;
    for (std::size_t i = 0; i < names.size() && outcome.Ok(); ++i) {
        const std::string folder = made.folder.PathOf(names[i]);
        Arguments arguments = FromJson(made.hosts[i].arguments);
        // Nothing comes here from a BMC that sends its archive to a file store.
        if (!ValueOf(arguments, "--export-uri").empty()) continue;
        arguments.push_back(kOutput + ("=" + folder));
        made.hosts[i].arguments = ToJson(arguments);
        outcome = RunFolder::MakeHostFolder(folder);
    }
    return outcome;
}

Outcome TakeFolders(Preparation& made) {
    Outcome outcome = made.folder.Take(made.run.folder);
    for (const FleetHostRow& row : made.hosts) {
        const std::string folder = ValueOf(FromJson(row.arguments), kOutput);
        if (outcome.Ok() && !folder.empty()) outcome = RunFolder::MakeHostFolder(folder);
    }
    return outcome;
}

std::string ShardText(const Shard& shard) {
    if (shard.of == 1) return "";
    return std::to_string(shard.number) + "/" + std::to_string(shard.of);
}

// Members of a credential that passwords come from. Its user stands in the arguments of the host.
std::vector<Config::Member> PasswordMembers() {
    std::vector<Config::Member> members(6);
    const char* names[] = {"user",        "password_file",        "password_command",
                           "export.user", "export.password_file", "export.password_command"};
    for (std::size_t i = 0; i < members.size(); ++i) {
        members[i].name = names[i];
        members[i].path = i % 3 == 1;
        members[i].command = i % 3 == 2;
        if (i % 3 > 0) members[i].oneOf = i < 3 ? "password" : "export password";
    }
    return members;
}

const std::vector<std::string>* Said(const Config::Values& values, const char* member) {
    const auto value = std::find_if(values.begin(), values.end(),
                                    [member](const auto& said) { return said.first == member; });
    return value == values.end() ? nullptr : &value->second.words;
}

// As if the credential's places of passwords were said on the line.
void UseCredential(const Config::Values& values, Options& options) {
    if (const auto* file = Said(values, "password_file")) options.passwordFile = file->front();
    if (const auto* words = Said(values, "password_command")) options.passwordCommand = *words;
    if (const auto* file = Said(values, "export.password_file")) {
        options.exportPasswordFile = file->front();
    }
    if (const auto* words = Said(values, "export.password_command")) {
        options.exportPasswordCommand = *words;
    }
}

// Logins of a run that goes on.
class LoginsAgain {
public:
    LoginsAgain(const Options& line, const RunSettings& settings, const Credentials& credentials)
        : m_line(line), m_settings(settings), m_credentials(credentials) {}

    Outcome Of(const FleetHostRow& row, HostLogin& login) const {
        Options options = m_line;
        const Arguments arguments = FromJson(row.arguments);
        options.host = row.host;
        const std::string user = ValueOf(arguments, "--user");
        if (!user.empty()) options.user = user;
        options.exportUri = ValueOf(arguments, "--export-uri");
        options.exportUser = ValueOf(arguments, "--export-user");
        Outcome outcome =
            row.credential.empty() ? UseFiles(row, options) : UseNamed(row.credential, options);
        login.password = PasswordSource(options);
        login.exportPassword = ExportPasswordSource(options);
        for (auto* source : {&login.password, &login.exportPassword}) {
            if (*source) (*source)->prompt = kPrompt;
        }
        login.who = options.user + " of " + row.credential + " " + options.passwordFile;
        return outcome;
    }

private:
    Outcome UseFiles(const FleetHostRow& row, Options& options) const {
        const auto file = m_settings.passwordFiles.find(row.number);
        if (file != m_settings.passwordFiles.end() && !m_line.IsOnLine("--password-file")) {
            options.passwordFile = file->second;
        }
        const auto exportFile = m_settings.exportPasswordFiles.find(row.number);
        if (exportFile != m_settings.exportPasswordFiles.end() &&
            !m_line.IsOnLine("--export-password-file")) {
            options.exportPasswordFile = exportFile->second;
        }
        return {};
    }

    Outcome UseNamed(const std::string& name, Options& options) const {
        const auto named = m_credentials.named.find(name);
        if (named == m_credentials.named.end()) {
            return Failure(kUsage, "The credential \"" + name + "\" is not in " +
                                       (m_credentials.path.empty() ? "any file: name one with "
                                                                     "--credentials."
                                                                   : m_credentials.path + "."));
        }
        UseCredential(named->second, options);
        return {};
    }

    const Options& m_line;
    const RunSettings& m_settings;
    const Credentials& m_credentials;
};

Outcome FindLogins(const Options& options, Preparation& made) {
    Credentials credentials;
    const std::string& said = Own(options).credentials;
    const std::string path = said.empty() ? made.run.credentials : said;
    Outcome outcome;
    if (!path.empty()) {
        outcome = ReadCredentials(path, HomeFolder(), PasswordMembers(), credentials);
    }
    const LoginsAgain logins(options, made.settings, credentials);
    for (const FleetHostRow& row : made.hosts) {
        HostLogin login;
        const bool done = row.state == History::HostState::kDone;
        if (outcome.Ok() && !done) outcome = logins.Of(row, login);
        made.logins.push_back(std::move(login));
    }
    return outcome;
}

}  // namespace

Preparation PrepareNew(const Options& options, const std::string& command, const Plan& plan) {
    Preparation made;
    made.run.command = command;
    made.run.toolVersion = KEMFFDC_VERSION;
    made.run.inventory = plan.inventory;
    made.run.credentials = Absolute(plan.credentials);
    made.run.shard = ShardText(Own(options).shard);
    made.settings.pace = Own(options);
    for (const PlannedHost& host : plan.hosts) {
        const int number = static_cast<int>(made.hosts.size()) + 1;
        made.hosts.push_back(RowOf(host, number));
        made.logins.push_back(LoginOf(host));
        const std::string file = FileAgain(host, host.password);
        const std::string exportFile = FileAgain(host, host.exportPassword);
        if (!file.empty()) made.settings.passwordFiles[number] = file;
        if (!exportFile.empty()) made.settings.exportPasswordFiles[number] = exportFile;
    }
    made.run.settings = ToJson(made.settings);
    return made;
}

Outcome PrepareAgain(const Options& options, const FleetRunRow& run,
                     const std::vector<FleetHostRow>& hosts, Preparation& made) {
    made.run = run;
    made.hosts = hosts;
    made.settings = SettingsFromJson(run.settings);
    PreferLine(options, made.settings.pace);
    return FindLogins(options, made);
}

Outcome OpenFolders(const std::string& output, Preparation& preparation) {
    FleetRunRow& run = preparation.run;
    if (run.id > 0) return TakeFolders(preparation);
    Outcome outcome = preparation.folder.Make(output);
    run.folder = preparation.folder.Path();
    if (outcome.Ok() && run.command == "collect") outcome = MakeFolders(preparation);
    return outcome;
}

}  // namespace Kemffdc::Fleet
