// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Arguments.h"

#include <algorithm>
#include <boost/json.hpp>

#include "cli/OptionTable.h"
#include "cli/report/Json.h"

namespace Kemffdc::Fleet {

std::string ToJson(const Arguments& arguments) {
    boost::json::array array;
    for (const std::string& argument : arguments) array.emplace_back(argument);
    return JsonText(array);
}

Arguments FromJson(const std::string& text) {
    boost::system::error_code error;
    const boost::json::value value = boost::json::parse(text, error);
    if (error || !value.is_array()) return {};
    Arguments arguments;
    for (const boost::json::value& argument : value.get_array()) {
        if (!argument.is_string()) return {};
        arguments.emplace_back(argument.get_string());
    }
    return arguments;
}

std::string ValueOf(const Arguments& arguments, const std::string& option) {
    const std::string begin = option + "=";
    const auto found = std::find_if(
        arguments.begin(), arguments.end(),
        [&begin](const std::string& argument) { return argument.rfind(begin, 0) == 0; });
    return found == arguments.end() ? "" : found->substr(begin.size());
}

std::chrono::milliseconds PatienceOf(const Arguments& arguments) {
    std::int64_t seconds = Options().deadline;
    (void)kTime.take(ValueOf(arguments, "--deadline"), seconds);
    return std::chrono::seconds(seconds);
}

}  // namespace Kemffdc::Fleet
