// SPDX-License-Identifier: Apache-2.0
#include "cli/config/ConfigFile.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>

#include "support/TempFolder.h"

namespace {

using Kemffdc::Outcome;
using Kemffdc::Config::File;
using Kemffdc::Config::Matches;
using Kemffdc::Config::Member;
using Kemffdc::Config::Value;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

std::string IsNumber(const std::vector<std::string>& words) {
    const bool digits = words.front().find_first_not_of("0123456789") == std::string::npos;
    return digits ? "" : ": \"" + words.front() + "\" is no number.";
}

const std::vector<Member>& Members() {
    static const std::vector<Member> members{
        {"via", false, false, "", {}},
        {"user", false, false, "", {}},
        {"port", false, false, "", IsNumber},
        {"password_file", true, false, "password", {}},
        {"password_command", false, true, "password", {}},
        {"export.uri", false, false, "", {}},
        {"export.password_file", true, false, "", {}},
    };
    return members;
}

class ConfigFile : public testing::Test {
protected:
    Outcome Read(const std::string& text) {
        m_path = m_folder.Write("kemffdc.conf", text);
        return Kemffdc::Config::Read(m_path, "/home/op", Members(), m_file);
    }

    // What is wrong with the text, behind the name of the file.
    std::string Fault(const std::string& text) {
        const Outcome outcome = Read(text);
        EXPECT_EQ(outcome.code, Kemffdc::kUsage) << text;
        EXPECT_THAT(outcome.reason, StartsWith(m_path + ":"));
        return outcome.reason.substr(std::min(m_path.size() + 1, outcome.reason.size()));
    }

    std::map<std::string, Value> For(const std::string& host) const {
        return Holding(m_file, Members(), host);
    }

    std::string Word(const std::string& host, const std::string& member) const {
        const auto values = For(host);
        const auto found = values.find(member);
        return found == values.end() ? "" : found->second.words.front();
    }

    TempFolder m_folder;
    std::string m_path;
    File m_file;
};

TEST_F(ConfigFile, DefaultsAndSectionsHoldWithTheirPlaces) {
    const Outcome outcome = Read(
        "# the lab\n"
        "defaults:\n"
        "  user: service\n"
        "  port: 8443\n"
        "\n"
        "hosts:\n"
        "  \"10.1.*\":\n"
        "    via: ipmi\n"
        "    port: 623\n"
        "    export:\n"
        "      uri: sftp://store/in/\n"
        "      password_file: ~/.store\n");
    ASSERT_TRUE(outcome.Ok()) << outcome.reason;

    const auto values = For("10.1.2.3");
    EXPECT_EQ(values.at("user").words, std::vector<std::string>{"service"});
    EXPECT_EQ(values.at("user").line, 3);
    EXPECT_EQ(values.at("user").section, "defaults");
    EXPECT_EQ(values.at("via").line, 8);
    EXPECT_EQ(values.at("via").section, "10.1.*");
    EXPECT_EQ(values.at("port").words, std::vector<std::string>{"623"});
    EXPECT_EQ(values.at("export.uri").words, std::vector<std::string>{"sftp://store/in/"});
    EXPECT_EQ(values.at("export.password_file").words, std::vector<std::string>{"/home/op/.store"});
    EXPECT_EQ(values.at("export.password_file").line, 12);
    EXPECT_EQ(Word("10.2.2.3", "port"), "8443");
    EXPECT_EQ(For("10.2.2.3").count("via"), 0U);
}

TEST_F(ConfigFile, OfSeveralSectionsThatMatchTheLaterOneCountsMemberByMember) {
    ASSERT_TRUE(Read("hosts:\n"
                     "  bmc7: {user: seven, port: 7}\n"
                     "  \"bmc*\": {user: any}\n"
                     "defaults: {user: nobody, via: cim}\n")
                    .Ok());
    EXPECT_EQ(Word("bmc7", "user"), "any");
    EXPECT_EQ(Word("bmc7", "port"), "7");
    EXPECT_EQ(Word("bmc7", "via"), "cim") << "the defaults come first, wherever they stand";
    EXPECT_EQ(Word("other", "user"), "nobody");
}

TEST_F(ConfigFile, ALaterPasswordReplacesAnEarlierOneOfTheOtherKind) {
    ASSERT_TRUE(Read("defaults: {password_file: /p}\n"
                     "hosts:\n"
                     "  a: {password_command: [pass, show]}\n"
                     "  b: {user: x}\n")
                    .Ok());
    EXPECT_EQ(For("a").count("password_file"), 0U);
    EXPECT_THAT(For("a").at("password_command").words, ElementsAre("pass", "show"));
    EXPECT_EQ(Word("b", "password_file"), "/p");
}

TEST_F(ConfigFile, WhatSaysNothingIsNoMistake) {
    for (const char* text : {"", "\n", "# nothing\n", "defaults:\n", "hosts:\n", "hosts: {}\n",
                             "hosts:\n  a:\n", "---\ndefaults:\n"}) {
        EXPECT_TRUE(Read(text).Ok()) << text << m_file.path;
        EXPECT_TRUE(m_file.exists);
        EXPECT_THAT(For("a"), IsEmpty());
    }
}

TEST_F(ConfigFile, AFileThatDoesNotExistSaysNothing) {
    EXPECT_TRUE(Kemffdc::Config::Read(m_folder / "none", "/h", Members(), m_file).Ok());
    EXPECT_FALSE(m_file.exists);
    EXPECT_TRUE(Kemffdc::Config::Read("", "/h", Members(), m_file).Ok());
    EXPECT_TRUE(Kemffdc::Config::Read("/dev/null/x", "/h", Members(), m_file).Ok());
}

struct FaultRow {
    const char* text;
    const char* fault;
};

TEST_F(ConfigFile, WhatIsWrongIsToldWithLineAndMember) {
    const FaultRow rows[] = {
        {"defaults:\n  user: [a\n", "3: no YAML: "},
        {"defaults:\n\tuser: a\n", "2: no YAML: "},
        {"just text\n", "1: The file holds no members (NAME: VALUE)."},
        {"- a\n", "1: The file holds no members"},
        {"default:\n  user: a\n", "1: default: unknown member. Did you mean defaults?"},
        {"user: a\n",
         "1: user stands at the top: it belongs below defaults: or a pattern of hosts:."},
        {"export: {uri: x}\n", "1: export stands at the top"},
        {"defaults:\n  via: cim\n  usr: a\n",
         "3: defaults.usr: unknown member. Did you mean user?"},
        {"defaults:\n  colour: a\n", "2: defaults.colour: unknown member.\n"},
        {"hosts:\n  \"10.*\":\n    prot: 1\n",
         "3: hosts.\"10.*\".prot: unknown member. Did you mean port?"},
        {"defaults:\n  export:\n    url: x\n",
         "3: defaults.export.url: unknown member. Did you mean uri?"},
        {"defaults:\n  export: x\n", "2: defaults.export holds no members"},
        {"defaults: 7\n", "1: defaults holds no members"},
        {"hosts: [a]\n", "1: hosts holds no members"},
        {"hosts:\n  a: 7\n", "2: hosts.\"a\" holds no members"},
        {"hosts:\n  \"\": {user: a}\n", "2: A pattern of hosts is empty."},
        {"hosts:\n  [a, b]: {user: a}\n", "2: The name of a member of hosts is no plain word."},
        {"defaults:\n  port: many\n", "2: defaults.port: \"many\" is no number."},
        {"defaults:\n  user:\n", "2: defaults.user has no value."},
        {"defaults:\n  user: \"\"\n", "2: defaults.user is empty."},
        {"defaults:\n  user: [a]\n", "2: defaults.user is one value, no list and no members."},
        {"defaults:\n  user: \"a\\x1b[2J\"\n", "2: defaults.user holds control bytes."},
        {"defaults:\n  \"a\\x1b\": b\n", "2: The name of a member of defaults is no plain word."},
        {"defaults:\n  user: a\n  user: b\n", "3: defaults.user stands there twice."},
        {"hosts:\n  a: {user: b}\n  a: {user: c}\n", "3: hosts.a stands there twice."},
        {"defaults:\n  password_file: secret\n",
         "2: defaults.password_file is no absolute path, and does not begin with ~/."},
        {"defaults:\n  password_command: pass show bmc\n",
         "2: defaults.password_command is a list, as no shell takes it apart"},
        {"defaults:\n  password_command: []\n", "2: defaults.password_command is empty."},
        {"defaults:\n  password_file: /p\n  password_command: [a]\n",
         "3: defaults: of password_file and password_command only one can stand in a section."},
        {"defaults: {user: a}\n---\ndefaults: {user: b}\n", "2: a second document begins here"},
        {"{defaults: {user: a}}\nhosts\n", "2: a second document begins here"},
        {" ,e8:", "1: "},
        {", a: b\n", "1: "},
        {"defaults: &a\n  export: *a\n", "2: defaults.export.export: unknown member."},
    };
    for (const FaultRow& row : rows) EXPECT_THAT(Fault(row.text) + "\n", StartsWith(row.fault));
}

TEST_F(ConfigFile, APasswordIsRefusedWithWhatToDoAndNotRepeated) {
    for (const char* text :
         {"defaults:\n  password: hunter2\n",
          "hosts:\n  a:\n    export:\n      password: hunter2\n",
          "defaults:\n  bmc_password: hunter2\n", "defaults:\n  password_file: hunter2\n",
          "defaults:\n  pasword: hunter2\n", "defaults:\n  password: *hunter2\n",
          "defaults:\n  password: !hunter2\n", "defaults:\n  password: @hunter2\n",
          "defaults:\n  password: \"hunter2\n", "defaults:\n  password: {hunter2\n",
          "defaults:\n  password: %hunter2\n", "defaults:\n  password: `hunter2\n"}) {
        const std::string fault = Fault(text);
        EXPECT_THAT(fault, Not(HasSubstr("hunter2"))) << text;
    }
    EXPECT_THAT(Fault("defaults:\n  password: hunter2\n"),
                HasSubstr("a password does not belong in this file. Put it into a file of its own "
                          "that only you can read, and name that with password_file"));
}

TEST_F(ConfigFile, WithoutAHomeFolderThereIsNoTilde) {
    m_path = m_folder.Write("kemffdc.conf", "defaults: {password_file: ~/p}\n");
    EXPECT_THAT(Kemffdc::Config::Read(m_path, "", Members(), m_file).reason,
                HasSubstr("this user has no home folder"));
}

TEST_F(ConfigFile, ACommandIsNotTakenFromAFileThatOthersCanWrite) {
    const std::string text = "hosts: {never: {password_command: [pass]}}\n";
    m_path = m_folder.Write("kemffdc.conf", text);
    for (const mode_t mode : {0660U, 0606U, 0622U}) {
        ASSERT_EQ(chmod(m_path.c_str(), mode), 0);
        const Outcome outcome = Kemffdc::Config::Read(m_path, "/h", Members(), m_file);
        EXPECT_EQ(outcome.code, Kemffdc::kLocalFile);
        EXPECT_THAT(outcome.reason, HasSubstr("can be written by others, so its password_command"));
        EXPECT_THAT(outcome.reason, HasSubstr("chmod go-w " + m_path));
    }
    ASSERT_EQ(chmod(m_path.c_str(), 0644), 0);
    EXPECT_TRUE(Kemffdc::Config::Read(m_path, "/h", Members(), m_file).Ok());

    m_path = m_folder.Write("kemffdc.conf", "defaults: {user: a}\n");
    ASSERT_EQ(chmod(m_path.c_str(), 0666), 0);
    EXPECT_TRUE(Kemffdc::Config::Read(m_path, "/h", Members(), m_file).Ok()) << "no command in it";
}

TEST_F(ConfigFile, ACommandIsNotTakenFromAnotherUsersFile) {
    m_path = m_folder.Write("kemffdc.conf", "defaults: {password_command: [pass]}\n");
    if (geteuid() != 0 || chown(m_path.c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    EXPECT_THAT(Kemffdc::Config::Read(m_path, "/h", Members(), m_file).reason,
                HasSubstr("belongs to another user, so its password_command is not run."));
}

TEST_F(ConfigFile, WhatIsNoPlainFileIsNotRead) {
    const std::string pipe = m_folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, m_folder.Path(), std::string("/dev/zero")}) {
        const Outcome outcome = Kemffdc::Config::Read(path, "/h", Members(), m_file);
        EXPECT_EQ(outcome.code, Kemffdc::kLocalFile);
        EXPECT_THAT(outcome.reason, HasSubstr("is not a plain file."));
    }
}

TEST_F(ConfigFile, AFileOfOneMegabyteIsReadAndALargerOneIsNot) {
    const std::string text = "defaults: {user: a}\n";
    EXPECT_TRUE(Read(text + std::string((1 << 20) - text.size(), '#')).Ok());
    EXPECT_EQ(Word("", "user"), "a");
    const Outcome outcome = Read(text + std::string((1 << 20) - text.size() + 1, '#'));
    EXPECT_EQ(outcome.code, Kemffdc::kLocalFile);
    EXPECT_THAT(outcome.reason, HasSubstr("is larger than 1 MiB."));
}

TEST_F(ConfigFile, NestingWithoutEndIsNoYaml) {
    EXPECT_THAT(Fault(std::string(100000, '[')), HasSubstr("no YAML"));
    EXPECT_THAT(Fault("defaults: " + std::string(100000, '{')), HasSubstr("no YAML"));
}

// What is damaged is refused or understood; it never ends the process.
TEST_F(ConfigFile, DamagedFilesAreRefusedOrUnderstood) {
    const std::string whole =
        "defaults: &d\n  user: \"serv\\u00e9\"\n  port: 8443\nhosts:\n"
        "  '10.*': {via: ipmi, export: {uri: 'sftp://s/'}}\n"
        "  b: {password_command: [pass, show]}\n";
    std::mt19937 random(20261122);
    for (int round = 0; round < 500; ++round) {
        std::string text = whole;
        for (unsigned count = random() % 4 + 1; count > 0; --count) {
            text[random() % text.size()] = static_cast<char>(random() % 256);
        }
        const Outcome outcome = Read(text);
        EXPECT_TRUE(outcome.Ok() || !outcome.reason.empty());
    }
}

struct MatchRow {
    const char* patterns;
    const char* host;
    bool matches;
};

TEST(ConfigMatches, PatternsAreThoseOfFileNamesWithoutCase) {
    const MatchRow rows[] = {
        {"bmc7", "bmc7", true},
        {"bmc7", "BMC7", true},
        {"BMC7", "bmc7", true},
        {"bmc7", "bmc77", false},
        {"bmc?", "bmc7", true},
        {"bmc[1-6]", "bmc7", false},
        {"10.1.*", "10.1.2.3", true},
        {"10.1.*", "10.10.2.3", false},
        {"*.lab", "a.b.lab", true},
        {"a b c", "b", true},
        {"a  10.*", "10.1.1.1", true},
        {"a b", "a b", false},
        {"fe80::*", "FE80::1%eth0", true},
        {"[fe80::1]", "fe80::1", true},
        {"*", "", true},
        {"?*", "", false},
    };
    for (const MatchRow& row : rows) {
        EXPECT_EQ(Matches(row.patterns, row.host), row.matches) << row.patterns << " " << row.host;
    }
}

}  // namespace
