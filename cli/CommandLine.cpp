// SPDX-License-Identifier: Apache-2.0
#include "cli/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "Ipmanip.h"
#include "cli/Channels.h"
#include "cli/ExitCodes.h"

namespace Kemffdc {
namespace {

constexpr char kFooter[] =
    "Options of the commands: kemffdc collect --help, kemffdc check --help\n"
    "\n"
    "Examples:\n"
    "  kemffdc check --via redfish 192.0.2.10\n"
    "      Is the BMC there, does it take the password, what is it?\n"
    "  kemffdc collect --via redfish bmc7.example --user admin --password-file ~/.bmc7\n"
    "      Gathers the full service data and downloads it into the current folder.\n"
    "  kemffdc collect --via redfish fe80::1%eth0 --log mini --output /var/ffdc --json\n"
    "      The logs alone, over IPv6, the result as JSON on standard output.\n"
    "  kemffdc collect --via redfish 192.0.2.10 --export-uri sftp://192.0.2.1/in/bmc.tar.gz \\\n"
    "          --export-user ffdc --export-password-file ~/.store\n"
    "      The BMC itself sends its archive to a file store.\n"
    "  kemffdc collect --via cim 192.0.2.10 --node 2 --export-uri sftp://192.0.2.1/in/ \\\n"
    "          --export-user ffdc --export-password-file ~/.store\n"
    "      Older machines: an archive for each data object, always sent by the BMC itself.\n"
    "  kemffdc collect --via ipmi 192.0.2.10 --cipher-suite 3 --output /var/ffdc\n"
    "      By IPMI over the LAN; the BMC's files come by SFTP (port 115) into a folder of their own.\n"
    "  kemffdc collect --via kcs\n"
    "      The same from the server's own BMC, in band: no HOST, no password.\n"
    "\n"
    "Modes of ipmi and kcs (--mode):\n"
    "  2      the BMC hands out an account over the open session; all files of /download/ffdc/\n"
    "  3      the account comes from this machine's own BMC, else --user and the password hold;\n"
    "         files of /download/ffdc/kem_dump/ that end with .tzz\n"
    "  other  as 3, but all files of that folder\n"
    "\n"
    "Passwords come from --password-file (- is standard input), else from the environment variable\n"
    "KEMFFDC_PASSWORD, else from a prompt where there is a terminal; for the file store from\n"
    "--export-password-file, else KEMFFDC_EXPORT_PASSWORD, else a prompt if --export-user is given.\n"
    "Never from an option's value: other users of this machine could read it.\n"
    "\n"
    "Exit codes:\n"
    "  0    archive obtained, or left at the export URI; ipmi, kcs: all files obtained;\n"
    "       check: the BMC can be used\n"
    "  2    usage\n"
    "  3    could not connect or authenticate\n"
    "  4    the BMC refused the export or to gather, or an export failed\n"
    "  5    the task failed, was killed or ended in an unknown state\n"
    "  6    not finished within the tries or the --deadline; ipmi and kcs: within 900 seconds\n"
    "  7    download failed, or it was larger than --max-size\n"
    "  8    local file trouble, or less free than --keep-free\n"
    "  9    some files are missing, the others were obtained (ipmi, kcs)\n"
    "  10   check: the BMC was reached, but collect would get nothing from it\n"
    "  130  interrupted by Ctrl-C or another signal that asks a process to end\n"
    "\n"
    "By ipmi and kcs, files may have come with 4, 5, 6 and 8 too: old or unfinished ones, perhaps.\n"
    "They are kept, and the reason says so.\n"
    "\n"
    "Results go to standard output, progress and reasons to standard error.\n";

// Those that the platform's IPMI client knows.
const std::set<int> kCipherSuites{0, 1, 2, 3, 6, 7, 8, 11, 12, 15, 16, 17};

// A number that may have a unit.
struct Quantity {
    std::map<std::string, std::uint64_t> units;  // in lower case
    std::uint64_t most;
    const char* notOne;  // what to write instead of one that cannot be read
};
const Quantity kTime{{{"", 1}, {"s", 1}, {"m", 60}, {"h", 3600}},
                     std::uint64_t{365} * 24 * 3600,
                     " is no time; write 90s, 45m or 2h, at most 8760h"};
const Quantity kSize{{{"", 1},
                      {"k", std::uint64_t{1} << 10},
                      {"m", std::uint64_t{1} << 20},
                      {"g", std::uint64_t{1} << 30},
                      {"t", std::uint64_t{1} << 40}},
                     std::uint64_t{1} << 60,
                     " is no size; write 500M or 16G, at most 1048576T"};

constexpr char kInBand[] = "kcs";
constexpr int kAccountOverSession = 2;  // the mode that has no use for --user in band

// CLI11 reads an empty text as the number 0, which would be a suite without any protection.
std::string IsGiven(const std::string& text) { return text.empty() ? "a number is missing" : ""; }

// "2h" becomes "7200".
CLI::Validator InUnitsOf(const Quantity& quantity) {
    const auto convert = [quantity](std::string& text) -> std::string {
        std::uint64_t number = 0;
        const char* end = text.data() + text.size();
        const auto read = std::from_chars(text.data(), end, number);
        const auto unit = quantity.units.find(CLI::detail::to_lower(std::string(read.ptr, end)));
        const bool readable = read.ec == std::errc() && unit != quantity.units.end();
        if (!readable || number > quantity.most / unit->second) {
            return "\"" + text + "\"" + quantity.notOne;
        }
        text = std::to_string(number * unit->second);
        return "";
    };
    return {convert, ""};
}

// What CLI11 fills in before it is checked as a whole.
struct Raw {
    Options options;
    std::string host;
    std::string log = "full";
    int port = 0;
    int node = -1;
    int cipherSuite = -1;
    int logLevel = -1;
};

void AddConnectionOptions(CLI::App& app, Raw& raw) {
    app.add_option("HOST", raw.host, "Name, IPv4 or IPv6 address of the BMC; none with --via kcs");
    app.add_option("--via", raw.options.via, "How to reach the BMC")
        ->required()
        ->type_name("CHANNEL")
        ->check(CLI::IsMember(ChannelNames()));
    app.add_option("--port", raw.port,
                   "Port of the BMC's service [redfish 443, cim 5989, cim --plain 5988, ipmi 623]")
        ->type_name("N")
        ->check(CLI::Range(1, 65535));
    app.add_option("--user", raw.options.user, "Account on the BMC")
        ->type_name("NAME")
        ->capture_default_str();
    app.add_option("--password-file", raw.options.passwordFile,
                   "File that holds its password; - is standard input")
        ->type_name("FILE");
    app.add_flag("--plain", raw.options.plain, "cim: speak plain HTTP instead of TLS");
    app.add_option("--node", raw.node, "cim: number of a node in an enclosure of several")
        ->type_name("N")
        ->check(CLI::Range(0, 65535));
    app.add_option("--cipher-suite", raw.cipherSuite,
                   "ipmi: how the session is protected; BMCs of today offer 17 and 3 [17]")
        ->type_name("N")
        ->check(IsGiven)
        ->check(CLI::IsMember(kCipherSuites));
    app.add_option("--ca-file", raw.options.caFile,
                   "redfish, cim: check the BMC's certificate against the CAs in this PEM file "
                   "before any password leaves [VARNEX_CA_FILE]")
        ->type_name("FILE");
    app.add_option("--deadline", raw.options.deadline,
                   "End the run after this time, 90s, 45m or 2h; 0 is never [2h]")
        ->type_name("TIME")
        ->transform(InUnitsOf(kTime));
    app.add_flag("--no-proxy", raw.options.noProxy, "Ignore the environment's proxies");
    app.add_flag("--json", raw.options.json, "Print the result as one JSON object");
    app.add_option("--log-level", raw.logLevel,
                   "Write the library's log: 0 nothing, 1 failures ... 4 everything")
        ->type_name("N")
        ->check(CLI::Range(0, 4));
    app.add_option("--log-file", raw.options.logFile,
                   "File for that log instead of standard error [level 4]")
        ->type_name("FILE");
}

void AddCollectOptions(CLI::App& app, Raw& raw) {
    app.add_option("--mode", raw.options.mode,
                   "ipmi, kcs: which account and which files, see below")
        ->type_name("N")
        ->capture_default_str()
        ->check(IsGiven)
        ->check(CLI::NonNegativeNumber);
    app.add_option("--log", raw.log, "Which service data to gather: the logs alone, or all")
        ->type_name("KIND")
        ->capture_default_str()
        ->check(CLI::IsMember({"mini", "full"}));
    app.add_option("--export-uri", raw.options.exportUri,
                   "Where the BMC itself is to send the archive: sftp://... or tftp://...")
        ->type_name("URI");
    app.add_option("--export-user", raw.options.exportUser, "Account on that file store")
        ->type_name("NAME");
    app.add_option("--export-password-file", raw.options.exportPasswordFile,
                   "File that holds its password; - is standard input")
        ->type_name("FILE");
    app.add_flag("--initialize", raw.options.initialize,
                 "cim: tell the BMC to initialise before it gathers");
    app.add_option("--tries", raw.options.tries, "How often to ask whether the BMC is done")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(1, 1000000));
    app.add_option("--interval", raw.options.interval, "Seconds between two questions")
        ->type_name("SECONDS")
        ->capture_default_str()
        ->check(CLI::Range(0, 86400));
    app.add_option("--output", raw.options.output,
                   "Folder for the archive; made if its parent exists")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("--max-size", raw.options.maxSize,
                   "Download no more than this in all, 500M or 16G; 0 is no limit [16G]")
        ->type_name("SIZE")
        ->transform(InUnitsOf(kSize));
    app.add_option("--keep-free", raw.options.keepFree,
                   "Leave this much of the output folder's disk free; 0 is nothing [1G]")
        ->type_name("SIZE")
        ->transform(InUnitsOf(kSize));
}

bool HasControl(const std::string& text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

bool IsHostByte(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '-' || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

std::string TakeHost(const CLI::App& command, const std::string& given, Options& options) {
    const bool none = command.get_option("HOST")->count() == 0;
    if (options.via == kInBand) {
        return none ? "" : "--via kcs reaches this machine's own BMC: no HOST.";
    }
    if (none) return "HOST is required.";
    const bool bracketed = given.size() > 2 && given.front() == '[' && given.back() == ']';
    const std::string host = bracketed ? given.substr(1, given.size() - 2) : given;
    options.host = host;
    options.ipv6 = Ipmanip::is_ipv6(host);
    if (options.ipv6) return HasControl(host) ? "HOST holds control bytes." : "";
    if (bracketed) return "HOST in brackets is not an IPv6 address.";
    if (host.find("://") != std::string::npos) return "HOST is a name or an address, not a URL.";
    if (host.find(':') != std::string::npos) {
        return "HOST is neither a name nor an address. The port is given with --port.";
    }
    const bool plain = std::all_of(host.begin(), host.end(), IsHostByte);
    if (host.empty() || !plain || host.front() == '-') return "HOST is no host name.";
    return "";
}

std::string CheckUser(const Options& options) {
    if (HasControl(options.user)) return "--user holds control bytes.";
    if (options.via == "ipmi" || options.via == kInBand) return "";
    // HTTP Basic authentication (RFC 7617) cannot tell where such a name ends.
    if (options.user.find(':') != std::string::npos) return "--user must not hold a colon.";
    return "";
}

std::string CheckExport(const Options& options) {
    const std::string& uri = options.exportUri;
    if (uri.empty()) {
        const bool orphan = !options.exportUser.empty() || !options.exportPasswordFile.empty();
        return orphan ? "--export-user and --export-password-file need --export-uri." : "";
    }
    const std::size_t authority = uri.find("://");
    if (authority == std::string::npos || authority == 0) {
        return "--export-uri is no URI: sftp://HOST/PATH or tftp://HOST/PATH.";
    }
    if (HasControl(uri) || uri.find(' ') != std::string::npos) {
        return "--export-uri holds blanks or control bytes; write them as %XX.";
    }
    const std::size_t begin = authority + 3;
    const std::string server = uri.substr(begin, uri.find('/', begin) - begin);
    const std::string login = server.substr(0, server.rfind('@') + 1);
    if (login.find(':') != std::string::npos) {
        return "--export-uri must not hold a password: use --export-user and "
               "--export-password-file.";
    }
    if (HasControl(options.exportUser)) return "--export-user holds control bytes.";
    if (options.passwordFile == "-" && options.exportPasswordFile == "-") {
        return "Only one password can come from standard input.";
    }
    return "";
}

struct OwnOption {
    const char* name;
    std::vector<std::string> channels;
};

// Options that not every channel has. Elsewhere they are refused: who gives one expects something.
const OwnOption kOwnOptions[] = {
    {"--plain", {"cim"}},
    {"--node", {"cim"}},
    {"--initialize", {"cim"}},
    {"--log", {"redfish"}},
    {"--tries", {"redfish"}},
    {"--interval", {"redfish"}},
    {"--output", {"redfish", "ipmi", "kcs"}},
    {"--max-size", {"redfish", "ipmi", "kcs"}},
    {"--keep-free", {"redfish", "ipmi", "kcs"}},
    {"--export-uri", {"redfish", "cim"}},
    {"--export-user", {"redfish", "cim"}},
    {"--export-password-file", {"redfish", "cim"}},
    {"--port", {"redfish", "cim", "ipmi"}},
    {"--cipher-suite", {"ipmi"}},
    {"--ca-file", {"redfish", "cim"}},
    {"--mode", {"ipmi", "kcs"}},
};

// "redfish, ipmi and kcs"
std::string Listed(const std::vector<std::string>& words) {
    std::string text = words.front();
    for (std::size_t i = 1; i < words.size(); ++i) {
        text += (i + 1 == words.size() ? " and " : ", ") + words[i];
    }
    return text;
}

std::string CheckForeignOptions(const CLI::App& command, const Options& options) {
    for (const OwnOption& own : kOwnOptions) {
        const CLI::Option* option = command.get_option_no_throw(own.name);
        if (option == nullptr || option->count() == 0) continue;
        const auto& channels = own.channels;
        if (std::find(channels.begin(), channels.end(), options.via) != channels.end()) continue;
        return std::string(own.name) + " is an option of --via " + Listed(channels) + ".";
    }
    return "";
}

// No option means anything by an empty text; where one stands, a variable was not set.
std::string CheckEmpty(const CLI::App& command) {
    for (const CLI::Option* option : command.get_options()) {
        const CLI::results_t& given = option->results();
        const bool empty = std::find(given.begin(), given.end(), "") != given.end();
        if (empty && !option->get_positional()) return option->get_name() + " is empty.";
    }
    return "";
}

// The library looks for these words in the whole URI, in lower case; the tool wants to be sure of
// what the BMC makes of it.
std::string CheckCim(const Options& options) {
    if (options.via != "cim" || options.command != Command::kCollect) return "";
    const std::string& uri = options.exportUri;
    if (uri.empty()) {
        return "--via cim needs --export-uri: the BMC uploads its archives by itself.";
    }
    const bool sftp = uri.rfind("sftp://", 0) == 0;
    const bool tftp = uri.rfind("tftp://", 0) == 0;
    if (!sftp && !tftp) return "--export-uri must begin with sftp:// or tftp://.";
    if (uri.find_first_of("/?#", 7) == 7 || uri.size() == 7) return "--export-uri names no host.";
    if (tftp && !(options.exportUser.empty() && options.exportPasswordFile.empty())) {
        return "TFTP knows no accounts: --export-user and --export-password-file need sftp://.";
    }
    return "";
}

std::string CheckCaOption(const CLI::App& command, const Options& options) {
    if (command.get_option("--ca-file")->count() == 0) return "";
    return options.plain ? "--plain has no certificate for --ca-file to check." : "";
}

// In band nobody logs in. In the modes that fetch an account in band, the file service may be tried
// with another one besides.
std::string CheckInBand(const CLI::App& command, Options& options) {
    if (options.via != kInBand) return "";
    const bool given =
        command.get_option("--user")->count() + command.get_option("--password-file")->count() > 0;
    options.needsPassword = given;
    if (!given) options.user.clear();
    const bool useful = options.command == Command::kCollect && options.mode != kAccountOverSession;
    if (!given || useful) return "";
    return "--via kcs logs in nowhere: --user and --password-file are for collect in modes other "
           "than 2.";
}

// A text for the operator, empty where all is well.
std::string Complete(const CLI::App& command, Raw& raw) {
    Options& options = raw.options;
    const Channel& channel = *FindChannel(options.via);
    options.miniLog = raw.log == "mini";
    if (raw.logLevel >= 0) options.logLevel = raw.logLevel;
    if (raw.cipherSuite >= 0) options.cipherSuite = static_cast<std::uint16_t>(raw.cipherSuite);
    if (raw.node >= 0) options.node = static_cast<std::uint16_t>(raw.node);
    options.port = options.plain ? channel.plainPort : channel.defaultPort;
    if (raw.port != 0) options.port = static_cast<std::uint16_t>(raw.port);
    for (const std::string& fault :
         {CheckForeignOptions(command, options), CheckEmpty(command),
          TakeHost(command, raw.host, options), CheckUser(options), CheckExport(options),
          CheckCim(options), CheckCaOption(command, options), CheckInBand(command, options)}) {
        if (!fault.empty()) return fault;
    }
    return "";
}

Parsed UsageError(const std::string& text) {
    Parsed parsed;
    parsed.exitCode = kUsage;
    parsed.err = "kemffdc: " + text + "\nTry 'kemffdc --help'.\n";
    return parsed;
}

Parsed Text(const std::string& text) {
    Parsed parsed;
    parsed.out = text;
    return parsed;
}

// Names the options alone: what stands beside them may be a password that somebody has tried to
// give on the command line.
std::string UnknownArguments(int argc, const char* const* argv, const CLI::App& app) {
    std::string names;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const std::string name = argument.substr(0, argument.find('='));
        if (name.size() < 2 || name[0] != '-' || app.get_option_no_throw(name) != nullptr) continue;
        names += (names.empty() ? "" : ", ") + (name[1] == '-' ? name : name.substr(0, 2));
    }
    if (names.empty()) return "Too many arguments.";
    return "Unknown option: " + names + ".";
}

// "--output=", where an unset variable was to fill it: CLI11 would take the next argument.
std::string EmptyValue(int argc, const char* const* argv) {
    for (int i = 1; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind("--", 0) != 0 || argument.find('=') != argument.size() - 1) continue;
        return argument.substr(0, argument.size() - 1) + " is empty: nothing stands behind its =.";
    }
    return "";
}

}  // namespace

Parsed ParseOptions(int argc, const char* const* argv) {
    Raw raw;
    CLI::App app("Fetches the service data (FFDC) of a server's BMC.", "kemffdc");
    app.require_subcommand(1);
    app.footer(kFooter);
    app.set_version_flag("--version", "kemffdc " KEMFFDC_VERSION);
    CLI::App* collect = app.add_subcommand("collect", "Gather the service data and fetch it");
    CLI::App* check =
        app.add_subcommand("check", "See whether the BMC can be used; gathers nothing");
    for (CLI::App* command : {collect, check}) {
        AddConnectionOptions(*command, raw);
        command->footer(kFooter);
    }
    AddCollectOptions(*collect, raw);
    const std::string empty = EmptyValue(argc, argv);
    if (!empty.empty()) return UsageError(empty);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        const CLI::App* asked = collect->parsed() ? collect : check->parsed() ? check : &app;
        return Text(asked->help(asked == &app ? "" : "kemffdc"));
    } catch (const CLI::CallForVersion& version) {
        return Text(std::string(version.what()) + "\n");
    } catch (const CLI::ExtrasError&) {
        return UsageError(UnknownArguments(argc, argv, check->parsed() ? *check : *collect));
    } catch (const CLI::ParseError& error) {
        return UsageError(error.what());
    }

    raw.options.command = collect->parsed() ? Command::kCollect : Command::kCheck;
    const std::string fault = Complete(collect->parsed() ? *collect : *check, raw);
    if (!fault.empty()) return UsageError(fault);
    Parsed parsed;
    parsed.options = raw.options;
    return parsed;
}

}  // namespace Kemffdc
