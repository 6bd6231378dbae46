// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/WorkerProcess.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace {

using Kemffdc::Secret;
using Kemffdc::Fleet::WorkerProcess;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

// A worker that is a shell script.
class WorkerProcessTest : public testing::Test {
protected:
    void SetUp() override { (void)std::signal(SIGPIPE, SIG_IGN); }

    WorkerProcess& Start(const std::string& script, const std::string& hello = "hello") {
        worker = std::make_unique<WorkerProcess>(
            context, std::vector<std::string>{"/bin/sh", "-c", script, "worker"}, Secret(hello),
            WorkerProcess::Listener{[this](std::string line) { Heard(std::move(line)); },
                                    [this](const WorkerProcess::End& how) { end = how; }});
        return *worker;
    }

    // Until it has ended.
    void Run() {
        context.restart();
        context.run_for(std::chrono::seconds(20));
        ASSERT_TRUE(end) << "it has not ended";
    }

    boost::asio::io_context context;
    std::unique_ptr<WorkerProcess> worker;
    std::vector<std::string> lines;
    std::optional<WorkerProcess::End> end;
    std::function<void(const std::string&)> answer;

private:
    void Heard(std::string line) {
        if (answer) answer(line);
        lines.push_back(std::move(line));
    }
};

TEST_F(WorkerProcessTest, IsToldALineAndSaysLines) {
    Start("read line; echo \"told: $line\"; printf 'two\\nthree\\n'", R"({"password":"x"})");

    Run();

    EXPECT_THAT(lines, ElementsAre(R"(told: {"password":"x"})", "two", "three"));
    EXPECT_EQ(WEXITSTATUS(end->status), 0);
    EXPECT_EQ(end->errors, "");
}

TEST_F(WorkerProcessTest, IsToldALongLine) {
    Start("read line; echo ${#line}", std::string(300000, 'x'));

    Run();

    EXPECT_THAT(lines, ElementsAre("300000"));
}

TEST_F(WorkerProcessTest, ItsTurnIsALineMore) {
    Start("read a; echo turn; read b; echo \"$b\"; read c; echo \"end $?\"");
    answer = [this](const std::string& line) {
        if (line == "turn") worker->Tell("go");
        if (line == "go") worker->CloseInput();
    };

    Run();

    EXPECT_THAT(lines, ElementsAre("turn", "go", "end 1"));
}

TEST_F(WorkerProcessTest, ALineThatComesInPiecesIsOne) {
    Start("printf 'a'; sleep 0.1; printf 'b\\nc'; sleep 0.1; echo; echo d");

    Run();

    EXPECT_THAT(lines, ElementsAre("ab", "c", "d"));
}

TEST_F(WorkerProcessTest, HowItEndedIsTold) {
    Start("echo 'it hurts' >&2; exit 3");
    Run();
    EXPECT_EQ(WEXITSTATUS(end->status), 3);
    EXPECT_EQ(end->errors, "it hurts\n");

    end.reset();
    Start("kill -SEGV $$");
    Run();
    EXPECT_EQ(WTERMSIG(end->status), SIGSEGV);
}

TEST_F(WorkerProcessTest, OfItsErrorsTheEndIsKept) {
    Start("i=0; while [ $i -lt 5000 ]; do echo \"line $i\" >&2; i=$((i+1)); done");

    Run();

    EXPECT_THAT(end->errors, EndsWith("line 4999\n"));
    EXPECT_LE(end->errors.size(), 2048U);
}

TEST_F(WorkerProcessTest, ALineWithoutAnEndIsNotKept) {
    Start("exec head -c 50000000 /dev/zero");

    Run();

    EXPECT_TRUE(end->babbled);
    EXPECT_EQ(WTERMSIG(end->status), SIGKILL);
    EXPECT_THAT(lines, SizeIs(0));
}

TEST_F(WorkerProcessTest, ItIsKilledWithAllThatItHasStarted) {
    Start("sleep 300 & echo $!; wait");
    answer = [this](const std::string&) { worker->Kill(); };

    Run();

    EXPECT_EQ(WTERMSIG(end->status), SIGKILL);
    const pid_t child = std::stoi(lines.at(0));
    for (int tries = 0; tries < 200 && kill(child, 0) == 0; ++tries) usleep(10000);
    std::string state;
    // Where nobody takes orphans away it stays as a zombie.
    if (kill(child, 0) == 0) {
        FILE* status = fopen(("/proc/" + std::to_string(child) + "/stat").c_str(), "r");
        char letter = '?';
        if (status != nullptr && fscanf(status, "%*d %*s %c", &letter) == 1) state = letter;
        if (status != nullptr) fclose(status);
        EXPECT_EQ(state, "Z");
    }
}

TEST_F(WorkerProcessTest, WhoHoldsItsPipesOpenDoesNotHoldUpItsEnd) {
    Start("setsid sleep 300 & echo $!; exit 0");
    const auto begun = std::chrono::steady_clock::now();

    Run();

    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(10));
    kill(std::stoi(lines.at(0)), SIGKILL);
}

TEST_F(WorkerProcessTest, ItHasThreePipesAndNothingElseOfThisProcess) {
    const int ours = open("/dev/null", O_RDONLY);
    ASSERT_GE(fcntl(ours, F_DUPFD, 200), 200);
    WorkerProcess::Listener deaf;
    const WorkerProcess other(context, {"/bin/sh", "-c", "read a; read b"}, Secret("x"), deaf);
    Start("read line; exec ls /proc/self/fd");

    context.restart();
    while (!end && context.run_one_for(std::chrono::seconds(20)) > 0) {
    }
    close(ours);

    ASSERT_TRUE(end);
    // The fourth is the folder that is listed.
    EXPECT_THAT(lines, ElementsAre("0", "1", "2", "3"));
}

TEST_F(WorkerProcessTest, ItHasASessionOfItsOwnAndNoPassword) {
    setenv("KEMFFDC_PASSWORD", "s3cret", 1);
    setenv("KEMFFDC_OTHER", "plain", 1);
    Start("cut -d' ' -f6 /proc/$$/stat; echo $$; env");
    unsetenv("KEMFFDC_PASSWORD");
    unsetenv("KEMFFDC_OTHER");

    Run();

    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[0], lines[1]);
    EXPECT_THAT(lines, testing::Contains("KEMFFDC_OTHER=plain"));
    EXPECT_THAT(lines, testing::Each(Not(HasSubstr("s3cret"))));
}

TEST_F(WorkerProcessTest, AProgramThatCannotBeRunIsToldAtOnce) {
    try {
        const WorkerProcess none(context, {"/nonexistent/worker"}, Secret("x"), {});
        FAIL() << "it was started";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), ENOENT);
    }
}

TEST_F(WorkerProcessTest, AnObjectThatGoesTakesItsProcessAlong) {
    Start("echo $$; read a; read b; sleep 300");
    while (lines.empty() && context.run_one_for(std::chrono::seconds(20)) > 0) {
    }
    const pid_t process = std::stoi(lines.at(0));

    worker.reset();

    EXPECT_EQ(kill(process, 0), -1);
    EXPECT_FALSE(end);
    context.restart();
    context.run_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(end);
}

}  // namespace
