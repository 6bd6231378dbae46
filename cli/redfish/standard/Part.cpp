// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/standard/Part.h"

#include <boost/json.hpp>
#include <ostream>

#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

namespace json = boost::json;

json::array ListOf(const std::vector<std::string>& texts) {
    json::array list;
    for (const std::string& text : texts) list.push_back(TextValue(text));
    return list;
}

json::object ServiceObject(const LogService& service) {
    return {{"path", TextValue(Clean(service.path))},
            {"types", service.types ? json::value(ListOf(*service.types)) : nullptr},
            {"oem_types", ListOf(service.oemTypes)}};
}

json::object CollectedObject(const Collected& one) {
    const bool came = !one.file.path.empty();
    return {{"log_service", TextOrNull(Clean(one.wanted.service.path))},
            {"type", TextOrNull(one.wanted.type)},
            {"oem_type", TextOrNull(one.wanted.oemType)},
            {"entry", TextOrNull(Clean(one.entry))},
            {"path", TextOrNull(one.file.path)},
            {"size", came ? json::value(one.file.size) : nullptr},
            {"sha256", TextOrNull(one.file.sha256)},
            {"damage", TextOrNull(one.file.damage)},
            {"outcome", OutcomeName(one.outcome)},
            {"reason", TextOrNull(one.outcome.reason)}};
}

std::string Named(const Collection& wanted) {
    return wanted.oemType.empty() ? wanted.type : wanted.type + " (" + wanted.oemType + ")";
}

}  // namespace

void StandardPart::Add(const Collected& collected) {
    const std::lock_guard<std::mutex> hold(m_lock);
    m_collected.push_back(collected);
}

void StandardPart::AddTo(json::object& run) const {
    json::array services;
    for (const LogService& service : m_services.found) services.push_back(ServiceObject(service));
    json::array collections;
    const std::lock_guard<std::mutex> hold(m_lock);
    for (const Collected& one : m_collected) collections.push_back(CollectedObject(one));
    run["log_services"] = std::move(services);
    run["collections"] = std::move(collections);
}

// One alone stands in the run's own lines.
void StandardPart::Write(std::ostream& out) const {
    const std::lock_guard<std::mutex> hold(m_lock);
    if (m_collected.size() < 2) return;
    for (const Collected& one : m_collected) {
        out << "  " << Named(one.wanted) << " of " << Clean(one.wanted.service.path) << ": "
            << (one.file.path.empty() ? one.outcome.reason
                                      : one.file.path + ", " + HumanBytes(one.file.size))
            << "\n";
    }
}

void StandardPart::WriteFound(std::ostream& out) const {
    for (const LogService& service : m_services.found) {
        out << "Log service:     " << Described(service) << "\n";
    }
    if (!m_services.gap.empty()) {
        out << "Note: Not all log services could be looked at: " << m_services.gap << ".\n";
    }
}

}  // namespace Kemffdc::Redfish
