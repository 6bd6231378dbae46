// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "cli/redfish/Reference.h"
#include "cli/redfish/standard/DataHead.h"
#include "cli/redfish/standard/Entries.h"
#include "cli/redfish/standard/Reply.h"
#include "cli/redfish/standard/Selection.h"
#include "cli/redfish/standard/Walk.h"

namespace Kemffdc::Redfish {
namespace {

using ::testing::HasSubstr;

Answer Answered(long code, const std::string& body = "",
                const std::map<std::string, std::string>& headers = {}) {
    Answer answer;
    answer.httpCode = code;
    answer.body = body;
    answer.headers = headers;
    return answer;
}

// --- replies
// --------------------------------------------------------------------------------------

struct ReplyRow {
    Answer answer;
    Reply::State state;
    const char* because;
};

TEST(StandardReply, EachFormOfAnswerIsKnown) {
    using State = Reply::State;
    const ReplyRow rows[] = {
        {Answered(202, "", {{"location", "/redfish/v1/x"}}), State::kRunning, "a monitor"},
        {Answered(202, R"({"TaskState": "Completed", "@odata.id": "/redfish/v1/T/1"})"),
         State::kRunning, "the operation's own answer is to come"},
        {Answered(200, R"({"TaskState": "Suspended"})"), State::kRunning, "it may be resumed"},
        {Answered(200, R"({"TaskState": "Interrupted"})"), State::kRunning, "it starts again"},
        {Answered(200, R"({"TaskState": "Cancelled"})"), State::kFailed, "it has ended"},
        {Answered(200, R"({"TaskState": "Dreaming"})"), State::kFailed,
         "nobody knows such a state"},
        {Answered(200, R"({"TaskState": "Completed"})"), State::kDone, "it names nothing"},
        {Answered(200, R"({"TaskState": "Completed", "Links": {"CreatedResources": [
             {"@odata.id": "/redfish/v1/E/1"}]}})"),
         State::kNamed, "a link"},
        {Answered(200, R"({"TaskState": "Completed", "Payload": {"HttpHeaders": [
             "X: y", "location:  /redfish/v1/E/1"]}})"),
         State::kNamed, "a header of the operation's own answer"},
        {Answered(200, R"({"AdditionalDataURI": "/x"})"), State::kEntry, "the entry"},
        {Answered(201, "", {{"location", "/redfish/v1/E/1"}}), State::kNamed, "its place"},
        {Answered(200, R"({"@Message.ExtendedInfo": []})"), State::kDone, "a message"},
        {Answered(200, "", {{"location", "/redfish/v1/E/1"}}), State::kDone, "names no new thing"},
        {Answered(204), State::kDone, "no content"},
        {Answered(200, "<html>"), State::kUnreadable, "no JSON"},
        {Answered(404), State::kForgotten, "no such task"},
        {Answered(410), State::kForgotten, "gone"},
        {Answered(503), State::kBusy, "busy"},
        {Answered(400), State::kRefused, "refused"},
    };
    for (const ReplyRow& row : rows) {
        EXPECT_EQ(static_cast<int>(ReadReply(row.answer).state), static_cast<int>(row.state))
            << row.because;
    }
    Answer none;
    none.failedAt = Stage::kConnect;
    EXPECT_EQ(static_cast<int>(ReadReply(none).state), static_cast<int>(State::kNoAnswer));
}

TEST(StandardReply, RetryAfterIsSecondsOrADate) {
    const std::string now = "Sun, 22 Nov 2026 04:00:00 GMT";
    const struct {
        const char* text;
        int seconds;  // -1: none
    } rows[] = {{"7", 7},
                {"0", 0},
                {"", -1},
                {"soon", -1},
                {"-4", 0},
                {"99999", 3600},
                {"Sun, 22 Nov 2026 04:00:30 GMT", 30},
                {"Sun, 22 Nov 2026 03:00:00 GMT", 0}};
    for (const auto& row : rows) {
        const auto pause =
            RetryAfter(Answered(503, "", {{"retry-after", row.text}, {"date", now}}));
        EXPECT_EQ(pause ? static_cast<int>(pause->count()) : -1, row.seconds) << row.text;
    }
}

// --- references
// -----------------------------------------------------------------------------------

TEST(StandardReference, LeadsToThisServiceOrIsToldAsAnotherPlace) {
    const Endpoint service{"bmc7.example", false, 443, true};
    const struct {
        const char* reference;
        const char* target;
        const char* other;
    } rows[] = {
        {"/redfish/v1/E/1/attachment", "/redfish/v1/E/1/attachment", ""},
        {"attachment", "/redfish/v1/E/attachment", ""},
        {"https://bmc7.example/dump", "/dump", ""},
        {"https://BMC7.example:443/dump", "/dump", ""},
        {"https://192.0.2.7/dump", "/dump", ""},
        {"https://192.0.2.8/dump", "", "https://192.0.2.8:443"},
        {"https://bmc7.example:8443/dump", "", "https://bmc7.example:8443"},
        {"http://bmc7.example/dump", "", "http://bmc7.example:80"},
        {"//evil.example/dump", "", "https://evil.example:443"},
        {"/a/../../dump", "/dump", ""},
        {"/dump?id=7", "/dump?id=7", ""},
        {"?id=7&file=/a/b.bin", "/redfish/v1/E/1?id=7&file=/a/b.bin", ""},
        {"https://evil.example/dump?id=7", "", "https://evil.example:443"},
        {"", "", ""},
    };
    for (const auto& row : rows) {
        const Reference found = Resolve(row.reference, "/redfish/v1/E/1", service, "192.0.2.7");
        EXPECT_EQ(found.Target(), row.target) << row.reference;
        EXPECT_EQ(found.path.find('?'), std::string::npos) << row.reference;
        EXPECT_EQ(found.other, row.other) << row.reference;
    }
    const Endpoint six{"2001:db8::7", true, 443, true};
    EXPECT_EQ(Resolve("https://[2001:db8::7]/d", "/x", six, "").path, "/d");
}

// --- walks and entries
// ----------------------------------------------------------------------------

// A service whose resources are these; what is not there answers 404.
struct Service {
    std::map<std::string, std::string> resources;
    int asked = 0;

    Ask ByPath() {
        return [this](const std::string& path) {
            ++asked;
            const auto found = resources.find(path);
            return found == resources.end() ? Answered(404) : Answered(200, found->second);
        };
    }
};

int MembersIn(Walk& walk, const std::string& path) {
    int count = 0;
    walk.Members(path, [&](const boost::json::object&) { ++count; });
    return count;
}

TEST(StandardWalk, PagesThatLeadBackEnd) {
    Service service{
        {{"/redfish/v1/L",
          R"({"Members": [{}, {}], "Members@odata.nextLink": "/redfish/v1/L?$skip=2"})"},
         {"/redfish/v1/L?$skip=2",
          R"({"Members": [{}], "Members@odata.nextLink": "/redfish/v1/L"})"}}};
    Walk walk(service.ByPath());
    EXPECT_EQ(MembersIn(walk, "/redfish/v1/L"), 3);
    EXPECT_EQ(walk.Gap(), "the pages lead in a circle");
    EXPECT_EQ(service.asked, 2);
}

TEST(StandardWalk, PagesWithoutEndAreCountedAndLeft) {
    int page = 0;
    const Ask endless = [&page](const std::string&) {
        const std::string next = "/redfish/v1/L?$skip=" + std::to_string(++page);
        return Answered(200, R"({"Members": [{}], "Members@odata.nextLink": ")" + next + R"("})");
    };
    Walk walk(endless, {7, std::size_t{1} << 20, std::chrono::seconds(60)});
    EXPECT_EQ(MembersIn(walk, "/redfish/v1/L"), 7);
    EXPECT_EQ(walk.Gap(), "more than 7 resources");
}

TEST(StandardWalk, BytesAreCountedToo) {
    Service service{{{"/redfish/v1/a", "{\"x\": \"" + std::string(5000, 'x') + "\"}"},
                     {"/redfish/v1/b", "{}"}}};
    Walk walk(service.ByPath(), {9, 4096, std::chrono::seconds(60)});
    EXPECT_TRUE(walk.Read("/redfish/v1/a"));
    EXPECT_FALSE(walk.Read("/redfish/v1/b"));
    EXPECT_THAT(walk.Gap(), HasSubstr("4.0 KiB"));
}

boost::json::object Object(const std::string& text) { return boost::json::parse(text).as_object(); }

TEST(StandardEntries, TellSizeHashTimeAndWhereElseTheDataMayBe) {
    const auto entry = ReadEntry(Object(R"({
        "@odata.id": "/redfish/v1/E/4", "@odata.type": "#LogEntry.v1_11_0.LogEntry",
        "AdditionalDataSizeBytes": 12, "Created": "2026-11-22T05:00:00+01:00", "Message": "Ready.",
        "Oem": {"Maker": {"@odata.type": "#x", "Sha-256": ")" +
                                        std::string(64, 'A') + R"("}}})"));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->size, 12U);
    EXPECT_EQ(entry->sha256, std::string(64, 'a'));
    EXPECT_EQ(entry->created, 1795320000);
    EXPECT_THAT(entry->hint, HasSubstr("Ready."));
    EXPECT_FALSE(ReadEntry(Object(R"({"Message": "no entry"})")));
}

constexpr char kLog[] = "/redfish/v1/L";

// A log with entries "number, time, further members".
Service LogOf(const std::vector<std::array<std::string, 3>>& entries) {
    std::string members;
    for (const auto& [number, time, more] : entries) {
        members += (members.empty() ? "" : ",") +
                   (R"({"@odata.type": "#LogEntry.v1_1_0.LogEntry", "@odata.id": "/redfish/v1/L/)" +
                    number + R"(", "Created": ")" + time + "\"" + more + "}");
    }
    return {{{kLog, R"({"Members": [)" + members + "]}"}}};
}

const std::string kData = R"(, "DiagnosticDataType": "Manager", "AdditionalDataURI": "/d")";
constexpr char kEarly[] = "2026-11-22T04:00:00Z";
constexpr char kLate[] = "2026-11-22T05:00:00Z";
constexpr std::time_t kBetween = 1795321800;  // 04:30

std::string Found(Service service, const NewEntry& wanted) {
    Walk walk(service.ByPath());
    const auto entry = FindNewEntry(walk, kLog, wanted);
    return entry ? entry->path.substr(entry->path.rfind('/') + 1) : "";
}

TEST(StandardEntries, TheNewOneIsWhatWasNotThere) {
    Service before = LogOf({{"1", kEarly, kData}});
    Walk walk(before.ByPath());
    const EntryList known = ListEntries(walk, kLog);
    const NewEntry wanted{&known, kBetween, "Manager", ""};
    EXPECT_EQ(Found(before, wanted), "");
    // Whatever the BMC's clock says.
    EXPECT_EQ(Found(LogOf({{"1", kEarly, kData}, {"2", kEarly, kData}}), wanted), "2");
    // A log that has wrapped gives the same number again.
    EXPECT_EQ(Found(LogOf({{"1", kLate, kData}}), wanted), "1");
    // An event of another kind has no data, another type is somebody else's.
    EXPECT_EQ(Found(LogOf({{"1", kEarly, kData}, {"2", kLate, ""}}), wanted), "");
    EXPECT_EQ(
        Found(LogOf({{"2", kLate, R"(, "DiagnosticDataType": "OS", "AdditionalDataURI": "/d")"}}),
              wanted),
        "");
}

TEST(StandardEntries, WhereNobodyKnowsWhatWasThereTheTimeTells) {
    const NewEntry wanted{nullptr, kBetween, "", ""};
    EXPECT_EQ(Found(LogOf({{"1", kEarly, kData}, {"2", kLate, kData}}), wanted), "2");
    EXPECT_EQ(Found(LogOf({{"1", kEarly, kData}}), wanted), "");
    EXPECT_EQ(Found(LogOf({{"1", "", kData}}), wanted), "") << "it may be as old as the BMC";
    const EntryList partly{{}, "more than 300 resources"};
    EXPECT_EQ(Found(LogOf({{"1", kEarly, kData}}), {&partly, kBetween, "", ""}), "")
        << "it may have been there, unseen";
}

TEST(StandardEntries, OfSeveralTheNewestIsMeant) {
    EXPECT_EQ(Found(LogOf({{"3", kLate, kData}, {"2", kEarly, kData}}), {nullptr, 0, "", ""}), "3");
}

// --- selection
// ------------------------------------------------------------------------------------

LogService Offering(const std::string& name, std::optional<std::vector<std::string>> types,
                    std::vector<std::string> oemTypes = {}) {
    return {"/redfish/v1/" + name, name, "/redfish/v1/" + name + "/go", "", std::move(types),
            std::move(oemTypes)};
}

std::string Chosen(const LogServices& services, const ChannelOptions& wishes) {
    std::string text;
    for (const Collection& one : Select(services, wishes).collections) {
        text += (text.empty() ? "" : " ") + one.service.name + ":" + one.type +
                (one.oemType.empty() ? "" : "/" + one.oemType);
    }
    return text;
}

TEST(StandardSelection, FollowsTheDocumentedOrder) {
    const LogServices services{
        {Offering("A", {{"OS", "Manager"}}), Offering("B", {{"OEM", "PreOS"}}, {"X", "Y"}),
         Offering("C", std::nullopt)},
        ""};
    ChannelOptions wishes;
    EXPECT_EQ(Chosen(services, wishes), "B:OEM/X");
    wishes.miniLog = true;
    EXPECT_EQ(Chosen(services, wishes), "A:Manager");
    wishes.allTypes = true;
    EXPECT_EQ(Chosen(services, wishes), "A:Manager B:PreOS A:OS B:OEM/X B:OEM/Y C:Manager");
    wishes = {};
    wishes.oemType = "Y";
    EXPECT_EQ(Chosen(services, wishes), "B:OEM/Y");
    wishes = {};
    wishes.logService = "/redfish/v1/C";
    EXPECT_EQ(Chosen(services, wishes), "C:Manager");
    wishes.diagnosticType = "CPER";
    EXPECT_EQ(Chosen(services, wishes), "C:CPER") << "who names it knows it";
    EXPECT_THAT(Select(services, wishes).note, HasSubstr("does not tell which types"));
}

TEST(StandardSelection, AnOemTypeThatIsNotListedIsTakenByNameAlone) {
    const LogServices services{{Offering("A", {{"OEM"}})}, ""};
    ChannelOptions wishes;
    EXPECT_EQ(Chosen(services, wishes), "");
    wishes.oemType = "Q";
    EXPECT_EQ(Chosen(services, wishes), "A:OEM/Q");
}

TEST(StandardSelection, WhatIsNotOfferedIsToldWithTheList) {
    ChannelOptions wishes;
    wishes.diagnosticType = "OS";
    EXPECT_EQ(Select({{Offering("A", {{"Manager", "OEM"}}, {"X"})}, ""}, wishes).fault,
              "This BMC does not offer diagnostic data of the type OS. It offers /redfish/v1/A: "
              "Manager, OEM (X).");
    EXPECT_THAT(Select({{}, "it takes longer than 60 s"}, wishes).fault,
                HasSubstr("Not all could be looked at: it takes longer than 60 s."));
}

// --- heads
// ----------------------------------------------------------------------------------------

TEST(StandardDataHead, TellsTypeNameAndHash) {
    const std::string digest = "47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=";  // of nothing
    const DataHead head = ReadHead(
        Answered(200, "",
                 {{"content-type", "application/zip; charset=binary"},
                  {"content-disposition", "attachment; filename*=UTF-8''a%2F..%2Fdump%207.zip"},
                  {"repr-digest", "md5=:x:, sha-256=:" + digest + ":"}}));
    EXPECT_EQ(head.contentType, "application/zip");
    EXPECT_EQ(head.fileName, "dump 7.zip");
    EXPECT_EQ(head.sha256, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(ReadHead(Answered(200, "", {{"digest", "SHA-256=" + digest}})).sha256, head.sha256);
    EXPECT_EQ(ReadHead(Answered(200, "", {{"repr-digest", "sha-256=:short:"}})).sha256, "");
    EXPECT_EQ(ReadHead(Answered(405, "", {{"content-type", "x"}})).contentType, "");
}

}  // namespace
}  // namespace Kemffdc::Redfish
