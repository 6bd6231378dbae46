// SPDX-License-Identifier: Apache-2.0
#include "cli/Passwords.h"

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <chrono>

namespace Kemffdc {
namespace {

constexpr std::chrono::seconds kLongestCommand{120};  // a person may have to type into it

// The words of a password command for this BMC: "{host}" and "{user}" stand for its own.
std::vector<std::string> Filled(std::vector<std::string> words, const std::string& host,
                                const std::string& user) {
    for (std::string& word : words) {
        boost::algorithm::replace_all(word, "{host}", host);
        boost::algorithm::replace_all(word, "{user}", user);
    }
    return words;
}

std::chrono::milliseconds CommandLimit(const Options& options) {
    const std::chrono::seconds deadline(options.deadline);
    return options.deadline == 0 ? kLongestCommand : std::min(kLongestCommand, deadline);
}

// As commands are told it.
std::string HostOf(const Options& options) {
    return options.host.empty() ? "localhost" : options.host;
}

}  // namespace

std::optional<SecretSource> PasswordSource(const Options& options) {
    if (!options.needsPassword) return std::nullopt;
    const std::string bmc = options.host.empty() ? "this machine's BMC" : options.host;
    return SecretSource{options.passwordFile,
                        "KEMFFDC_PASSWORD",
                        "Password of " + options.user + " on " + bmc + ": ",
                        "--password-file",
                        Filled(options.passwordCommand, HostOf(options), options.user),
                        CommandLimit(options)};
}

std::optional<SecretSource> ExportPasswordSource(const Options& options) {
    const bool wanted = !options.exportUser.empty() || !options.exportPasswordFile.empty() ||
                        !options.exportPasswordCommand.empty();
    if (!options.needsPassword || options.exportUri.empty() || !wanted) return std::nullopt;
    return SecretSource{options.exportPasswordFile,
                        "KEMFFDC_EXPORT_PASSWORD",
                        "Password of " + options.exportUser + " on the file store: ",
                        "--export-password-file",
                        Filled(options.exportPasswordCommand, HostOf(options), options.exportUser),
                        CommandLimit(options)};
}

}  // namespace Kemffdc
