// SPDX-License-Identifier: Apache-2.0
#include "GlobalConfig.h"

#include <cstdlib>
#include <thread>

#include "LogLines.h"
#include "PrivateMounts.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "support/TempFolder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class GetGlobalConfigValueTest : public testing::Test {
protected:
    void Environment(const std::string& name, const std::string& value) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    // The file that VARNEX_CONFIG names.
    void ConfigFile(const std::string& content) {
        Environment("VARNEX_CONFIG", folder.Write("my.ini", content));
    }
    // /etc/varnex/global.ini, seen by this process alone.
    static bool SystemFile(const std::string& content) {
        if (!EnterPrivateMounts() || !MountTmpfs("/etc", "size=1m")) return false;
        std::filesystem::create_directory("/etc/varnex");
        std::ofstream("/etc/varnex/global.ini") << content;
        return true;
    }

    TempFolder folder;
    LogLines log;
};

TEST_F(GetGlobalConfigValueTest, WithoutAnySettingIsTheDefault) {
    EXPECT_EQ(180, GetGlobalConfigValue("REDFISH_STARTUP_WAIT_TIME", 180));
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(GetGlobalConfigValueTest, TheEnvironmentComesBeforeTheFile) {
    ConfigFile("KEY=2\nOTHER=3\n");
    Environment("VARNEX_KEY", "1");

    EXPECT_EQ(1, GetGlobalConfigValue("KEY", 0));
    EXPECT_EQ(3, GetGlobalConfigValue("OTHER", 0));
    EXPECT_EQ(9, GetGlobalConfigValue("ABSENT", 9));
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(GetGlobalConfigValueTest, TheNamedFileComesBeforeTheSystemsFile) {
    if (!SystemFile("KEY=3\nONLY_HERE=4\n")) GTEST_SKIP() << "no private mounts here";
    ConfigFile("KEY=2\n");

    EXPECT_EQ(2, GetGlobalConfigValue("KEY", 0));
    EXPECT_EQ(4, GetGlobalConfigValue("ONLY_HERE", 0));
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(GetGlobalConfigValueTest, TakesIntegersAndNothingElse) {
    const struct {
        const char* text;
        int expected;  // -1: refused
        const char* why;
    } rows[] = {
        {"0", 0, "zero"},
        {"-5", -5, "negative"},
        {"+5", 5, "a sign"},
        {" 7 ", 7, "blanks around it"},
        {"2147483647", 2147483647, "the largest"},
        {"-2147483648", -2147483647 - 1, "the smallest"},
        {"2147483648", -1, "too large"},
        {"007", 7, "leading zeros"},
        {"", -1, "nothing"},
        {" ", -1, "blanks alone"},
        {"-", -1, "a sign alone"},
        {"+-5", -1, "two signs"},
        {"0x10", -1, "hexadecimal"},
        {"1.5", -1, "a fraction"},
        {"5s", -1, "a unit"},
        {"5 6", -1, "two numbers"},
        {"yes", -1, "a word"},
    };
    for (const auto& row : rows) {
        Environment("VARNEX_KEY", row.text);

        EXPECT_EQ(row.expected, GetGlobalConfigValue("KEY", -1)) << row.why;

        if (row.expected != -1) {
            EXPECT_THAT(log.Take(), IsEmpty()) << row.why;
        } else {
            EXPECT_THAT(log.Take(),
                        ElementsAre("2 platform/src/GlobalConfig: Configuration value \"" +
                                    std::string(row.text) +
                                    "\" of KEY is no integer (environment variable VARNEX_KEY); "
                                    "-1 is used."))
                << row.why;
        }
    }
}

TEST_F(GetGlobalConfigValueTest, ABadValueInAFileIsReportedWithTheFile) {
    ConfigFile("KEY = often\n");

    EXPECT_EQ(180, GetGlobalConfigValue("KEY", 180));

    EXPECT_THAT(log.Take(),
                ElementsAre("2 platform/src/GlobalConfig: Configuration value \"often\" "
                            "of KEY is no integer (" +
                            (folder / "my.ini") + "); 180 is used."));
}

TEST_F(GetGlobalConfigValueTest, ABrokenFileIsReportedWithItsLineAndPassedOver) {
    if (!SystemFile("KEY=5\n")) GTEST_SKIP() << "no private mounts here";
    ConfigFile("; comment\nKEY=4\nthis is no setting\n");

    EXPECT_EQ(5, GetGlobalConfigValue("KEY", 0));

    EXPECT_THAT(
        log.Take(),
        ElementsAre("2 platform/src/GlobalConfig: Configuration file " + (folder / "my.ini") +
                    ", line 3: '=' character not found in line; the file is not used."));
}

TEST_F(GetGlobalConfigValueTest, AMissingFileIsReportedOnlyWhenItWasNamed) {
    Environment("VARNEX_CONFIG", folder / "absent.ini");

    EXPECT_EQ(6, GetGlobalConfigValue("KEY", 6));

    EXPECT_THAT(log.Take(), ElementsAre("2 platform/src/GlobalConfig: Configuration file " +
                                        (folder / "absent.ini") +
                                        " cannot be read: No such file or directory"));
}

TEST_F(GetGlobalConfigValueTest, AFolderInThePlaceOfTheFileIsReported) {
    Environment("VARNEX_CONFIG", folder.Path());

    EXPECT_EQ(6, GetGlobalConfigValue("KEY", 6));

    EXPECT_THAT(log.Take(), ElementsAre("2 platform/src/GlobalConfig: Configuration file " +
                                        folder.Path() + " cannot be read: Is a directory"));
}

TEST_F(GetGlobalConfigValueTest, AHugeFileIsNotRead) {
    ConfigFile("KEY=4\n" + std::string(2 * 1024 * 1024, ';'));

    EXPECT_EQ(6, GetGlobalConfigValue("KEY", 6));

    EXPECT_THAT(log.Take(),
                ElementsAre("2 platform/src/GlobalConfig: Configuration file " +
                            (folder / "my.ini") + " is larger than 1 MiB and not read."));
}

TEST_F(GetGlobalConfigValueTest, ReadsFilesAsEditorsLeaveThem) {
    ConfigFile(
        "\xEF\xBB\xBF"
        "FIRST=1\r\n\r\n# comment\r\n; comment\r\n  SPACED  =  2  \r\n[section]\r\nINSIDE=3\r\nLAST=4");

    EXPECT_EQ(1, GetGlobalConfigValue("FIRST", 0)) << "after a byte order mark";
    EXPECT_EQ(2, GetGlobalConfigValue("SPACED", 0));
    EXPECT_EQ(0, GetGlobalConfigValue("INSIDE", 0)) << "keys of sections are not ours";
    EXPECT_EQ(0, GetGlobalConfigValue("section.INSIDE", 0));
    EXPECT_EQ(0, GetGlobalConfigValue("section", 0));
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(GetGlobalConfigValueTest, AnEmptyFileNameMeansNoFile) {
    Environment("VARNEX_CONFIG", "");

    EXPECT_EQ(6, GetGlobalConfigValue("KEY", 6));
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(GetGlobalConfigValueTest, ManyThreadsMayAsk) {
    ConfigFile("KEY=4\n");
    std::vector<std::thread> threads;
    std::vector<int> sums(8, 0);
    for (std::size_t i = 0; i < sums.size(); ++i) {
        threads.emplace_back([&sums, i] {
            for (int n = 0; n < 50; ++n) sums[i] += GetGlobalConfigValue("KEY", 0);
        });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_THAT(sums, testing::Each(200));
}

}  // namespace
