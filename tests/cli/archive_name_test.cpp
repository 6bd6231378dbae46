// SPDX-License-Identifier: Apache-2.0
#include "cli/ArchiveName.h"

#include <gmock/gmock.h>

#include <string>

#include "cli/Utc.h"

namespace {

using Kemffdc::ArchiveName;
using Kemffdc::CheckNameTemplate;
using Kemffdc::kDefaultNameTemplate;
using Kemffdc::NameFields;
using testing::HasSubstr;

NameFields Fields(const std::string& host, const std::string& name,
                  const std::string& serial = "SN1") {
    return {host, serial, "20261120T203705Z", name};
}

struct NameRow {
    std::string host;
    std::string path;
    std::string expected;
    const char* why;
};

TEST(ArchiveName, OfTheBmcsPathOnlyHarmlessPartsAreTaken) {
    const std::string time = "_20261120T203705Z_";
    const NameRow rows[] = {
        {"192.0.2.1", "/download/ffdc.tar.gz", "192.0.2.1" + time + "ffdc.tar.gz", "ordinary"},
        {"bmc7.example", "ffdc.tar.gz", "bmc7.example" + time + "ffdc.tar.gz", "no folder"},
        {"::1", "/a", "__1" + time + "a", "IPv6"},
        {"fe80::1%eth0", "/a", "fe80__1_eth0" + time + "a", "IPv6 with a scope"},
        {"h", "/../../etc/passwd", "h" + time + "passwd", "a path that climbs"},
        {"h", "..", "h" + time + "ffdc", "nothing but dots"},
        {"h", "/download/", "h" + time + "ffdc", "no name at all"},
        {"h", "", "h" + time + "ffdc", "empty"},
        {"h", "/x/.bashrc", "h" + time + "bashrc", "a hidden file"},
        {"h", "/x/--force", "h" + time + "force", "an option"},
        {"h", "C:\\x\\y.zip", "h" + time + "y.zip", "the other separator"},
        {"h", "/a b%20c.gz", "h" + time + "a_b_20c.gz", "blanks and per cent"},
        {"h", "/a\nb\x1b[2J\x07.gz", "h" + time + "a_b__2J_.gz", "control bytes"},
        {"h", std::string("/a\0b", 4), "h" + time + "a_b", "a NUL byte"},
        {"h",
         "/Gr\xC3\xBC\xC3\x9F"
         "e",
         "h" + time + "Gr____e", "other scripts"},
        {"h", "/$(reboot);`x`|y&z", "h" + time + "__reboot___x__y_z", "what shells read"},
        {"h", "/{serial}", "h" + time + "_serial_", "a field"},
    };
    for (const NameRow& row : rows) {
        EXPECT_EQ(ArchiveName(kDefaultNameTemplate, Fields(row.host, row.path)), row.expected)
            << row.why;
    }
}

TEST(ArchiveName, LongNamesKeepTheirEndAndStayWithinTwoHundredBytes) {
    const NameFields fields = Fields(
        std::string(300, 'h'), "/" + std::string(5000, 'n') + ".tar.gz", std::string(300, 's'));
    for (const char* pattern : {kDefaultNameTemplate, "{host}{host}{serial}{serial}{name}{name}"}) {
        const std::string name = ArchiveName(pattern, fields);
        EXPECT_LE(name.size(), 200U);
        EXPECT_THAT(name, testing::EndsWith("n.tar.gz"));
    }
    EXPECT_EQ(ArchiveName(kDefaultNameTemplate,
                          Fields("-.-", std::string(100, 'a') + "." + std::string(119, '-'))),
              "bmc_20261120T203705Z_ffdc");
}

TEST(ArchiveName, FollowsItsTemplate) {
    const NameFields fields = Fields("bmc7", "/x/ffdc.tar.gz");
    EXPECT_EQ(ArchiveName("{serial}-{utc}+{name}", fields), "SN1-20261120T203705Z+ffdc.tar.gz");
    EXPECT_EQ(ArchiveName("{serial}_{host}", fields), "SN1_bmc7.tar.gz") << "keeps the extension";
    EXPECT_EQ(ArchiveName("ffdc", Fields("h", "/x/a.log")), "ffdc.log");
    EXPECT_EQ(ArchiveName("ffdc", Fields("h", "/x/a." + std::string(50, 'x'))), "ffdc");
    EXPECT_EQ(ArchiveName("{serial}", Fields("h", "/x/a", "")), "unknown");
    EXPECT_EQ(ArchiveName("{serial}", Fields("h", "/x/a", "../S N/1")), "_S_N_1");
    EXPECT_EQ(ArchiveName(".-{host}", Fields("h", "a")), "h") << "neither hidden nor an option";
    EXPECT_EQ(ArchiveName("..", Fields("h", "a")), "ffdc");
}

TEST(CheckNameTemplate, KnowsItsFields) {
    for (const char* good : {kDefaultNameTemplate, "a", "{serial}{serial}", "A-z_0.9+"}) {
        EXPECT_EQ(CheckNameTemplate(good), "") << good;
    }
    for (const char* bad : {"{hosts}", "{", "}", "{host", "host}", "{HOST}", "{ host }", "{}"}) {
        EXPECT_THAT(CheckNameTemplate(bad), HasSubstr("{host}, {serial}, {utc} and {name}")) << bad;
    }
    for (const char* bad : {"a/b", "a b", "../{name}", "a\n", "\xC3\xBC", "a:b", "$x"}) {
        EXPECT_THAT(CheckNameTemplate(bad), HasSubstr("something else")) << bad;
    }
    EXPECT_THAT(CheckNameTemplate(std::string(101, 'a')), HasSubstr("100 characters"));
    EXPECT_EQ(CheckNameTemplate(std::string(100, 'a')), "");
}

TEST(Utc, IsWrittenInTwoWays) {
    EXPECT_EQ(Kemffdc::UtcText(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(Kemffdc::UtcText(1795206998), "2026-11-20T20:36:38Z");
    EXPECT_EQ(Kemffdc::UtcForNames(1795206998), "20261120T203638Z");
}

}  // namespace
