// SPDX-License-Identifier: Apache-2.0
#include "cli/history/KnownBmcs.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/DiskFaults.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::History::KnownBmc;
using Kemffdc::History::KnownBmcs;
using Kemffdc::History::ReadFingerprint;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

// "AA:AA:...", 32 bytes.
std::string Fingerprint(char digit) {
    std::string text;
    for (int i = 0; i < 32; ++i) text += std::string(i == 0 ? "" : ":") + digit + digit;
    return text;
}

std::vector<std::string> Lines(const std::string& path) {
    std::istringstream text(Content(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

class KnownBmcsTest : public testing::Test {
protected:
    // What is trusted for a BMC, by its first digit.
    std::string Trusted(const std::string& host, std::uint16_t port) const {
        std::vector<KnownBmc> found;
        const Kemffdc::Outcome outcome = known.Find(host, port, found);
        EXPECT_TRUE(outcome.Ok()) << outcome.reason;
        std::string digits;
        for (const KnownBmc& one : found) digits += one.sha256.front();
        return digits;
    }

    std::string Complaint() const {
        std::vector<KnownBmc> found;
        const Kemffdc::Outcome outcome = known.Find("bmc7", 443, found);
        EXPECT_EQ(outcome.code, Kemffdc::kLocalFile);
        EXPECT_THAT(found, IsEmpty());
        return outcome.reason;
    }

    TempFolder place;
    const std::string folder = place / "state";
    KnownBmcs known{folder};
    std::vector<KnownBmc> now;
};

struct FingerprintRow {
    std::string text;
    bool read;
    const char* why;
};

TEST(ReadFingerprint, TakesTheFormsThatToolsPrint) {
    const std::string plain(64, 'a');
    const FingerprintRow rows[] = {
        {"SHA256:" + Fingerprint('A'), true, "as the file has it"},
        {Fingerprint('A'), true, "as openssl prints it"},
        {Fingerprint('a'), true, "lower case"},
        {plain, true, "as sha256sum prints it"},
        {"SHA256:" + plain, true, "the word, without colons"},
        {"", false, "nothing"},
        {"SHA256:", false, "the word alone"},
        {plain + "a", false, "a digit too many"},
        {plain.substr(1), false, "a digit too few"},
        {"MD5:" + plain, false, "another sum"},
        {std::string(63, 'a') + "g", false, "no digit"},
        {":" + Fingerprint('A'), false, "a colon before"},
        {Fingerprint('A') + ":", false, "a colon behind"},
        {"AA::" + Fingerprint('A').substr(3), false, "two colons"},
        {"A:A" + Fingerprint('A').substr(2), false, "a colon inside of a byte"},
        {plain + " ", false, "a blank"},
    };
    for (const FingerprintRow& row : rows) {
        EXPECT_EQ(ReadFingerprint(row.text), row.read ? Fingerprint('A') : "") << row.why;
    }
}

TEST_F(KnownBmcsTest, WithoutAFileNobodyIsKnownAndNothingIsMade) {
    EXPECT_EQ(Trusted("bmc7", 443), "");
    EXPECT_THAT(place.Names(), IsEmpty());
}

TEST_F(KnownBmcsTest, RemembersAHostAndPortInALineForPeople) {
    ASSERT_TRUE(known.Remember("BMC7.example", 443, Fingerprint('A'), now).Ok());

    EXPECT_THAT(now, ElementsAre(testing::Field(&KnownBmc::sha256, Fingerprint('A'))));
    EXPECT_EQ(now[0].line, 2);
    EXPECT_EQ(Trusted("bmc7.EXAMPLE", 443), "A");
    EXPECT_EQ(Trusted("bmc7.example", 5989), "");
    EXPECT_EQ(Trusted("bmc7", 443), "");
    EXPECT_THAT(
        Lines(known.Path()),
        ElementsAre(StartsWith("# "), MatchesRegex("bmc7.example:443 SHA256:AA(:AA)+ first seen "
                                                   "20..-..-..T..:..:..Z")));
    EXPECT_EQ(Mode(folder), 0700U);
    EXPECT_EQ(Mode(known.Path()), 0600U);
}

TEST_F(KnownBmcsTest, WhoComesSecondLearnsWhatTheFirstHasRemembered) {
    ASSERT_TRUE(known.Remember("bmc7", 443, Fingerprint('A'), now).Ok());
    ASSERT_TRUE(known.Remember("bmc7", 443, Fingerprint('B'), now).Ok());
    EXPECT_THAT(now, ElementsAre(testing::Field(&KnownBmc::sha256, Fingerprint('A'))));
    EXPECT_EQ(Trusted("bmc7", 443), "A");
}

TEST_F(KnownBmcsTest, AnIpv6AddressIsKnownInEachSpelling) {
    ASSERT_TRUE(known.Remember("2001:DB8:0:0::7", 443, Fingerprint('A'), now).Ok());
    EXPECT_EQ(Trusted("2001:db8::7", 443), "A");
    EXPECT_EQ(Trusted("2001:db8::8", 443), "");
    EXPECT_THAT(Lines(known.Path()).back(), StartsWith("[2001:db8::7]:443 "));
    ASSERT_TRUE(known.Remember("fe80::1%eth0", 443, Fingerprint('B'), now).Ok());
    EXPECT_EQ(Trusted("FE80:0::1%eth0", 443), "B");
    EXPECT_EQ(Trusted("fe80::1%eth1", 443), "");
}

TEST_F(KnownBmcsTest, ReadsWhatPeopleWrite) {
    std::filesystem::create_directory(folder);
    place.Write("state/known_bmcs", "\n  # ours\r\n\tBMC7:443   sha\n");
    EXPECT_THAT(Complaint(), StartsWith(known.Path() + ":3: "));

    place.Write("state/known_bmcs",
                "# ours\r\n\n  bmc7:443\tSHA256:" + std::string(64, 'a') +
                    " rack 3\r\n#bmc8:443 SHA256:x\nbmc7:443 SHA256:" + Fingerprint('B'));
    EXPECT_EQ(Trusted("bmc7", 443), "AB");
    EXPECT_EQ(Trusted("bmc8", 443), "");
}

TEST_F(KnownBmcsTest, ALineThatIsNotUnderstoodIsNamedAndNobodyIsTrusted) {
    std::filesystem::create_directory(folder);
    const std::string good = "bmc7:443 SHA256:" + Fingerprint('A');
    const std::string sum = " SHA256:" + Fingerprint('B');
    const std::vector<std::string> lines = {
        "bmc8" + sum,
        "bmc8:" + sum,
        ":443" + sum,
        "bmc8:0" + sum,
        "bmc8:65536" + sum,
        "bmc8:99999999999999999999" + sum,
        "bmc8:443x" + sum,
        "2001:db8::7:443" + sum,
        "bmc8:443",
        "bmc8:443 " + Fingerprint('B'),
        "bmc8:443 SHA256:AB",
        "bmc8:443" + sum + std::string(1, '\0'),
        sum,
    };
    for (const std::string& broken : lines) {
        place.Write("state/known_bmcs", good + "\n" + broken + "\n");
        EXPECT_THAT(Complaint(), testing::AllOf(StartsWith(known.Path() + ":2: "),
                                                HasSubstr("remove this line")))
            << broken;
    }
}

TEST_F(KnownBmcsTest, AppendsToALineThatSomebodyHasNotEnded) {
    std::filesystem::create_directory(folder);
    place.Write("state/known_bmcs", "bmc8:443 SHA256:" + Fingerprint('B'));
    ASSERT_TRUE(known.Remember("bmc7", 443, Fingerprint('A'), now).Ok());
    EXPECT_EQ(Trusted("bmc8", 443), "B");
    EXPECT_EQ(Trusted("bmc7", 443), "A");
}

TEST_F(KnownBmcsTest, ReplaceTrustsTheNewCertificateAloneAndKeepsTheRest) {
    std::filesystem::create_directory(folder);
    place.Write("state/known_bmcs", "# rack 3\nbmc7:443 SHA256:" + Fingerprint('A') +
                                        "\nbmc8:443 SHA256:" + Fingerprint('B') +
                                        " ours\n\nBMC7:443 SHA256:" + Fingerprint('C') + "\n");
    ASSERT_TRUE(known.Replace("bmc7", 443, Fingerprint('D')).Ok());
    EXPECT_EQ(Trusted("bmc7", 443), "D");
    EXPECT_THAT(Lines(known.Path()),
                ElementsAre("# rack 3", "bmc8:443 SHA256:" + Fingerprint('B') + " ours", "",
                            StartsWith("bmc7:443 SHA256:DD:")));
    EXPECT_EQ(Mode(known.Path()), 0600U);
}

TEST_F(KnownBmcsTest, ReplaceMakesTheFileWhereThereIsNone) {
    ASSERT_TRUE(known.Replace("bmc7", 443, Fingerprint('D')).Ok());
    EXPECT_EQ(Trusted("bmc7", 443), "D");
    EXPECT_EQ(Lines(known.Path()).size(), 2U);
}

TEST_F(KnownBmcsTest, WhatCannotBeReadIsLocalTrouble) {
    std::filesystem::create_directories(known.Path());
    EXPECT_THAT(Complaint(), HasSubstr("is not a file"));
}

TEST_F(KnownBmcsTest, AFullDiskLeavesTheFileAsItWas) {
    ASSERT_TRUE(known.Remember("bmc7", 443, Fingerprint('A'), now).Ok());
    const std::string before = Content(known.Path());
    {
        const DiskFaults faults("write:" + known.Path() + ":*:short=20;write:" + folder +
                                "/.known_bmcs.:*:ENOSPC");
        const Kemffdc::Outcome outcome = known.Remember("bmc8", 443, Fingerprint('B'), now);
        EXPECT_EQ(outcome.code, Kemffdc::kLocalFile);
        EXPECT_THAT(outcome.reason, HasSubstr("No space left on device"));
        EXPECT_EQ(known.Replace("bmc7", 443, Fingerprint('C')).code, Kemffdc::kLocalFile);
        EXPECT_EQ(faults.Played(), 2);
    }
    EXPECT_EQ(Content(known.Path()), before);
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        EXPECT_THAT(file.path().filename(), testing::AnyOf("known_bmcs", "known_bmcs.lock"));
    }
}

TEST_F(KnownBmcsTest, AFolderThatOthersWriteToIsNotTrusted) {
    std::filesystem::create_directory(folder);
    std::filesystem::permissions(folder, std::filesystem::perms::all);
    const Kemffdc::Outcome outcome = known.Remember("bmc7", 443, Fingerprint('A'), now);
    EXPECT_EQ(outcome.code, Kemffdc::kLocalFile);
    EXPECT_THAT(outcome.reason, HasSubstr("can be written by others"));
}

// Each of eight processes meets a hundred BMCs that all of them know, each with another
// certificate: one of them is first, and all agree on it.
TEST_F(KnownBmcsTest, ProcessesThatRememberAtOnceAgree) {
    std::vector<pid_t> processes;
    for (int n = 0; n < 8; ++n) {
        const pid_t process = fork();
        if (process == 0) {
            bool well = true;
            for (int bmc = 0; bmc < 100; ++bmc) {
                well = well && known
                                   .Remember("bmc" + std::to_string(bmc), 443,
                                             Fingerprint(static_cast<char>('0' + n)), now)
                                   .Ok();
                well = well && now.size() == 1;
            }
            _exit(well ? 0 : 1);
        }
        processes.push_back(process);
    }
    for (const pid_t process : processes) {
        int status = -1;
        waitpid(process, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(Lines(known.Path()).size(), 101U);
    for (int bmc = 0; bmc < 100; ++bmc) {
        EXPECT_EQ(Trusted("bmc" + std::to_string(bmc), 443).size(), 1U) << bmc;
    }
}

}  // namespace
