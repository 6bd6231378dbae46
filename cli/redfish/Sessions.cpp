// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Sessions.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

#include "cli/CertificateGuard.h"
#include "cli/redfish/Json.h"
#include "cli/redfish/Requests.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

namespace json = boost::json;

constexpr char kSessions[] = "/redfish/v1/SessionService/Sessions";
constexpr int kMaxPages = 16;
constexpr std::size_t kMaxNew = 16;  // more than so many are nobody's business

// Only what lies in the collection is asked for, or deleted.
bool IsSession(const std::string& path) {
    const std::string folder = std::string(kSessions) + "/";
    return path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0;
}

std::string NextPage(const json::object& page) {
    const json::value* link = page.if_contains("Members@odata.nextLink");
    const std::string next = link != nullptr && link->is_string() ? link->get_string().c_str() : "";
    return next.compare(0, std::strlen(kSessions), kSessions) == 0 ? next : "";
}

std::string StaysOpen(const std::string& why) {
    return "The session of the download stays open on the BMC until it times out: " + why;
}

}  // namespace

DownloadSession::DownloadSession(const Options& options, const Trust& trust, const Secret& password)
    : m_options(options),
      m_transport(EndpointOf(options), trust, kRedfishService, RequestSeconds()),
      m_login(BasicLogin(options.user, password.Reveal())) {}

void DownloadSession::ListBefore(std::chrono::seconds limit) {
    Begin(limit);
    m_before = List();
}

std::string DownloadSession::Close(std::chrono::seconds limit) {
    Begin(limit);
    const auto after = m_before ? List() : std::nullopt;
    if (!after) return StaysOpen("its sessions cannot be listed (" + m_trouble + ").");
    std::vector<std::string> added;
    std::set_difference(after->begin(), after->end(), m_before->begin(), m_before->end(),
                        std::back_inserter(added));
    if (added.size() > kMaxNew) return StaysOpen("too many others began meanwhile.");
    std::vector<std::string> ours;
    std::copy_if(added.begin(), added.end(), std::back_inserter(ours),
                 [this](const std::string& session) { return IsOurs(session); });
    if (ours.empty()) return "";  // none was opened, or it is closed already
    if (ours.size() == 1) return Delete(ours.front());
    return StaysOpen("user \"" + m_options.user + "\" has opened " + std::to_string(ours.size()) +
                     " sessions meanwhile, and which one it is cannot be told.");
}

// With what is left of the time.
Answer DownloadSession::Ask(const char* method, const std::string& path) {
    const auto left = std::chrono::ceil<std::chrono::seconds>(m_end - Clock::now()).count();
    Answer answer;
    answer.failedAt = Stage::kService;
    if (left > 0) {
        m_transport.SetSeconds(static_cast<int>(left));
        answer = std::strcmp(method, "DELETE") == 0 ? m_transport.Delete(path, m_login)
                                                    : m_transport.Get(path, m_login);
    }
    m_trouble =
        answer.failedAt == Stage::kDone ? "HTTP " + std::to_string(answer.httpCode) : "no answer";
    return answer;
}

std::optional<std::set<std::string>> DownloadSession::List() {
    std::set<std::string> members;
    std::string path = kSessions;
    for (int page = 0; !path.empty() && page < kMaxPages; ++page) {
        const Answer answer = Ask("GET", path);
        const auto object = answer.IsSuccess() ? ReadObject(answer.body) : std::nullopt;
        if (!object) return std::nullopt;
        for (const std::string& member : LinksMember(*object, "Members")) {
            if (IsSession(member)) members.insert(member);
        }
        path = NextPage(*object);
    }
    return members;
}

bool DownloadSession::IsOurs(const std::string& session) {
    const Answer answer = Ask("GET", session);
    const auto object = answer.IsSuccess() ? ReadObject(answer.body) : std::nullopt;
    return object && TextMember(*object, "UserName") == Clean(m_options.user);
}

std::string DownloadSession::Delete(const std::string& session) {
    const Answer answer = Ask("DELETE", session);
    const bool gone = answer.IsSuccess() || answer.httpCode == 404 || answer.httpCode == 410;
    return gone ? "" : StaysOpen("it cannot be deleted (" + m_trouble + ").");
}

Answer OpenOwnSession(Transport& transport, const std::string& user, const Secret& password,
                      Secret& token) {
    const json::object body{{"UserName", user}, {"Password", password.Reveal()}};
    Answer answer = transport.Post(kSessions, json::serialize(body),
                                   {"Content-Type: application/json", "Accept: application/json"});
    if (answer.IsSuccess()) token = Secret(answer.Header("x-auth-token"));
    return answer;
}

void CloseOwnSession(Transport& transport, const Login& login, const std::string& location) {
    // Services give a path, or a whole address.
    const std::size_t path = location.find(std::string(kSessions) + "/");
    if (path == std::string::npos || !IsPlainPath(location.substr(path))) return;
    (void)transport.Delete(location.substr(path), login);
}

}  // namespace Kemffdc::Redfish
