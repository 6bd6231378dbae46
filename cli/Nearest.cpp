// SPDX-License-Identifier: Apache-2.0
#include "cli/Nearest.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

namespace Kemffdc {
namespace {

constexpr std::size_t kLongest = 64;  // bytes; who writes more has not mistyped an option

bool SameLetter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
}

// The optimal string alignment distance.
std::size_t Mistakes(const std::string& a, const std::string& b) {
    std::vector<std::size_t> beforeLast(b.size() + 1);
    std::vector<std::size_t> last(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t other = SameLetter(a[i - 1], b[j - 1]) ? 0 : 1;
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + other});
            const bool exchanged =
                i > 1 && j > 1 && SameLetter(a[i - 1], b[j - 2]) && SameLetter(a[i - 2], b[j - 1]);
            if (exchanged) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
        std::swap(beforeLast, last);
        std::swap(last, row);
    }
    return last[b.size()];
}

// "user" of "--user".
std::string Letters(const std::string& word) {
    return word.substr(std::min(word.find_first_not_of('-'), word.size()));
}

}  // namespace

std::string Nearest(const std::string& given, const std::vector<std::string>& known) {
    const std::string word = Letters(given);
    if (word.size() > kLongest) return "";
    std::string nearest;
    std::size_t fewest = (word.size() + 2) / 3 + 1;
    for (const std::string& candidate : known) {
        const std::size_t mistakes = Mistakes(word, Letters(candidate));
        if (mistakes >= fewest || mistakes >= word.size()) continue;
        fewest = mistakes;
        nearest = candidate;
    }
    return nearest;
}

std::string DidYouMean(const std::string& given, const std::vector<std::string>& known) {
    const std::string nearest = Nearest(given, known);
    return nearest.empty() ? "" : " Did you mean " + nearest + "?";
}

}  // namespace Kemffdc
