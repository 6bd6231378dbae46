// SPDX-License-Identifier: Apache-2.0
#include "cli/CommonOptions.h"

#include <cstdint>

#include "cli/ArchiveName.h"
#include "cli/history/KnownBmcs.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

constexpr std::int64_t kHighestPort = 65535;

// Options of which one holds (Option::oneOf).
constexpr char kPassword[] = "password";
constexpr char kExportPassword[] = "export password";
constexpr char kTrust[] = "trust";

std::string TakeExportUri(const std::string& uri, Options& options) {
    const std::size_t authority = uri.find("://");
    if (authority == std::string::npos || authority == 0) {
        return " is no URI: sftp://HOST/PATH or tftp://HOST/PATH.";
    }
    if (HasControl(uri) || uri.find(' ') != std::string::npos) {
        return " holds blanks or control bytes; write them as %XX.";
    }
    const std::size_t begin = authority + 3;
    const std::string server = uri.substr(begin, uri.find('/', begin) - begin);
    const std::string login = server.substr(0, server.rfind('@') + 1);
    if (login.find(':') != std::string::npos) {
        return " must not hold a password: use --export-user and --export-password-file.";
    }
    options.exportUri = uri;
    return "";
}

// 0 until the channel has settled it.
Reading Port() {
    Reading reading = Number(&Options::port, 1, kHighestPort);
    reading.show = [](const Options& options) {
        return options.port == 0 ? "" : std::to_string(options.port);
    };
    return reading;
}

Reading NameTemplate() {
    Reading reading = Text(&Options::nameTemplate);
    reading.take = [](const std::string& text, Options& options) {
        std::string fault = CheckNameTemplate(text);
        if (fault.empty()) options.nameTemplate = text;
        return fault;
    };
    return reading;
}

Reading Fingerprint() {
    Reading reading = Text(&Options::fingerprint);
    reading.take = [](const std::string& text, Options& options) -> std::string {
        options.fingerprint = History::ReadFingerprint(text);
        if (!options.fingerprint.empty()) return "";
        return ": \"" + text +
               "\" is no SHA-256 of a certificate: 64 hexadecimal digits, with colons or without.";
    };
    return reading;
}

Reading ExportUri() {
    Reading reading = Text(&Options::exportUri);
    reading.take = TakeExportUri;
    return reading;
}

}  // namespace

const OptionGroup& ViaOptions() {
    static const OptionGroup group{"Channel",
                                   {{"--via", "CHANNEL", "How to reach the BMC",
                                     Text(&Options::via), Where::kAnyhow, Use::kReach, true}}};
    return group;
}

const OptionGroup& PortOptions() {
    static const OptionGroup group{
        "Port",
        {{"--port", "N", "Port of the BMC's service", Port(), Where::kAnyhow, Use::kReach, true}}};
    return group;
}

const OptionGroup& LoginOptions() {
    static const OptionGroup group{
        "Login",
        {{"--user", "NAME", "Account on the BMC", Text(&Options::user), Where::kAnyhow, Use::kReach,
          true},
         {"--password-file", "FILE", "File that holds its password; - is standard input",
          Path(&Options::passwordFile), Where::kAnyhow, Use::kReach, true, "", "KEMFFDC_PASSWORD",
          kPassword},
         {"password_command", "WORDS", "Program that prints its password, and its arguments",
          CommandWords(&Options::passwordCommand), Where::kFile, Use::kReach, false, "", "",
          kPassword}}};
    return group;
}

const OptionGroup& TlsOptions() {
    static const OptionGroup group{
        "Certificate",
        {{"--ca-file", "FILE",
          "Check the BMC's certificate against the CAs in this PEM file before any password leaves",
          Path(&Options::caFile), Where::kAnyhow, Use::kReach, false, "VARNEX_CA_FILE", "", kTrust},
         {"--fingerprint", "SHA256",
          "Take this certificate alone: the SHA-256 that the BMC shows, in hexadecimal",
          Fingerprint(), Where::kAnyhow, Use::kReach, false, "", "", kTrust},
         {"--accept-new-certificate", "",
          "Take the BMC's certificate where another one is known, and remember it",
          Flag(&Options::acceptNewCertificate)},
         {"--insecure", "", "Send the password to whoever answers: no certificate is checked",
          Flag(&Options::insecure), Where::kAnyhow, Use::kReach, false, "", "", kTrust}}};
    return group;
}

const OptionGroup& ExportOptions() {
    static const OptionGroup group{
        "File store",
        {{"--export-uri", "URI",
          "Where the BMC itself is to send the archive: sftp://... or tftp://...", ExportUri(),
          Where::kAnyhow, Use::kGather, true},
         {"--export-user", "NAME", "Account on that file store", Text(&Options::exportUser),
          Where::kAnyhow, Use::kGather},
         {"--export-password-file", "FILE", "File that holds its password; - is standard input",
          Path(&Options::exportPasswordFile), Where::kAnyhow, Use::kGather, false, "",
          "KEMFFDC_EXPORT_PASSWORD", kExportPassword},
         {"export_password_command", "WORDS", "Program that prints its password, and its arguments",
          CommandWords(&Options::exportPasswordCommand), Where::kFile, Use::kGather, false, "", "",
          kExportPassword}}};
    return group;
}

const OptionGroup& DownloadOptions() {
    static const OptionGroup group{
        "Download",
        {{"--output", "DIR", "Folder for the archive; made if its parent exists",
          Path(&Options::output), Where::kAnyhow, Use::kReach, true, "", "", "", true},
         {"--name-template", "TEXT", "Name of the archive, of {host}, {serial}, {utc} and {name}",
          NameTemplate(), Where::kAnyhow, Use::kGather},
         {"--max-size", "SIZE", "Download no more than this in all, 500M or 16G; 0 is no limit",
          Size(&Options::maxSize), Where::kAnyhow, Use::kGather},
         {"--keep-free", "SIZE", "Leave this much of the output folder's disk free; 0 is nothing",
          Size(&Options::keepFree), Where::kAnyhow}}};
    return group;
}

const OptionGroup& RunOptions() {
    static const OptionGroup group{
        "Run",
        {{"--deadline", "TIME", "End the run after this time, 90s, 45m or 2h; 0 is never",
          Time(&Options::deadline), Where::kAnyhow, Use::kReach, true},
         {"--events", "", "Print a JSON line for each change, and the result as the last one",
          Flag(&Options::events), Where::kLine, Use::kReach, false, "", "", "", true},
         {"--wait", "", "Wait while another run is at work on the same BMC", Flag(&Options::wait),
          Where::kAnyhow, Use::kGather},
         {"--no-proxy", "", "Ignore the environment's proxies", Flag(&Options::noProxy),
          Where::kAnyhow},
         {"--log-level", "N", "Write the library's log: 0 nothing, 1 errors ... 4 everything",
          Number(&Options::logLevel, 0, 4), Where::kLine, Use::kReach, false, "VARNEX_LOG_LEVEL",
          "", "", true},
         {"--log-file", "FILE", "File for that log instead of standard error; level 4 then",
          Path(&Options::logFile), Where::kLine, Use::kReach, false, "VARNEX_LOG_FILE", "", "",
          true}}};
    return group;
}

const OptionGroup& ListOptions() {
    static const OptionGroup group{"List",
                                   {{"--limit", "N", "Show no more runs than this, the newest ones",
                                     Number(&Options::limit, 1, 1000000)}}};
    return group;
}

const OptionGroup& StateOptions() {
    static const OptionGroup group{
        "State",
        {{"--state-dir", "DIR", "Folder of the history, the locks and the known BMCs",
          Path(&Options::stateDir), Where::kAnyhow, Use::kReach}}};
    return group;
}

const OptionGroup& ResultOptions() {
    static const OptionGroup group{"Result",
                                   {{"--json", "", "Print the result as one JSON object",
                                     Flag(&Options::json), Where::kLine, Use::kReach, true}}};
    return group;
}

std::string CheckTrust(const Options& options) {
    std::vector<std::string> given;
    if (!options.fingerprint.empty()) given.emplace_back("--fingerprint");
    if (!options.caFile.empty()) given.emplace_back("--ca-file");
    if (options.insecure) given.emplace_back("--insecure");
    if (given.size() > 1) return given[0] + " and " + given[1] + " exclude each other.";
    if (!options.acceptNewCertificate || given.empty()) return "";
    return "--accept-new-certificate is for certificates that are remembered; with " + given[0] +
           " none is.";
}

std::string CheckBasicUser(const Options& options) {
    const bool colon = options.user.find(':') != std::string::npos;
    return colon ? "--user must not hold a colon." : "";
}

std::string CheckExport(Options& options) {
    const bool onLine = options.IsOnLine("--export-uri");
    if (options.IsOnLine("--output") && !onLine) options.exportUri.clear();
    if (options.exportUri.empty()) {
        if (options.IsOnLine("--export-user") || options.IsOnLine("--export-password-file")) {
            return "--export-user and --export-password-file need --export-uri.";
        }
        options.exportUser.clear();
        options.exportPasswordFile.clear();
        options.exportPasswordCommand.clear();
        for (const Option& option : ExportOptions().options) options.Ignore(option.name);
    }
    if (options.passwordFile == "-" && options.exportPasswordFile == "-") {
        return "Only one password can come from standard input.";
    }
    return "";
}

}  // namespace Kemffdc
