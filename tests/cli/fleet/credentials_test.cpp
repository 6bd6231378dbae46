// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Credentials.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/TempFolder.h"

namespace {

using Kemffdc::kLocalFile;
using Kemffdc::kUsage;
using Kemffdc::Outcome;
using Kemffdc::Secret;
using Kemffdc::SecretSource;
using Kemffdc::Config::Member;
using Kemffdc::Fleet::Credentials;
using Kemffdc::Fleet::Passwords;
using testing::HasSubstr;

constexpr mode_t kMine = 0600;

class ReadCredentials : public testing::Test {
protected:
    Outcome Read(const std::string& text, mode_t mode = kMine) {
        m_folder.Write("accounts.yaml", text);
        EXPECT_EQ(0, ::chmod(m_path.c_str(), mode));
        return ReadPath(m_path);
    }

    Outcome ReadPath(const std::string& path) {
        m_credentials = Credentials();
        return Kemffdc::Fleet::ReadCredentials(path, "/home/olga", m_members, m_credentials);
    }

    const TempFolder m_folder;
    const std::string m_path = m_folder / "accounts.yaml";
    const std::vector<Member> m_members{{"user", false, false, "", nullptr},
                                        {"password_file", true, false, "password", nullptr},
                                        {"password_command", false, true, "password", nullptr},
                                        {"export.user", false, false, "", nullptr}};
    Credentials m_credentials;
};

TEST_F(ReadCredentials, EachNameHasItsMembers) {
    EXPECT_EQ("", Read("lab: {user: service, password_file: ~/lab}\n"
                       "store:\n"
                       "  password_command: [pass, show, \"bmc/{host}\"]\n"
                       "  export: {user: up}\n"
                       "none:\n")
                      .reason);

    ASSERT_EQ(3U, m_credentials.named.size());
    EXPECT_EQ("/home/olga/lab", m_credentials.named.at("lab")[1].second.words.front());
    EXPECT_EQ(3U, m_credentials.named.at("store")[0].second.words.size());
    EXPECT_EQ("export.user", m_credentials.named.at("store")[1].first);
    EXPECT_EQ(4, m_credentials.named.at("store")[1].second.line);
}

TEST_F(ReadCredentials, ThoseThatOthersCouldReadAreRefused) {
    for (const mode_t mode : {0640U, 0604U, 0620U, 0602U, 0610U}) {
        const Outcome outcome = Read("lab: {user: service}\n", mode);
        EXPECT_EQ(kLocalFile, outcome.code);
        EXPECT_EQ(
            "The credentials file " + m_path +
                " can be read or written by others. Take that right away: chmod go= " + m_path,
            outcome.reason);
        EXPECT_TRUE(m_credentials.named.empty());
    }
    for (const mode_t mode : {0600U, 0400U, 0700U}) {
        EXPECT_EQ("", Read("lab: {user: service}\n", mode).reason);
    }
}

TEST_F(ReadCredentials, ThoseOfAnotherUserAreRefused) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
    m_folder.Write("accounts.yaml", "lab: {user: service}\n");
    ASSERT_EQ(0, ::chown(m_path.c_str(), 12345, 12345));
    ASSERT_EQ(0, ::chmod(m_path.c_str(), kMine));

    const Outcome outcome = ReadPath(m_path);

    EXPECT_EQ(kLocalFile, outcome.code);
    EXPECT_EQ("The credentials file " + m_path + " belongs to another user.", outcome.reason);
}

TEST_F(ReadCredentials, TheRightsAreThoseOfWhatALinkLeadsTo) {
    const std::string link = m_folder / "link";
    ASSERT_EQ(0, ::symlink(m_path.c_str(), link.c_str()));

    EXPECT_EQ("", Read("lab: {user: service}\n").reason);
    EXPECT_EQ("", ReadPath(link).reason);

    (void)Read("lab: {user: service}\n", 0644);
    EXPECT_EQ(kLocalFile, ReadPath(link).code);
}

TEST_F(ReadCredentials, WhatIsNoPlainFileIsRefused) {
    const std::string pipe = m_folder / "pipe";
    ASSERT_EQ(0, ::mkfifo(pipe.c_str(), kMine));

    EXPECT_THAT(ReadPath(pipe).reason, HasSubstr("is not a plain file."));
    EXPECT_THAT(ReadPath(m_folder.Path()).reason, HasSubstr("is not a plain file."));
    EXPECT_THAT(ReadPath(m_folder / "none").reason, HasSubstr("does not exist."));
}

struct BadRow {
    const char* text;
    const char* said;
};

TEST_F(ReadCredentials, WhatIsWrongIsToldWithoutWhatMayBeAPassword) {
    const BadRow rows[] = {
        {"lab: {pasword_file: hunter2}\n",
         ":1: lab.pasword_file: unknown member. Did you mean password_file?"},
        {"lab:\n  password: hunter2\n", ":2: lab.password: a password does not belong in this"},
        {"lab: hunter2\n", ":1: lab holds no members"},
        {"lab:\n  password_file: hunter2\n", ":2: lab.password_file is no absolute path"},
        {"lab:\n  password_command: hunter2\n", ":2: lab.password_command is a list"},
        {"lab: {password_file: /a, password_command: [b]}\n",
         ":1: lab: of password_file and password_command only one can stand in a section."},
        {"lab: {user: a}\nlab: {user: b}\n", ":2: lab stands there twice."},
        {"lab: {user: [hunter2\n", "no YAML"},
        {"- hunter2\n", ":1: The file holds no members"},
        {"hunter2\n", ":1: The file holds no members"},
    };
    for (const BadRow& row : rows) {
        const Outcome outcome = Read(row.text);
        EXPECT_EQ(kUsage, outcome.code) << row.text;
        EXPECT_THAT(outcome.reason, HasSubstr(m_path));
        EXPECT_THAT(outcome.reason, HasSubstr(row.said)) << row.text;
        EXPECT_THAT(outcome.reason, testing::Not(HasSubstr("hunter2"))) << row.text;
    }
}

class PasswordsTest : public testing::Test {
protected:
    // A source that counts how often it is read.
    SecretSource Command(const std::string& script) const {
        SecretSource source = File("");
        source.command = {"/bin/sh", "-c", "echo x >> " + (m_folder / "count") + "; " + script};
        return source;
    }

    static SecretSource File(const std::string& path) {
        return {path, "NO_SUCH_VARIABLE", "", "--password-file", {}, std::chrono::seconds(20)};
    }

    std::size_t Count() const { return Content(m_folder / "count").size() / 2; }

    const TempFolder m_folder;
    Passwords m_passwords;
    const Secret* m_secret = nullptr;
};

TEST_F(PasswordsTest, EachIsReadOnce) {
    const SecretSource source = Command("echo hunter2");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ("", m_passwords.Of(source, m_secret).reason);
        EXPECT_EQ("hunter2", m_secret->Reveal());
    }
    EXPECT_EQ(1U, Count());

    const Secret* other = nullptr;
    EXPECT_EQ("", m_passwords.Of(Command("echo swordfish"), other).reason);
    EXPECT_EQ("swordfish", other->Reveal());
    EXPECT_EQ("hunter2", m_secret->Reveal()) << "stays where it was";
}

TEST_F(PasswordsTest, WhatHasFailedIsNotTriedAgain) {
    const SecretSource source = Command("echo hunter2; exit 3");
    for (int i = 0; i < 2; ++i) {
        const Outcome outcome = m_passwords.Of(source, m_secret);
        EXPECT_EQ("The password command /bin/sh ended with exit code 3.", outcome.reason);
    }
    EXPECT_EQ(1U, Count());
    EXPECT_EQ(kLocalFile, m_passwords.Of(File("/nonexistent"), m_secret).code);
}

TEST_F(PasswordsTest, ACommandIsBounded) {
    SecretSource slow = Command("exec sleep 100");
    slow.limit = std::chrono::milliseconds(200);
    EXPECT_THAT(m_passwords.Of(slow, m_secret).reason, HasSubstr("has not ended within 1 s."));
    EXPECT_THAT(m_passwords.Of(Command("exec yes"), m_secret).reason,
                HasSubstr("prints too much."));
}

TEST_F(PasswordsTest, OneOfTheEnvironmentServesAllThatHaveNoOther) {
    ASSERT_EQ(0, ::setenv("KEMFFDC_TEST_PASSWORD", "hunter2", 1));
    SecretSource source = File("");
    source.variable = "KEMFFDC_TEST_PASSWORD";
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ("", m_passwords.Of(source, m_secret).reason);
        EXPECT_EQ("hunter2", m_secret->Reveal());
    }
    EXPECT_EQ(nullptr, ::getenv("KEMFFDC_TEST_PASSWORD"));
}

}  // namespace
