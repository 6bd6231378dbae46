// SPDX-License-Identifier: Apache-2.0
#include <chrono>
#include <string>
#include <tuple>

#include "IpmiRun.h"

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Eq;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

constexpr char kFfdc[] = "/download/ffdc/";
constexpr char kKemDump[] = "/download/ffdc/kem_dump/";

// The library tries a folder as it tries every name.
testing::Matcher<std::string> FolderNotFetched(const std::string& name) {
    return AllOf(StartsWith("1 src/module/kvs/ffdc/ffdcipmi_impl: Failed to download file \"" +
                            name + "\", error is 79 "),
                 HasSubstr("is a folder"));
}

// Address, cipher suite, mode.
class IpmiRunOverLan : public IpmiRun,
                       public testing::WithParamInterface<std::tuple<std::string, int, int>> {};

TEST_P(IpmiRunOverLan, FetchesWhatTheModeSelects) {
    const auto [address, suite, mode] = GetParam();
    const auto bmc = StartBmc("{}", address);
    PutInto(*bmc);
    const std::string output = OutputPath();

    const Outcome run = Run(OverLan(*bmc, static_cast<std::uint16_t>(suite)), output, mode);

    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.path, output + "KEMFFDC20260131235958");
    const Files expected =
        mode == 2 ? FilesOf(*bmc, kFfdc) : FilesOf(*bmc, kKemDump, mode == 3 ? ".tzz" : "");
    EXPECT_THAT(expected, SizeIs(mode == 2 ? 3 : mode == 3 ? 2 : 4));
    EXPECT_TRUE(FilesIn(run.path) == expected) << "other names or bytes";
    const std::string session = "admin " + std::to_string(suite);
    const std::vector<std::string> sessions(mode == 2 ? 1 : 2, session);
    EXPECT_EQ(SessionsOf(*bmc), sessions);
    EXPECT_THAT(clock.SleptInAll(), Eq(std::chrono::seconds(4 * 5)));
    const std::string listed = "1 src/module/kvs/ffdc/ffdcipmi_impl: remote ffdc size = 4";
    if (mode == 2) {
        EXPECT_THAT(Complaints(), ElementsAre(listed, FolderNotFetched("kem_dump")));
    } else {
        EXPECT_THAT(Complaints(), ElementsAre(listed));
    }
    EXPECT_THAT(PlatformComplaints(), IsEmpty());
    EXPECT_THAT(log.Lines(),
                Contains(AllOf(StartsWith("3 "), HasSubstr(bmc->Text("/sftp/fingerprint")))));
    EXPECT_THAT(log.Lines(), Each(AllOf(Not(HasSubstr("secret")), Not(HasSubstr("Gather-17")))));
}

INSTANTIATE_TEST_SUITE_P(Run, IpmiRunOverLan,
                         testing::Combine(testing::Values<std::string>("127.0.0.1", "::1"),
                                          testing::Values(3, 17), testing::Values(2, 3, 5)),
                         [](const auto& one) {
                             const std::string address = std::get<0>(one.param);
                             return std::string(address == "::1" ? "IPv6" : "IPv4") + "Suite" +
                                    std::to_string(std::get<1>(one.param)) + "Mode" +
                                    std::to_string(std::get<2>(one.param));
                         });

TEST_F(IpmiRun, InBandNeedsNoAccountAndNoPort) {
    const auto bmc = StartBmc();
    PutInto(*bmc);
    Varnex::VarnexConnection::ConnectionInfo conn;
    conn.host = "127.0.0.1";

    const Outcome run = Run(conn, OutputPath(), 2);

    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(FilesIn(run.path) == FilesOf(*bmc, kFfdc));
    EXPECT_THAT(SessionsOf(*bmc), IsEmpty());
}

TEST_F(IpmiRun, AccountOfTheConnectionIsTheFallBackInOtherModesThan2) {
    const auto bmc = StartBmc("{accounts: [bmc], files: {/download/ffdc/kem_dump/: [a.tzz]}}");
    PutInto(*bmc);

    const Outcome run = Run(OverLan(*bmc), OutputPath(), 5);

    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(FilesIn(run.path) == FilesOf(*bmc, kKemDump));
    EXPECT_THAT(SftpRequestsOf(*bmc),
                ElementsAre("login ffdc no", "login admin yes", "list /download/ffdc/kem_dump/",
                            "open /download/ffdc/kem_dump/a.tzz"));
}

TEST_F(IpmiRun, AccountOfTheConnectionIsUsedWhereTheHostHasNoIpmiDevice) {
    const auto bmc = StartBmc("{files: {/download/ffdc/kem_dump/: [a.tzz]}}");

    const Outcome run = Run(OverLan(*bmc), OutputPath(), 3);

    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(FilesIn(run.path) == FilesOf(*bmc, kKemDump));
    EXPECT_THAT(SftpRequestsOf(*bmc).back(), "open /download/ffdc/kem_dump/a.tzz");
}

}  // namespace
