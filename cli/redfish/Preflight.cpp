// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Preflight.h"

#include <algorithm>
#include <boost/json.hpp>
#include <cctype>
#include <vector>

#include "cli/redfish/Json.h"
#include "cli/redfish/Options.h"
#include "cli/redfish/Requests.h"
#include "cli/redfish/Rights.h"
#include "cli/redfish/standard/Selection.h"

namespace Kemffdc::Redfish {
namespace {

constexpr char kServiceRoot[] = "/redfish/v1/";
constexpr char kManager[] = "/redfish/v1/Managers/1";
constexpr int kBesides = 10;  // seconds for each answer that a run can do without

std::string Http(const Answer& answer) {
    const std::string message = BmcMessage(answer.body);
    const std::string code = "HTTP " + std::to_string(answer.httpCode);
    return message.empty() ? " (" + code + ")." : " (" + code + ": " + message + ").";
}

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool IsRefused(const Answer& answer) { return answer.httpCode == 401 || answer.httpCode == 403; }

class Probe {
public:
    Probe(const Options& options, const Trust& trust, const Secret& password, int seconds)
        : m_options(options),
          m_https(EndpointOf(options), trust, kRedfishService, seconds),
          m_seconds(seconds),
          m_place(EndpointOf(options).Place()),
          m_login(BasicLogin(options.user, password.Reveal())) {}

    Preflight Run(bool rights) {
        m_result.chosen = Choose(Own(m_options).operation, false, {});  // until more is known
        if (ReadRoot() && ReadManager()) {
            m_https.SetSeconds(std::min(m_seconds, kBesides));
            ReadSystem();
            Decide(rights);
        }
        m_result.facts.address = m_https.Address();
        m_result.facts.certificate = m_https.ShownCertificate();
        return m_result;
    }

private:
    // The service root is readable by anybody (DMTF DSP0266); some services ask all the same.
    bool ReadRoot() {
        Answer answer = m_https.Get(kServiceRoot);
        if (IsRefused(answer) || answer.httpCode == 400) answer = GetAsUser(kServiceRoot);
        if (!HasAnswer(answer)) return false;
        if (IsRefused(answer)) return Refused(answer);
        NoteNames(answer);
        if (answer.httpCode == 400 && answer.wantsCertificate) {
            return Fail(Stage::kTls,
                        m_place + " wants a certificate of this machine (TLS client certificate)" +
                            Http(answer) +
                            " The library has none to show: switch that demand off on the BMC.");
        }
        if (answer.httpCode == 502 || answer.httpCode == 504) {
            return Fail(Stage::kService, Cause::kUnreachable,
                        "What answers at " + m_place + " is a gateway that does not reach the BMC" +
                            Http(answer) + " Check the gateway and the BMC behind it.");
        }
        if (answer.httpCode >= 500) return Failing(answer);
        if (!answer.IsSuccess()) {
            return Fail(Stage::kService, "There is no Redfish service at " + m_place +
                                             Http(answer) +
                                             " Check that it is a BMC and that --port is right.");
        }
        const auto root = ReadObject(answer.body);
        if (!root) {
            return Fail(
                Stage::kService,
                m_place +
                    " answers, but not as a Redfish service: its service root is not a JSON object. Check that it is a BMC and that --port is right.");
        }
        m_root = *root;
        m_result.facts.serviceVersion = TextMember(*root, "RedfishVersion");
        m_result.facts.product = TextMember(*root, "Product");
        m_result.facts.vendor = TextMember(*root, "Vendor");
        if (m_result.facts.serviceVersion.empty()) {
            m_result.facts.notes.emplace_back("The service root names no Redfish version.");
        }
        return true;
    }

    bool ReadManager() {
        const Answer answer = GetAsUser(kManager);
        if (!HasAnswer(answer)) return false;
        if (IsRefused(answer)) return Refused(answer);
        if (answer.httpCode == 404) {
            m_noOem = "The BMC has no /redfish/v1/Managers/1; it will refuse the export.";
        } else if (!answer.IsSuccess()) {
            return Failing(answer);
        } else if (const auto manager = ReadObject(answer.body)) {
            m_manager = *manager;
            m_result.facts.model = TextMember(*manager, "Model");
            m_result.facts.firmware = TextMember(*manager, "FirmwareVersion");
        }
        m_result.state = Preflight::State::kReady;
        return true;
    }

    // Which machine it is. A BMC that does not say is good all the same.
    void ReadSystem() {
        const boost::json::object* links = ObjectMember(m_manager, "Links");
        const auto systems = links == nullptr ? std::vector<std::string>()
                                              : LinksMember(*links, "ManagerForServers");
        if (systems.empty()) return;
        const Answer answer = m_https.Get(systems.front(), m_login);
        const auto system = answer.IsSuccess() ? ReadObject(answer.body) : std::nullopt;
        if (!system) return;
        m_result.facts.serial = TextMember(*system, "SerialNumber");
        m_result.facts.uuid = LowerCase(TextMember(*system, "UUID"));
    }

    void Decide(bool rights) {
        const Operation asked = Own(m_options).operation;
        const bool toStore = !m_options.exportUri.empty();
        Offer offer{m_noOem, ""};
        const bool looks = asked == Operation::kAuto || (asked == Operation::kOem && rights);
        if (looks && m_noOem.empty()) offer.noOem = MissingOperation(m_https, m_login, m_manager);
        const bool others = asked == Operation::kAuto && !offer.noOem.empty() && !toStore;
        if (others || asked == Operation::kStandard) offer.noStandard = MissingAction();
        m_result.chosen = Choose(asked, toStore, offer);
        Limit(m_result.chosen.limit);
        const bool changes = m_result.chosen.operation != Operation::kTree;
        if (rights && changes && m_result.limit.empty()) {
            Limit(MissingPrivilege(m_https, m_login, m_options.user, m_root));
        }
    }

    // Why there is nothing to collect by the standard's action; empty: there is.
    std::string MissingAction() {
        Walk walk([this](const std::string& path) { return m_https.Get(path, m_login); });
        m_result.logServices = FindLogServices(walk, m_root);
        return Select(m_result.logServices, Own(m_options)).fault;
    }

    void Limit(const std::string& reason) {
        m_result.limit = reason;
        if (!reason.empty()) m_result.facts.notes.push_back(reason);
    }

    // The library looks for X-Auth-Token as it is written here.
    void NoteNames(const Answer& answer) {
        m_result.lowerCaseNames = answer.lowerCaseNames;
        if (!answer.lowerCaseNames) return;
        m_result.facts.notes.emplace_back(
            "Header names come in lower case: something between here and the BMC changes them. The "
            "archive cannot be downloaded that way; go round it, or use --export-uri.");
    }

    Answer GetAsUser(const char* path) { return m_https.Get(path, m_login); }

    // Also ends the preflight where the BMC is only starting.
    bool HasAnswer(const Answer& answer) {
        if (answer.failedAt != Stage::kDone) return Fail(answer.failedAt, answer.reason);
        if (answer.httpCode != 503) return true;
        m_result.state = Preflight::State::kStarting;
        return false;
    }

    bool Failing(const Answer& answer) {
        return Fail(Stage::kService, Cause::kBmcFault,
                    "The service at " + m_place + " fails on an ordinary request" + Http(answer) +
                        " Try later; a BMC that hangs needs a reset.");
    }

    bool Refused(const Answer& answer) {
        const std::string who = "The BMC at " + m_place + " does not accept user \"" +
                                m_options.user + "\" with this password";
        const std::string what = answer.httpCode == 401
                                     ? " Check --user and the password."
                                     : " The account may be locked or lack the right to log in.";
        return Fail(Stage::kLogin, who + Http(answer) + what);
    }

    bool Fail(Stage stage, const std::string& reason) {
        return Fail(stage, CauseOf(stage), reason);
    }

    bool Fail(Stage stage, Cause cause, const std::string& reason) {
        m_result.cause = cause;
        m_result.state = Preflight::State::kFailed;
        m_result.stage = stage;
        m_result.reason = reason;
        return false;
    }

    const Options& m_options;
    Transport m_https;
    const int m_seconds;
    const std::string m_place;
    const Login m_login;
    boost::json::object m_root;
    boost::json::object m_manager;
    std::string m_noOem;  // why the OEM's operation is missing, where that is sure already
    Preflight m_result;
};

}  // namespace

Preflight RunPreflight(const Options& options, const Trust& trust, const Secret& password,
                       int seconds, bool rights) {
    return Probe(options, trust, password, seconds).Run(rights);
}

}  // namespace Kemffdc::Redfish
