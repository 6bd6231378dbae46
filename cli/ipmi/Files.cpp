// SPDX-License-Identifier: Apache-2.0
#include "cli/ipmi/Files.h"

#include <boost/json.hpp>
#include <ostream>
#include <utility>

#include "LogSink.h"
#include "cli/ipmi/CompletionCodes.h"
#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Ipmi {
namespace {

namespace json = boost::json;
using State = RemoteFile::State;

constexpr std::size_t kMaxShownName = 255;

const char* StateName(const RemoteFile& file) {
    if (!file.damage.empty()) return "unreadable";
    switch (file.state) {
        case State::kRunning:
            return "not-ended";
        case State::kFetched:
            return "fetched";
        case State::kFailed:
            return "failed";
        case State::kSkipped:
            return "skipped";
        case State::kPassedOver:
            return "passed-over";
        case State::kFolder:
            return "folder";
    }
    return "unknown";
}

json::object JsonOf(const RemoteFile& file) {
    // An interrupted run measures nothing.
    const bool measured = file.state == State::kFetched && !file.sha256.empty();
    return {{"name", TextOrNull(file.name)},
            {"outcome", StateName(file)},
            {"path", TextOrNull(file.path)},
            {"size", measured ? json::value(file.size) : json::value(nullptr)},
            {"sha256", TextOrNull(file.sha256)},
            {"reason", TextOrNull(file.damage.empty() ? file.reason : file.damage)}};
}

const char* RequestName(Refusal::Request request) {
    switch (request) {
        case Refusal::Request::kStart:
            return "start";
        case Refusal::Request::kPoll:
            return "poll";
        case Refusal::Request::kAccount:
            return "account";
    }
    return "unknown";
}

// A BMC may name a file as a password was named.
void HideSecrets(RemoteFile& file) {
    const std::string name = Varnex::WithoutHiddenSecrets(file.name);
    if (!file.path.empty() && name != file.name) {
        file.path = file.path.substr(0, file.path.rfind('/') + 1) + name;
    }
    file.name = name;
    file.reason = Varnex::WithoutHiddenSecrets(file.reason);
}

std::string Fate(const RemoteFile& file) {
    if (file.state == State::kFetched) {
        const std::string damage = file.damage.empty() ? "" : ", UNREADABLE: it " + file.damage;
        return std::to_string(file.size) + " bytes, SHA-256 " + file.sha256 + damage;
    }
    if (file.state == State::kSkipped) return "skipped, " + file.reason;
    if (file.state == State::kFolder) return "a folder, passed over";
    return "NOT FETCHED: " + file.reason;
}

}  // namespace

void FileList::Set(const std::vector<RemoteFile>& files, std::size_t notTried) {
    std::vector<RemoteFile> hidden = files;
    for (RemoteFile& file : hidden) HideSecrets(file);
    const std::lock_guard<std::mutex> hold(m_lock);
    m_files = std::move(hidden);
    m_notTried = notTried;
}

void FileList::SetRefusals(const std::vector<Refusal>& refusals) {
    const std::lock_guard<std::mutex> hold(m_lock);
    m_refusals = refusals;
}

void FileList::AddTo(json::object& run) const {
    const std::lock_guard<std::mutex> hold(m_lock);
    json::array files;
    for (const RemoteFile& file : m_files) files.push_back(JsonOf(file));
    run["files"] = std::move(files);
    run["files_not_tried"] = m_notTried;
    json::array refusals;
    for (const Refusal& refusal : m_refusals) {
        refusals.push_back({{"request", RequestName(refusal.request)},
                            {"completion_code", refusal.completionCode},
                            {"meaning", MeaningOf(refusal.completionCode)}});
    }
    run["refusals"] = std::move(refusals);
}

void FileList::Write(std::ostream& out) const {
    const std::lock_guard<std::mutex> hold(m_lock);
    for (const RemoteFile& file : m_files) {
        out << "  " << Clean(file.name, kMaxShownName) << ": " << Fate(file) << "\n";
    }
    if (m_notTried > 0) out << "  NOT TRIED: " << m_notTried << " more\n";
}

}  // namespace Kemffdc::Ipmi
