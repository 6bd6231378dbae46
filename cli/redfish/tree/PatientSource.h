// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_TREE_PATIENTSOURCE_H
#define KEMFFDC_REDFISH_TREE_PATIENTSOURCE_H

#include <chrono>
#include <functional>
#include <string>

#include "cli/redfish/tree/Walker.h"

namespace Kemffdc::Redfish::Tree {

// A BMC as it is: it wants to be left alone for a while (503 or 429, with Retry-After), lets the
// login go, does not answer.
class PatientSource : public Source {
public:
    // What it works with. Each blocks.
    struct Ways {
        std::function<Answer(const std::string& path)> ask;
        std::function<void(std::chrono::seconds)> sleep;
    };

    explicit PatientSource(Ways ways) : m_ways(std::move(ways)) {}

    // Waits as the BMC says, for 1 to 60 s (5 where it does not say), up to five times.
    Answer Get(const std::string& path) override;

    // After three requests in a row without an answer, with 503 to the last or with 401; and at
    // once where the peer is not to be trusted.
    std::string Ended() const override { return m_ended; }

private:
    void Judge(const Answer& answer);

    const Ways m_ways;
    int m_failures = 0;  // in a row
    std::string m_ended;
};

}  // namespace Kemffdc::Redfish::Tree

#endif
