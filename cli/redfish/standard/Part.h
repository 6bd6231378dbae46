// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_STANDARD_PART_H
#define KEMFFDC_REDFISH_STANDARD_PART_H

#include <mutex>
#include <string>
#include <vector>

#include "cli/redfish/standard/Selection.h"
#include "cli/report/ChannelPart.h"
#include "cli/report/RunRecord.h"

namespace Kemffdc::Redfish {

// One collection of a run, as far as it has come.
struct Collected {
    Collection wanted;
    std::string entry;   // path of its log entry on the BMC
    DeliveredFile file;  // its path is empty unless it was delivered
    Outcome outcome;
};

// What the standard's action alone has to tell: the log services that offer it, and what was
// collected.
class StandardPart : public ChannelPart {
public:
    explicit StandardPart(LogServices services) : m_services(std::move(services)) {}

    void Add(const Collected& collected);

    void AddTo(boost::json::object& run) const override;
    void Write(std::ostream& out) const override;
    void WriteFound(std::ostream& out) const override;

private:
    const LogServices m_services;
    mutable std::mutex m_lock;
    std::vector<Collected> m_collected;
};

}  // namespace Kemffdc::Redfish

#endif
