// SPDX-License-Identifier: Apache-2.0
#include "cli/terminal/Program.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>
#include <array>
#include <csignal>

#include "cli/terminal/Secret.h"
#include "support/TempFolder.h"

namespace {

using namespace std::chrono_literals;
using Kemffdc::Outcome;
using Kemffdc::RunProgram;
using Kemffdc::Secret;
using Kemffdc::TakeOutput;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;

std::string Take(const std::vector<std::string>& words, std::string& printed) {
    return TakeOutput(words, 100, 10s, printed);
}

std::string Printed(const std::vector<std::string>& words) {
    std::string printed;
    EXPECT_EQ(Take(words, printed), "");
    return printed;
}

TEST(TakeOutput, TakesWhatTheProgramPrintsAsItIs) {
    EXPECT_EQ(Printed({"printf", "%s", "  a b \n"}), "  a b \n");
    EXPECT_EQ(Printed({"true"}), "");
    EXPECT_EQ(Printed({"/bin/echo", "x"}), "x\n");
}

TEST(TakeOutput, NoShellTakesPart) {
    EXPECT_EQ(Printed({"printf", "%s", "$HOME `id` ; * > x"}), "$HOME `id` ; * > x");
}

TEST(TakeOutput, TheProgramHasNothingToRead) {
    std::array<int, 2> ends{-1, -1};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    ASSERT_EQ(write(ends[1], "of the tool", 11), 11);
    const int before = dup(STDIN_FILENO);
    dup2(ends[0], STDIN_FILENO);
    close(ends[1]);
    EXPECT_EQ(Printed({"cat"}), "");
    dup2(before, STDIN_FILENO);
    close(before);
    close(ends[0]);
}

TEST(TakeOutput, TheProgramSeesNoPasswordVariable) {
    setenv("KEMFFDC_PASSWORD", "hunter2", 1);
    setenv("KEMFFDC_EXPORT_PASSWORD", "hunter3", 1);
    setenv("KEMFFDC_OTHER", "seen", 1);
    EXPECT_EQ(Printed({"sh", "-c", "env | grep ^KEMFFDC_"}), "KEMFFDC_OTHER=seen\n");
}

// As in the tool, where these are blocked or ignored for its own sake.
TEST(TakeOutput, TheProgramCanBeEndedBySignals) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    (void)std::signal(SIGPIPE, SIG_IGN);
    std::string printed;
    EXPECT_EQ(Take({"sh", "-c", "kill -TERM $$; echo lived"}, printed), " was ended by signal 15.");
    EXPECT_EQ(Take({"sh", "-c", "kill -PIPE $$; echo lived"}, printed), " was ended by signal 13.");
    (void)std::signal(SIGPIPE, SIG_DFL);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(TakeOutput, AProgramThatFailsSaysHow) {
    std::string printed;
    EXPECT_EQ(Take({"sh", "-c", "echo hunter2; exit 3"}, printed), " ended with exit code 3.");
    EXPECT_EQ(Take({"/no/such/program"}, printed), " cannot be run: No such file or directory.");
    EXPECT_EQ(Take({"/"}, printed), " cannot be run: Permission denied.");
}

TEST(TakeOutput, AProgramThatHangsIsKilled) {
    std::string printed;
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(TakeOutput({"sh", "-c", "echo $$; exec sleep 60"}, 100, 300ms, printed),
              " has not ended within 1 s.");
    EXPECT_LT(Clock::now() - begin, 10s);
    EXPECT_NE(kill(std::stoi(printed), 0), 0) << "nothing is left of it";
}

TEST(TakeOutput, AProgramThatPrintsWithoutEndIsKilled) {
    std::string printed;
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(Take({"yes"}, printed), " prints too much.");
    EXPECT_LT(Clock::now() - begin, 5s);
    EXPECT_EQ(Take({"printf", "%0101d", "0"}, printed), " prints too much.");
    EXPECT_EQ(Printed({"printf", "%0100d", "0"}).size(), 100U);
}

TEST(TakeOutput, WhatTheProgramLeavesRunningIsNotWaitedFor) {
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(Printed({"sh", "-c", "sleep 5 & echo x"}), "x\n");
    EXPECT_LT(Clock::now() - begin, 4s);
}

class PasswordByCommand : public testing::Test {
protected:
    PasswordByCommand() { unsetenv("KEMFFDC_PASSWORD"); }

    Outcome Read(const std::vector<std::string>& command) {
        return ReadSecret({"", "KEMFFDC_PASSWORD", "Password: ", "--password-file", command, 10s},
                          m_secret);
    }
    Secret m_secret;
};

TEST_F(PasswordByCommand, IsTheFirstLine) {
    EXPECT_TRUE(Read({"printf", "a b \nuser: x\n"}).Ok());
    EXPECT_EQ(m_secret.Reveal(), "a b ");
    EXPECT_TRUE(Read({"printf", "word\r\n"}).Ok());
    EXPECT_EQ(m_secret.Reveal(), "word");
    EXPECT_TRUE(Read({"printf", "word"}).Ok());
    EXPECT_EQ(m_secret.Reveal(), "word");
}

TEST_F(PasswordByCommand, ThatFailsIsToldWithoutWhatItPrintedAndItsArguments) {
    const Outcome failed = Read({"sh", "-c", "echo hunter2; exit 7"});
    EXPECT_EQ(failed.code, Kemffdc::kLocalFile);
    EXPECT_EQ(failed.reason, "The password command sh ended with exit code 7.");
    const Outcome empty = Read({"echo"});
    EXPECT_EQ(empty.code, Kemffdc::kUsage);
    EXPECT_EQ(empty.reason, "The password from the password command echo is empty.");
}

TEST_F(PasswordByCommand, ComesBehindTheEnvironment) {
    setenv("KEMFFDC_PASSWORD", "variable", 1);
    EXPECT_TRUE(Read({"echo", "command"}).Ok());
    EXPECT_EQ(m_secret.Reveal(), "variable");
}

TEST(RunProgram, SpeaksOnStandardError) {
    TempFolder folder;
    const int before = dup(STDERR_FILENO);
    const int file = open((folder / "said").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
    dup2(file, STDERR_FILENO);
    const std::string why = RunProgram({"sh", "-c", "echo a; echo b >&2; cat"}, 10s);
    dup2(before, STDERR_FILENO);
    close(before);
    close(file);
    EXPECT_EQ(why, "");
    EXPECT_EQ(Content(folder / "said"), "a\nb\n");
}

TEST(RunProgram, SaysHowItFailed) {
    EXPECT_EQ(RunProgram({"false"}, 10s), " ended with exit code 1.");
    EXPECT_THAT(RunProgram({"/no/such/program"}, 10s), StartsWith(" cannot be run: "));
}

TEST(RunProgram, IsKilledAtItsLimit) {
    const Clock::time_point begun = Clock::now();
    EXPECT_EQ(RunProgram({"sleep", "60"}, 200ms), " has not ended within 1 s.");
    EXPECT_LT(Clock::now() - begun, 20s);
}

}  // namespace
