// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/tree/PatientSource.h"

#include <algorithm>

#include "cli/redfish/standard/Reply.h"

namespace Kemffdc::Redfish::Tree {
namespace {

using std::chrono::seconds;

constexpr int kMaxWaits = 5;
constexpr int kMaxFailures = 3;
constexpr seconds kUsualPause{5};
constexpr seconds kShortest{1};
constexpr seconds kLongest{60};

seconds PauseOf(const Answer& answer) {
    return std::clamp(RetryAfter(answer).value_or(kUsualPause), kShortest, kLongest);
}

bool IsBusy(const Answer& answer) { return answer.httpCode == 503 || answer.httpCode == 429; }

}  // namespace

Answer PatientSource::Get(const std::string& path) {
    Answer answer = m_ways.ask(path);
    for (int waits = 0; IsBusy(answer) && waits < kMaxWaits; ++waits) {
        m_ways.sleep(PauseOf(answer));
        answer = m_ways.ask(path);
    }
    Judge(answer);
    return answer;
}

void PatientSource::Judge(const Answer& answer) {
    const bool silent = answer.failedAt != Stage::kDone && !answer.tooLong;
    const bool refused = answer.httpCode == 401;
    m_failures = silent || refused || IsBusy(answer) ? m_failures + 1 : 0;
    if (answer.failedAt == Stage::kTrust) m_ended = answer.reason;
    if (m_failures < kMaxFailures || !m_ended.empty()) return;
    if (refused) {
        m_ended = "The BMC does not accept the login any more (HTTP 401).";
    } else if (silent) {
        m_ended = answer.reason;
    } else {
        m_ended =
            "The BMC stays too busy to answer (HTTP " + std::to_string(answer.httpCode) + ").";
    }
}

}  // namespace Kemffdc::Redfish::Tree
