// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_STANDARD_WALK_H
#define KEMFFDC_REDFISH_STANDARD_WALK_H

#include <boost/json.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <string>

#include "cli/http/Transport.h"

namespace Kemffdc::Redfish {

// How one resource is asked for, by its path.
using Ask = std::function<Answer(const std::string& path)>;

struct WalkBounds {
    int requests = 300;
    std::size_t bytes = std::size_t{32} << 20;
    std::chrono::seconds time{60};  // no request is begun later
};

// Reads resources of a Redfish service, each one once and all of them within bounds: no BMC keeps
// the tool busy for ever, and circles of links end. Blocks for the time, and for what one request
// takes.
class Walk {
public:
    using Visit = std::function<void(const boost::json::object& member)>;

    explicit Walk(Ask ask, const WalkBounds& bounds = {});

    // Nothing where it has been read before, cannot be read, or a bound is reached.
    std::optional<boost::json::object> Read(const std::string& path);

    // The members of a collection as they stand there, links or whole resources, page by page
    // (DSP0266, "Members@odata.nextLink").
    void Members(const std::string& path, const Visit& visit);

    // Why not all was read, fit for display, without an end mark; empty: all was. The first reason
    // counts.
    const std::string& Gap() const { return m_gap; }

private:
    bool IsWithinBounds();
    void Miss(const std::string& why);

    const Ask m_ask;
    const WalkBounds m_bounds;
    const std::chrono::steady_clock::time_point m_end;
    int m_requests = 0;
    std::size_t m_bytes = 0;
    std::set<std::string> m_seen;
    std::string m_gap;
};

}  // namespace Kemffdc::Redfish

#endif
