// SPDX-License-Identifier: Apache-2.0
#include "cli/OptionTable.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "cli/Nearest.h"
#include "cli/terminal/Text.h"

namespace Kemffdc {
namespace {

constexpr char kExport[] = "export_";  // these members of kemffdc.conf stand below `export:`

struct Unit {
    const char* letter;
    std::uint64_t factor;
};

// A number that may have a unit.
struct Quantity {
    std::vector<Unit> units;  // the largest first, without letter last
    std::uint64_t most;
    const char* notOne;  // what to write instead of one that cannot be read
};
const Quantity kTimes{{{"h", 3600}, {"m", 60}, {"s", 1}, {"", 1}},
                      std::uint64_t{365} * 24 * 3600,
                      "\" is no time; write 90s, 45m or 2h, at most 8760h."};
const Quantity kSizes{{{"T", std::uint64_t{1} << 40},
                       {"G", std::uint64_t{1} << 30},
                       {"M", std::uint64_t{1} << 20},
                       {"K", std::uint64_t{1} << 10},
                       {"", 1}},
                      std::uint64_t{1} << 60,
                      "\" is no size; write 500M or 16G, at most 1048576T."};

bool SameWord(const std::string& a, const std::string& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

template <class T>
std::string TakeQuantity(const Quantity& quantity, const std::string& text, T& value) {
    std::uint64_t number = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    const std::string letter(read.ptr, end);
    const auto unit =
        std::find_if(quantity.units.begin(), quantity.units.end(),
                     [&letter](const Unit& one) { return SameWord(one.letter, letter); });
    const bool readable = read.ec == std::errc() && unit != quantity.units.end();
    if (!readable || number > quantity.most / unit->factor) {
        return ": \"" + text + quantity.notOne;
    }
    value = static_cast<T>(number * unit->factor);
    return "";
}

std::string ShowQuantity(const Quantity& quantity, std::uint64_t value) {
    if (value == 0) return "0";
    const auto unit = std::find_if(quantity.units.begin(), quantity.units.end(),
                                   [value](const Unit& one) { return value % one.factor == 0; });
    return std::to_string(value / unit->factor) + unit->letter;
}

std::string TakeText(const std::string& text, std::string& value) {
    if (HasControl(text)) return " holds control bytes.";
    value = text;
    return "";
}

std::string TakeFlag(const std::string& text, bool& value) {
    if (text != "true" && text != "false") return ": \"" + text + "\" is neither true nor false.";
    value = text == "true";
    return "";
}

}  // namespace

const Kind<std::string> kText{TakeText, [](const std::string& value) { return value; }};
const Kind<bool> kFlag{TakeFlag, [](const bool& value) { return value ? "true" : "false"; }};
const Kind<std::int64_t> kTime{
    [](const std::string& text, std::int64_t& value) { return TakeQuantity(kTimes, text, value); },
    [](const std::int64_t& value) {
        return ShowQuantity(kTimes, static_cast<std::uint64_t>(value));
    }};
const Kind<std::uint64_t> kSize{
    [](const std::string& text, std::uint64_t& value) { return TakeQuantity(kSizes, text, value); },
    [](const std::uint64_t& value) { return ShowQuantity(kSizes, value); }};

Kind<std::int64_t> NumberFrom(std::int64_t least, std::int64_t most) {
    return {[least, most](const std::string& text, std::int64_t& value) -> std::string {
                std::int64_t number = 0;
                const char* end = text.data() + text.size();
                const auto read = std::from_chars(text.data(), end, number);
                const bool whole = read.ec == std::errc() && read.ptr == end;
                if (!whole || number < least || number > most) {
                    return ": \"" + text + "\" is no number from " + std::to_string(least) +
                           " to " + std::to_string(most) + ".";
                }
                value = number;
                return "";
            },
            [](const std::int64_t& value) { return std::to_string(value); }};
}

std::string NoneOf(const std::string& text, const std::vector<std::string>& known) {
    return ": \"" + text + "\" is none of " + Listed(known) + "." + DidYouMean(text, known);
}

std::string Listed(const std::vector<std::string>& words, const char* last) {
    std::string text = words.empty() ? "" : words.front();
    for (std::size_t i = 1; i < words.size(); ++i) {
        text += (i + 1 == words.size() ? last : ", ") + words[i];
    }
    return text;
}

std::string Joined(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
    return text;
}

bool Holds(const OptionGroups& groups, const std::string& option) {
    for (const OptionGroup* group : groups) {
        for (const Option& one : group->options) {
            if (option == one.name) return true;
        }
    }
    return false;
}

std::string Option::Label() const {
    std::string label = name;
    label.erase(0, label.find_first_not_of('-'));
    std::replace(label.begin(), label.end(), '-', '_');
    if (label.rfind(kExport, 0) == 0) label[sizeof kExport - 2] = '.';
    return label;
}

std::string Option::Member() const { return where == Where::kLine ? "" : Label(); }

}  // namespace Kemffdc
