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

}  // namespace

CIMDateTime::CIMDateTime() : m_text("00000000000000.000000:000") {}

CIMDateTime::CIMDateTime(const String& text) : m_text(text) {
    if (!Legal(Internal::ToUtf8(text))) throw InvalidDateTimeFormatException(text);
}

}  // namespace Pegasus
