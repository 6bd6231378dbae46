// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <thread>

#include "DownloadTest.h"
#include "PrivateMounts.h"
#include "SftpPeer.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

// With known hosts of the test's own.
class FileClientSftp : public DownloadTest {
protected:
    FileClientSftp() {
        Environment("VARNEX_KNOWN_HOSTS", known);
        Environment("HOME", keys.Path());
    }

    static std::string List(const Uri& uri, std::list<std::string>& names) {
        return Text(file_client::ls_directory(uri, names));
    }
    void KnownHosts(const std::string& content) const { keys.Write("known_hosts", content); }

    TempFolder root;  // what the BMC serves
    TempFolder keys;
    const std::string known = keys / "known_hosts";
    std::list<std::string> names = {"untouched"};
};

class FileClientListSftp : public FileClientSftp {};
class FileClientDownloadSftp : public FileClientSftp {};
class FileClientHostKeys : public FileClientSftp {};

TEST_F(FileClientListSftp, GivesTheNamesInTheFolderWithoutDots) {
    root.Write("a.tgz", "1");
    root.Write(".hidden", "2");
    std::filesystem::create_directory(root / "folder");
    const SftpPeer bmc(root);

    EXPECT_EQ("", List(bmc.At("/"), names));

    EXPECT_THAT(names, UnorderedElementsAre("a.tgz", ".hidden", "folder"));
}

TEST_F(FileClientListSftp, ListsAFolderWithAndWithoutASlashAtItsEnd) {
    std::filesystem::create_directories(root / "download/f f%41");
    root.Write("download/f f%41/a.tgz", "1");
    const SftpPeer bmc(root);

    EXPECT_EQ("", List(bmc.At(Uri::join_path("/download", "f f%41")), names));
    EXPECT_THAT(names, ElementsAre("a.tgz"));
    EXPECT_EQ("", List(bmc.At(Uri::join_path("/download", "f f%41/")), names));
    EXPECT_THAT(names, ElementsAre("a.tgz"));
}

TEST_F(FileClientListSftp, AnEmptyFolderHasNoNames) {
    const SftpPeer bmc(root);

    EXPECT_EQ("", List(bmc.At("/"), names));

    EXPECT_THAT(names, IsEmpty());
}

TEST_F(FileClientListSftp, TenThousandNamesComeInTheServersOrder) {
    std::list<std::string> expected;
    std::string json = "[";
    for (int i = 10000; i > 0; --i) {
        expected.push_back("file-" + std::to_string(i * 7919 % 10007) + ".tgz");
        json += "\"" + expected.back() + (i > 1 ? "\"," : "\"]");
    }
    const SftpPeer bmc(root, {"--names", keys.Write("names", json)});

    EXPECT_EQ("", List(bmc.At("/hostile/"), names));

    EXPECT_EQ(expected, names);
}

TEST_F(FileClientListSftp, NamesThatAreNoPlainComponentArePassedOverWithAWarning) {
    const SftpPeer bmc(
        root, {"--names", keys.Write("names", R"([".", "..", "a b.tgz", "100%", "a%41", "#1", "-rf",
                 "...", "a\\b", "c\u00e9", "../x", "/etc/x", "x/", "a\nb", "\n", "c\n", "a\u0000b", "a\rb",
                 "~", "last", "", "behind the empty one"])")});
    KnownHosts(bmc.Name() + " " + bmc.PublicKey() + "\n");
    LogLines log;

    EXPECT_EQ("", List(bmc.At("/hostile/"), names));

    EXPECT_THAT(names, ElementsAre("a b.tgz", "100%", "a%41", "#1", "-rf", "...", "a\\b", "c\xE9",
                                   "a\rb", "~", "last", "behind the empty one"));
    const std::string start = "2 platform/src/file_client: The name \"";
    const std::string end = "\" of the listing is passed over: it ";
    EXPECT_THAT(
        log.Take(),
        ElementsAre(
            "4 platform/src/HostKeyCheck: The host key of " + bmc.Name() + ", ssh-ed25519 " +
                bmc.Fingerprint() + ", is known.",
            start + "../x" + end + "holds a slash.", start + "/etc/x" + end + "holds a slash.",
            start + "x/" + end + "holds a slash.", start + "a\nb" + end + "holds a line end.",
            start + "\n" + end + "holds a line end.", start + "c\n" + end + "holds a line end.",
            start + std::string("a\0b", 3) + end + "holds a NUL byte.", start + end + "is empty."));
}

TEST_F(FileClientListSftp, AnEndlessListingIsAnError) {
    const SftpPeer bmc(root);

    EXPECT_EQ("varnex.transfer:63 The listing is too long", List(bmc.At("/endless/"), names));

    EXPECT_THAT(names, ElementsAre("untouched"));
}

TEST_F(FileClientListSftp, AFailureLeavesTheNamesAlone) {
    const SftpPeer bmc(root);
    root.Write("file", "1");

    EXPECT_THAT(List(bmc.At("/absent/"), names), StartsWith("varnex.transfer:78 "));
    EXPECT_THAT(List(bmc.At("/file"), names), StartsWith("varnex.transfer:"));
    Uri uri = bmc.At("/");
    uri.set_auth("admin", "wr0ng");
    EXPECT_THAT(List(uri, names),
                AllOf(StartsWith("varnex.transfer:67 "), Not(HasSubstr("wr0ng"))));
    EXPECT_THAT(
        List(Uri("sftp", "127.0.0.1", static_cast<std::uint16_t>(FreePort()), "", "", "/"), names),
        StartsWith("varnex.transfer:7 "));
    EXPECT_EQ("varnex.transfer:1 Nothing is listed by \"https\"",
              List(Uri("https", "127.0.0.1", 1, "", "", "/"), names));

    EXPECT_THAT(names, ElementsAre("untouched"));
}

TEST_F(FileClientListSftp, AnotherAccountMayFollowOnTheSameAddress) {
    root.Write("a.tgz", "1");
    const SftpPeer bmc(root);
    Uri uri = bmc.At("/");
    uri.set_auth("", "");
    EXPECT_THAT(List(uri, names), StartsWith("varnex.transfer:67 "));

    uri.set_auth("admin", "secret");

    EXPECT_EQ("", List(uri, names));
    EXPECT_THAT(names, ElementsAre("a.tgz"));
}

TEST_F(FileClientDownloadSftp, FilesOfAllSizesArriveWhole) {
    const SftpPeer bmc(root);
    for (const std::size_t size : {0U, 1U, 32768U, 5000001U}) {
        root.Write("file", HttpsPeer::FileContent(size));

        EXPECT_EQ("", Text(Download(bmc.At("/file")))) << size;

        EXPECT_EQ(HttpsPeer::FileContent(size), Content(target));
        EXPECT_EQ(0600U, Mode(target));
        EXPECT_THAT(folder.Names(), ElementsAre("archive"));
    }
}

TEST_F(FileClientDownloadSftp, NamesOfTheListingMeanThemselves) {
    const SftpPeer bmc(root);
    const std::vector<std::string> all = {"a b", "100%",  "a%41b", "a%2Fb", "#1",      "?x",
                                          "-rf", "c\xE9", "~",     "a\\b",  "\x1B[2J", "x;y&z"};
    for (const std::string& name : all) root.Write(name, "content of " + name);
    ASSERT_EQ("", List(bmc.At("/"), names));
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(all));

    for (const std::string& name : names) {
        EXPECT_EQ("", Text(Download(bmc.At(Uri::join_path("/", name))))) << name;
        EXPECT_EQ("content of " + name, Content(target));
    }
}

TEST_F(FileClientDownloadSftp, WorksOverIPv6BareAndInBrackets) {
    root.Write("file", "content");
    const SftpPeer bmc(root, {"--bind", "::1"});

    EXPECT_EQ("", Text(Download(bmc.At("/file", "::1"))));
    EXPECT_EQ("", Text(Download(bmc.At("/file", "[::1]"))));

    EXPECT_THAT(Content(known),
                StartsWith("[::1]:" + std::to_string(bmc.Port()) + " ssh-ed25519 "));
}

TEST_F(FileClientDownloadSftp, NamesOfAFolderDoNotGetInEachOthersWay) {
    const std::vector<std::string> all = {"x.part", "x", "x.part.part", ".x.part", "x.varnex"};
    for (const std::string& name : all) root.Write(name, "content of " + name);
    const SftpPeer bmc(root);

    for (const std::string& name : all) {
        EXPECT_EQ(
            "", Text(file_client::download(bmc.At("/" + name), folder / name, NoOption(nullptr))));
    }
    EXPECT_EQ(
        "generic:22 Invalid argument",
        Text(file_client::download(bmc.At("/x"), folder / "x.varnex-part", NoOption(nullptr))));

    EXPECT_THAT(folder.Names(), testing::UnorderedElementsAreArray(all));
    for (const std::string& name : all) EXPECT_EQ("content of " + name, Content(folder / name));
}

TEST_F(FileClientDownloadSftp, FolderIsToldFromAFileThatFails) {
    std::filesystem::create_directory(root / "folder");
    root.Write("broken", "1");
    const SftpPeer bmc(root);

    const std::error_code folderError = Download(bmc.At("/folder"));
    EXPECT_EQ("varnex.transfer:79 \"/folder\" is a folder", Text(folderError));
    EXPECT_TRUE(folderError == std::errc::is_a_directory);
    EXPECT_TRUE(Download(bmc.At("/folder/")) == std::errc::is_a_directory);
    EXPECT_FALSE(Download(bmc.At("/broken")) == std::errc::is_a_directory);
    EXPECT_FALSE(Download(bmc.At("/absent")) == std::errc::is_a_directory);
    ExpectNothingLeft();
}

TEST_F(FileClientDownloadSftp, WhatIsNoFileIsAnErrorAndLeavesNothing) {
    std::filesystem::create_directory(root / "folder");
    root.Write("closed", "1");
    root.Write("broken", "1");
    const SftpPeer bmc(root);

    EXPECT_THAT(Text(Download(bmc.At("/absent"))), StartsWith("varnex.transfer:78 "));
    ExpectNothingLeft();
    EXPECT_THAT(Text(Download(bmc.At("/folder"))), StartsWith("varnex.transfer:"));
    ExpectNothingLeft();
    EXPECT_EQ("varnex.transfer:79 \"/folder/\" is a folder", Text(Download(bmc.At("/folder/"))));
    ExpectNothingLeft();
    EXPECT_THAT(Text(Download(bmc.At("/closed"))), StartsWith("varnex.transfer:9 "));
    ExpectNothingLeft();
    EXPECT_THAT(Text(Download(bmc.At("/broken"))), StartsWith("varnex.transfer:79 "));
    ExpectNothingLeft();
}

TEST_F(FileClientDownloadSftp, AFileOfAnotherSizeThanAnnouncedHasNotArrived) {
    root.Write("large", HttpsPeer::FileContent(100000));
    root.Write("small", HttpsPeer::FileContent(100000));
    const SftpPeer bmc(root);

    EXPECT_EQ("varnex.transfer:18 The server announced 200000 bytes and has 100000",
              Text(Download(bmc.At("/large"))));
    ExpectNothingLeft();
    EXPECT_EQ("varnex.transfer:18 The server announced 50000 bytes and has 100000",
              Text(Download(bmc.At("/small"))));
    ExpectNothingLeft();
}

TEST_F(FileClientDownloadSftp, OfAFileThatGrowsArrivesWhatWasThereInTheBeginning) {
    root.Write("file", HttpsPeer::FileContent(3000000));
    const SftpPeer bmc(root);
    bool grown = false;
    const Watcher watcher([&](const Varnex::TransferProgress& progress) {
        if (progress.bytes > 0 && !grown) {
            std::ofstream(root / "file", std::ios::app) << "more";
            grown = true;
        }
        return true;
    });

    EXPECT_EQ("", Text(Download(bmc.At("/file"))));

    EXPECT_TRUE(grown);
    EXPECT_TRUE(HttpsPeer::FileContent(3000000) == Content(target));
}

TEST_F(FileClientDownloadSftp, ACutInMidFileIsAnErrorAndLeavesNothing) {
    root.Write("cut", HttpsPeer::FileContent(5000000));
    const SftpPeer bmc(root);

    EXPECT_THAT(Text(Download(bmc.At("/cut"))), StartsWith("varnex.transfer:79 "));

    ExpectNothingLeft();
}

TEST_F(FileClientDownloadSftp, AStalledTransferEndsByItself) {
    Environment("VARNEX_TRANSFER_STALL_TIME", "2");
    root.Write("stall", HttpsPeer::FileContent(5000000));
    root.Write("hang", "content");
    const SftpPeer bmc(root);
    for (const char* path : {"/stall", "/hang"}) {
        const Stopwatch watch;

        EXPECT_EQ("varnex.transfer:28 The server stalled", Text(Download(bmc.At(path)))) << path;

        EXPECT_GT(watch.Seconds(), 1.5) << path;
        EXPECT_LT(watch.Seconds(), 15) << path;
        ExpectNothingLeft();
    }
}

TEST_F(FileClientListSftp, AListingThatIsNotAnsweredEndsByItself) {
    Environment("VARNEX_TRANSFER_STALL_TIME", "2");
    const SftpPeer bmc(root);
    const Stopwatch watch;

    EXPECT_EQ("varnex.transfer:28 The server stalled", List(bmc.At("/silent/"), names));

    EXPECT_LT(watch.Seconds(), 15);
    EXPECT_THAT(names, ElementsAre("untouched"));
}

TEST_F(FileClientDownloadSftp, AServerThatNeverSpeaksEndsWithTheConnectTime) {
    Environment("VARNEX_TRANSFER_CONNECT_TIME", "2");
    const HttpsPeer silent({"--silent"});
    const Stopwatch watch;

    EXPECT_THAT(Text(Download(Uri("sftp", "127.0.0.1", silent.Port(), "admin", "secret", "/file"))),
                StartsWith("varnex.transfer:28 "));

    EXPECT_LT(watch.Seconds(), 15);
    ExpectNothingLeft();
}

TEST_F(FileClientDownloadSftp, AWatcherSeesIt) {
    root.Write("file", HttpsPeer::FileContent(3000000));
    const SftpPeer bmc(root);
    std::uint64_t bytes = 0;
    std::uint64_t expected = 0;
    const Watcher watcher([&](const Varnex::TransferProgress& progress) {
        bytes = progress.bytes;
        expected = std::max(expected, progress.expected);
        return true;
    });

    EXPECT_EQ("", Text(Download(bmc.At("/file"))));

    EXPECT_EQ(3000000U, bytes);
    EXPECT_EQ(3000000U, expected);
}

TEST_F(FileClientDownloadSftp, AWatcherStopsItWithinASecondAndNothingIsLeft) {
    root.Write("stall", HttpsPeer::FileContent(3000000));
    root.Write("big", HttpsPeer::FileContent(200000000));
    const SftpPeer bmc(root);
    for (const char* path : {"/stall", "/big"}) {
        Stopwatch sinceStop;
        std::uint64_t last = 0;
        int asked = 0;
        const Watcher watcher([&](const Varnex::TransferProgress& progress) {
            sinceStop = Stopwatch();
            // In the middle, and where nothing arrives any more.
            asked = progress.bytes > 0 && progress.bytes == last ? asked + 1 : 0;
            last = progress.bytes;
            return asked < 3 && progress.bytes < 5000000;
        });

        EXPECT_EQ("varnex.transfer:42 The download was stopped", Text(Download(bmc.At(path))));

        EXPECT_LT(sinceStop.Seconds(), 0.7) << path;
        ExpectNothingLeft();
    }
}

TEST_F(FileClientDownloadSftp, AnOptionOfLibcurlsIsRefused) {
    root.Write("file", "content");
    const SftpPeer bmc(root);

    EXPECT_EQ("varnex.transfer:48 SFTP knows none of libcurl's options",
              Text(Download(bmc.At("/file"), {"X-Auth-Token: t"})));
    ExpectNothingLeft();
}

// libcurl trusts the proxy by the system's CAs, which are the test's here.
TEST_F(FileClientDownloadSftp, AProxyThatSpeaksTlsCarriesIt) {
    const std::string cas = "/etc/ssl/certs/ca-certificates.crt";
    if (!Exists(cas) || !EnterPrivateMounts()) GTEST_SKIP() << "no private mounts here";
    const TempFolder files;
    const Peer proxy(
        {"/usr/bin/python3", VARNEX_TEST_FOLDER "/tls_proxy_peer.py", "--folder", files.Path()});
    ASSERT_EQ(0, mount((files / "ca.pem").c_str(), cas.c_str(), nullptr, MS_BIND, nullptr));
    Environment("sftp_proxy", "https://localhost:" + Member(ParseJson(proxy.Line()), "port"));
    root.Write("file", HttpsPeer::FileContent(9000001));
    const SftpPeer bmc(root);

    EXPECT_EQ("", List(bmc.At("/"), names));
    EXPECT_EQ("", Text(Download(bmc.At("/file"))));

    EXPECT_TRUE(HttpsPeer::FileContent(9000001) == Content(target));
    EXPECT_EQ("127.0.0.1:" + std::to_string(bmc.Port()) + "\n", Content(files / "tunnels"));
}

TEST_F(FileClientDownloadSftp, ALostLoginIsMadeAnewForAFileThatIsNotBegun) {
    root.Write("file", "content");
    root.Write("cut", HttpsPeer::FileContent(5000000));
    auto bmc = std::make_unique<SftpPeer>(root, std::vector<std::string>{"--key", keys / "key"});
    const std::string port = std::to_string(bmc->Port());
    EXPECT_EQ("", List(bmc->At("/"), names));

    // The server begins anew, and knows nothing of the login.
    bmc.reset();
    bmc = std::make_unique<SftpPeer>(
        root, std::vector<std::string>{"--key", keys / "key", "--port", port});

    EXPECT_EQ("", Text(Download(bmc->At("/file"))));
    EXPECT_THAT(Text(Download(bmc->At("/cut"))), StartsWith("varnex.transfer:79 "));
}

TEST_F(FileClientHostKeys, TheTypeThatIsKnownIsAskedForFirst) {
    root.Write("file", "content");
    const SftpPeer one(root, {"--key-type", "ecdsa-sha2-nistp256", "--key", keys / "key"});
    const std::string port = std::to_string(one.Port());
    EXPECT_EQ("", Text(Download(one.At("/file"))));
    const std::string before = Content(known);
    EXPECT_THAT(before, HasSubstr(" ecdsa-sha2-nistp256 "));

    // A second server with that key and a better one, known under the same name.
    const SftpPeer both(root, {"--key", keys / "key", "--second-key-type", "ssh-ed25519"});
    KnownHosts(both.Name() + before.substr(before.find(' ')));

    EXPECT_EQ("", Text(Download(both.At("/file"))));
}

TEST_F(FileClientDownloadSftp, OnlyAPasswordIsOffered) {
    root.Write("file", "content");
    std::filesystem::create_directory(keys / ".ssh");
    const std::string command =
        "ssh-keygen -q -t ed25519 -N '' -f '" + (keys / ".ssh/id_ed25519") + "' && cp '" +
        (keys / ".ssh/id_ed25519") + "' '" + (keys / ".ssh/id_rsa") + "' && cp '" +
        (keys / ".ssh/id_ed25519.pub") + "' '" + (keys / ".ssh/id_rsa.pub") + "'";
    if (std::system(command.c_str()) != 0) GTEST_SKIP() << "no ssh-keygen";
    const SftpPeer bmc(root, {"--no-password"});

    EXPECT_THAT(Text(Download(bmc.At("/file"))), StartsWith("varnex.transfer:67 "));

    EXPECT_FALSE(Exists(root / "offered-key"));
}

TEST_F(FileClientDownloadSftp, APasswordMayHoldAnythingAndBeLong) {
    root.Write("file", "content");
    std::string password = "a\"b'c d:e@f/\xC3\xA4%41\\ ";
    password.resize(1000, 'x');
    const SftpPeer bmc(root, {"--password", password});
    Uri uri = bmc.At("/file");
    uri.set_auth("admin", password);

    EXPECT_EQ("", Text(Download(uri)));
}

TEST_F(FileClientDownloadSftp, ManyThreadsShareTheKnownHosts) {
    root.Write("file", HttpsPeer::FileContent(300000));
    const SftpPeer bmc(root);
    std::vector<std::thread> threads;
    std::vector<std::string> results(8);
    LogLines log;
    for (std::size_t i = 0; i < results.size(); ++i) {
        threads.emplace_back([&, i] {
            results[i] = Text(file_client::download(bmc.At("/file"), folder / std::to_string(i),
                                                    NoOption(nullptr)));
        });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_THAT(results, testing::Each(""));
    EXPECT_EQ(bmc.Name() + " " + bmc.PublicKey() + "\n", Content(known)) << "one line, once";
    const std::vector<std::string> lines = log.Take();
    EXPECT_EQ(1, std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
                  return line.find("is new, is accepted and remembered") != std::string::npos;
              }));
}

TEST_F(FileClientHostKeys, AnUnknownKeyIsTakenAndRememberedWithItsFingerprint) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    LogLines log;
    const std::string key = "platform/src/HostKeyCheck: The host key of " + bmc.Name() +
                            ", ssh-ed25519 " + bmc.Fingerprint() + ", ";

    EXPECT_EQ("", Text(Download(bmc.At("/file"))));
    EXPECT_EQ("", Text(Download(bmc.At("/file"))));

    EXPECT_THAT(log.Take(),
                ElementsAre("3 " + key + "is new, is accepted and remembered in " + known + ".",
                            "4 " + key + "is known."));
    EXPECT_EQ(bmc.Name() + " " + bmc.PublicKey() + "\n", Content(known));
    EXPECT_EQ(0600U, Mode(known));
}

TEST_F(FileClientHostKeys, WithoutAUserTheKeyIsJudgedAndNobodyLogsIn) {
    const SftpPeer bmc(root);
    const Uri nobody("sftp", "127.0.0.1", bmc.Port(), "", "secret", "/");

    EXPECT_EQ("varnex.transfer:67 Authentication failure: there is no user name",
              List(nobody, names));

    EXPECT_THAT(names, ElementsAre("untouched"));
    EXPECT_EQ(bmc.Name() + " " + bmc.PublicKey() + "\n", Content(known));

    const SftpPeer other(root);
    KnownHosts(bmc.Name() + " " + other.PublicKey() + "\n");
    EXPECT_THAT(List(nobody, names), StartsWith("varnex.transfer:60 The host key of "));
}

TEST_F(FileClientHostKeys, EveryTypeOfKeyIsRemembered) {
    root.Write("file", "content");
    for (const char* type : {"ssh-ed25519", "ssh-rsa", "ecdsa-sha2-nistp256", "ecdsa-sha2-nistp384",
                             "ecdsa-sha2-nistp521"}) {
        const SftpPeer bmc(root, {"--key-type", type});

        EXPECT_EQ("", Text(Download(bmc.At("/file")))) << type;

        EXPECT_THAT(Content(known), HasSubstr(bmc.Name() + " " + bmc.PublicKey() + "\n"));
        EXPECT_THAT(bmc.PublicKey(), StartsWith(type));
    }
}

TEST_F(FileClientHostKeys, AChangedKeyIsRefusedWithWhatToDo) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    const SftpPeer other(root);
    const std::string content = "# comment\n\n" + bmc.Name() + " " + other.PublicKey() +
                                "\nother.example " + bmc.PublicKey() + "\n";
    KnownHosts(content);
    const std::string text =
        "varnex.transfer:60 The host key of " + bmc.Name() + ", ssh-ed25519 " + bmc.Fingerprint() +
        ", is not the one that is known (" + known +
        ", line 3). Somebody may be listening in. If the BMC was replaced or has made new keys, "
        "remove its lines from the file and try again.";

    EXPECT_EQ(text, Text(Download(bmc.At("/file"))));
    EXPECT_EQ(text, List(bmc.At("/"), names));

    ExpectNothingLeft();
    EXPECT_THAT(names, ElementsAre("untouched"));
    EXPECT_EQ(content, Content(known));
}

TEST_F(FileClientHostKeys, AKeyOfAnotherTypeIsAChangedKey) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    const SftpPeer other(root, {"--key-type", "ecdsa-sha2-nistp256"});
    KnownHosts(bmc.Name() + " " + other.PublicKey() + "\n");

    EXPECT_THAT(Text(Download(bmc.At("/file"))), AllOf(StartsWith("varnex.transfer:60 "),
                                                       HasSubstr("is not the one that is known")));
}

TEST_F(FileClientHostKeys, AnyOfSeveralKnownKeysWillDo) {
    root.Write("file", "content");
    const SftpPeer bmc(root, {"--second-key-type", "ecdsa-sha2-nistp256"});
    const SftpPeer other(root);
    KnownHosts(bmc.Name() + " " + other.PublicKey() + "\n");
    EXPECT_NE("", Text(Download(bmc.At("/file"))));

    // As an operator does who asks the BMC itself.
    const std::string command = "ssh-keyscan -p " + std::to_string(bmc.Port()) + " 127.0.0.1 >> '" +
                                known + "' 2>/dev/null";
    if (std::system(command.c_str()) != 0) GTEST_SKIP() << "no ssh-keyscan";

    EXPECT_EQ("", Text(Download(bmc.At("/file"))));
}

TEST_F(FileClientHostKeys, HashedNamesAreUnderstood) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    const SftpPeer other(root);
    for (const SftpPeer* one : {&bmc, &other}) {
        KnownHosts(bmc.Name() + " " + one->PublicKey() + "\n");
        const std::string command = "ssh-keygen -q -H -f '" + known + "' 2>/dev/null";
        if (std::system(command.c_str()) != 0) GTEST_SKIP() << "no ssh-keygen";
        EXPECT_THAT(Content(known), StartsWith("|1|"));

        EXPECT_THAT(Text(Download(bmc.At("/file"))), one == &bmc
                                                         ? testing::Matcher<std::string>("")
                                                         : StartsWith("varnex.transfer:60 "));
    }
}

TEST_F(FileClientHostKeys, KeysBelongToAPort) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    const SftpPeer other(root);

    EXPECT_EQ("", Text(Download(bmc.At("/file"))));
    EXPECT_EQ("", Text(Download(other.At("/file"))));

    EXPECT_EQ(
        bmc.Name() + " " + bmc.PublicKey() + "\n" + other.Name() + " " + other.PublicKey() + "\n",
        Content(known));
}

TEST_F(FileClientHostKeys, SomethingIsWrittenBehindALineWithoutAnEnd) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    KnownHosts("other.example ssh-ed25519 AAAA");

    EXPECT_EQ("", Text(Download(bmc.At("/file"))));

    EXPECT_EQ("other.example ssh-ed25519 AAAA\n" + bmc.Name() + " " + bmc.PublicKey() + "\n",
              Content(known));
}

TEST_F(FileClientHostKeys, ARevokedKeyIsRefusedThoughItIsKnown) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    KnownHosts(bmc.Name() + " " + bmc.PublicKey() + "\n@revoked * " + bmc.PublicKey() + "\n");

    EXPECT_EQ("varnex.transfer:60 The host key of " + bmc.Name() + ", ssh-ed25519 " +
                  bmc.Fingerprint() + ", is revoked (" + known + ", line 2).",
              Text(Download(bmc.At("/file"))));
}

TEST_F(FileClientHostKeys, StrictTakesKnownKeysAlone) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    Environment("VARNEX_SFTP_HOST_KEYS", "strict");

    EXPECT_EQ("varnex.transfer:60 The host key of " + bmc.Name() + ", ssh-ed25519 " +
                  bmc.Fingerprint() +
                  ", is not known, and only known ones are accepted. If the fingerprint is the "
                  "BMC's, add this line to " +
                  known + ": " + bmc.Name() + " " + bmc.PublicKey(),
              Text(Download(bmc.At("/file"))));
    EXPECT_FALSE(Exists(known));

    KnownHosts(bmc.Name() + " " + bmc.PublicKey() + " a comment\n");
    EXPECT_EQ("", Text(Download(bmc.At("/file"))));
}

TEST_F(FileClientHostKeys, InsecureTakesAnyKeyAndRemembersNone) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    const SftpPeer other(root);
    const std::string content = bmc.Name() + " " + other.PublicKey() + "\n";
    KnownHosts(content);
    Environment("VARNEX_SFTP_HOST_KEYS", "insecure");
    LogLines log;

    EXPECT_EQ("", Text(Download(bmc.At("/file"))));

    EXPECT_THAT(log.Take(),
                ElementsAre("4 platform/src/HostKeyCheck: The host key of " + bmc.Name() +
                            ", ssh-ed25519 " + bmc.Fingerprint() + ", is not verified."));
    EXPECT_EQ(content, Content(known));
}

TEST_F(FileClientHostKeys, AnUnknownPolicyIsStrictAndReported) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    Environment("VARNEX_SFTP_HOST_KEYS", "lax");
    LogLines log;

    EXPECT_THAT(Text(Download(bmc.At("/file"))), HasSubstr("is not known"));

    EXPECT_THAT(log.Take(),
                ElementsAre("2 platform/src/HostKeyCheck: VARNEX_SFTP_HOST_KEYS: \"lax\" "
                            "is none of accept-new, strict and insecure; strict holds."));
}

TEST_F(FileClientHostKeys, TheFileLiesWithTheUsersState) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    unsetenv("VARNEX_KNOWN_HOSTS");
    unsetenv("XDG_STATE_HOME");
    umask(0);

    EXPECT_EQ("", Text(Download(bmc.At("/file"))));
    EXPECT_EQ(0600U, Mode(keys / ".local/state/varnex/known_hosts"));
    EXPECT_EQ(0700U, Mode(keys / ".local/state/varnex"));

    Environment("XDG_STATE_HOME", keys / "state");
    EXPECT_EQ("", Text(Download(bmc.At("/file"))));
    EXPECT_EQ(0600U, Mode(keys / "state/varnex/known_hosts"));
}

TEST_F(FileClientHostKeys, AKeyThatCannotBeRememberedIsTakenWithAWarning) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    keys.Write("file", "");
    Environment("VARNEX_KNOWN_HOSTS", keys / "file/known_hosts");
    LogLines log;

    EXPECT_EQ("", Text(Download(bmc.At("/file"))));

    EXPECT_THAT(log.Take(), ElementsAre("2 platform/src/HostKeyCheck: The host key of " +
                                        bmc.Name() + ", ssh-ed25519 " + bmc.Fingerprint() +
                                        ", is new, is accepted, and cannot be remembered in \"" +
                                        (keys / "file/known_hosts") + "\": Not a directory"));
}

TEST_F(FileClientHostKeys, AFileThatCannotBeReadIsARefusal) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    std::filesystem::create_directory(known);

    EXPECT_EQ(
        "varnex.transfer:60 The known host keys cannot be read: " + known + ": Is a directory",
        Text(Download(bmc.At("/file"))));
    ExpectNothingLeft();
}

TEST_F(FileClientHostKeys, WhatIsNoFileOrAHugeOneIsARefusalAtOnce) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    const Stopwatch watch;
    const std::string start = "varnex.transfer:60 The known host keys cannot be read: ";

    ASSERT_EQ(0, mkfifo(known.c_str(), 0600));
    EXPECT_EQ(start + known + ": Invalid argument", Text(Download(bmc.At("/file"))));
    for (const char* device : {"/dev/zero", "/dev/tty0", "/dev/full"}) {
        if (access(device, R_OK) != 0) continue;
        Environment("VARNEX_KNOWN_HOSTS", device);
        EXPECT_EQ(start + device + ": Invalid argument", Text(Download(bmc.At("/file"))));
    }
    const std::string huge = keys.Write("huge", "");
    std::filesystem::resize_file(huge, 17UL << 20);
    Environment("VARNEX_KNOWN_HOSTS", huge);
    EXPECT_EQ(start + huge + ": File too large", Text(Download(bmc.At("/file"))));
    std::filesystem::resize_file(huge, 16UL << 20);  // one line of NULs
    EXPECT_THAT(Text(Download(bmc.At("/file"))), testing::Not(HasSubstr("Invalid")));

    EXPECT_LT(watch.Seconds(), 15);
}

TEST_F(FileClientHostKeys, ALockThatNobodyReleasesIsNotWaitedForEver) {
    root.Write("file", "content");
    const SftpPeer bmc(root);
    KnownHosts("");
    const int fd = open(known.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(0, flock(fd, LOCK_EX));
    const Stopwatch watch;

    EXPECT_EQ("varnex.transfer:60 The known host keys cannot be read: " + known +
                  ": Device or resource busy",
              Text(Download(bmc.At("/file"))));

    EXPECT_LT(watch.Seconds(), 60);
    close(fd);
}

// A network of this process alone with a single interface besides the loopback, whose link-local
// address is the result; empty where that cannot be had.
std::string LinkLocalAddress() {
    if (!EnterNamespace(CLONE_NEWNET)) return "";
    const char* const commands =
        "PATH=$PATH:/sbin:/usr/sbin; ip link set lo up && "
        "ip link add only0 type veth peer name other0 && "
        "ip link set only0 addrgenmode none && ip link set other0 addrgenmode none && "
        "ip link set only0 up && ip link set other0 up && "
        "ip -6 address add fe80::115/64 dev only0 nodad";
    return std::system(commands) == 0 ? "fe80::115" : "";
}

TEST_F(FileClientSftp, ALinkLocalAddressWorksWithItsScope) {
    if (LinkLocalAddress().empty()) GTEST_SKIP() << "no network of its own here";
    root.Write("file", "content");
    const SftpPeer bmc(root, {"--bind", "::"});

    EXPECT_EQ("", Text(Download(bmc.At("/file", "fe80::115%only0"))));
    EXPECT_EQ("", Text(Download(bmc.At("/file", "[fe80::115%only0]"))));

    EXPECT_THAT(Content(known), StartsWith("[fe80::115%only0]:" + std::to_string(bmc.Port())));
}

TEST_F(FileClientSftp, ALinkLocalAddressWithoutAScopeWorksWhereThereIsNoChoice) {
    if (LinkLocalAddress().empty()) GTEST_SKIP() << "no network of its own here";
    root.Write("file", "content");
    const SftpPeer bmc(root, {"--bind", "::"});

    EXPECT_EQ("", Text(Download(bmc.At("/file", "[fe80::115]"))));

    ASSERT_EQ(0, std::system("PATH=$PATH:/sbin:/usr/sbin; "
                             "ip -6 address add fe80::116/64 dev other0 nodad"));
    Uri another = bmc.At("/file", "[fe80::115]");  // the login of the first still lives
    another.set_auth("other", "secret");
    EXPECT_THAT(Text(Download(another)), StartsWith("varnex.transfer:7 "));
}

}  // namespace
