// SPDX-License-Identifier: Apache-2.0
#include "cli/Completion.h"

#include <gmock/gmock.h>

#include <fstream>

#include "cli/Commands.h"
#include "cli/history/Store.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::Candidates;
using Kemffdc::Complete;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

std::vector<std::string> Texts(const std::vector<std::string>& words,
                               const Kemffdc::Surroundings& surroundings = {}) {
    std::vector<std::string> texts;
    for (const auto& candidate : Complete(words, surroundings).texts) {
        texts.push_back(candidate.text);
    }
    return texts;
}

TEST(Completion, TheFirstWordIsACommand) {
    EXPECT_THAT(Texts({"co"}), ElementsAre("collect", "config"));
    for (const Kemffdc::CommandEntry& command : Kemffdc::Commands()) {
        const std::string name = command.name;
        EXPECT_THAT(Texts({""}), Contains(name.substr(0, name.find(' '))));
    }
    EXPECT_THAT(Texts({"nonsense"}), IsEmpty());
    EXPECT_THAT(Texts({}), Contains("collect"));
}

TEST(Completion, ACommandsOptionsAreThoseThatItTakes) {
    EXPECT_THAT(Texts({"collect", "--ca"}), ElementsAre("--ca-file"));
    EXPECT_THAT(Texts({"check", "--name-t"}), IsEmpty()) << "collect alone names archives";
    EXPECT_THAT(Texts({"history", "--"}), Contains("--limit"));
    EXPECT_THAT(Texts({"collect", "--password"}), Not(Contains("--password_command")));
}

TEST(Completion, OptionsOfAnotherChannelAreNotOffered) {
    EXPECT_THAT(Texts({"collect", "--via", "redfish", "--"}), Contains("--log"));
    EXPECT_THAT(Texts({"collect", "--via", "ipmi", "--"}), Not(Contains("--log")));
    EXPECT_THAT(Texts({"collect", "--via=ipmi", "--"}), Contains("--cipher-suite"));
}

TEST(Completion, AnOptionsValueIsOneOfItsWords) {
    EXPECT_THAT(Texts({"collect", "--log", ""}), ElementsAre("mini", "full"));
    EXPECT_THAT(Texts({"collect", "--log=f"}), ElementsAre("--log=full"));
    EXPECT_THAT(Texts({"collect", "--via", "i"}), ElementsAre("ipmi"));
    EXPECT_THAT(Texts({"collect", "--unknown=f"}), IsEmpty());
}

TEST(Completion, APathIsTheShellsToComplete) {
    EXPECT_EQ(Complete({"collect", "--output", ""}, {}).paths, Candidates::Paths::kFolders);
    EXPECT_EQ(Complete({"collect", "--ca-file", ""}, {}).paths, Candidates::Paths::kFiles);
    EXPECT_EQ(Complete({"collect", "--port", ""}, {}).paths, Candidates::Paths::kNone);
    EXPECT_EQ(Complete({"collect", "--json", ""}, {}).paths, Candidates::Paths::kNone);
}

TEST(Completion, ThereIsOneArgumentAndNoOptionBehindTwoDashes) {
    EXPECT_EQ(Complete({"show", ""}, {}).paths, Candidates::Paths::kFiles);
    EXPECT_EQ(Complete({"show", "a.tgz", ""}, {}).paths, Candidates::Paths::kNone);
    EXPECT_THAT(Texts({"collect", "--", "--ca"}), IsEmpty());
}

TEST(Completion, HelpKnowsCommandsAndTopics) {
    EXPECT_THAT(Texts({"help", "ex"}), ElementsAre("exit-codes"));
    EXPECT_THAT(Texts({"help", "coll"}), ElementsAre("collect"));
}

TEST(Completion, HostsComeFromTheHistoryAndTheFiles) {
    const TempFolder folder;
    const std::string state = folder / "state";
    Kemffdc::History::RunRow run;
    run.command = "collect";
    run.toolVersion = "1.0.0";
    run.host = "bmc9.example";
    run.begunAt = "2026-01-31T23:59:58Z";
    const auto number = Kemffdc::History::Store(state).BeginRun(run);

    Kemffdc::Surroundings surroundings;
    surroundings.userFile = folder / "kemffdc.conf";
    std::ofstream(surroundings.userFile) << "hosts:\n  \"bmc7.example 10.1.*\":\n    via: ipmi\n";

    EXPECT_THAT(Texts({"collect", "--state-dir", state, ""}, surroundings),
                ElementsAre("bmc7.example", "bmc9.example"));
    EXPECT_THAT(Texts({"show", "--state-dir", state, ""}, surroundings),
                ElementsAre(std::to_string(number)));
    std::ofstream(surroundings.userFile) << "nonsense\n";
    EXPECT_THAT(Texts({"check", "--state-dir", state, ""}, surroundings),
                ElementsAre("bmc9.example"));
}

TEST(Completion, IsPrintedALineEach) {
    const Candidates candidates{{{"full", "all"}, {"mini", ""}}, Candidates::Paths::kFiles};
    EXPECT_EQ(Kemffdc::Printed(candidates), "full\tall\nmini\n:files\n");
    EXPECT_EQ(Kemffdc::Printed({}), "");
}

}  // namespace
