// SPDX-License-Identifier: Apache-2.0
#include "cli/Nearest.h"

#include <gtest/gtest.h>

namespace {

using Kemffdc::Nearest;

struct Row {
    const char* given;
    const char* nearest;
    const char* why;
};

TEST(Nearest, FindsWhatMayHaveBeenMeant) {
    const std::vector<std::string> known{"--user",         "--output", "--tries",
                                         "--cipher-suite", "cim",      "ipmi"};
    const Row rows[] = {
        {"--usr", "--user", "a letter too few"},
        {"--userr", "--user", "one too many"},
        {"--usar", "--user", "another letter"},
        {"--tires", "--tries", "two exchanged count once"},
        {"--cypher_suit", "--cipher-suite", "three mistakes in eleven letters"},
        {"--OUTPUT", "--output", "case does not count"},
        {"-user", "--user", "dashes do not count"},
        {"cmi", "cim", "exchanged in a short word, which counts once"},
        {"impi", "ipmi", "in four letters"},
        {"--colour", "", "nothing is near"},
        {"x", "", "one letter may be anything"},
        {"", "", "nothing may be anything"},
        {"cam", "cim", "one in three"},
        {"cab", "", "two in three"},
    };
    for (const Row& row : rows) EXPECT_EQ(Nearest(row.given, known), row.nearest) << row.why;
}

TEST(Nearest, AWordWithoutEndIsNotCompared) {
    EXPECT_EQ(Nearest(std::string(1000000, 'u'), {"--user", std::string(1000000, 'v')}), "");
}

TEST(DidYouMean, IsASentenceOrNothing) {
    EXPECT_EQ(Kemffdc::DidYouMean("impi", {"ipmi"}), " Did you mean ipmi?");
    EXPECT_EQ(Kemffdc::DidYouMean("pigeon", {"ipmi"}), "");
}

}  // namespace
