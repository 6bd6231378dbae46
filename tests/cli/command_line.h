// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TESTS_COMMAND_LINE_H
#define KEMFFDC_TESTS_COMMAND_LINE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/CommandLine.h"

// `kemffdc` with these arguments.
inline Kemffdc::Parsed Parse(const std::vector<std::string>& arguments,
                             const Kemffdc::Surroundings& surroundings = {}) {
    std::vector<const char*> argv{"kemffdc"};
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    return Kemffdc::ParseOptions(static_cast<int>(argv.size()), argv.data(), surroundings);
}

// The same, where there is nothing to refuse.
inline Kemffdc::Options Accepted(const std::vector<std::string>& arguments,
                                 const Kemffdc::Surroundings& surroundings = {}) {
    const Kemffdc::Parsed parsed = Parse(arguments, surroundings);
    EXPECT_TRUE(parsed.options.has_value()) << parsed.err;
    return parsed.options.value_or(Kemffdc::Options());
}

#endif
