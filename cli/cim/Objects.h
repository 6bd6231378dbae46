// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CIM_OBJECTS_H
#define KEMFFDC_CIM_OBJECTS_H

#include <boost/json/fwd.hpp>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include "cli/report/ChannelPart.h"

namespace Kemffdc::Cim {

// A data object that a BMC exports by itself. Texts are free of secrets and fit for display.
struct ExportedObject {
    enum class State {
        kRunning,  // the BMC gathers or uploads
        kExported,
        kSkipped,   // of a type that is never exported
        kRefused,   // ExportData returned something other than success
        kFailed,    // it did not return
        kNotTried,  // an earlier one ended the run
    };
    std::string path;
    std::string type;  // its DataCollectionType; empty where it has none
    State state = State::kRunning;
    std::string returned;  // what ExportData returned, where it was refused
    double seconds = 0;
};

// What the channel has to tell about a run: its data objects.
class ObjectList : public ChannelPart {
public:
    // What has become of the object with this number, counted from 0.
    void Set(std::size_t number, const ExportedObject& object);

    void AddTo(boost::json::object& run) const override;  // "objects"
    void Write(std::ostream& out) const override;

private:
    mutable std::mutex m_lock;
    std::vector<ExportedObject> m_objects;
};

}  // namespace Kemffdc::Cim

#endif
