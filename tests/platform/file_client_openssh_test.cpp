// SPDX-License-Identifier: Apache-2.0
//
// The server that many BMCs run, and not one that was written beside these tests.
#include <unistd.h>

#include "DownloadTest.h"
#include "HttpsPeer.h"
#include "support/Peer.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class FileClientOpenSsh : public DownloadTest {
protected:
    void SetUp() override {
        if (Peers().empty() || !Exists(Peers() + "/usr/sbin/sshd")) {
            GTEST_SKIP() << "sshd is not unpacked (VARNEX_PEERS)";
        }
        if (geteuid() != 0) GTEST_SKIP() << "sshd logs nobody in unless it is root";
        if (std::system("unshare --mount true") != 0) GTEST_SKIP() << "no private mounts here";
        Environment("VARNEX_KNOWN_HOSTS", known);
        port = FreePort();
        server = std::make_unique<Daemon>(
            std::vector<std::string>{"/usr/bin/unshare", "--mount", "--propagation", "private",
                                     VARNEX_TEST_FOLDER "/sshd_peer.sh", files.Path(), Peers(),
                                     std::to_string(port)},
            port);
        ASSERT_TRUE(server->IsUp()) << Content(files / "log");
    }

    Uri At(const std::string& path) const {
        return Uri("sftp", "127.0.0.1", static_cast<std::uint16_t>(port), "admin", "secret", path);
    }

    TempFolder root;
    TempFolder files;
    const std::string known = files / "known_hosts";
    int port = 0;
    std::unique_ptr<Daemon> server;
};

TEST_F(FileClientOpenSsh, ListsAndDownloads) {
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
    for (const std::size_t size : {0U, 1U, 32768U, 50000001U}) {
        root.Write("file", HttpsPeer::FileContent(size));

        EXPECT_EQ("", Text(Download(At(root / "file")))) << size;

        EXPECT_EQ(HttpsPeer::FileContent(size), Content(target));
    }
}

TEST_F(FileClientOpenSsh, ErrorsHaveTheirNumbers) {
    std::list<std::string> names;
    EXPECT_THAT(Text(Download(At(root / "absent"))), StartsWith("varnex.transfer:78 "));
    EXPECT_THAT(Text(file_client::ls_directory(At(root / "absent"), names)),
                StartsWith("varnex.transfer:78 "));
    Uri uri = At(root / "absent");
    uri.set_auth("admin", "wrong");
    EXPECT_THAT(Text(Download(uri)), StartsWith("varnex.transfer:67 "));
    ExpectNothingLeft();
}

}  // namespace
