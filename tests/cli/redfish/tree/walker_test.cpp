// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/tree/Walker.h"

#include <gmock/gmock.h>

#include "redfish/tree/FakeService.h"

namespace {

using Kemffdc::Redfish::Tree::Bounds;
using Kemffdc::Redfish::Tree::Walker;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr char kRoot[] = "/redfish/v1/";
const Kemffdc::Redfish::Tree::Service kService{{"192.0.2.1", false, 443, true}, ""};
constexpr char kLog[] = "/redfish/v1/Log/Entries";

std::string Resource(const std::string& members = "") {
    return R"({"Id":"x","Name":"x")" + (members.empty() ? "" : "," + members) + "}";
}

std::string Entry(int number) {
    return R"({"@odata.id":"/redfish/v1/Log/Entries/)" + std::to_string(number) +
           R"(","@odata.type":"#LogEntry.v1_9_0.LogEntry","Id":")" + std::to_string(number) + "\"}";
}

std::string Bare(int number) {
    return FakeService::Link(std::string(kLog) + "/" + std::to_string(number));
}

std::string Page(const std::vector<std::string>& members, const std::string& next = "") {
    std::string text = R"({"Name":"x","Members":[)";
    for (std::size_t at = 0; at < members.size(); ++at) text += (at == 0 ? "" : ",") + members[at];
    text += "]";
    if (!next.empty()) text += R"(,"Members@odata.nextLink":")" + next + "\"";
    return text + "}";
}

class TreeWalker : public testing::Test {
protected:
    // The service root, which links to each of these.
    void RootLeadsTo(const std::vector<std::string>& paths, const std::string& more = "") {
        std::string members = R"("X":[)";
        for (std::size_t at = 0; at < paths.size(); ++at) {
            members += (at == 0 ? "" : ",") + FakeService::Link(paths[at]);
        }
        bmc.Has(kRoot, Resource(members + "]" + more));
    }

    void Walk() {
        Walker walker(bmc, archive, kService, bounds,
                      [this] { return bmc.asked.size() >= stopAfter; });
        walker.Run();
        counts = walker.Counts();
        trouble.clear();
        for (const auto& one : walker.Trouble()) trouble.push_back(one.path + ": " + one.reason);
    }

    FakeService bmc;
    FakeArchive archive;
    Bounds bounds;
    std::size_t stopAfter = static_cast<std::size_t>(-1);
    Kemffdc::Archives::TreeCounts counts;
    std::vector<std::string> trouble;
};

TEST_F(TreeWalker, ReadsEachResourceOnceAndNearestFirst) {
    RootLeadsTo({"/redfish/v1/Systems", "/redfish/v1/Chassis/"});
    bmc.Has("/redfish/v1/Systems", Page({FakeService::Link("/redfish/v1/Systems/1")}));
    bmc.Has("/redfish/v1/Systems/1",
            Resource(R"("Links":{"Chassis":[{"@odata.id":"/redfish/v1/Chassis"}]})"));
    bmc.Has("/redfish/v1/Chassis", Resource(R"("Back":{"@odata.id":"/redfish/v1"})"));
    Walk();

    EXPECT_THAT(bmc.asked, ElementsAre(kRoot, "/redfish/v1/Systems", "/redfish/v1/Chassis",
                                       "/redfish/v1/Systems/1"));
    EXPECT_THAT(archive.Names(),
                ElementsAre("redfish/v1/Chassis/index.json", "redfish/v1/Systems/1/index.json",
                            "redfish/v1/Systems/index.json", "redfish/v1/index.json"));
    EXPECT_EQ(counts.resources, 4U);
    EXPECT_EQ(counts.requests, 4U);
    EXPECT_THAT(trouble, IsEmpty());
}

TEST_F(TreeWalker, FollowsNothingThatLeadsAway) {
    RootLeadsTo({"https://192.0.2.9/redfish/v1/A", "//192.0.2.9/redfish/v1/B", "/other",
                 "/redfish/../x", "/redfish/v1/D?only", "https://192.0.2.1:443/redfish/v1/Good",
                 "https://192.0.2.1:4430/redfish/v1/Bad", "/redfish/v1/C#/Fans/0"});
    bmc.HasElse([](const std::string&) { return Resource(); });
    Walk();

    EXPECT_THAT(bmc.asked, ElementsAre(kRoot, "/redfish/v1/Good", "/redfish/v1/C"));
    EXPECT_THAT(trouble, SizeIs(6));
    EXPECT_THAT(
        trouble,
        Contains(
            "https://192.0.2.9/redfish/v1/A: The link in /redfish/v1/ leads to another host."));
    EXPECT_EQ(counts.unread, 6U);
}

TEST_F(TreeWalker, DoesNotAskForAccountsSessionsCertificatesAndKeys) {
    RootLeadsTo(
        {"/redfish/v1/AccountService", "/redfish/v1/SessionService/Sessions",
         "/redfish/v1/Managers/1/NetworkProtocol/HTTPS/Certificates", "/redfish/v1/KeyService",
         "/redfish/v1/Registries", "/redfish/v1/EventService/Subscriptions"},
        R"(,"Certificates":{"@odata.id":"/redfish/v1/Elsewhere"})");
    Walk();

    EXPECT_THAT(bmc.asked, ElementsAre(kRoot));
    EXPECT_EQ(counts.leftOut, 7U);
}

TEST_F(TreeWalker, LeavesThemOutWhereverTheyLie) {
    RootLeadsTo({"/redfish/v1/People/7", "/redfish/v1/M"});
    bmc.Has(
        "/redfish/v1/People/7",
        R"({"@odata.type":"#ManagerAccount.v1_9_0.ManagerAccount","Id":"7","UserName":"olga"})");
    bmc.Has(
        "/redfish/v1/M",
        Resource(
            R"("Deep":[{"@odata.id":"/redfish/v1/S/1","@odata.type":"#Session.v1_5_0.Session","UserName":"olga"}])"));
    Walk();

    EXPECT_THAT(archive.Names(), ElementsAre("redfish/v1/M/index.json", "redfish/v1/index.json"));
    EXPECT_THAT(archive.files["redfish/v1/M/index.json"], Not(HasSubstr("olga")));
    EXPECT_EQ(counts.leftOut, 2U);
}

TEST_F(TreeWalker, MasksSecrets) {
    bmc.Has(kRoot, Resource(R"("SNMP":{"Port":161,"ReadCommunity":"hush"})"));
    Walk();
    EXPECT_THAT(archive.files["redfish/v1/index.json"], Not(HasSubstr("hush")));
    EXPECT_EQ(counts.masked, 1U);
}

TEST_F(TreeWalker, TellsWhatCouldNotBeRead) {
    RootLeadsTo({"/redfish/v1/Gone", "/redfish/v1/Html", "/redfish/v1/Broken"});
    bmc.Has("/redfish/v1/Html", "<html>");
    bmc.Has("/redfish/v1/Broken", R"({"error":{"message":"It hurts."}})");
    bmc.Refuses("/redfish/v1/Broken", 500);
    Walk();

    EXPECT_THAT(trouble,
                ElementsAre("/redfish/v1/Gone: ", "/redfish/v1/Html: The answer is no JSON object.",
                            "/redfish/v1/Broken: It hurts."));
    EXPECT_EQ(counts.unread, 3U);
    EXPECT_THAT(counts.limits, IsEmpty());
}

// --- logs and pages ------------------------------------------------------------------------------

TEST_F(TreeWalker, ReadsALogToItsLastPage) {
    RootLeadsTo({kLog});
    bmc.Has(kLog, Page({Entry(1), Entry(2)}, std::string(kLog) + "?$skip=2"));
    bmc.Has(std::string(kLog) + "?$skip=2",
            Page({Entry(3), Entry(4)}, "https://192.0.2.1:443/redfish/v1/Log/Entries?$skip=4"));
    bmc.Has(std::string(kLog) + "?$skip=4", Page({Entry(5)}));
    Walk();

    EXPECT_THAT(bmc.asked, SizeIs(4));
    EXPECT_THAT(
        archive.Names(),
        ElementsAre("redfish/v1/Log/Entries/index.json", "redfish/v1/Log/Entries/page-00002.json",
                    "redfish/v1/Log/Entries/page-00003.json", "redfish/v1/index.json"));
    EXPECT_EQ(counts.logEntries, 5U);
    EXPECT_EQ(counts.resources, 7U);
}

TEST_F(TreeWalker, ReadsEntriesLastWhereEachIsToBeAskedFor) {
    RootLeadsTo({kLog, "/redfish/v1/A"});
    bmc.Has(kLog, Page({Bare(1), Bare(2)}));
    bmc.Has("/redfish/v1/A", Resource(R"("B":{"@odata.id":"/redfish/v1/B"})"));
    bmc.HasElse([](const std::string& path) {
        return path.find("Entries/") == std::string::npos ? Resource() : Entry(path.back() - '0');
    });
    Walk();

    EXPECT_THAT(bmc.asked, ElementsAre(kRoot, kLog, "/redfish/v1/A", "/redfish/v1/B",
                                       std::string(kLog) + "/1", std::string(kLog) + "/2"));
    EXPECT_EQ(counts.logEntries, 2U);
}

constexpr char kExpands[] =
    R"(,"ProtocolFeaturesSupported":{"ExpandQuery":{"NoLinks":true,"Levels":true,"ExpandAll":true}})";

TEST_F(TreeWalker, TakesMembersWithTheirCollectionWhereThatIsOffered) {
    const std::string expanded = std::string(kLog) + "?$expand=.($levels=1)";
    RootLeadsTo({kLog}, kExpands);
    bmc.Has(kLog, Page({Bare(1), Bare(2)}, std::string(kLog) + "?$skip=2"));
    bmc.Has(expanded, Page({Entry(1), Entry(2)}, expanded + "&$skip=2"));
    bmc.Has(expanded + "&$skip=2", Page({Entry(3)}));
    Walk();

    EXPECT_THAT(bmc.asked, ElementsAre(kRoot, kLog, expanded, expanded + "&$skip=2"));
    EXPECT_THAT(
        archive.Names(),
        ElementsAre("redfish/v1/Log/Entries/1/index.json", "redfish/v1/Log/Entries/2/index.json",
                    "redfish/v1/Log/Entries/3/index.json", "redfish/v1/Log/Entries/index.json",
                    "redfish/v1/index.json"));
    EXPECT_EQ(counts.logEntries, 3U);
}

TEST_F(TreeWalker, AsksForEachWhereTheOfferIsNotKept) {
    const std::string expanded = std::string(kLog) + "?$expand=.($levels=1)";
    RootLeadsTo({kLog}, kExpands);
    bmc.Has(kLog, Page({Bare(1), Bare(2)}));
    bmc.Refuses(expanded, 501);
    bmc.Has(expanded, "{}");
    bmc.HasElse([](const std::string& path) { return Entry(path.back() - '0'); });
    Walk();

    EXPECT_THAT(bmc.asked, ElementsAre(kRoot, kLog, expanded, std::string(kLog) + "/1",
                                       std::string(kLog) + "/2"));
    EXPECT_THAT(trouble, IsEmpty());
}

TEST_F(TreeWalker, LeavesPagesThatLeadBack) {
    RootLeadsTo({kLog});
    bmc.Has(kLog, Page({Entry(1)}, std::string(kLog) + "?$skip=1"));
    bmc.Has(std::string(kLog) + "?$skip=1", Page({Entry(2)}, std::string(kLog) + "?$skip=1"));
    Walk();

    EXPECT_THAT(bmc.asked, SizeIs(3));
    EXPECT_THAT(trouble, ElementsAre(HasSubstr("leads back to a page that was read")));
}

TEST_F(TreeWalker, LeavesPagesThatBringNothingNew) {
    RootLeadsTo({kLog});
    bmc.HasElse([this](const std::string&) {
        return Page({Entry(1)}, std::string(kLog) + "?$skip=" + std::to_string(bmc.asked.size()));
    });
    Walk();

    EXPECT_THAT(bmc.asked, SizeIs(5));
    EXPECT_THAT(trouble, ElementsAre(HasSubstr("leads to pages without anything new")));
}

TEST_F(TreeWalker, LeavesPagesWithoutEnd) {
    bounds.pages = 10;
    RootLeadsTo({kLog, "/redfish/v1/A"});
    bmc.Has("/redfish/v1/A", Resource());
    bmc.HasElse([this](const std::string&) {
        const auto number = static_cast<int>(bmc.asked.size());
        return Page({Entry(number)}, std::string(kLog) + "?$skip=" + std::to_string(number));
    });
    Walk();

    EXPECT_THAT(bmc.asked, SizeIs(12));
    EXPECT_THAT(counts.limits,
                ElementsAre("Of /redfish/v1/Log/Entries no more than 10 pages were read."));
}

TEST_F(TreeWalker, APageOfWhatIsLeftOutIsNotAskedFor) {
    RootLeadsTo({kLog});
    bmc.Has(kLog, Page({Entry(1)}, "/redfish/v1/AccountService/Accounts"));
    Walk();
    EXPECT_THAT(bmc.asked, SizeIs(2));
}

// --- bounds --------------------------------------------------------------------------------------

std::string Deeper(const std::string& path) {
    return Resource(R"("Down":[{"@odata.id":")" + path + R"(/a"},{"@odata.id":")" + path +
                    R"(/b"}])");
}

TEST_F(TreeWalker, EndsAtTheDepth) {
    bounds.depth = 3;
    RootLeadsTo({"/redfish/v1/x"});
    bmc.HasElse(Deeper);
    Walk();

    EXPECT_EQ(counts.resources, 1U + 1 + 2 + 4);
    EXPECT_THAT(counts.limits,
                ElementsAre("What is more than 3 links away from the service root was not read."));
}

TEST_F(TreeWalker, EndsAfterSoManyRequests) {
    bounds.requests = 5;
    RootLeadsTo({"/redfish/v1/x"});
    bmc.HasElse(Deeper);
    Walk();

    EXPECT_THAT(bmc.asked, SizeIs(5));
    EXPECT_THAT(counts.limits, ElementsAre("Reading ended after 5 requests."));
}

TEST_F(TreeWalker, EndsAfterSoManyBytes) {
    bounds.bytes = 1024;
    RootLeadsTo({"/redfish/v1/x"});
    bmc.HasElse(Deeper);
    Walk();

    EXPECT_GE(counts.bytes, 1024U);
    EXPECT_LT(counts.bytes, 1300U);
    EXPECT_THAT(counts.limits, ElementsAre("Reading ended after answers of 1.0 KiB."));
}

TEST_F(TreeWalker, EndsAfterItsTime) {
    bounds.time = std::chrono::seconds(0);
    Walk();
    EXPECT_THAT(bmc.asked, IsEmpty());
    EXPECT_THAT(counts.limits, ElementsAre("Reading ended after 0 s."));
}

TEST_F(TreeWalker, KnowsOnlySoManyResources) {
    bounds.known = 10;
    RootLeadsTo({"/redfish/v1/x"});
    bmc.HasElse(Deeper);
    Walk();

    EXPECT_THAT(bmc.asked, SizeIs(10));
    EXPECT_THAT(counts.limits, Contains("No more than 10 resources were taken."));
}

TEST_F(TreeWalker, WithNothingLeftNoLimitIsTold) {
    bounds.requests = 2;
    RootLeadsTo({"/redfish/v1/x"});
    bmc.Has("/redfish/v1/x", Resource());
    Walk();
    EXPECT_THAT(counts.limits, IsEmpty());
}

TEST_F(TreeWalker, EndsWithItsSourceItsSinkAndItsRun) {
    RootLeadsTo({"/redfish/v1/x"});
    bmc.HasElse(Deeper);
    bmc.EndsAfter(6);
    Walk();
    EXPECT_THAT(bmc.asked, SizeIs(6));

    bmc.asked.clear();
    archive = FakeArchive();
    archive.room = 4;
    Walk();
    EXPECT_THAT(bmc.asked, SizeIs(5));

    bmc.asked.clear();
    archive = FakeArchive();
    stopAfter = 3;
    Walk();
    EXPECT_THAT(bmc.asked, SizeIs(3));
}

}  // namespace
