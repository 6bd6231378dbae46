// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Rights.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "cli/redfish/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

namespace json = boost::json;

constexpr char kAction[] = "#TavrinServiceData.ExportFFDCData";
constexpr char kServiceData[] = "/redfish/v1/Managers/1/Oem/Tavrin/ServiceData";
constexpr char kTarget[] =
    "/redfish/v1/Managers/1/Oem/Tavrin/ServiceData/Actions/TavrinServiceData.ExportFFDCData";
constexpr std::size_t kMaxAccounts = 32;

// Among the actions of a resource, or its OEM's.
bool Lists(const json::object& resource) {
    const json::object* actions = ObjectMember(resource, "Actions");
    if (actions == nullptr) return false;
    const json::object* oem = ObjectMember(*actions, "Oem");
    return actions->contains(kAction) || (oem != nullptr && oem->contains(kAction));
}

std::optional<json::object> Read(Transport& transport, const Login& login,
                                 const std::string& path) {
    if (path.empty()) return std::nullopt;
    const Answer answer = transport.Get(path, login);
    return answer.IsSuccess() ? ReadObject(answer.body) : std::nullopt;
}

std::optional<json::object> AccountOf(Transport& transport, const Login& login,
                                      const std::string& user, const json::object& root) {
    const auto service = Read(transport, login, LinkMember(root, "AccountService"));
    if (!service) return std::nullopt;
    const auto accounts = Read(transport, login, LinkMember(*service, "Accounts"));
    if (!accounts) return std::nullopt;
    std::vector<std::string> links = LinksMember(*accounts, "Members");
    links.resize(std::min(links.size(), kMaxAccounts));
    for (const std::string& link : links) {
        auto account = Read(transport, login, link);
        if (account && TextMember(*account, "UserName") == Clean(user)) return account;
    }
    return std::nullopt;
}

// "Login" lets somebody in, "ConfigureSelf" lets him change his own password.
bool ChangesNothing(const json::object& role) {
    const json::value* assigned = role.if_contains("AssignedPrivileges");
    const json::array* privileges = assigned == nullptr ? nullptr : assigned->if_array();
    const json::value* oem = role.if_contains("OemPrivileges");
    const bool hasOem = oem != nullptr && oem->is_array() && !oem->get_array().empty();
    return privileges != nullptr && !hasOem &&
           std::all_of(privileges->begin(), privileges->end(), [](const json::value& privilege) {
               return privilege == "Login" || privilege == "ConfigureSelf";
           });
}

}  // namespace

std::string MissingOperation(Transport& transport, const Login& login,
                             const json::object& manager) {
    if (Lists(manager)) return "";
    const Answer serviceData = transport.Get(kServiceData, login);
    const auto object = serviceData.IsSuccess() ? ReadObject(serviceData.body) : std::nullopt;
    if (object && Lists(*object)) return "";
    // Where there is an action, a GET is not allowed, or whatever else: 404 alone is sure.
    if (transport.Get(kTarget, login).httpCode != 404) return "";
    return "This BMC has no such operation as the export of service data (its manager lists none, "
           "and there is none at its usual place). It is of another make, or its firmware is too "
           "old.";
}

std::string MissingPrivilege(Transport& transport, const Login& login, const std::string& user,
                             const json::object& root) {
    const auto account = AccountOf(transport, login, user, root);
    const json::object* links = account ? ObjectMember(*account, "Links") : nullptr;
    const auto role =
        links == nullptr ? std::nullopt : Read(transport, login, LinkMember(*links, "Role"));
    if (!role || !ChangesNothing(*role)) return "";
    const std::string name = TextMember(*account, "RoleId");
    return "User \"" + Clean(user) + "\" may read on the BMC and nothing else" +
           (name.empty() ? "" : " (role " + name + ")") +
           "; it will refuse the export. Use an account with more rights.";
}

}  // namespace Kemffdc::Redfish
