// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/standard/Walk.h"

#include <utility>

#include "cli/redfish/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

namespace json = boost::json;

std::string Without(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

}  // namespace

Walk::Walk(Ask ask, const WalkBounds& bounds)
    : m_ask(std::move(ask)),
      m_bounds(bounds),
      m_end(std::chrono::steady_clock::now() + bounds.time) {}

std::optional<json::object> Walk::Read(const std::string& path) {
    if (path.empty() || !m_seen.insert(Without(path)).second || !IsWithinBounds()) return {};
    ++m_requests;
    const Answer answer = m_ask(path);
    m_bytes += answer.body.size();
    auto object = answer.IsSuccess() ? ReadObject(answer.body) : std::nullopt;
    if (object) return object;
    Miss(Clean(path) + (answer.failedAt != Stage::kDone ? " gave no answer"
                        : answer.IsSuccess()            ? " is no JSON object"
                                             : ": HTTP " + std::to_string(answer.httpCode)));
    return {};
}

void Walk::Members(const std::string& path, const Visit& visit) {
    std::string next = path;
    while (!next.empty()) {
        const auto page = Read(next);
        if (!page) return;
        const json::value* members = page->if_contains("Members");
        if (members != nullptr && members->is_array()) {
            for (const json::value& member : members->get_array()) {
                if (member.is_object()) visit(member.get_object());
            }
        }
        next = RawMember(*page, "Members@odata.nextLink");
        if (!IsPlainPath(next)) return;
        if (m_seen.count(Without(next)) > 0) return Miss("the pages lead in a circle");
    }
}

bool Walk::IsWithinBounds() {
    if (m_requests >= m_bounds.requests) {
        Miss("more than " + std::to_string(m_bounds.requests) + " resources");
    } else if (m_bytes >= m_bounds.bytes) {
        Miss("more than " + HumanBytes(m_bounds.bytes));
    } else if (std::chrono::steady_clock::now() >= m_end) {
        Miss("it takes longer than " + std::to_string(m_bounds.time.count()) + " s");
    } else {
        return true;
    }
    return false;
}

void Walk::Miss(const std::string& why) {
    if (m_gap.empty()) m_gap = why;
}

}  // namespace Kemffdc::Redfish
