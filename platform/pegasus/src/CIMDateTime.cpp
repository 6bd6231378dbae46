// SPDX-License-Identifier: Apache-2.0
#include <Pegasus/Common/CIMDateTime.h>

#include <Pegasus/Common/Exception.h>

#include <string_view>

#include "Text.h"

namespace Pegasus {

namespace {

// In both shapes "d" stands for a digit or "*".
constexpr std::string_view kTimeStamp = "dddddddddddddd.dddddd+ddd";
constexpr std::string_view kInterval = "dddddddddddddd.dddddd:000";

bool Matches(std::string_view text, std::string_view shape) {
    if (text.size() != shape.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool digit = c >= '0' && c <= '9';
        if (shape[i] == 'd'   ? !digit && c != '*'
            : shape[i] == '+' ? c != '+' && c != '-'
                              : c != shape[i]) {
            return false;
        }
    }
    return true;
}

// `text` holds no "*".
Sint64 Number(std::string_view text) {
    Sint64 number = 0;
    for (const char c : text) number = number * 10 + (c - '0');
    return number;
}

bool Within(std::string_view digits, Sint64 least, Sint64 most) {
    if (digits.find('*') != std::string_view::npos) return true;
    const Sint64 number = Number(digits);
    return number >= least && number <= most;
}

bool Legal(std::string_view text) {
    const bool interval = Matches(text, kInterval);
    if (!interval && !Matches(text, kTimeStamp)) return false;
    const bool date =
        interval || (Within(text.substr(4, 2), 1, 12) && Within(text.substr(6, 2), 1, 31));
    return date && Within(text.substr(8, 2), 0, 23) && Within(text.substr(10, 2), 0, 59) &&
           Within(text.substr(12, 2), 0, 59);
}

// Days since 1970-01-01 in the Gregorian calendar, extended to all years.
Sint64 DaysOf(Sint64 year, Sint64 month, Sint64 day) {
    const Sint64 shifted =
        month <= 2 ? year - 1 : year;  // years begin in March: leap days are last
    const Sint64 era = (shifted >= 0 ? shifted : shifted - 399) / 400;
    const Sint64 yearOfEra = shifted - era * 400;
    const Sint64 dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

// Microseconds of a time stamp, from 1970 in UTC; `text` holds no "*".
Sint64 Instant(std::string_view text) {
    const Sint64 days =
        DaysOf(Number(text.substr(0, 4)), Number(text.substr(4, 2)), Number(text.substr(6, 2)));
    const Sint64 offset = Number(text.substr(22, 3)) * (text[21] == '-' ? -1 : 1);
    const Sint64 minutes =
        (days * 24 + Number(text.substr(8, 2))) * 60 + Number(text.substr(10, 2)) - offset;
    return (minutes * 60 + Number(text.substr(12, 2))) * 1000000 + Number(text.substr(15, 6));
}

}  // namespace

CIMDateTime::CIMDateTime() : m_text("00000000000000.000000:000") {}

CIMDateTime::CIMDateTime(const String& text) : m_text(text) {
    if (!Legal(Internal::ToUtf8(text))) throw InvalidDateTimeFormatException(text);
}

Boolean CIMDateTime::isInterval() const { return StringUnits::Of(m_text)[21] == u':'; }

Boolean CIMDateTime::equal(const CIMDateTime& other) const {
    if (m_text == other.m_text) return true;
    const std::string a = Internal::ToUtf8(m_text);
    const std::string b = Internal::ToUtf8(other.m_text);
    const bool known = a.find('*') == std::string::npos && b.find('*') == std::string::npos;
    return known && !isInterval() && !other.isInterval() && Instant(a) == Instant(b);
}

}  // namespace Pegasus
