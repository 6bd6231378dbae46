// SPDX-License-Identifier: Apache-2.0
#include "cli/cim/Objects.h"

#include <boost/json.hpp>
#include <chrono>
#include <ostream>
#include <utility>

#include "cli/report/Json.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Cim {
namespace {

namespace json = boost::json;
using State = ExportedObject::State;

const char* StateName(State state) {
    switch (state) {
        case State::kRunning:
            return "not-ended";
        case State::kExported:
            return "exported";
        case State::kSkipped:
            return "skipped";
        case State::kRefused:
            return "refused";
        case State::kFailed:
            return "failed";
        case State::kNotTried:
            return "not-tried";
    }
    return "unknown";
}

json::value ReturnValue(const ExportedObject& object) {
    if (object.state == State::kExported) return "0";
    if (object.state == State::kRefused) return TextValue(object.returned);
    return nullptr;
}

json::object JsonOf(const ExportedObject& object) {
    return {{"path", TextOrNull(object.path)},
            {"collection_type", TextOrNull(object.type)},
            {"outcome", StateName(object.state)},
            {"return_value", ReturnValue(object)},
            {"seconds", Seconds(object.seconds)}};
}

}  // namespace

void ObjectList::Set(std::size_t number, const ExportedObject& object) {
    const std::lock_guard<std::mutex> hold(m_lock);
    if (m_objects.size() <= number) m_objects.resize(number + 1);
    m_objects[number] = object;
}

void ObjectList::AddTo(json::object& run) const {
    const std::lock_guard<std::mutex> hold(m_lock);
    json::array objects;
    for (const ExportedObject& object : m_objects) objects.push_back(JsonOf(object));
    run["objects"] = std::move(objects);
}

void ObjectList::Write(std::ostream& out) const {
    const std::lock_guard<std::mutex> hold(m_lock);
    for (const ExportedObject& object : m_objects) {
        const bool skipped = object.state == State::kSkipped;
        const std::chrono::milliseconds time(static_cast<long long>(object.seconds * 1000));
        out << "  " << object.path;
        if (!object.type.empty()) out << ", type " << object.type;
        out << (skipped ? ": skipped, objects of this type are never exported"
                        : ": uploaded by the BMC in " + Elapsed(time))
            << "\n";
    }
}

}  // namespace Kemffdc::Cim
