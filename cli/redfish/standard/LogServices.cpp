// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/standard/LogServices.h"

#include <algorithm>
#include <utility>

#include "cli/OptionTable.h"
#include "cli/redfish/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

namespace json = boost::json;

constexpr char kAction[] = "#LogService.CollectDiagnosticData";
constexpr char kTypes[] = "DiagnosticDataType";
constexpr char kOemTypes[] = "OEMDiagnosticDataType";
constexpr char kAllowable[] = "@Redfish.AllowableValues";
constexpr char kActionInfo[] = "@Redfish.ActionInfo";
constexpr std::size_t kMaxServices = 64;

class Finder {
public:
    explicit Finder(Walk& walk) : m_walk(walk) {}

    LogServices Find(const json::object& root) {
        for (const char* below : {"Managers", "Systems", "Chassis"}) {
            const std::string collection = LinkMember(root, below);
            for (const json::object& owner : Resources(collection)) {
                for (const json::object& log : Resources(LinkMember(owner, "LogServices"))) {
                    Take(log);
                }
            }
        }
        m_services.gap = m_walk.Gap();
        return std::move(m_services);
    }

private:
    // Of a collection, each one whole: some services send no more than links, some all of it.
    std::vector<json::object> Resources(const std::string& collection) {
        std::vector<json::object> members;
        std::vector<std::string> links;
        m_walk.Members(collection, [&](const json::object& member) {
            if (member.size() > 1) {
                members.push_back(member);
            } else {
                const std::string path = RawMember(member, "@odata.id");
                if (IsPlainPath(path)) links.push_back(path);
            }
        });
        for (const std::string& path : links) {
            if (auto member = m_walk.Read(path)) members.push_back(std::move(*member));
        }
        return members;
    }

    void Take(const json::object& log) {
        const json::object* actions = ObjectMember(log, "Actions");
        const json::object* action = actions == nullptr ? nullptr : ObjectMember(*actions, kAction);
        if (action == nullptr || m_services.found.size() >= kMaxServices) return;
        LogService service;
        service.path = RawMember(log, "@odata.id");
        service.name = TextMember(log, "Id");
        service.target = RawMember(*action, "target");
        service.entries = LinkMember(log, "Entries");
        service.types = TextsMember(*action, (std::string(kTypes) + kAllowable).c_str());
        service.oemTypes =
            TextsMember(*action, (std::string(kOemTypes) + kAllowable).c_str()).value_or(Texts());
        if (!service.types) AskActionInfo(RawMember(*action, kActionInfo), service);
        const bool usable = IsPlainPath(service.path) && IsPlainPath(service.target);
        if (usable && !IsKnown(service)) m_services.found.push_back(std::move(service));
    }

    void AskActionInfo(const std::string& path, LogService& service) {
        const auto info = IsPlainPath(path) ? m_walk.Read(path) : std::nullopt;
        const json::value* value = info ? info->if_contains("Parameters") : nullptr;
        if (value == nullptr || !value->is_array()) return;
        for (const json::value& one : value->get_array()) {
            const json::object* parameter = one.if_object();
            if (parameter == nullptr) continue;
            const std::string name = TextMember(*parameter, "Name");
            const auto values = TextsMember(*parameter, "AllowableValues");
            if (name == kTypes) service.types = values;
            if (name == kOemTypes) service.oemTypes = values.value_or(Texts());
        }
    }

    bool IsKnown(const LogService& service) const {
        return std::any_of(m_services.found.begin(), m_services.found.end(),
                           [&](const LogService& one) { return one.path == service.path; });
    }

    using Texts = std::vector<std::string>;

    Walk& m_walk;
    LogServices m_services;
};

}  // namespace

LogServices FindLogServices(Walk& walk, const json::object& root) {
    return Finder(walk).Find(root);
}

std::string Described(const LogService& service) {
    const std::string path = Clean(service.path) + ": ";
    if (!service.types) return path + "does not tell which types it takes";
    std::vector<std::string> types = *service.types;
    for (std::string& type : types) {
        if (type == "OEM" && !service.oemTypes.empty()) {
            type += " (" + Joined(service.oemTypes, ", ") + ")";
        }
    }
    return path + (types.empty() ? "offers no type" : Joined(types, ", "));
}

}  // namespace Kemffdc::Redfish
