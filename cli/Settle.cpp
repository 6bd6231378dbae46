// SPDX-License-Identifier: Apache-2.0
#include "cli/Settle.h"

#include <set>
#include <vector>

#include "cli/Channels.h"
#include "cli/CommonOptions.h"

namespace Kemffdc {
namespace {

// One command's options, as they are settled.
class Settler {
public:
    Settler(const CommandEntry& command, const Line& line, const Surroundings& surroundings,
            Options& options)
        : m_command(command), m_line(line), m_surroundings(surroundings), m_options(options) {}

    // The order is that of an operator's reading: first what cannot stand there at all.
    std::string Settle() {
        m_options.command = m_command.command;
        std::string fault = RefuseEmpty();
        if (fault.empty() && m_command.onBmc) fault = FindWay();
        if (fault.empty()) fault = RefuseForeign();
        if (fault.empty()) fault = TakeArgument();
        if (fault.empty()) fault = TakeOptions();
        if (fault.empty() && m_channel != nullptr) fault = m_channel->complete(m_options);
        return fault;
    }

private:
    // No option means anything by an empty text; where one stands, a variable was not set.
    std::string RefuseEmpty() const {
        for (const auto& [name, text] : m_line.options) {
            if (text.empty()) return name + " is empty.";
        }
        return "";
    }

    std::string FindWay() {
        for (const Option& option : ViaOptions().options) {
            const std::string fault = Take(option);
            if (!fault.empty()) return fault;
        }
        const std::string& via = m_options.via;
        m_channel = via.empty() ? DefaultChannel() : FindChannel(via);
        if (m_channel == nullptr && via.empty()) {
            return "--via is missing: " + Listed(ChannelNames(), " or ") + ".";
        }
        if (m_channel == nullptr) return "--via" + NoneOf(via, ChannelNames());
        m_options.via = m_channel->name;
        return "";
    }

    // Who gives an option expects something of it.
    std::string RefuseForeign() const {
        for (const auto& [name, text] : m_line.options) {
            if (Fits(name)) continue;
            std::vector<std::string> takers;
            for (const Channel* channel : Channels()) {
                if (Holds(channel->options(), name)) takers.emplace_back(channel->name);
            }
            return name + " is an option of --via " + Listed(takers) + ".";
        }
        return "";
    }

    bool Fits(const std::string& name) const {
        return Holds(OwnGroups(m_command), name) ||
               (m_channel != nullptr && Holds(m_channel->options(), name));
    }

    std::string TakeArgument() {
        const std::string name = m_command.argument;
        const bool given = m_line.argument.has_value();
        if (m_channel != nullptr) {
            if (given && m_channel->host == Channel::Host::kNone) {
                return "--via " + m_options.via + " reaches this machine's own BMC: no " + name +
                       ".";
            }
            if (!given && m_channel->host == Channel::Host::kRequired)
                return name + " is required.";
        } else if (!given && m_command.takesArgument == CommandEntry::Argument::kRequired) {
            return name + " is required.";
        }
        if (!given) return "";
        const std::string fault = m_command.take(*m_line.argument, m_options);
        return fault.empty() ? "" : name + fault;
    }

    std::string TakeOptions() {
        for (const OptionGroup* group : AllGroups(m_command)) {
            for (const Option& option : group->options) {
                if (!TakesOption(m_command, option) || !Fits(option.name)) continue;
                const std::string fault = Take(option);
                if (!fault.empty()) return fault;
            }
        }
        return "";
    }

    // From where it counts most.
    std::string Take(const Option& option) {
        const auto given = m_line.options.find(option.name);
        if (given != m_line.options.end()) {
            return Take(option, {Origin::kCommandLine, given->second, option.name});
        }
        const char* text =
            *option.variable != '\0' ? m_surroundings.variable(option.variable) : nullptr;
        if (text != nullptr && *text != '\0') {
            return Take(option, {Origin::kEnvironment, text, option.variable});
        }
        return "";
    }

    std::string Take(const Option& option, const Setting& setting) {
        const std::string fault = option.reading.take(setting.text, m_options);
        if (!fault.empty()) return setting.place + fault;
        m_options.settings[option.name] = setting;
        return "";
    }

    const CommandEntry& m_command;
    const Line& m_line;
    const Surroundings& m_surroundings;
    Options& m_options;
    const Channel* m_channel = nullptr;  // null until it is found, and where the command has none
};

}  // namespace

std::string Settle(const CommandEntry& command, const Line& line, const Surroundings& surroundings,
                   Options& options) {
    return Settler(command, line, surroundings, options).Settle();
}

}  // namespace Kemffdc
