// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_OPTIONTABLE_H
#define KEMFFDC_OPTIONTABLE_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "cli/Options.h"

namespace Kemffdc {

// How the text of an option becomes a value, and a value a text again.
struct Reading {
    using Take = std::function<std::string(const std::string& text, Options& options)>;
    using TakeWords =
        std::function<std::string(const std::vector<std::string>& words, Options& options)>;
    using Show = std::function<std::string(const Options& options)>;

    // What is wrong with the text, as it follows the option's name (": \"x\" is no number ...",
    // " holds control bytes."); empty: it has been taken. It depends on nothing but the text.
    Take take;
    Show show;                            // the value as `take` would read it; empty: there is none
    bool path = false;                    // kemffdc.conf: "~/" stands for the home folder
    TakeWords takeWords = nullptr;        // instead of `take`: a program and its arguments
    std::vector<std::string> words = {};  // all there are to take; empty: other texts
};

// Who may give an option.
enum class Where {
    kLine,    // the command line alone
    kAnyhow,  // the command line and kemffdc.conf
    kFile,    // kemffdc.conf alone
};

// Which commands on a BMC know it.
enum class Use {
    kReach,   // collect and check: it says how the BMC is reached
    kGather,  // collect alone
};

// All there is to say about one option, in one entry: command line, kemffdc.conf, environment, help
// and `kemffdc config` read it here.
struct Option {
    const char* name;   // "--cipher-suite"; without the dashes: in kemffdc.conf alone
    const char* value;  // what stands for its value in help, "N"; empty: a flag
    const char* brief;  // what it does, in help; without an end mark
    Reading reading;
    Where where = Where::kLine;
    Use use = Use::kReach;
    bool usual = false;               // --help shows it too, which has to fit a screen
    const char* variable = "";        // of the environment, that holds the same text; empty: none
    const char* secretVariable = "";  // of the environment, that stands for it: holds the password
    const char* oneOf = "";           // of those with the same word the one counts that is said
                                      // nearest to the command line; empty: it has no rivals
    bool single = false;              // of a run on one BMC: a fleet has its own, or none
    const char* letter = "";          // the same in short, "-g"; empty: there is none

    bool IsFlag() const { return *value == '\0'; }
    bool OnLine() const { return where != Where::kFile; }
    // As kemffdc.conf writes its name: "cipher_suite", "export.uri".
    std::string Label() const;
    // That name, where it may stand there; else empty.
    std::string Member() const;
};

// Options that belong together: help shows them under one title. A channel or a command names the
// groups that it takes.
struct OptionGroup {
    const char* title;  // "File store"
    std::vector<Option> options;
};
using OptionGroups = std::vector<const OptionGroup*>;

bool Holds(const OptionGroups& groups, const std::string& option);

// ": \"x\" is none of a, b and c. Did you mean a?"
std::string NoneOf(const std::string& text, const std::vector<std::string>& known);
// "redfish, ipmi and kcs", with " or " instead of " and " if asked.
std::string Listed(const std::vector<std::string>& words, const char* last = " and ");
std::string Joined(const std::vector<std::string>& words, const char* between);

// How texts of one kind are read into a value, and values shown. The first returns what is wrong,
// as Reading::take does, and changes the value only on success.
template <class T>
struct Kind {
    std::function<std::string(const std::string& text, T& value)> take;
    std::function<std::string(const T& value)> show;
};

extern const Kind<std::string> kText;    // no control bytes
extern const Kind<bool> kFlag;           // "true", "false"
extern const Kind<std::int64_t> kTime;   // "90s", "45m", "2h"; in seconds
extern const Kind<std::uint64_t> kSize;  // "500M", "16G"; in bytes
Kind<std::int64_t> NumberFrom(std::int64_t least, std::int64_t most);

// The part of the options that has the member: Options itself, or a struct of a channel's own.
template <class Owner>
Owner& Part(Options& options) {
    if constexpr (std::is_same_v<Owner, Options>) {
        return options;
    } else {
        return options.own.Of<Owner>();
    }
}
template <class Owner>
const Owner& Part(const Options& options) {
    if constexpr (std::is_same_v<Owner, Options>) {
        return options;
    } else {
        return options.own.Of<Owner>();
    }
}

// The reading of a member of Options, or of a struct of a channel's own, as texts of that kind.
template <class Owner, class T>
Reading Of(T Owner::*member, const Kind<T>& kind) {
    Reading reading;
    reading.take = [member, kind](const std::string& text, Options& options) {
        return kind.take(text, Part<Owner>(options).*member);
    };
    reading.show = [member, kind](const Options& options) {
        return kind.show(Part<Owner>(options).*member);
    };
    return reading;
}

template <class Owner>
Reading Text(std::string Owner::*member) {
    return Of(member, kText);
}
template <class Owner>
Reading Path(std::string Owner::*member) {
    Reading reading = Of(member, kText);
    reading.path = true;
    return reading;
}
template <class Owner>
Reading Flag(bool Owner::*member) {
    return Of(member, kFlag);
}
template <class Owner>
Reading Time(std::int64_t Owner::*member) {
    return Of(member, kTime);
}
template <class Owner>
Reading Size(std::uint64_t Owner::*member) {
    return Of(member, kSize);
}

// A whole number, into a member of any integer type.
template <class Owner, class T>
Reading Number(T Owner::*member, std::int64_t least, std::int64_t most) {
    const Kind<std::int64_t> number = NumberFrom(least, most);
    const Kind<T> kind{[number](const std::string& text, T& value) {
                           std::int64_t wide = 0;
                           std::string fault = number.take(text, wide);
                           if (fault.empty()) value = static_cast<T>(wide);
                           return fault;
                       },
                       [](const T& value) { return std::to_string(value); }};
    return Of(member, kind);
}
template <class Owner, class T>
Reading Number(std::optional<T> Owner::*member, std::int64_t least, std::int64_t most) {
    const Kind<std::int64_t> number = NumberFrom(least, most);
    const Kind<std::optional<T>> kind{
        [number](const std::string& text, std::optional<T>& value) {
            std::int64_t wide = 0;
            std::string fault = number.take(text, wide);
            if (fault.empty()) value = static_cast<T>(wide);
            return fault;
        },
        [](const std::optional<T>& value) { return value ? std::to_string(*value) : ""; }};
    return Of(member, kind);
}

// One of some words that stand for values.
template <class Owner, class T>
Reading Choice(T Owner::*member, const std::vector<std::pair<std::string, T>>& words) {
    const Kind<T> kind{[words](const std::string& text, T& value) {
                           std::vector<std::string> known;
                           for (const auto& [word, meant] : words) {
                               if (word == text) {
                                   value = meant;
                                   return std::string();
                               }
                               known.push_back(word);
                           }
                           return NoneOf(text, known);
                       },
                       [words](const T& value) {
                           for (const auto& [word, meant] : words) {
                               if (meant == value) return word;
                           }
                           return std::string();
                       }};
    Reading reading = Of(member, kind);
    for (const auto& [word, meant] : words) reading.words.push_back(word);
    return reading;
}

// A program and its arguments; in kemffdc.conf alone. The arguments are not shown: somebody may
// have written a password there.
template <class Owner>
Reading CommandWords(std::vector<std::string> Owner::*member) {
    Reading reading;
    reading.takeWords = [member](const std::vector<std::string>& words, Options& options) {
        Part<Owner>(options).*member = words;
        return std::string();
    };
    reading.show = [member](const Options& options) {
        const std::vector<std::string>& words = Part<Owner>(options).*member;
        return (words.empty() ? "" : words.front()) + (words.size() > 1 ? " ..." : "");
    };
    return reading;
}

}  // namespace Kemffdc

#endif
