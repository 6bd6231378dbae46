// SPDX-License-Identifier: Apache-2.0
#include "cli/http/CaFile.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>

#include "support/TempFolder.h"

namespace {

using Kemffdc::CheckCaFile;

// A self-signed certificate of a test, valid until 2126.
constexpr char kCertificate[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIIBgzCCASmgAwIBAgIUKdNUlW64rMZZb/v1yQQemREl71QwCgYIKoZIzj0EAwIw\n"
    "FjEUMBIGA1UEAwwLYm1jLmV4YW1wbGUwIBcNMjYxMTIxMjEwOTQ4WhgPMjEyNjEw\n"
    "MjgyMTA5NDhaMBYxFDASBgNVBAMMC2JtYy5leGFtcGxlMFkwEwYHKoZIzj0CAQYI\n"
    "KoZIzj0DAQcDQgAErVoDDw4C9KUpie5wgz1PB2VYW95mZryRGG0rKwnolSwAUA5F\n"
    "TQs8nkUIk8ABOYgkKJCAOA7uNmavdR4dpb3/WaNTMFEwHQYDVR0OBBYEFPl+jUO/\n"
    "oKBAKQ38HuJlELjEFs/PMB8GA1UdIwQYMBaAFPl+jUO/oKBAKQ38HuJlELjEFs/P\n"
    "MA8GA1UdEwEB/wQFMAMBAf8wCgYIKoZIzj0EAwIDSAAwRQIgO8djsgccUb7CmAKo\n"
    "GrB403GxYTHJQqq23oYSKhMz0PcCIQCJ6MkJPK7v6YY4vQqK+Hdwk277vu/Zg9Dr\n"
    "fb0MeIULgg==\n"
    "-----END CERTIFICATE-----\n";

struct Row {
    std::string content;
    int code;
    std::string words;
    const char* why;
};

TEST(CheckCaFile, AFileHoldsACertificateOrSaysWhatItHolds) {
    const std::string none = "holds no certificate in PEM form (-----BEGIN CERTIFICATE-----).";
    const std::string broken = "holds a certificate that cannot be read.";
    const std::string pem = kCertificate;
    const Row rows[] = {
        {pem, 0, "", "one"},
        {"# our CA\n" + pem + pem, 0, "", "several, with text between"},
        {"", 8, none, "empty"},
        {"not a certificate\n", 8, none, "another kind of file"},
        {"-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n", 8, broken, "no DER"},
        {pem + pem.substr(0, 200), 8, broken, "a second one that is cut off"},
    };
    const TempFolder folder;
    for (const Row& row : rows) {
        const std::string file = folder.Write("ca.pem", row.content);
        const Kemffdc::Outcome outcome = CheckCaFile(file);
        EXPECT_EQ(outcome.code, row.code) << row.why;
        EXPECT_EQ(outcome.reason, row.code == 0 ? "" : "The CA file " + file + " " + row.words)
            << row.why;
    }
}

TEST(CheckCaFile, AMissingFileIsNamedWithWhatToDo) {
    EXPECT_EQ(CheckCaFile("/no/such/ca.pem").reason,
              "The CA file /no/such/ca.pem cannot be read: No such file or directory. Correct "
              "--ca-file or VARNEX_CA_FILE.");
}

TEST(CheckCaFile, WhatIsNoPlainFileIsRefusedWithoutBeingOpened) {
    const TempFolder folder;
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(CheckCaFile(pipe).reason, "The CA file " + pipe + " is not a plain file.");
    EXPECT_EQ(CheckCaFile(folder.Path()).reason,
              "The CA file " + folder.Path() + " is not a plain file.");
}

TEST(CheckCaFile, NoFileIsWell) { EXPECT_TRUE(CheckCaFile("").Ok()); }

TEST(AnnounceCaFile, TheDownloadFindsItInTheEnvironment) {
    Kemffdc::AnnounceCaFile("/option.pem");
    EXPECT_STREQ(std::getenv("VARNEX_CA_FILE"), "/option.pem");
    Kemffdc::AnnounceCaFile("");
    EXPECT_EQ(std::getenv("VARNEX_CA_FILE"), nullptr) << "what does not hold is not found either";
}

}  // namespace
