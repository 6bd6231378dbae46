// SPDX-License-Identifier: Apache-2.0
//
// OpenSSH's own server in place of the emulated file service. It needs root, for an account that
// only it sees.
#include <sys/stat.h>
#include <boost/json/parse.hpp>
#include <fstream>
#include <string>

#include "IpmiRun.h"
#include "support/Peer.h"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

TEST_F(IpmiRun, OpenSshServesTheFiles) {
    const std::string served = folder + "/served";
    ASSERT_EQ(mkdir(served.c_str(), 0755), 0);
    std::string archive;
    for (unsigned n = 0; n < 3000000; ++n) archive += static_cast<char>((n * 7919 >> 3) & 0x7F);
    const Files expected = {{"a b%41#.tgz", archive}, {"-empty.log", ""}, {"c.tzz", "content\n"}};
    for (const auto& [name, content] : expected) {
        std::ofstream(served + "/" + name, std::ios::binary) << content;
        ASSERT_EQ(chmod((served + "/" + name).c_str(), 0644), 0);
    }
    const EmulatedBmc bmc(
        "ipmi: {polls: 1, credential: {user: ffdc, password: \"Gather 17:%\"}}\n");
    const Peer sshd({"/usr/bin/python3", VARNEX_OPENSSH, "--address", "127.0.0.1", "--port", "115",
                     "--user", "ffdc", "--password", "Gather 17:%", "/download/ffdc=" + served});
    const boost::json::value ready = boost::json::parse(sshd.Line());
    if (const auto* why = ready.as_object().if_contains("skip")) {
        GTEST_SKIP() << why->as_string().c_str();
    }

    const Outcome run = Run(OverLan(bmc), OutputPath(), 2);

    EXPECT_EQ(run.result, 0);
    EXPECT_TRUE(FilesIn(run.path) == expected);
    EXPECT_THAT(Complaints(),
                ElementsAre("1 src/module/kvs/ffdc/ffdcipmi_impl: remote ffdc size = 3"));
    EXPECT_THAT(
        log.Lines(),
        Contains(AllOf(StartsWith("3 "), HasSubstr(ready.at("fingerprint").as_string().c_str()))));
}

}  // namespace
