// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Task.h"

#include <gmock/gmock.h>

namespace {

using Kemffdc::Task;
using Kemffdc::TaskMessage;
using Kemffdc::Redfish::BmcSays;
using Kemffdc::Redfish::IsRefusedByStore;
using Kemffdc::Redfish::NewestMessage;
using Kemffdc::Redfish::ReadTask;
using Kemffdc::Redfish::TaskUri;
using testing::HasSubstr;

TEST(TaskUri, IsThePathThatTheLibraryFollows) {
    EXPECT_EQ(TaskUri(R"({"Id":"7"})", false), "/redfish/v1/TaskService/Tasks/7");
    EXPECT_EQ(TaskUri(R"({"Id":"7"})", true), "/redfish/v1/Tasks/Tasks/7");
    EXPECT_EQ(TaskUri(R"({"Id":12})", false), "/redfish/v1/TaskService/Tasks/12");
    for (const char* none : {"", "{}", "[]", R"({"Id":""})", R"({"Id":null})"}) {
        EXPECT_EQ(TaskUri(none, false), "") << none;
    }
}

TEST(ReadTask, TakesWhatTheBmcSaysAsItIs) {
    const auto task = ReadTask("/t", R"({
        "TaskState": "Exception", "TaskStatus": "Critical", "PercentComplete": 40,
        "Messages": [
            {"MessageId": "Base.1.12.InternalError", "Message": "It failed.",
             "MessageSeverity": "Critical", "Severity": "OK", "Resolution": "Try again."},
            {"MessageId": "A.B", "Severity": "Warning"}]})");
    ASSERT_TRUE(task);
    EXPECT_EQ(task->uri, "/t");
    EXPECT_EQ(task->state, "Exception");
    EXPECT_EQ(task->status, "Critical");
    EXPECT_EQ(task->percent, 40);
    ASSERT_EQ(task->messages.size(), 2U);
    EXPECT_EQ(task->messages[0].severity, "Critical") << "the newer member counts";
    EXPECT_EQ(task->messages[0].resolution, "Try again.");
    EXPECT_EQ(task->messages[1].severity, "Warning");
    EXPECT_EQ(task->messages[1].text, "");
}

TEST(ReadTask, OddMembersAreMissingOnes) {
    for (const char* percent : {"-1", "101", "\"40\"", "40.5", "1e99", "null", "{}"}) {
        const auto task = ReadTask("/t", std::string(R"({"PercentComplete":)") + percent + "}");
        ASSERT_TRUE(task) << percent;
        EXPECT_EQ(task->percent, std::nullopt) << percent;
    }
    const auto task = ReadTask("/t", R"({"TaskState":null,"Messages":[7,null,{}, "x"]})");
    ASSERT_TRUE(task);
    EXPECT_EQ(task->state, "");
    EXPECT_EQ(task->messages.size(), 1U);
    EXPECT_FALSE(ReadTask("/t", "<html>"));
    EXPECT_FALSE(ReadTask("/t", "[]"));
}

TEST(ReadTask, OfVeryManyMessagesTheNewestCount) {
    std::string body = R"({"Messages":[)";
    for (int i = 0; i < 1000; ++i) body += R"({"Message":")" + std::to_string(i) + R"("},)";
    body.back() = ']';
    const auto task = ReadTask("/t", body + "}");
    ASSERT_EQ(task->messages.size(), 64U);
    EXPECT_EQ(task->messages.back().text, "999");
}

TEST(ReadTask, LeavesNothingThatATerminalWouldObey) {
    const auto task =
        ReadTask("/t", R"({"TaskState":"\u001b[2J","Messages":[{"Message":"a\nb"}]})");
    EXPECT_EQ(task->state, "\\x1B[2J");
    EXPECT_EQ(task->messages[0].text, "a b");
}

TEST(BmcSays, TheWorstMessagesWithTheFigures) {
    Task task{"/t", "Exception", "Critical", 40, {}};
    EXPECT_EQ(BmcSays(task), " The BMC shows TaskState Exception, TaskStatus Critical, 40 %.");
    task.messages = {{"A.1", "Started.", "OK", "None."},
                     {"A.2", "No space.", "Critical", "Make room."},
                     {"A.3", "Stopped.", "OK", ""}};
    EXPECT_EQ(BmcSays(task),
              " The BMC says (TaskState Exception, TaskStatus Critical, 40 %): \"No "
              "space.\" (A.2), advice: \"Make room.\".");
    task.messages.pop_back();
    task.messages.pop_back();
    EXPECT_THAT(BmcSays(task), HasSubstr(": \"Started.\" (A.1).")) << "where none is bad";
}

TEST(BmcSays, AtMostThreeOfThem) {
    Task task;
    for (const char* text : {"one", "two", "three", "four"}) {
        task.messages.push_back({"", text, "Warning", ""});
    }
    EXPECT_EQ(BmcSays(task), " The BMC says: \"two\"; \"three\"; \"four\".");
}

TEST(BmcSays, NothingWhereItSaysNothing) {
    EXPECT_EQ(BmcSays(Task{"/t", "", "", {}, {}}), "");
    EXPECT_EQ(BmcSays(Task{"/t", "", "", {}, {{"", "", "", ""}}}), "");
}

TEST(IsRefusedByStore, GoesByTheStandardsMessages) {
    Task task;
    EXPECT_FALSE(IsRefusedByStore(task));
    task.messages = {TaskMessage{"Base.1.12.InternalError", "", "", ""}};
    EXPECT_FALSE(IsRefusedByStore(task));
    task.messages.push_back({"Base.1.8.ResourceAtUriUnauthorized", "", "", ""});
    EXPECT_TRUE(IsRefusedByStore(task));
    EXPECT_TRUE(IsRefusedByStore({"", "", "", {}, {{"CouldNotEstablishConnection", "", "", ""}}}));
}

TEST(NewestMessage, IsTheLastOnesTextOrItsId) {
    EXPECT_EQ(NewestMessage({}), "");
    EXPECT_EQ(NewestMessage({"", "", "", 40, {{"A", "old", "", ""}, {"B", "new", "", ""}}}), "new");
    EXPECT_EQ(NewestMessage({"", "", "", {}, {{"A.1.Packing", "", "", ""}}}), "A.1.Packing");
}

}  // namespace
