// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/Text.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <string_view>

#include "LogSink.h"
#include "shared/Utf8.h"

namespace Kemffdc {
namespace {

using Byte = unsigned char;

bool IsContinuation(const std::string& text, std::size_t at) {
    return at < text.size() && (static_cast<Byte>(text[at]) & 0xC0) == 0x80;
}

std::string LineEndsAsBlanks(std::string text) {
    for (char& c : text) {
        if (c == '\n' || c == '\r' || c == '\t') c = ' ';
    }
    return text;
}

// Of UTF-8, whatever the process's locale is: wcwidth(3) knows no other characters than that one's.
class Utf8Locale {
public:
    Utf8Locale() : m_before(uselocale(Utf8())) {}
    ~Utf8Locale() { (void)uselocale(m_before); }
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    // 0 where the system has none: the process's own stays.
    static locale_t Utf8() {
        static const locale_t kUtf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return kUtf8;
    }

    const locale_t m_before;
};

struct Measure {
    std::size_t bytes = 0;
    std::size_t columns = 0;
};

// Of as many characters from the first on as take at most `limit` columns.
Measure MeasureText(const std::string& text, std::size_t limit) {
    const Utf8Locale utf8;
    Measure measure;
    while (measure.bytes < text.size()) {
        const shared::Utf8Character next =
            shared::FirstUtf8(std::string_view(text).substr(measure.bytes));
        const int width = next.length == 0 ? 1 : wcwidth(static_cast<wchar_t>(next.code));
        const auto columns = static_cast<std::size_t>(width < 0 ? 1 : width);
        if (measure.columns + columns > limit) break;
        measure.columns += columns;
        measure.bytes += std::max<std::size_t>(next.length, 1);
    }
    return measure;
}

}  // namespace

std::string ValidUtf8(const std::string& text) {
    std::string valid;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = shared::FirstUtf8(std::string_view(text).substr(at)).length;
        valid += length == 0 ? "\xEF\xBF\xBD" : text.substr(at, length);
        at += length == 0 ? 1 : length;
    }
    return valid;
}

bool HasControl(const std::string& text) {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

std::string CutUtf8(const std::string& text, std::size_t bytes) {
    if (text.size() <= bytes) return text;
    std::size_t end = bytes;
    while (end > 0 && IsContinuation(text, end)) --end;
    return text.substr(0, end);
}

std::string Clean(const std::string& text, std::size_t limit) {
    // A secret may hold line ends, and must not be cut in two before it is found.
    const std::string open = LineEndsAsBlanks(Varnex::WithoutHiddenSecrets(text));
    std::string clean = Varnex::MaskedForDisplay(open);
    if (clean.size() <= limit) return clean;
    return CutUtf8(clean, limit) + "...";
}

std::size_t ColumnsOf(const std::string& text) {
    return MeasureText(text, std::string::npos).columns;
}

std::string CutToColumns(const std::string& text, std::size_t columns) {
    return text.substr(0, MeasureText(text, columns).bytes);
}

std::string FitToColumns(const std::string& text, std::size_t columns) {
    const Measure measure = MeasureText(text, columns);
    return text.substr(0, measure.bytes) + std::string(columns - measure.columns, ' ');
}

std::string HumanBytes(std::uint64_t bytes) {
    if (bytes < 1024) return std::to_string(bytes) + " B";
    constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB"};
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    while (value >= 1023.95 && unit + 1 < std::size(kUnits)) {
        value /= 1024;
        ++unit;
    }
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
    return text;
}

std::string Elapsed(std::chrono::milliseconds time) {
    const long long seconds = time.count() / 1000;
    char text[48];
    if (seconds < 3600) {
        (void)std::snprintf(text, sizeof text, "%lld:%02lld", seconds / 60, seconds % 60);
    } else {
        (void)std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", seconds / 3600,
                            seconds / 60 % 60, seconds % 60);
    }
    return text;
}

}  // namespace Kemffdc
