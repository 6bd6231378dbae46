// SPDX-License-Identifier: Apache-2.0
//
// Downloads that are cut, and go on later where a host asks for it.
#include <sys/file.h>
#include <unistd.h>

#include "DownloadTest.h"
#include "HttpsPeer.h"
#include "SftpPeer.h"
#include "support/DiskFaults.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

// A host that keeps parts, and remembers their validators as a history would.
class Keeper : public Varnex::TransferWatcher {
public:
    Keeper() { Varnex::AddTransferWatcher(this); }
    ~Keeper() override { Varnex::RemoveTransferWatcher(this); }
    Keeper(const Keeper&) = delete;
    Keeper& operator=(const Keeper&) = delete;

    bool KeepsPart(const std::string&) override { return keeps; }
    std::string ContinuesPart(const std::string&) override { return continues ? validator : ""; }
    void PartBegun(const Varnex::PartialFile& part) override { Note("begun", part); }
    void PartKept(const Varnex::PartialFile& part) override { Note("kept", part); }
    bool Progress(const Varnex::TransferProgress& progress) override {
        bytes.push_back(progress.bytes);
        expected = progress.expected;
        return progress.bytes < stopAt;
    }
    void Completed(const Varnex::TransferResult& result) override { sha256 = result.sha256; }

    std::vector<std::string> TakeEvents() { return std::exchange(events, {}); }

    bool keeps = true;
    bool continues = true;
    std::uint64_t stopAt = std::uint64_t(-1);
    std::string validator;
    std::vector<std::uint64_t> bytes;
    std::uint64_t expected = 0;
    std::string sha256;

private:
    void Note(const std::string& what, const Varnex::PartialFile& part) {
        events.push_back(what + " " + std::to_string(part.bytes) + " of " +
                         std::to_string(part.expected) + " " + part.validator);
        validator = part.validator;
    }

    std::vector<std::string> events;
};

class FileClientResume : public DownloadTest {
protected:
    static constexpr std::size_t kSize = 3000000;

    // The first half of the file, which the peer cuts there.
    void DownloadHalf(const std::string& path) {
        ASSERT_THAT(Text(Download(bmc.At(path))), StartsWith("varnex.transfer:"));
        keeper.bytes.clear();
    }
    std::string Header(std::size_t request, const std::string& name) const {
        return Member(bmc.Requests().at(request).get_child("headers"), name);
    }
    // By sha256sum.
    std::string Sha256OfTarget() const {
        const TempFolder files;
        const std::string sum = files / "sum";
        EXPECT_EQ(0, std::system(("sha256sum < " + target + " > " + sum).c_str()));
        return Content(sum).substr(0, 64);
    }
    void ExpectWhole(std::size_t shift = 0) {
        EXPECT_EQ(HttpsPeer::FileContent(kSize + shift).substr(shift), Content(target));
        EXPECT_EQ(Sha256OfTarget(), keeper.sha256);
        EXPECT_EQ(0600U, Mode(target));
        EXPECT_THAT(folder.Names(), ElementsAre("archive"));
    }

    const HttpsPeer bmc;
    Keeper keeper;
    const std::string size = std::to_string(kSize);
    const std::string half = std::to_string(kSize / 2);
};

TEST_F(FileClientResume, NothingIsKeptWhereNobodyAsks) {
    keeper.keeps = false;

    EXPECT_NE("", Text(Download(bmc.At("/resume/honest/" + size))));

    EXPECT_THAT(keeper.TakeEvents(), IsEmpty());
    ExpectNothingLeft();
}

TEST_F(FileClientResume, ACutDownloadKeepsWhatHasArrived) {
    EXPECT_THAT(Text(Download(bmc.At("/resume/honest/" + size))), StartsWith("varnex.transfer:"));

    EXPECT_EQ(HttpsPeer::FileContent(kSize / 2), Content(part));
    EXPECT_EQ(0600U, Mode(part));
    EXPECT_THAT(folder.Names(), ElementsAre("archive.varnex-part"));
    EXPECT_THAT(keeper.TakeEvents(),
                ElementsAre("begun 0 of 0 \"state-1\"", "kept " + half + " of 0 \"state-1\""));
}

TEST_F(FileClientResume, TheRestIsAskedForAndTheHashIsThatOfTheWhole) {
    DownloadHalf("/resume/honest/" + size);
    keeper.TakeEvents();

    EXPECT_EQ("", Text(Download(bmc.At("/resume/honest/" + size), {"X-Auth-Token:t"})));

    ExpectWhole();
    ASSERT_EQ(2U, bmc.Requests().size());
    EXPECT_EQ("", Header(0, "Range"));
    EXPECT_EQ("bytes=" + half + "-", Header(1, "Range"));
    EXPECT_EQ("\"state-1\"", Header(1, "If-Range"));
    EXPECT_EQ("t", Header(1, "X-Auth-Token"));
    EXPECT_THAT(keeper.TakeEvents(), ElementsAre("begun " + half + " of " + size + " \"state-1\""));
    EXPECT_EQ(kSize / 2, keeper.bytes.front());
    EXPECT_EQ(kSize, keeper.expected);
}

TEST_F(FileClientResume, ADateServesWhereThereIsNoTag) {
    DownloadHalf("/resume/dated/" + size);
    EXPECT_EQ("Wed, 01 May 2024 11:00:00 GMT", keeper.validator);

    EXPECT_EQ("", Text(Download(bmc.At("/resume/dated/" + size))));

    ExpectWhole();
    EXPECT_EQ("Wed, 01 May 2024 11:00:00 GMT", Header(1, "If-Range"));
    EXPECT_EQ(kSize / 2, keeper.bytes.front());
}

TEST_F(FileClientResume, WhatIsNoStrongValidatorIsNone) {
    for (const std::string kind : {"weak", "fresh", "unknown", "doubled"}) {
        DownloadHalf("/resume/" + kind + "/" + size);
        EXPECT_EQ("", keeper.validator) << kind;
        EXPECT_EQ(HttpsPeer::FileContent(kSize / 2), Content(part)) << "kept all the same";

        EXPECT_EQ("", Text(Download(bmc.At("/resume/" + kind + "/" + size)))) << kind;

        ExpectWhole();
        EXPECT_EQ("", Header(bmc.Requests().size() - 1, "Range")) << kind;
        std::filesystem::remove(target);
    }
}

TEST_F(FileClientResume, AServerWithoutRangesStartsAgain) {
    DownloadHalf("/resume/ranges-unknown/" + size);
    keeper.TakeEvents();

    EXPECT_EQ("", Text(Download(bmc.At("/resume/ranges-unknown/" + size))));

    ExpectWhole();
    EXPECT_EQ(2U, bmc.Requests().size());
    EXPECT_THAT(keeper.TakeEvents(), ElementsAre("begun 0 of " + size + " \"state-1\""));
}

TEST_F(FileClientResume, AFileThatHasChangedStartsAgain) {
    DownloadHalf("/resume/changed/" + size);

    EXPECT_EQ("", Text(Download(bmc.At("/resume/changed/" + size))));

    ExpectWhole(7);
    EXPECT_EQ("\"state-2\"", keeper.validator);
}

TEST_F(FileClientResume, AFileThatIsEmptyNowIsEmpty) {
    DownloadHalf("/resume/changed-and-empty/" + size);

    EXPECT_EQ("", Text(Download(bmc.At("/resume/changed-and-empty/" + size))));

    EXPECT_EQ("", Content(target));
    EXPECT_EQ(Sha256OfTarget(), keeper.sha256);
}

TEST_F(FileClientResume, NothingIsMissingWhereTheServerHasNoMore) {
    DownloadHalf("/resume/complete/" + size);
    EXPECT_EQ(kSize, Content(part).size());

    EXPECT_EQ("", Text(Download(bmc.At("/resume/complete/" + size))));

    ExpectWhole();
    EXPECT_EQ(2U, bmc.Requests().size());
}

TEST_F(FileClientResume, AFileThatIsShorterNowStartsAgain) {
    DownloadHalf("/resume/shrunk/" + size);

    EXPECT_EQ("", Text(Download(bmc.At("/resume/shrunk/" + size))));

    ExpectWhole(7);
    ASSERT_EQ(3U, bmc.Requests().size());
    EXPECT_EQ("", Header(2, "Range"));
    EXPECT_EQ("", Header(2, "If-Range"));
}

TEST_F(FileClientResume, AnAnswerThatDoesNotFitStartsAgain) {
    for (const std::string kind : {"lies-about-start", "lies-about-state", "lies-without-range"}) {
        DownloadHalf("/resume/" + kind + "/" + size);

        EXPECT_EQ("", Text(Download(bmc.At("/resume/" + kind + "/" + size)))) << kind;

        ExpectWhole(kind == "lies-about-state" ? 7 : 0);
        std::filesystem::remove(target);
    }
}

TEST_F(FileClientResume, ARangeThatMakesNoSenseStartsAgain) {
    for (const std::string what : {"nothing", "no-size", "no-bytes", "backwards", "beyond", "words",
                                   "units", "huge", "long"}) {
        DownloadHalf("/resume/tells-" + what + "/" + size);

        EXPECT_EQ("", Text(Download(bmc.At("/resume/tells-" + what + "/" + size)))) << what;

        ExpectWhole();
        EXPECT_EQ("", Header(bmc.Requests().size() - 1, "Range")) << what;
        std::filesystem::remove(target);
    }
}

TEST_F(FileClientResume, ARestThatIsLongerThanAnnouncedIsAnErrorAndNothingOfItIsKept) {
    for (const std::string kind : {"sends-more", "sends-more-behind"}) {
        DownloadHalf("/resume/" + kind + "/" + size);

        EXPECT_EQ("varnex.transfer:18 The server sends more than the " + size +
                      " bytes that it announced",
                  Text(Download(bmc.At("/resume/" + kind + "/" + size))));
        ExpectNothingLeft();
    }
}

TEST_F(FileClientResume, ARestThatIsShorterThanTheFileIsAnErrorAndIsKept) {
    DownloadHalf("/resume/sends-less/" + size);

    EXPECT_EQ("varnex.transfer:18 The server has sent 2999000 of 3000000 bytes",
              Text(Download(bmc.At("/resume/sends-less/" + size))));

    EXPECT_EQ(HttpsPeer::FileContent(kSize - 1000), Content(part));
}

TEST_F(FileClientResume, IsCutAndContinuedMoreThanOnce) {
    DownloadHalf("/resume/cut-again/" + size);
    keeper.TakeEvents();

    EXPECT_THAT(Download(bmc.At("/resume/cut-again/" + size)).value(),
                AnyOf(CURLE_PARTIAL_FILE, CURLE_RECV_ERROR));
    EXPECT_THAT(keeper.TakeEvents(), ElementsAre("begun 1500000 of 3000000 \"state-1\"",
                                                 "kept 2250000 of 3000000 \"state-1\""));

    EXPECT_EQ("", Text(Download(bmc.At("/resume/cut-again/" + size))));
    ExpectWhole();
}

TEST_F(FileClientResume, AnErrorThatIsNotAboutTheFileLeavesThePart) {
    DownloadHalf("/resume/gone/" + size);

    EXPECT_EQ("varnex.transfer:1404 The server answered HTTP status 404",
              Text(Download(bmc.At("/resume/gone/" + size))));
    EXPECT_EQ(HttpsPeer::FileContent(kSize / 2), Content(part));

    const auto port = static_cast<std::uint16_t>(FreePort());
    EXPECT_EQ(7, Download(Uri("https", "127.0.0.1", port, "", "", "/")).value());
    EXPECT_EQ(HttpsPeer::FileContent(kSize / 2), Content(part));

    keeper.keeps = false;
    EXPECT_NE("", Text(Download(bmc.At("/resume/gone/" + size))));
    ExpectNothingLeft();
}

TEST_F(FileClientResume, AStoppedDownloadGoesOn) {
    keeper.stopAt = 10000;
    EXPECT_EQ("varnex.transfer:42 The download was stopped", Text(Download(bmc.At("/slow/100"))));
    const std::string kept = Content(part);
    EXPECT_GE(kept.size(), 10000U);
    EXPECT_EQ(HttpsPeer::FileContent(kept.size()), kept);

    // While it reads what it has, too.
    keeper.validator = "\"state-1\"";
    EXPECT_EQ("varnex.transfer:42 The download was stopped",
              Text(Download(bmc.At("/resume/honest/" + size))));
    EXPECT_EQ(1U, bmc.Requests().size());
    EXPECT_EQ(kept, Content(part));
}

TEST_F(FileClientResume, APartOfAKilledProcessServesToo) {
    folder.Write("archive.varnex-part", HttpsPeer::FileContent(1000001));
    (void)Download(bmc.At("/resume/honest/" + size));  // the peer's cut
    folder.Write("archive.varnex-part", HttpsPeer::FileContent(1000001));

    EXPECT_EQ("", Text(Download(bmc.At("/resume/honest/" + size))));

    EXPECT_EQ("bytes=1000001-", Header(1, "Range"));
    ExpectWhole();
}

TEST_F(FileClientResume, APartThatIsNotOurOwnIsReplaced) {
    const TempFolder elsewhere;
    const std::string victim = elsewhere.Write("victim", "untouched");
    const std::function<void()> parts[] = {
        [&] { std::filesystem::create_symlink(victim, part); },
        [&] { std::filesystem::create_hard_link(victim, part); },
        [&] { EXPECT_EQ(0, mkfifo(part.c_str(), 0600)); },
        [&] { EXPECT_EQ(0, chmod(folder.Write("archive.varnex-part", "x").c_str(), 0620)); },
    };
    keeper.validator = "\"state-1\"";
    (void)Download(bmc.At("/resume/honest/" + size));
    for (const auto& make : parts) {
        std::filesystem::remove(part);
        make();

        EXPECT_EQ("", Text(Download(bmc.At("/resume/honest/" + size))));

        ExpectWhole();
        EXPECT_EQ("", Header(bmc.Requests().size() - 1, "Range"));
        EXPECT_EQ("untouched", Content(victim));
    }
}

TEST_F(FileClientResume, APartThatSomebodyIsWritingIsLeftAlone) {
    folder.Write("archive.varnex-part", "theirs");
    const int fd = open(part.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(0, flock(fd, LOCK_EX));
    keeper.validator = "\"state-1\"";

    EXPECT_EQ("generic:16 Device or resource busy", Text(Download(bmc.At("/file/10"))));

    EXPECT_EQ("theirs", Content(part));
    EXPECT_THAT(bmc.Requests(), IsEmpty());
    close(fd);
}

TEST_F(FileClientResume, AValidatorThatIsNoneNeverReachesTheServer) {
    for (const char* text : {"state-1", "\"a\"\r\nX-Evil: 1", "W/\"a\"", "\"", "\"a\nb\"",
                             "yesterday", "Wed, 01 May 2024 11:00:00 GMT\r\nX-Evil: 1"}) {
        folder.Write("archive.varnex-part", "x");
        keeper.validator = text;

        EXPECT_EQ("", Text(Download(bmc.At("/any/x")))) << text;

        EXPECT_EQ("", Header(bmc.Requests().size() - 1, "If-Range"));
        EXPECT_EQ("", Header(bmc.Requests().size() - 1, "X-Evil"));
        EXPECT_EQ(HttpsPeer::FileContent(10), Content(target));
    }
}

TEST_F(FileClientResume, ADiskThatFailsKeepsNothing) {
    for (const char* rule : {"write:%:3:EIO", "write:%:3:ENOSPC"}) {
        std::string text = rule;
        text.replace(text.find('%'), 1, folder.Path());
        const DiskFaults disk(text);

        EXPECT_THAT(Text(Download(bmc.At("/cut/5000000"))), StartsWith("generic:")) << rule;

        EXPECT_GT(disk.Played(), 0) << rule;
        ExpectNothingLeft();
    }
}

TEST_F(FileClientResume, OneOfSeveralHostsIsEnough) {
    Keeper other;
    other.keeps = other.continues = false;
    DownloadHalf("/resume/honest/" + size);

    EXPECT_EQ("", Text(Download(bmc.At("/resume/honest/" + size))));

    ExpectWhole();
    EXPECT_EQ("bytes=" + half + "-", Header(1, "Range"));
}

TEST_F(FileClientResume, SftpKeepsNoParts) {
    TempFolder files;
    files.Write("file", std::string(5000000, 'x'));
    const SftpPeer server(files);
    Environment("VARNEX_KNOWN_HOSTS", files / "known_hosts");
    keeper.stopAt = 1;

    EXPECT_EQ(42, Download(server.At("/file")).value());

    EXPECT_THAT(keeper.TakeEvents(), IsEmpty());
    ExpectNothingLeft();
}

TEST_F(FileClientResume, APartThatCannotBeWrittenDownIsNotKept) {
    const DiskFaults disk("close:" + folder.Path() + ":1:EIO");

    EXPECT_THAT(Text(Download(bmc.At("/cut/5000000"))), StartsWith("varnex.transfer:"));

    EXPECT_EQ(1, disk.Played());
    EXPECT_THAT(keeper.TakeEvents(), ElementsAre(StartsWith("begun ")));
    ExpectNothingLeft();
}

// The same with a server that others have written.
class FileClientResumeNginx : public DownloadTest {
protected:
    void SetUp() override {
        const std::string program = Peers() + "/usr/sbin/nginx";
        if (Peers().empty() || !Exists(program)) {
            GTEST_SKIP() << "nginx is not unpacked (VARNEX_PEERS)";
        }
        for (const auto& entry : std::filesystem::directory_iterator(Peers() + "/usr/lib")) {
            const std::string name = entry.path();
            if (name.find("-linux-gnu") != std::string::npos) Environment("LD_LIBRARY_PATH", name);
        }
        files.Write("nginx.conf", Settings());
        files.Write("archive", content);
        server = std::make_unique<Daemon>(
            std::vector<std::string>{program, "-p", files.Path(), "-e", files / "error.log", "-c",
                                     files / "nginx.conf"},
            port);
        ASSERT_TRUE(server->IsUp()) << Content(files / "error.log");
    }
    // Two servers for the same files: the second knows no ranges.
    std::string Settings() const {
        std::ostringstream out;
        out << "daemon off;\nmaster_process off;\npid nginx.pid;\nevents {}\nhttp {\n"
            << "log_format line '$status $body_bytes_sent [$http_range]';\n"
            << "access_log requests.log line;\n";
        for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
            out << kind << "_temp_path " << kind << ";\n";
        }
        for (const int ranges : {1, 0}) {
            out << "server { listen 127.0.0.1:" << (ranges == 1 ? port : other) << " ssl;\n"
                << "ssl_certificate " << certificate << ";\nssl_certificate_key " << certificate
                << ";\nmax_ranges " << ranges << ";\nroot " << files.Path() << "; }\n";
        }
        return out.str() + "}\n";
    }
    // Until a good deal of it is there.
    void DownloadSome() {
        keeper.stopAt = 1000000;
        ASSERT_EQ(42, Download(At(port)).value());
        keeper.stopAt = std::uint64_t(-1);
        had = Content(part).size();
        ASSERT_GT(had, 900000U);
    }
    Uri At(int where) const {
        return Uri("https", "127.0.0.1", static_cast<std::uint16_t>(where), "", "", "/archive");
    }

    const HttpsPeer makesCertificates;
    const std::string certificate =
        std::filesystem::path(makesCertificates.Ca()).replace_filename("server.pem");
    const std::string content = HttpsPeer::FileContent(30000000);
    const int port = FreePort();
    const int other = FreePort();
    TempFolder files;
    std::unique_ptr<Daemon> server;
    Keeper keeper;
    std::size_t had = 0;
};

TEST_F(FileClientResumeNginx, SendsTheRest) {
    DownloadSome();

    EXPECT_EQ("", Text(Download(At(port))));

    EXPECT_EQ(content, Content(target));
    server.reset();  // writes its log
    EXPECT_THAT(Content(files / "requests.log"),
                testing::EndsWith("206 " + std::to_string(content.size() - had) +
                                  " [bytes=" + std::to_string(had) + "-]\n"));
}

TEST_F(FileClientResumeNginx, SendsAllOfAFileThatHasChanged) {
    DownloadSome();
    const std::string changed = content.substr(7);
    files.Write("archive", changed);

    EXPECT_EQ("", Text(Download(At(port))));

    EXPECT_EQ(changed, Content(target));
}

TEST_F(FileClientResumeNginx, SendsAllOfItWhereItKnowsNoRanges) {
    DownloadSome();

    EXPECT_EQ("", Text(Download(At(other))));

    EXPECT_EQ(content, Content(target));
}

TEST_F(FileClientResumeNginx, SaysThatThereIsNoMore) {
    DownloadSome();
    folder.Write("archive.varnex-part", content);

    EXPECT_EQ("", Text(Download(At(port))));

    EXPECT_EQ(content, Content(target));
    server.reset();
    EXPECT_THAT(Content(files / "requests.log"), testing::HasSubstr("\n416 "));
}

}  // namespace
