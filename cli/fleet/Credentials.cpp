// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Credentials.h"

#include <yaml-cpp/yaml.h>

#include "cli/config/TextFile.h"

namespace Kemffdc::Fleet {
namespace {

constexpr std::size_t kMaxBytes = std::size_t{1} << 20;

}  // namespace

Outcome ReadCredentials(const std::string& path, const std::string& home,
                        const std::vector<Config::Member>& members, Credentials& credentials) {
    Config::TextFile file;
    file.what = "credentials file";
    file.path = path;
    Outcome outcome = Config::ReadTextFile(kMaxBytes, file);
    if (outcome.Ok() && !file.exists) outcome = file.Unusable("does not exist.");
    if (outcome.Ok()) outcome = Config::RefuseSharedFile(file);
    if (!outcome.Ok()) return outcome;
    credentials.path = path;
    const Config::MemberReader reader(home, members);
    const std::string fault = Config::ParseYaml(path, file.text, [&](const YAML::Node& root) {
        std::vector<std::string> seen;
        for (const auto& entry : Config::MapOf(root, "The file")) {
            const std::string name = Config::KeyOf(entry.first, "", seen);
            credentials.named[name] = reader.Read(entry.second, name, name);
        }
    });
    return fault.empty() ? outcome : Failure(kUsage, fault);
}

Outcome Passwords::Of(const SecretSource& source, const Secret*& secret) {
    const auto [known, isNew] =
        m_read.try_emplace(Key(source.variable, source.file, source.command));
    auto& [outcome, value] = known->second;
    if (isNew) outcome = ReadSecret(source, value);
    secret = &value;
    return outcome;
}

}  // namespace Kemffdc::Fleet
