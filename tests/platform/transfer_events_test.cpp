// SPDX-License-Identifier: Apache-2.0
//
// What hosts are told of transfers as values, and not by texts.
#include "DownloadTest.h"
#include "HttpsPeer.h"
#include "SftpPeer.h"

namespace {

using testing::ElementsAre;
using Varnex::HostKeyDecision;
using Varnex::NameFault;
using Varnex::TransferFault;

// Notes listings and host keys, one line each.
class Notes : public Varnex::TransferWatcher {
public:
    Notes() { Varnex::AddTransferWatcher(this); }
    ~Notes() override { Varnex::RemoveTransferWatcher(this); }
    Notes(const Notes&) = delete;
    Notes& operator=(const Notes&) = delete;

    void ListingStarted(const std::string& folder) override { listings.push_back("? " + folder); }
    void NamePassedOver(const Varnex::PassedOverName& name) override {
        passedOver.emplace_back(name.name, name.fault);
        EXPECT_EQ("/hostile/", name.folder);
    }
    void ListingEnded(const Varnex::ListingResult& result) override {
        listings.push_back(result.folder + " " + std::to_string(result.names) + " " +
                           std::to_string(result.error.value()));
    }
    void HostKeyJudged(const Varnex::HostKeyResult& result) override {
        keys.push_back(result.decision);
        place = result.file + ":" + std::to_string(result.line);
        key = result.host + " " + result.type + " " + result.fingerprint;
        accepted = result.accepted;
        fileError = result.error;
        text = result.text;
    }
    bool Progress(const Varnex::TransferProgress&) override { return true; }

    std::vector<std::string> listings;
    std::vector<std::pair<std::string, NameFault>> passedOver;
    std::vector<HostKeyDecision> keys;
    std::string place;
    std::string key;
    bool accepted = false;
    std::error_code fileError;
    std::string text;
};

class TransferEvents : public DownloadTest {
protected:
    TransferEvents() { Environment("VARNEX_KNOWN_HOSTS", known); }

    std::error_code List(const Uri& uri) { return file_client::ls_directory(uri, names); }

    TempFolder root;
    TempFolder files;
    const std::string known = files / "known_hosts";
    std::list<std::string> names;
    Notes notes;
};

TEST_F(TransferEvents, AListingIsToldFromItsStartToItsEnd) {
    root.Write("a", "");
    root.Write("b", "");
    const SftpPeer bmc(root);

    EXPECT_EQ("", Text(List(bmc.At("/"))));
    EXPECT_EQ(CURLE_REMOTE_FILE_NOT_FOUND, List(bmc.At("/absent")).value());
    EXPECT_EQ(CURLE_UNSUPPORTED_PROTOCOL, List(Uri("https", "127.0.0.1", 1, "", "", "/x")).value());

    EXPECT_THAT(notes.listings,
                ElementsAre("? /", "/ 2 0", "? /absent", "/absent 0 78", "? /x", "/x 0 1"));
}

TEST_F(TransferEvents, NamesThatArePassedOverAreToldWithTheirFault) {
    const SftpPeer bmc(root, {"--names", files.Write("names", R"(["good", "../x", "a\u0000b", "",
                                                                "a\nb", ".", ".."])")});

    EXPECT_EQ("", Text(List(bmc.At("/hostile/"))));

    using Pair = std::pair<std::string, NameFault>;
    EXPECT_THAT(notes.passedOver,
                ElementsAre(Pair("../x", NameFault::kSlash),
                            Pair(std::string("a\0b", 3), NameFault::kNulByte),
                            Pair("", NameFault::kEmpty), Pair("a\nb", NameFault::kLineEnd)));
    EXPECT_THAT(notes.listings, ElementsAre("? /hostile/", "/hostile/ 1 0"));
}

TEST_F(TransferEvents, ANewHostKeyIsFirstSeenAndThenKnown) {
    files.Write("known_hosts", "# comment\nother.example ssh-ed25519 AAAA");
    const SftpPeer bmc(root);

    EXPECT_EQ("", Text(List(bmc.At("/"))));
    EXPECT_THAT(notes.keys, ElementsAre(HostKeyDecision::kFirstSeen));
    EXPECT_EQ(bmc.Name() + " ssh-ed25519 " + bmc.Fingerprint(), notes.key);
    EXPECT_EQ(known + ":3", notes.place);
    EXPECT_TRUE(notes.accepted);

    EXPECT_EQ("", Text(List(bmc.At("/"))));
    EXPECT_THAT(notes.keys, ElementsAre(HostKeyDecision::kFirstSeen, HostKeyDecision::kKnown));
    EXPECT_EQ(known + ":3", notes.place);
}

TEST_F(TransferEvents, ARefusedHostKeyIsToldWithItsReasonAndPlace) {
    const SftpPeer bmc(root);
    const SftpPeer other(root);
    const std::string key = bmc.Name() + " " + bmc.PublicKey() + "\n";
    const std::string otherKey = bmc.Name() + " " + other.PublicKey() + "\n";
    const struct {
        std::string policy, content;
        HostKeyDecision decision;
        std::string line;
    } rows[] = {
        {"accept-new", "\n" + otherKey, HostKeyDecision::kChanged, ":2"},
        {"accept-new", key + "@revoked " + key, HostKeyDecision::kRevoked, ":2"},
        {"strict", "", HostKeyDecision::kUnknown, ":0"},
    };
    for (const auto& row : rows) {
        files.Write("known_hosts", row.content);
        Environment("VARNEX_SFTP_HOST_KEYS", row.policy);

        const std::error_code error = List(bmc.At("/"));

        EXPECT_EQ(error, TransferFault::kUntrusted);
        EXPECT_EQ(row.decision, notes.keys.back());
        EXPECT_EQ(known + row.line, notes.place);
        EXPECT_FALSE(notes.accepted);
        EXPECT_EQ(error.message(), notes.text);
    }
}

TEST_F(TransferEvents, ThePolicyAndTheFilesTroubleAreToldToo) {
    const SftpPeer bmc(root);
    Environment("VARNEX_SFTP_HOST_KEYS", "insecure");
    EXPECT_EQ("", Text(List(bmc.At("/"))));
    EXPECT_EQ(HostKeyDecision::kNotVerified, notes.keys.back());

    Environment("VARNEX_SFTP_HOST_KEYS", "accept-new");
    Environment("VARNEX_KNOWN_HOSTS", "/dev/null/known_hosts");
    EXPECT_EQ("", Text(List(bmc.At("/"))));
    EXPECT_EQ(HostKeyDecision::kNotRemembered, notes.keys.back());
    EXPECT_TRUE(notes.accepted);
    EXPECT_EQ(ENOTDIR, notes.fileError.value());

    Environment("VARNEX_KNOWN_HOSTS", root.Path());
    EXPECT_EQ(List(bmc.At("/")), TransferFault::kUntrusted);
    EXPECT_EQ(HostKeyDecision::kUnreadable, notes.keys.back());
    EXPECT_EQ(EISDIR, notes.fileError.value());
}

// Which of all faults an error is; 0: none.
int FaultOf(const std::error_code& error) {
    int found = 0;
    int count = 0;
    for (int fault = 1; fault <= static_cast<int>(TransferFault::kStopped); ++fault) {
        if (error != static_cast<TransferFault>(fault)) continue;
        found = fault;
        ++count;
    }
    EXPECT_LE(count, 1) << error;
    return found;
}

TEST_F(TransferEvents, AnErrorHasOneFaultAtTheMost) {
    const auto& category = Varnex::TransferCategory();
    const struct {
        int number;
        TransferFault fault;
    } rows[] = {
        {6, TransferFault::kUnreachable},     {7, TransferFault::kUnreachable},
        {9, TransferFault::kNotPermitted},    {18, TransferFault::kLost},
        {28, TransferFault::kSilent},         {35, TransferFault::kTlsFailed},
        {42, TransferFault::kStopped},        {52, TransferFault::kLost},
        {56, TransferFault::kLost},           {60, TransferFault::kUntrusted},
        {63, TransferFault::kTooLarge},       {67, TransferFault::kLoginRefused},
        {78, TransferFault::kNotThere},       {79, TransferFault::kLost},
        {1401, TransferFault::kLoginRefused}, {1403, TransferFault::kNotPermitted},
        {1404, TransferFault::kNotThere},     {1410, TransferFault::kNotThere},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(static_cast<int>(row.fault), FaultOf({row.number, category})) << row.number;
        EXPECT_EQ(0, FaultOf({row.number, std::generic_category()})) << row.number;
    }
    for (const int number : {0, 1, 2, 22, 48, 1000, 1500, 1503}) {
        EXPECT_EQ(0, FaultOf({number, category})) << number;
    }
    EXPECT_EQ(404, Varnex::HttpStatusOf({1404, category}));
    EXPECT_EQ(0, Varnex::HttpStatusOf({404, category}));
    EXPECT_EQ(0, Varnex::HttpStatusOf({1404, std::generic_category()}));
}

TEST_F(TransferEvents, RealFailuresAreThoseFaults) {
    root.Write("cut", std::string(100000, 'x'));
    root.Write("closed", "x");
    std::filesystem::create_directory(root / "folder");
    const SftpPeer bmc(root);
    const HttpsPeer https;

    EXPECT_EQ(Download(bmc.At("/folder")), TransferFault::kFolder);
    EXPECT_EQ(Download(bmc.At("/cut")), TransferFault::kLost);
    EXPECT_EQ(Download(bmc.At("/closed")), TransferFault::kNotPermitted);
    EXPECT_EQ(Download(bmc.At("/absent")), TransferFault::kNotThere);
    Uri wrong = bmc.At("/cut");
    wrong.set_auth("admin", "wrong");
    EXPECT_EQ(Download(wrong), TransferFault::kLoginRefused);
    EXPECT_EQ(Download(https.At("/cut/100000")), TransferFault::kLost);
    EXPECT_EQ(Download(https.At("/status/401")), TransferFault::kLoginRefused);
    EXPECT_EQ(
        Download(Uri("sftp", "127.0.0.1", static_cast<std::uint16_t>(FreePort()), "u", "p", "/")),
        TransferFault::kFolder)
        << "found out before anybody is asked";
    EXPECT_EQ(
        Download(Uri("sftp", "127.0.0.1", static_cast<std::uint16_t>(FreePort()), "u", "p", "/x")),
        TransferFault::kUnreachable);
    EXPECT_EQ(file_client::download(https.At("/file/1"), "/absent/x", NoOption(nullptr)),
              std::errc::no_such_file_or_directory);
}

}  // namespace
