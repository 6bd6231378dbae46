// SPDX-License-Identifier: Apache-2.0
#include "cli/RecordTable.h"

#include <charconv>
#include <cstring>

namespace Kemffdc {

bool Matches(const RecordPattern& pattern, const Varnex::LogRecord& record) {
    const std::size_t begin = std::strlen(pattern.begin);
    const std::size_t end = std::strlen(pattern.end);
    const std::string& text = record.text;
    return record.level == pattern.level && std::strcmp(record.sourceFile, pattern.source) == 0 &&
           text.size() >= begin + end && text.compare(0, begin, pattern.begin) == 0 &&
           text.compare(text.size() - end, end, pattern.end) == 0;
}

std::string Between(const RecordPattern& pattern, const Varnex::LogRecord& record) {
    const std::size_t begin = std::strlen(pattern.begin);
    return record.text.substr(begin, record.text.size() - begin - std::strlen(pattern.end));
}

int NumberBehind(const std::string& text, const std::string& label, int missing) {
    const std::size_t found = text.find(label);
    if (found == std::string::npos) return missing;
    const char* first = text.data() + found + label.size();
    while (first != text.data() + text.size() && *first == ' ') ++first;
    int number = missing;
    std::from_chars(first, text.data() + text.size(), number);
    return number;
}

std::string RestBehind(const std::string& text, const std::string& label) {
    const std::size_t found = text.find(label);
    return found == std::string::npos ? "" : text.substr(found + label.size());
}

}  // namespace Kemffdc
