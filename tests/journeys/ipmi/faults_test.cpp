// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <string>

#include "IpmiRun.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

constexpr char kFfdc[] = "/download/ffdc/";

testing::Matcher<std::string> NotListed(const std::string& code) {
    return StartsWith(
        "1 src/module/kvs/ffdc/ffdcipmi_impl: Failed getting BMC FFDC data files, error is " +
        code + " ");
}

testing::Matcher<std::string> NotFetched(const std::string& name, const std::string& code) {
    return StartsWith("1 src/module/kvs/ffdc/ffdcipmi_impl: Failed to download file \"" + name +
                      "\", error is " + code + " ");
}

std::string Listed(int count) {
    return "1 src/module/kvs/ffdc/ffdcipmi_impl: remote ffdc size = " + std::to_string(count);
}

TEST_F(IpmiRun, RefusedPortEndsTheRunWith1) {
    const EmulatedBmc bmc("ipmi: {polls: 0}\n");

    const Outcome run = Run(OverLan(bmc), OutputPath(), 2);

    EXPECT_EQ(run.result, 1);
    EXPECT_THAT(Complaints(), ElementsAre(NotListed("7")));
}

TEST_F(IpmiRun, WrongPasswordEndsTheRunWith1) {
    const auto bmc = StartBmc("{accounts: []}");

    EXPECT_EQ(Run(OverLan(*bmc), OutputPath(), 2).result, 1);
    EXPECT_EQ(Run(OverLan(*bmc), OutputPath(), 5).result, 1);

    EXPECT_THAT(Complaints(), ElementsAre(NotListed("67"), NotListed("67")));
    // Mode 5 has no account of its own here: without a user name nobody is asked.
    EXPECT_THAT(SftpRequestsOf(*bmc), ElementsAre("login ffdc no", "login admin no"));
}

TEST_F(IpmiRun, SilentPortEndsTheRunWith1) {
    setenv("VARNEX_TRANSFER_CONNECT_TIME", "2", 1);
    const auto bmc = StartBmc("{silent: true}");

    EXPECT_EQ(Run(OverLan(*bmc), OutputPath(), 2).result, 1);

    EXPECT_THAT(Complaints(), ElementsAre(NotListed("28")));
}

TEST_F(IpmiRun, MissingFolderEndsTheRunWith1) {
    const auto bmc = StartBmc("{files: {/download/ffdc/: null, /download/ffdc/kem_dump/: null}}");

    EXPECT_EQ(Run(OverLan(*bmc), OutputPath(), 2).result, 1);

    EXPECT_THAT(Complaints(), ElementsAre(NotListed("78")));
}

TEST_F(IpmiRun, ListingThatNeverComesEndsTheRunWith1) {
    setenv("VARNEX_TRANSFER_STALL_TIME", "2", 1);
    const auto bmc = StartBmc("{answers: {list: {hang: true}}}");

    EXPECT_EQ(Run(OverLan(*bmc), OutputPath(), 2).result, 1);

    EXPECT_THAT(Complaints(), ElementsAre(NotListed("28")));
}

TEST_F(IpmiRun, EmptyFolderIsNoFailure) {
    const auto bmc = StartBmc("{files: {/download/ffdc/kem_dump/: null, /download/ffdc/: []}}");

    const Outcome run = Run(OverLan(*bmc), OutputPath(), 2);

    EXPECT_EQ(run.result, 0);
    EXPECT_THAT(FilesIn(run.path), IsEmpty());
    EXPECT_THAT(Complaints(), ElementsAre(Listed(0)));
}

TEST_F(IpmiRun, TenThousandNamesAreListed) {
    const auto bmc = StartBmc(
        "{files: {/download/ffdc/kem_dump/: [{name: \"core_{n}.log\", count: 10000, text: x}, "
        "a.tzz]}}");
    PutInto(*bmc);

    const Outcome run = Run(OverLan(*bmc), OutputPath(), 3);

    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(FilesIn(run.path) == FilesOf(*bmc, "/download/ffdc/kem_dump/", ".tzz"));
    EXPECT_THAT(Complaints(), ElementsAre(Listed(10001)));
}

TEST_F(IpmiRun, OddNamesBecomeFilesAndNamesThatLeaveTheFolderDoNot) {
    const auto bmc = StartBmc(
        "{files: {/download/ffdc/kem_dump/: null, /download/ffdc/: [\"a b.tgz\", \"100%.log\", \"%41.log\", \"c#d?.log\", \"-rf\", "
        "\"--output=x\", \"../x\", \"../../y.tgz\", \"/etc/z\", \"l1\\nl2\", \"m*[1].log\"]}}");
    const std::string output = OutputPath();

    const Outcome run = Run(OverLan(*bmc), output, 2);

    EXPECT_EQ(run.result, 0);
    Files expected = FilesOf(*bmc, kFfdc);
    for (const char* name : {"../x", "../../y.tgz", "/etc/z", "l1\nl2"}) {
        ASSERT_EQ(expected.erase(name), 1U);
    }
    EXPECT_TRUE(FilesIn(run.path) == expected);
    EXPECT_THAT(expected, SizeIs(7));
    EXPECT_THAT(FilesIn(output), SizeIs(1)) << "something stands beside the run folder";
    EXPECT_THAT(Complaints(), ElementsAre(Listed(7)));
    for (const char* name : {"../x", "../../y.tgz", "/etc/z"}) {
        EXPECT_THAT(PlatformComplaints(), Contains(AllOf(StartsWith("2 "), HasSubstr(name))));
    }
}

TEST_F(IpmiRun, FolderAmongTheNamesFailsAloneAndIsNoFailureOfTheRun) {
    const auto bmc = StartBmc(
        "{files: {/download/ffdc/kem_dump/: null, /download/ffdc/: [a.tgz, {name: older, folder: true}, b.log]}}");

    const Outcome run = Run(OverLan(*bmc), OutputPath(), 2);

    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(FilesIn(run.path) == FilesOf(*bmc, kFfdc));
    EXPECT_THAT(Complaints(), ElementsAre(Listed(3), NotFetched("older", "79")));
}

TEST_F(IpmiRun, ArchiveCutInMidFileEndsTheRunWith8AndLeavesNothing) {
    const auto bmc = StartBmc(
        "{files: {/download/ffdc/kem_dump/: null, /download/ffdc/: [a.log, {name: b.TGZ, size: 500000}, c.log]}, "
        "answers: {\"open *.TGZ\": {cut_after: 200000}}}");

    const Outcome run = Run(OverLan(*bmc), OutputPath(), 2);

    EXPECT_EQ(run.result, 8);
    Files expected = FilesOf(*bmc, kFfdc);
    expected.erase("b.TGZ");
    expected.erase("c.log");
    EXPECT_TRUE(FilesIn(run.path) == expected);
    EXPECT_THAT(Complaints(), ElementsAre(Listed(3), NotFetched("b.TGZ", "79")));
}

TEST_F(IpmiRun, StalledFileEndsWithTheStallTime) {
    setenv("VARNEX_TRANSFER_STALL_TIME", "2", 1);
    const auto bmc = StartBmc(
        "{files: {/download/ffdc/kem_dump/: null, /download/ffdc/: [{name: a.log, size: 500000}, b.log]}, "
        "answers: {\"open *a.log\": {hang_after: 200000}}}");

    const Outcome run = Run(OverLan(*bmc), OutputPath(), 2);

    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(FilesIn(run.path).count("a.log"), 0U);
    EXPECT_THAT(FilesIn(run.path), SizeIs(1));
    EXPECT_THAT(Complaints(), ElementsAre(Listed(2), NotFetched("a.log", "28")));
}

TEST_F(IpmiRun, FileThatIsNeverOpenedEndsWithTheStallTime) {
    setenv("VARNEX_TRANSFER_STALL_TIME", "2", 1);
    const auto bmc = StartBmc(
        "{files: {/download/ffdc/kem_dump/: null, /download/ffdc/: [a.log, b.log]}, answers: {open: {hang: true}}}");

    const Outcome run = Run(OverLan(*bmc), OutputPath(), 2);

    EXPECT_EQ(run.result, 0);
    EXPECT_THAT(FilesIn(run.path), SizeIs(1));
    EXPECT_THAT(Complaints(), ElementsAre(Listed(2), NotFetched("a.log", "28")));
}

TEST_F(IpmiRun, FileThatMayNotBeReadIsToldAndTheNextOnesCome) {
    const auto bmc = StartBmc(
        "{files: {/download/ffdc/kem_dump/: [a.tgz, b.TZZ, c.tzz]}, "
        "answers: {\"open *a.tgz\": {error: permission denied}, \"open *b.TZZ\": {error: no such "
        "file}}}");
    PutInto(*bmc);

    const Outcome run = Run(OverLan(*bmc), OutputPath(), 5);

    EXPECT_EQ(run.result, 0);
    EXPECT_THAT(FilesIn(run.path), SizeIs(1));
    EXPECT_THAT(Complaints(),
                ElementsAre(Listed(3), NotFetched("a.tgz", "9"), NotFetched("b.TZZ", "78")));
}

TEST_F(IpmiRun, ChangedHostKeyEndsTheRunWith1AndSaysWhatToDo) {
    auto bmc = StartBmc();
    ASSERT_EQ(Run(OverLan(*bmc), OutputPath(), 5).result, 0);
    bmc.reset();
    bmc = StartBmc();

    const Outcome run = Run(OverLan(*bmc), OutputPath(), 2);

    EXPECT_EQ(run.result, 1);
    EXPECT_THAT(FilesIn(run.path), IsEmpty());
    EXPECT_THAT(SftpRequestsOf(*bmc), IsEmpty()) << "the password went to the other BMC";
    ASSERT_THAT(Complaints(), SizeIs(2));
    EXPECT_THAT(Complaints().back(), AllOf(NotListed("60"), HasSubstr(folder + "/known_hosts")));
}

}  // namespace
