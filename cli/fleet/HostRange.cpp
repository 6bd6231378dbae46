// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/HostRange.h"

#include <fnmatch.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>
#include <set>
#include <unordered_map>

#include "Ipmanip.h"

namespace Kemffdc::Fleet {
namespace {

constexpr std::size_t kMaxDigits = 9;  // of a number in a range

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsNumber(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), IsDigit);
}

std::uint32_t NumberOf(const std::string& digits) {
    std::uint32_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

std::string Padded(std::uint32_t number, std::size_t width) {
    const std::string digits = std::to_string(number);
    return std::string(width - std::min(width, digits.size()), '0') + digits;
}

bool IsPadded(const std::string& digits) { return digits.size() > 1 && digits[0] == '0'; }

// Splits at commas that stand in no brackets.
std::vector<std::string> SplitAtCommas(const std::string& text) {
    std::vector<std::string> parts(1);
    int depth = 0;
    for (const char c : text) {
        if (c == '[') ++depth;
        if (c == ']') --depth;
        if (c == ',' && depth == 0) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

std::string Trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// "7", "001-400" or "0-98/2".
class Range {
public:
    bool Read(const std::string& text, std::string& error) {
        const std::size_t slash = text.find('/');
        const std::string numbers = text.substr(0, slash);
        const std::size_t dash = numbers.find('-');
        const std::string first = numbers.substr(0, dash);
        const std::string last = dash == std::string::npos ? first : numbers.substr(dash + 1);
        const std::string step = slash == std::string::npos ? "1" : text.substr(slash + 1);
        for (const std::string& number : {first, last, step}) {
            if (IsNumber(number) && number.size() <= kMaxDigits) continue;
            error = "\"" + text + "\" is neither a number nor a range of numbers like 1-40";
            return false;
        }
        m_first = NumberOf(first);
        m_last = NumberOf(last);
        m_step = NumberOf(step);
        m_width = IsPadded(first) ? first.size() : 0;
        const bool mixed = IsPadded(last) || m_width > 0;
        if (mixed && first.size() != last.size()) {
            error = "\"" + text + "\": both ends of a range with zeros in front have one width";
            return false;
        }
        if (m_first > m_last || m_step == 0) {
            error = "\"" + text + "\" counts nothing";
            return false;
        }
        return true;
    }

    std::size_t Count() const { return (m_last - m_first) / m_step + 1; }

    void AppendTo(std::vector<std::string>& numbers) const {
        for (std::size_t i = 0; i < Count(); ++i) {
            numbers.push_back(Padded(m_first + static_cast<std::uint32_t>(i) * m_step, m_width));
        }
    }

private:
    std::uint32_t m_first = 0;
    std::uint32_t m_last = 0;
    std::uint32_t m_step = 1;
    std::size_t m_width = 0;
};

std::string TooMany() { return "more than " + std::to_string(kMaxHosts) + " hosts"; }

// One name of an expression: texts, and between them the numbers that can stand there.
class Pattern {
public:
    bool Read(const std::string& name, std::string& error) {
        std::size_t at = 0;
        while (at < name.size()) {
            const std::size_t open = name.find_first_of("[]", at);
            m_pieces.push_back({name.substr(at, open - at)});
            if (open == std::string::npos) break;
            const std::size_t close = name.find_first_of("[]", open + 1);
            if (name[open] == ']' || close == std::string::npos || name[close] == '[') {
                error = "\"" + name + "\" has a bracket without its partner";
                return false;
            }
            if (!ReadRanges(name.substr(open + 1, close - open - 1), error)) return false;
            at = close + 1;
        }
        return true;
    }

    // Every combination, the last piece counting fastest.
    std::vector<std::string> Names() const {
        std::vector<std::string> names{""};
        for (const std::vector<std::string>& choices : m_pieces) {
            std::vector<std::string> longer;
            longer.reserve(names.size() * choices.size());
            for (const std::string& name : names) {
                for (const std::string& choice : choices) longer.push_back(name + choice);
            }
            names = std::move(longer);
        }
        return names;
    }

private:
    bool ReadRanges(const std::string& text, std::string& error) {
        std::vector<std::string> numbers;
        for (const std::string& part : SplitAtCommas(text)) {
            Range range;
            if (!range.Read(Trimmed(part), error)) return false;
            if (range.Count() > kMaxHosts - std::min(kMaxHosts, numbers.size())) {
                error = "\"[" + text + "]\" is " + TooMany();
                return false;
            }
            range.AppendTo(numbers);
        }
        m_count *= numbers.size();
        if (m_count > kMaxHosts) {
            error = TooMany();
            return false;
        }
        m_pieces.push_back(std::move(numbers));
        return true;
    }

    std::vector<std::vector<std::string>> m_pieces;
    std::size_t m_count = 1;
};

// Whether it is "[2001:db8::7]"; `host` receives it without the brackets.
bool IsBracketedAddress(const std::string& name, std::string& host) {
    if (name.size() < 3 || name.front() != '[' || name.back() != ']') return false;
    host = name.substr(1, name.size() - 2);
    return Ipmanip::is_ipv6(host);
}

// A name cut into texts (even places) and numbers (odd places).
std::vector<std::string> CutAtNumbers(const std::string& name) {
    std::vector<std::string> pieces(1);
    for (const char c : name) {
        if (IsDigit(c) != (pieces.size() % 2 == 0)) pieces.emplace_back();
        pieces.back() += c;
    }
    return pieces;
}

struct NumberOrder {
    bool operator()(const std::string& a, const std::string& b) const {
        const std::uint32_t left = NumberOf(a);
        const std::uint32_t right = NumberOf(b);
        return left != right ? left < right : a.size() < b.size();
    }
};
using Numbers = std::set<std::string, NumberOrder>;

// "001-017,020"; a single number alone.
std::string RangesOf(const Numbers& numbers) {
    struct Run {
        std::string first;
        std::string last;
    };
    std::vector<Run> runs;
    std::unordered_map<std::string, std::size_t> awaited;  // what would continue a run, and which
    for (const std::string& number : numbers) {
        const auto continued = awaited.find(number);
        const bool isNew = continued == awaited.end();
        const std::size_t at = isNew ? runs.size() : continued->second;
        if (isNew) {
            runs.push_back({number, number});
        } else {
            runs[at].last = number;
            awaited.erase(continued);
        }
        const std::string& first = runs[at].first;
        awaited[Padded(NumberOf(number) + 1, IsPadded(first) ? first.size() : 0)] = at;
    }
    std::string text;
    for (const Run& run : runs) {
        text += (text.empty() ? "" : ",") + run.first;
        if (run.first != run.last) text += "-" + run.last;
    }
    return text;
}

// Names of one shape: at each odd place, the numbers that can stand there.
using Block = std::vector<Numbers>;

// Joins blocks that differ in one place alone.
void JoinAt(std::size_t place, std::vector<Block>& blocks) {
    std::map<std::vector<std::vector<std::string>>, Numbers> joined;
    std::vector<std::vector<std::vector<std::string>>> order;
    for (const Block& block : blocks) {
        std::vector<std::vector<std::string>> others;
        for (std::size_t i = 0; i < block.size(); ++i) {
            others.emplace_back();
            if (i != place) others.back().assign(block[i].begin(), block[i].end());
        }
        Numbers& numbers = joined[others];
        if (numbers.empty()) order.push_back(others);
        numbers.insert(block[place].begin(), block[place].end());
    }
    std::vector<Block> result;
    for (const auto& others : order) {
        Block block;
        for (const auto& numbers : others) block.emplace_back(numbers.begin(), numbers.end());
        block[place] = joined[others];
        result.push_back(std::move(block));
    }
    blocks = std::move(result);
}

std::string TextOf(const std::vector<std::string>& texts, const Block& block) {
    std::string name = texts[0];
    for (std::size_t i = 0; i < block.size(); ++i) {
        const std::string ranges = RangesOf(block[i]);
        name += (IsNumber(ranges) ? ranges : "[" + ranges + "]") + texts[i + 1];
    }
    return name;
}

// Splits a name into the texts that names of its shape share, and its numbers.
void TakeApart(const std::string& name, std::vector<std::string>& texts, Block& numbers) {
    texts.assign(1, "");
    for (const std::string& piece : CutAtNumbers(name)) {
        if (!IsNumber(piece) || piece.size() > kMaxDigits) {
            texts.back() += piece;
        } else {
            numbers.push_back({piece});
            texts.emplace_back();
        }
    }
}

}  // namespace

bool ExpandHosts(const std::string& expression, std::vector<std::string>& hosts,
                 std::string& error) {
    std::vector<std::string> found;
    std::unordered_set<std::string> known;
    for (const std::string& part : SplitAtCommas(expression)) {
        const std::string name = Trimmed(part);
        std::string address;
        if (name.empty()) {
            error = "\"" + expression + "\" has an empty name between its commas";
            return false;
        }
        std::vector<std::string> names;
        if (IsBracketedAddress(name, address)) {
            names = {address};
        } else {
            Pattern pattern;
            if (!pattern.Read(name, error)) return false;
            names = pattern.Names();
        }
        for (std::string& host : names) {
            if (known.insert(host).second) found.push_back(std::move(host));
        }
        if (found.size() > kMaxHosts) {
            error = TooMany();
            return false;
        }
    }
    hosts = std::move(found);
    return true;
}

std::string FoldHosts(const std::vector<std::string>& hosts) {
    std::map<std::vector<std::string>, std::vector<Block>> shapes;
    for (const std::string& host : std::set<std::string>(hosts.begin(), hosts.end())) {
        std::vector<std::string> texts;
        Block numbers;
        if (Ipmanip::is_ipv6(host)) {
            texts = {"[" + host + "]"};
        } else {
            TakeApart(host, texts, numbers);
        }
        shapes[texts].push_back(std::move(numbers));
    }
    std::string text;
    for (auto& [texts, blocks] : shapes) {
        for (std::size_t place = texts.size() - 1; place-- > 0;) JoinAt(place, blocks);
        for (const Block& block : blocks) {
            text += (text.empty() ? "" : ",") + TextOf(texts, block);
        }
    }
    return text;
}

bool HostFilter::Read(const std::string& text, std::string& error) {
    for (const std::string& part : SplitAtCommas(text)) {
        const std::string name = Trimmed(part);
        if (name.find_first_of("*?") != std::string::npos) {
            m_patterns.push_back(name);
            continue;
        }
        std::vector<std::string> hosts;
        if (!ExpandHosts(name, hosts, error)) return false;
        m_hosts.insert(hosts.begin(), hosts.end());
    }
    return true;
}

bool HostFilter::Matches(const std::string& host) const {
    return m_hosts.count(host) > 0 ||
           std::any_of(m_patterns.begin(), m_patterns.end(), [&](const std::string& pattern) {
               return fnmatch(pattern.c_str(), host.c_str(), 0) == 0;
           });
}

}  // namespace Kemffdc::Fleet
