// SPDX-License-Identifier: Apache-2.0
//
// The server that many BMCs run, and not one that was written beside these tests.
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "DownloadTest.h"
#include "HttpsPeer.h"
#include "support/Peer.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class FileClientOpenSsh : public DownloadTest {
protected:
    void SetUp() override { Environment("VARNEX_KNOWN_HOSTS", known); }

    // False where this test cannot be run here; says so.
    bool Start(std::vector<std::string> options = {}, const std::string& program = "sshd",
               const std::string& keyType = "ed25519") {
        if (Peers().empty() || !Exists(Peers() + "/usr/sbin/" + program)) {
            skipped = program + " is not unpacked (VARNEX_PEERS)";
            return false;
        }
        if (geteuid() != 0) skipped = "sshd logs nobody in unless it is root";
        if (std::system("unshare --mount true") != 0) skipped = "no private mounts here";
        if (!skipped.empty()) return false;
        port = FreePort();
        std::vector<std::string> command = {"/usr/bin/unshare",
                                            "--mount",
                                            "--propagation",
                                            "private",
                                            VARNEX_TEST_FOLDER "/sshd_peer.sh",
                                            files.Path(),
                                            Peers(),
                                            std::to_string(port),
                                            program,
                                            keyType};
        command.insert(command.end(), options.begin(), options.end());
        server = std::make_unique<Daemon>(command, port);
        EXPECT_TRUE(server->IsUp()) << Content(files / "log");
        return server->IsUp();
    }

    Uri At(const std::string& path) const {
        return Uri("sftp", "127.0.0.1", static_cast<std::uint16_t>(port), "admin", "secret", path);
    }

    // A listing and files of several sizes, as the library fetches them.
    void ExpectWholeJourney() {
        std::list<std::string> names;
        for (const std::size_t size : {0U, 1U, 32769U, 6000001U}) {
            root.Write("file" + std::to_string(size), HttpsPeer::FileContent(size));
        }
        EXPECT_EQ("", Text(file_client::ls_directory(At(root.Path()), names)));
        EXPECT_EQ(4U, names.size());
        for (const std::string& name : names) {
            EXPECT_EQ("", Text(Download(At(root / name)))) << name << Content(files / "log");
            EXPECT_TRUE(Content(root / name) == Content(target)) << name;
        }
    }
    int Logins() const {
        const std::string log = Content(files / "log");
        int count = 0;
        for (std::size_t at = log.find("Accepted "); at != std::string::npos;
             at = log.find("Accepted ", at + 1)) {
            ++count;
        }
        return count;
    }

    TempFolder root;
    TempFolder files;
    const std::string known = files / "known_hosts";
    std::string skipped;
    int port = 0;
    std::unique_ptr<Daemon> server;
};

// A server with options, and what the log says of it.
struct Server {
    const char* name;
    std::vector<std::string> options;
    const char* program;
    const char* keyType;
    const char* weak;  // empty: nothing
};

void PrintTo(const Server& server, std::ostream* out) { *out << server.name; }

class FileClientServers : public FileClientOpenSsh, public testing::WithParamInterface<Server> {};

TEST_P(FileClientServers, AreReached) {
    if (!Start(GetParam().options, GetParam().program, GetParam().keyType)) GTEST_SKIP() << skipped;
    LogLines log;

    ExpectWholeJourney();

    std::vector<std::string> warnings;
    for (const std::string& line : log.Take()) {
        if (line[0] == '2') warnings.push_back(line);
    }
    const std::string weak = GetParam().weak;
    const std::string warning =
        "2 platform/src/SshSession: The SSH server of 127.0.0.1 offers nothing "
        "better than " +
        weak + ", which is weak.";
    EXPECT_EQ(weak.empty(), warnings.empty());
    EXPECT_THAT(warnings, testing::Each(warning)) << "one for each login";
}

INSTANTIATE_TEST_SUITE_P(
    OpenSsh, FileClientServers,
    testing::Values(
        Server{"Ed25519Only", {}, "sshd", "ed25519", ""},
        Server{"RsaOnly", {"HostKeyAlgorithms rsa-sha2-512,rsa-sha2-256"}, "sshd", "rsa", ""},
        Server{"Ecdsa", {}, "sshd", "ecdsa", ""},
        Server{"ChachaOnly", {"Ciphers chacha20-poly1305@openssh.com"}, "sshd", "ed25519", ""},
        Server{"GcmOnly",
               {"Ciphers aes256-gcm@openssh.com,aes128-gcm@openssh.com"},
               "sshd",
               "ed25519",
               ""},
        Server{"EtmOnly",
               {"Ciphers aes256-ctr,aes128-ctr",
                "MACs hmac-sha2-512-etm@openssh.com,hmac-sha2-256-etm@openssh.com"},
               "sshd",
               "ed25519",
               ""},
        Server{"QuestionsOnly",
               {"UsePAM yes", "PasswordAuthentication no", "KbdInteractiveAuthentication yes"},
               "sshd",
               "ed25519",
               ""},
        Server{"OneSession", {"MaxSessions 1"}, "sshd", "ed25519", ""},
        Server{"RekeyEveryMebibyte", {"RekeyLimit 1M"}, "sshd", "ed25519", ""},
        Server{"OldAlgorithms",
               {"KexAlgorithms diffie-hellman-group14-sha1", "HostKeyAlgorithms ssh-rsa",
                "Ciphers aes128-cbc", "MACs hmac-sha1"},
               "sshd",
               "rsa",
               "diffie-hellman-group14-sha1, aes128-cbc, hmac-sha1, ssh-rsa"},
        Server{"Dropbear", {}, "dropbear", "ed25519", ""},
        Server{"DropbearRsa", {}, "dropbear", "rsa", ""}),
    [](const testing::TestParamInfo<Server>& server) { return server.param.name; });

TEST_F(FileClientOpenSsh, OneLoginServesAFolder) {
    if (!Start()) GTEST_SKIP() << skipped;
    std::list<std::string> names;
    for (int i = 0; i < 20; ++i) root.Write("file" + std::to_string(i), std::to_string(i));

    EXPECT_EQ("", Text(file_client::ls_directory(At(root.Path()), names)));
    EXPECT_EQ(20U, names.size());
    for (const std::string& name : names) EXPECT_EQ("", Text(Download(At(root / name))));
    EXPECT_THAT(Text(Download(At(root / "absent"))), StartsWith("varnex.transfer:78 "));
    EXPECT_EQ("", Text(Download(At(root / "file0"))));

    EXPECT_EQ(1, Logins()) << Content(files / "log");
}

// Connections of this process to others.
int Connections() {
    int count = 0;
    for (int fd = 3; fd < 256; ++fd) {
        sockaddr_storage peer{};
        socklen_t size = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) != 0) continue;
        if (peer.ss_family == AF_INET) ++count;
    }
    return count;
}

TEST_F(FileClientOpenSsh, ALoginIsClosedAfterTwoIdleSeconds) {
    if (!Start()) GTEST_SKIP() << skipped;
    std::list<std::string> names;

    EXPECT_EQ("", Text(file_client::ls_directory(At("/"), names)));
    EXPECT_EQ(1, Connections());
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));

    EXPECT_EQ(0, Connections());
    EXPECT_EQ("", Text(file_client::ls_directory(At("/"), names)));
    EXPECT_EQ(2, Logins());
}

TEST_F(FileClientOpenSsh, AChildOfTheProcessHasALoginOfItsOwn) {
    if (!Start()) GTEST_SKIP() << skipped;
    root.Write("file", "content");
    std::list<std::string> names;
    EXPECT_EQ("", Text(file_client::ls_directory(At("/"), names)));

    // The thread that keeps the time has come to rest: the sanitizer's memory is not made for a
    // fork while another thread takes some.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const pid_t child = fork();
    if (child == 0) {
        const std::error_code error =
            file_client::download(At(root / "file"), folder / "child", NoOption(nullptr));
        _exit(error ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ("", Text(Download(At(root / "file"))));

    EXPECT_EQ("content", Content(folder / "child"));
    EXPECT_EQ(2, Logins()) << "the parent's goes on";
}

TEST_F(FileClientOpenSsh, ListsAndDownloads) {
    if (!Start()) GTEST_SKIP() << skipped;
    for (const char* name : {"a.tgz", "a b%41#?.log", "-rf", "a\nb"}) root.Write(name, name);
    std::filesystem::create_directory(root / "folder");
    std::list<std::string> names;
    LogLines log;

    EXPECT_EQ("", Text(file_client::ls_directory(At(root.Path()), names)));
    EXPECT_THAT(names, UnorderedElementsAre("a.tgz", "a b%41#?.log", "-rf", "folder"));
    for (const std::string& name : names) {
        const std::string text = Text(Download(At(Uri::join_path(root.Path(), name))));
        if (name == "folder") {
            EXPECT_THAT(text, StartsWith("varnex.transfer:"));
        } else {
            EXPECT_EQ("", text) << name;
            EXPECT_EQ(name, Content(target));
        }
    }

    const std::string publicKey = Content(files / "key.pub");
    EXPECT_EQ("[127.0.0.1]:" + std::to_string(port) + " " +
                  publicKey.substr(0, publicKey.rfind(' ')) + "\n",
              Content(known));
    EXPECT_THAT(log.Take(), testing::Contains(HasSubstr("is new, is accepted and remembered")));
}

TEST_F(FileClientOpenSsh, LargeAndEmptyFilesArriveWhole) {
    if (!Start()) GTEST_SKIP() << skipped;
    for (const std::size_t size : {0U, 1U, 32768U, 50000001U}) {
        root.Write("file", HttpsPeer::FileContent(size));

        EXPECT_EQ("", Text(Download(At(root / "file")))) << size;

        EXPECT_EQ(HttpsPeer::FileContent(size), Content(target));
    }
}

TEST_F(FileClientOpenSsh, ErrorsHaveTheirNumbers) {
    if (!Start()) GTEST_SKIP() << skipped;
    std::list<std::string> names;
    EXPECT_THAT(Text(Download(At(root / "absent"))), StartsWith("varnex.transfer:78 "));
    EXPECT_THAT(Text(file_client::ls_directory(At(root / "absent"), names)),
                StartsWith("varnex.transfer:78 "));
    Uri uri = At(root / "absent");
    uri.set_auth("admin", "wrong");
    EXPECT_EQ(
        "varnex.transfer:67 Authentication failure; the server offers password, keyboard-interactive, publickey",
        Text(Download(uri)));
    ExpectNothingLeft();
}

}  // namespace
