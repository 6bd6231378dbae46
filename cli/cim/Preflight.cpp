// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Preflight.h"

#include <strings.h>

#include <algorithm>
#include <utility>

#include "cli/cim/Options.h"
#include "cli/cim/Requests.h"
#include "cli/cim/Xml.h"
#include "cli/terminal/Text.h"
#include "shared/Percent.h"

namespace Kemffdc::Cim {
namespace {

constexpr char kDataClass[] = "ZOR_FFDCData";
constexpr char kNeverExported[] = "4";

// CIM status codes (DSP0200).
constexpr int kAccessDenied = 2;
constexpr int kInvalidNamespace = 3;
constexpr int kInvalidClass = 5;

std::string Http(const Answer& reply) {
    std::string words = "HTTP " + std::to_string(reply.httpCode);
    for (const char* name : {"cimerror", "pgerrordetail"}) {
        const std::string value = CimHeader(reply, name);
        if (!value.empty()) words += ", " + Clean(shared::PercentDecoded(value));
    }
    return " (" + words + ").";
}

std::string Words(const Enumeration& answer) {
    const std::string code = "CIM error " + std::to_string(answer.errorCode);
    return " (" + (answer.errorText.empty() ? code : code + ": " + Clean(answer.errorText)) + ").";
}

// A server that was told that trailers are welcome puts a CIM error there, and nowhere else.
void ReadStatus(const Answer& reply, Enumeration& answer) {
    const std::string code = CimHeader(reply, "cimstatuscode");
    if (code.empty()) return;
    if (code.size() > 9 || code.find_first_not_of("0123456789") != std::string::npos) {
        answer.unreadable = "its status is no number";
        return;
    }
    const int number = std::stoi(code);
    if (number == 0) return;  // success
    answer.failed = true;
    answer.errorCode = number;
    answer.errorText = shared::PercentDecoded(CimHeader(reply, "cimstatuscodedescription"));
}

// In the library's order. Nothing but a status is as good as a document that holds none.
Enumeration ReadReply(Answer& reply) {
    Enumeration answer;
    if (strcasecmp(CimHeader(reply, "cimoperation").c_str(), "MethodResponse") != 0) {
        answer.unreadable = "its answer lacks the header CIMOperation";
        return answer;
    }
    if (reply.body.empty()) {
        ReadStatus(reply, answer);
        if (answer.failed) return answer;
    }
    answer = ReadEnumeration(std::move(reply.body));
    if (answer.unreadable.empty()) ReadStatus(reply, answer);
    return answer;
}

class Probe {
public:
    Probe(const Options& options, const Trust& trust, const Secret& password, int seconds)
        : m_options(options),
          m_password(password),
          m_namespace(NamespaceOf(options)),
          m_cim(EndpointOf(options, !Own(options).plain), trust, kCimServer, seconds),
          m_place(EndpointOf(options).Place()) {}

    Preflight Run(bool look) {
        if (AskForService() && look) AskForData();
        m_result.facts.address = m_cim.Address();
        m_result.facts.certificate = m_cim.ShownCertificate();
        return m_result;
    }

private:
    bool AskForService() {
        if (Own(m_options).plain) {
            Note("Without TLS everybody on the way can read the passwords that are sent.");
        }
        Answer reply = Enumerate(m_cim, m_namespace, kServiceClass, {});
        if (reply.failedAt == Stage::kDone && reply.httpCode == 401) {
            if (!IsBasicChallenge(reply.Header("www-authenticate"))) return NoWayIn(reply);
            m_login = CimLogin(m_options.user, m_password.Reveal());
            reply = Enumerate(m_cim, m_namespace, kServiceClass, m_login);
        } else if (reply.failedAt == Stage::kDone && reply.httpCode == 200) {
            Note("The CIM server asks nobody for user and password.");
        }
        Enumeration answer;
        if (!Read(reply, kServiceClass, answer)) return false;
        if (answer.types.empty()) {
            Limit("Namespace " + m_namespace + " has no object of class ZOR_FFDCService; " +
                  "the BMC cannot be asked for an export.");
        }
        return true;
    }

    bool AskForData() {
        Answer reply = Enumerate(m_cim, m_namespace, kDataClass, m_login);
        Enumeration answer;
        if (!Read(reply, kDataClass, answer)) return false;
        const auto skipped =
            std::count(answer.types.begin(), answer.types.end(), std::string(kNeverExported));
        const std::size_t exported = answer.types.size() - static_cast<std::size_t>(skipped);
        const std::string note = "Namespace " + m_namespace + " has " +
                                 std::to_string(answer.types.size()) + " data objects, of which " +
                                 std::to_string(exported) + " would be exported.";
        exported == 0 ? Limit(note) : Note(note);
        return true;
    }

    bool Read(Answer& reply, const char* className, Enumeration& answer) {
        if (reply.failedAt != Stage::kDone) return Fail(reply.failedAt, reply.reason);
        if (reply.httpCode == 401 || reply.httpCode == 403) return Refused(reply);
        if (reply.httpCode == 503) {
            return Fail(Stage::kService, Cause::kStarting,
                        "The CIM server at " + m_place + " is not ready" + Http(reply) +
                            " Try again later.");
        }
        if (!CimHeader(reply, "cimerror").empty()) {
            return Fail(Stage::kService, "The CIM server at " + m_place +
                                             " refuses an ordinary request" + Http(reply) +
                                             " It is no usable CIM server.");
        }
        if (reply.httpCode != 200) {
            return Fail(Stage::kService, "There is no CIM server at " + m_place + Http(reply) +
                                             " Check that it is a BMC and that --port is right.");
        }
        answer = ReadReply(reply);
        if (!answer.unreadable.empty()) {
            return Fail(Stage::kService,
                        m_place + " answers, but not as a CIM server: " + answer.unreadable +
                            ". Check that it is a BMC and that --port is right.");
        }
        return !answer.failed || Told(answer, className);
    }

    // Always false: the preflight ends here.
    bool Told(const Enumeration& answer, const char* className) {
        switch (answer.errorCode) {
            case kAccessDenied:
                return Fail(Stage::kLogin, Cause::kNotPermitted,
                            "The BMC at " + m_place + " does not let user \"" + m_options.user +
                                "\" read its service objects" + Words(answer) +
                                " The account lacks the right.");
            case kInvalidNamespace:
                return Fail(Stage::kService, "The CIM server at " + m_place + " has no namespace " +
                                                 m_namespace + Words(answer) + " Check --node.");
            case kInvalidClass:
                return Fail(
                    Stage::kService,
                    "The CIM server at " + m_place + " knows no " + className + " in " +
                        m_namespace + Words(answer) +
                        " It offers no service data this way; try --node or --via redfish.");
            default:
                return Fail(Stage::kService, "The CIM server at " + m_place +
                                                 " fails on an ordinary request" + Words(answer) +
                                                 " Try later; a BMC that hangs needs a reset.");
        }
    }

    bool NoWayIn(const Answer& reply) {
        const std::string challenge = reply.Header("www-authenticate");
        const std::string how = challenge.empty()
                                    ? " refuses, and does not say how to log in"
                                    : " wants a login that this tool does not know: " +
                                          Clean(challenge.substr(0, challenge.find(' ')));
        return Fail(Stage::kLogin, "The CIM server at " + m_place + how + Http(reply) +
                                       " Switch HTTP Basic authentication on.");
    }

    bool Refused(const Answer& reply) {
        const std::string who = "The BMC at " + m_place + " does not accept user \"" +
                                m_options.user + "\" with this password";
        const std::string what = reply.httpCode == 401
                                     ? " Check --user and the password."
                                     : " The account may be locked or lack the right to log in.";
        return Fail(Stage::kLogin, who + Http(reply) + what);
    }

    bool Fail(Stage stage, const std::string& reason) {
        return Fail(stage, CauseOf(stage), reason);
    }

    bool Fail(Stage stage, Cause cause, const std::string& reason) {
        m_result.cause = cause;
        m_result.stage = stage;
        m_result.reason = reason;
        return false;
    }

    void Limit(const std::string& note) {
        if (m_result.limit.empty()) m_result.limit = note;
        Note(note);
    }

    void Note(const std::string& note) { m_result.facts.notes.push_back(note); }

    const Options& m_options;
    const Secret& m_password;
    const std::string m_namespace;
    Transport m_cim;
    const std::string m_place;
    Login m_login;  // nobody, until the server wants to know
    Preflight m_result;
};

}  // namespace

std::string NamespaceOf(const Options& options) {
    if (!Own(options).node) return "root/cimv2";
    return "zor/kem" + std::to_string(*Own(options).node) + "/cimv2";
}

Preflight RunPreflight(const Options& options, const Trust& trust, const Secret& password,
                       int seconds, bool look) {
    return Probe(options, trust, password, seconds).Run(look);
}

}  // namespace Kemffdc::Cim
