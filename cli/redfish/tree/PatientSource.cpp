// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/tree/PatientSource.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <ctime>

namespace Kemffdc::Redfish::Tree {
namespace {

using std::chrono::seconds;

constexpr int kMaxWaits = 5;
constexpr int kMaxFailures = 3;
constexpr seconds kUsualPause{5};
constexpr seconds kShortest{1};
constexpr seconds kLongest{60};

bool IsBusy(const Answer& answer) { return answer.httpCode == 503 || answer.httpCode == 429; }

}  // namespace

seconds PauseOf(const Answer& answer) {
    const std::string text = answer.Header("retry-after");
    long number = 0;
    const char* end = text.data() + text.size();
    if (text.empty()) return kUsualPause;
    if (const auto read = std::from_chars(text.data(), end, number); read.ptr != end) {
        const std::time_t date = curl_getdate(text.c_str(), nullptr);
        if (date == -1) return kUsualPause;
        number = static_cast<long>(date - std::time(nullptr));
    }
    return std::clamp(seconds(number), kShortest, kLongest);
}

Answer PatientSource::Get(const std::string& path) {
    Answer answer = m_ways.ask(path);
    for (int waits = 0; IsBusy(answer) && waits < kMaxWaits; ++waits) {
        m_ways.sleep(PauseOf(answer));
        answer = m_ways.ask(path);
    }
    if (answer.httpCode == 401 && !m_renewed) {
        m_renewed = true;
        if (m_ways.renew()) answer = m_ways.ask(path);
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
        m_ended = "The BMC has ended the session again, after it was made anew (HTTP 401).";
    } else if (silent) {
        m_ended = answer.reason;
    } else {
        m_ended =
            "The BMC stays too busy to answer (HTTP " + std::to_string(answer.httpCode) + ").";
    }
}

}  // namespace Kemffdc::Redfish::Tree
