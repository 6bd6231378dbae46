// SPDX-License-Identifier: Apache-2.0
// Servers that mean harm, or are broken: an exception in bounded time and memory, nothing worse.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "support.h"

using namespace Pegasus;
using namespace std::chrono_literals;

namespace {

constexpr char kClosed[] = "CIMClientMalformedHTTPException: Connection closed by CIM Server.";
constexpr char kMalformed[] = "CIMClientMalformedHTTPException: Malformed HTTP response: ";

// What one enumeration gives when the server answers with this and closes.
std::string Outcome(const std::string& start, const std::function<void(Peer&)>& rest = nullptr) {
    ScriptedServer server({[&](Peer& peer) {
        peer.Request();
        peer.Send(start);
        if (rest) rest(peer);
    }});
    ConnectedClient client(server);
    return Thrown([&] { client.Enumerate(); });
}

std::string OutcomeOfXml(const std::string& xml) {
    ScriptedServer server({AnsweringXml(xml)});
    ConnectedClient client(server);
    return Thrown([&] { client.Enumerate(); });
}

std::string Repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

std::string Start(const std::string& text, std::size_t size) { return text.substr(0, size); }

// A document with this where VALUE.NAMEDINSTANCE may stand.
std::string WithinAnswer(const std::string& inside) { return EnumerationXml(inside); }

TEST(PegasusHostile, CutAnswersAreLostConnections) {
    const std::string whole =
        "HTTP/1.1 200 OK\r\ncontent-length: 100\r\nCIMOperation: MethodResponse\r\n\r\n<?xml";
    for (std::size_t size = 0; size <= whole.size(); size += 7) {
        EXPECT_EQ(kClosed, Outcome(whole.substr(0, size))) << size;
    }
    EXPECT_EQ(kClosed, Outcome("HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n\r\nff\r\n<?xml"));
    EXPECT_EQ(kClosed,
              Outcome("HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n\r\n5\r\n<?xml\r\n0\r\n"));
}

TEST(PegasusHostile, AnAnswerThatArrivesByteByByteIsWholeAllTheSame) {
    for (const bool chunked : {true, false}) {
        ScriptedServer server({[&](Peer& peer) {
            for (int i = 0; i < 2; ++i) {
                const std::string request = peer.Request();
                const std::string xml = EnumerationXml(kOneInstance);
                peer.Trickle(chunked ? Chunked(request, xml, "CIMStatusCode: 0\r\n")
                                     : WithLength(request, xml),
                             0ms);
            }
        }});
        ConnectedClient client(server);
        EXPECT_EQ(1U, client.Enumerate().size());
        EXPECT_EQ(1U, client.Enumerate().size());
    }
}

TEST(PegasusHostile, AnEmptyChunkedBodyThatArrivesByteByByte) {
    ScriptedServer server({[](Peer& peer) {
        peer.Request();
        peer.Trickle(
            "HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n"
            "CIMOperation: MethodResponse\r\n\r\n0\r\nCIMStatusCode: 1\r\n\r\n",
            1ms);
    }});
    ConnectedClient client(server);
    EXPECT_EQ("CIMException 1: CIM_ERR_FAILED", Thrown([&] { client.Enumerate(); }));
    ScriptedServer bare({[](Peer& peer) {
        peer.Request();
        peer.Trickle("HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n\r\n0\r\n\r\n", 1ms);
    }});
    ConnectedClient other(bare);
    EXPECT_EQ("CIMClientMalformedHTTPException: Missing CIMOperation HTTP header",
              Thrown([&] { other.Enumerate(); }));
}

TEST(PegasusHostile, WhatIsNotHttpIsMalformed) {
    const std::string chunked = "HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n\r\n";
    for (const std::string& answer :
         {std::string("hello\r\n\r\n"), std::string("SSH-2.0-x\r\n\r\n"),
          std::string("HTTP/1.1 two\r\n\r\n"), std::string("HTTP/1.1 200 OK\r\nno colon\r\n\r\n"),
          std::string("HTTP/1.1 200 OK\r\ncontent-length: -5\r\n\r\n"),
          std::string("HTTP/1.1 200 OK\r\ncontent-length: 99999999999999999999999\r\n\r\n"),
          std::string("HTTP/1.1 200 OK\r\ncontent-length: 1\r\ncontent-length: 2\r\n\r\n"),
          chunked + "zz\r\n", chunked + "ffffffffffffffffff\r\n", chunked + "5\r\nabcdefgh\r\n",
          chunked + "0\r\nno colon\r\n\r\n"}) {
        EXPECT_EQ(kMalformed, Start(Outcome(answer), sizeof kMalformed - 1)) << answer;
    }
    EXPECT_EQ(kMalformed + std::string("too many interim answers"),
              Outcome(Repeated("HTTP/1.1 100 Continue\r\n\r\n", 100)));
}

TEST(PegasusHostile, AContentLengthBeyondTheBodyIsALostConnectionOrATimeout) {
    const std::string short_ =
        "HTTP/1.1 200 OK\r\ncontent-length: 400\r\n\r\n" + EnumerationXml("");
    EXPECT_EQ(kClosed, Outcome(short_));
    ScriptedServer server({[&](Peer& peer) {
        peer.Request();
        peer.Send(short_);
        peer.ClientCloses();
    }});
    ConnectedClient client(server);
    client->setTimeout(100);
    EXPECT_EQ("ConnectionTimeoutException: connection timed out",
              Thrown([&] { client.Enumerate(); }));
}

TEST(PegasusHostile, AContentLengthBelowTheBodyIsACutDocumentAndTheRestIsNotTheNextAnswer) {
    ScriptedServer server({[](Peer& peer) {
                               const std::string request = peer.Request();
                               std::string answer =
                                   WithLength(request, EnumerationXml(kOneInstance));
                               const std::size_t at = answer.find("content-length: ") + 16;
                               answer.replace(at, 3, "100");
                               peer.Send(answer);
                               peer.ClientCloses();
                           },
                           AnsweringXml(EnumerationXml(kOneInstance))});
    ConnectedClient client(server);
    EXPECT_EQ("CIMClientXmlException: ", Start(Thrown([&] { client.Enumerate(); }), 23));
    EXPECT_EQ(1U, client.Enumerate().size());
    EXPECT_EQ(2U, server.Connections());
}

TEST(PegasusHostile, ARefusalWithABodyThatNeverComesIsStillTheRefusalWhenTheServerCloses) {
    EXPECT_EQ("CIMClientHTTPErrorException: HTTP Error (503 Busy).",
              Outcome("HTTP/1.1 503 Busy\r\ncontent-length: 1000\r\n\r\nshort"));
    EXPECT_EQ("CIMClientHTTPErrorException: HTTP Error (503 Busy).",
              Outcome("HTTP/1.1 503 Busy\r\ncontent-length: 99999999\r\n\r\n"));
}

TEST(PegasusHostile, ARefusalWithABodyThatNeverComesIsReportedAtOnceThoughTheServerWaits) {
    for (const char* head :
         {"HTTP/1.1 401 No\r\ncontent-length: 5\r\n\r\n",
          "HTTP/1.1 403 No\r\ncontent-length: 5\r\n\r\nhalf",
          "HTTP/1.1 500 No\r\ntransfer-encoding: chunked\r\n\r\n",
          "HTTP/1.1 503 No\r\ncontent-length: 99999999\r\n\r\n", "HTTP/1.1 503 No\r\n\r\n"}) {
        ScriptedServer server({[&](Peer& peer) {
                                   peer.Request();
                                   peer.Send(head);
                                   peer.ClientCloses();
                               },
                               AnsweringXml(EnumerationXml(kOneInstance))});
        ConnectedClient client(server);
        client->setTimeout(30000);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ("CIMClientHTTPErrorException: HTTP Error (" + std::string(head, 9, 6) + ").",
                  Thrown([&] { client.Enumerate(); }));
        EXPECT_LT(std::chrono::steady_clock::now() - start, 8s) << head;
        if (std::string(head).find(':') != std::string::npos) {
            EXPECT_EQ(1U, client.Enumerate().size()) << "on a new connection";
        }
    }
}

TEST(PegasusHostile, AChallengeWithABodyThatNeverComesIsAnsweredOnANewConnection) {
    std::string second;
    ScriptedServer server({[](Peer& peer) {
                               peer.Request();
                               peer.Send(
                                   "HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"x\"\r\n"
                                   "content-length: 5\r\n\r\n");
                               peer.ClientCloses();
                           },
                           [&](Peer& peer) {
                               second = peer.Request();
                               peer.Send(WithLength(second, EnumerationXml(kOneInstance)));
                           }});
    ConnectedClient client(server);
    EXPECT_EQ(1U, client.Enumerate().size());
    EXPECT_NE(std::string::npos, second.find("\r\nAuthorization: Basic ")) << second;
}

TEST(PegasusHostile, AChallengesBodyIsPassedOverOnTheSameConnection) {
    int requests = 0;
    ScriptedServer server({Answering([&](const std::string& request) {
        return ++requests == 1 ? "HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"x\"\r\n"
                                 "content-length: 5\r\n\r\nhello"
                               : WithLength(request, EnumerationXml(kOneInstance));
    })});
    ConnectedClient client(server);
    EXPECT_EQ(1U, client.Enumerate().size());
    EXPECT_EQ(1U, server.Connections());
}

TEST(PegasusHostile, AChallengesBodyThatIsTooLongIsAnsweredOnANewConnection) {
    for (const std::size_t size : {64U * 1024, 64U * 1024 + 1}) {
        int requests = 0;
        const auto script = Answering([&](const std::string& request) {
            return ++requests == 1 ? "HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"x\"\r\n"
                                     "content-length: " +
                                         std::to_string(size) + "\r\n\r\n" + std::string(size, ' ')
                                   : WithLength(request, EnumerationXml(kOneInstance));
        });
        ScriptedServer server({script, script});
        ConnectedClient client(server);
        EXPECT_EQ(1U, client.Enumerate().size());
        EXPECT_EQ(size > 64U * 1024 ? 2U : 1U, server.Connections());
    }
}

// The outcome of an answer that has this much of everything.
std::string OutcomeOfSizes(int interim, std::size_t header, std::size_t body, bool chunked) {
    ScriptedServer server({[=](Peer& peer) {
        std::string xml = EnumerationXml(kOneInstance);
        const std::string request = peer.Request();
        xml.replace(xml.find("@ID@"), 4, MessageId(request));
        xml.resize(std::max(body, xml.size()), ' ');
        std::string head = "HTTP/1.1 200 OK\r\nCIMOperation: MethodResponse\r\n";
        head += chunked ? "transfer-encoding: chunked\r\n"
                        : "content-length: " + std::to_string(xml.size()) + "\r\n";
        if (header > 0) head += "X: " + std::string(header - head.size() - 7, 'x') + "\r\n";
        peer.Send(Repeated("HTTP/1.1 100 Continue\r\n\r\n", interim) + head + "\r\n");
        if (!chunked) return peer.Send(xml);
        char size[24];
        std::snprintf(size, sizeof size, "%zx\r\n", xml.size());
        peer.Send(size + xml + "\r\n0\r\n\r\n");
    }});
    ConnectedClient client(server);
    client->setTimeout(20000);
    std::string count;
    const std::string thrown =
        Thrown([&] { count = std::to_string(client.Enumerate().size()) + " instances"; });
    return count + thrown;
}

TEST(PegasusHostile, LimitsAreWhereTheyAreSaidToBe) {
    constexpr std::size_t kHeader = 64U * 1024;
    constexpr std::size_t kBody = std::size_t{16} * 1024 * 1024;
    EXPECT_EQ("1 instances", OutcomeOfSizes(7, 0, 0, false));
    EXPECT_EQ(kMalformed + std::string("too many interim answers"), OutcomeOfSizes(8, 0, 0, false));
    EXPECT_EQ("1 instances", OutcomeOfSizes(0, kHeader, 0, false));
    EXPECT_EQ(kMalformed + std::string("header limit exceeded"),  // not counting the status line
              OutcomeOfSizes(0, kHeader + 256, 0, false));
    for (const bool chunked : {false, true}) {
        EXPECT_EQ("1 instances", OutcomeOfSizes(0, 0, kBody, chunked));
        EXPECT_EQ(kMalformed + std::string("body limit exceeded"),
                  OutcomeOfSizes(0, 0, kBody + 1, chunked));
    }
}

// The outcome of an answer with so many lines of that size in its trailer.
std::string OutcomeOfTrailer(std::size_t lines, std::size_t size) {
    ScriptedServer server({Answering([=](const std::string& request) {
        const std::string line = "X: " + std::string(size - 5, 'x') + "\r\n";
        return Chunked(request, EnumerationXml(kOneInstance),
                       Repeated(line, static_cast<int>(lines)));
    })});
    ConnectedClient client(server);
    return Thrown([&] { client.Enumerate(); });
}

TEST(PegasusHostile, TrailersMayBeAsLongAsItIsSaid) {
    EXPECT_EQ("", OutcomeOfTrailer(255, 1024));
    EXPECT_EQ(kMalformed, Start(OutcomeOfTrailer(257, 1024), sizeof kMalformed - 1));
}

TEST(PegasusHostile, ALineOf64KiBInATrailerIsRefused) {
    EXPECT_EQ("", OutcomeOfTrailer(3, 65000));
    for (const std::size_t size : {65540U, 200000U}) {
        EXPECT_EQ(kMalformed + std::string("header limit exceeded"), OutcomeOfTrailer(1, size));
    }
}

TEST(PegasusHostile, ARefusalWithALineOf64KiBInItsTrailerIsStillTheRefusal) {
    EXPECT_EQ("CIMClientHTTPErrorException: HTTP Error (503 Busy).",
              Outcome("HTTP/1.1 503 Busy\r\ntransfer-encoding: chunked\r\n\r\n0\r\nX: " +
                      std::string(70000, 'x') + "\r\n\r\n"));
}

TEST(PegasusHostile, BodiesHeadersAndTrailersHaveAnEnd) {
    const std::string chunk = "100000\r\n" + std::string(0x100000, ' ') + "\r\n";
    const auto forever = [](const std::string& piece) {
        return [piece](Peer& peer) {
            const auto until = std::chrono::steady_clock::now() + 2s;
            while (std::chrono::steady_clock::now() < until && !peer.ClientCloses(0ms)) {
                peer.Send(piece);
            }
        };
    };
    const std::string chunked = "HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n\r\n";
    struct Row {
        std::string start;
        std::string piece;
        const char* why;
    };
    const Row rows[] = {
        {chunked, chunk, "chunks without end"},
        {"HTTP/1.1 200 OK\r\n\r\n", std::string(0x100000, ' '), "a body without end"},
        {"HTTP/1.1 200 OK\r\ncontent-length: 1000000000000\r\n\r\n", "", "a body of a terabyte"},
        {"HTTP/1.1 200 OK\r\n", "X: " + std::string(1000, 'x') + "\r\n", "headers without end"},
        {"HTTP/1.1 200 OK\r\nX: ", std::string(1000, 'x'), "a header without end"},
        {chunked + "0\r\n", "X: " + std::string(1000, 'x') + "\r\n", "trailers without end"},
        {chunked + "5;", std::string(1000, 'x'), "a chunk's extension without end"},
    };
    for (const Row& row : rows) {
        const auto start = std::chrono::steady_clock::now();
        const std::string outcome =
            Outcome(row.start, row.piece.empty() ? nullptr : std::function(forever(row.piece)));
        EXPECT_EQ(kMalformed, Start(outcome, sizeof kMalformed - 1)) << row.why << ": " << outcome;
        EXPECT_LT(std::chrono::steady_clock::now() - start, 5s) << row.why;
    }
}

// So many small chunks at once that the client never has to wait for the next, and that the limit
// of the body is far away.
TEST(PegasusHostile, ABodyThatNeverEndsDoesNotOutliveTheTimeout) {
    ScriptedServer server({[](Peer& peer) {
        const std::string chunks = Repeated("1\r\n \r\n", 100000);
        peer.Request();
        peer.Send("HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n\r\n");
        const auto until = std::chrono::steady_clock::now() + 5s;
        while (std::chrono::steady_clock::now() < until && !peer.ClientCloses(0ms)) {
            peer.Send(chunks);
        }
    }});
    ConnectedClient client(server);
    client->setTimeout(200);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ("ConnectionTimeoutException: connection timed out",
              Thrown([&] { client.Enumerate(); }));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
}

// Runs it on a thread with a small stack: whoever recurses with the document's depth dies.
std::string OnASmallStack(const std::function<std::string()>& action) {
    struct Call {
        const std::function<std::string()>& action;
        std::string result;
    } call{action, ""};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 512 * 1024);
    pthread_t thread{};
    const auto body = [](void* data) -> void* {
        auto* it = static_cast<Call*>(data);
        it->result = it->action();
        return nullptr;
    };
    EXPECT_EQ(0, pthread_create(&thread, &attributes, body, &call));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    return call.result;
}

TEST(PegasusHostile, AHundredThousandNestedLevelsNeedNoStack) {
    const int levels = 100000;
    const std::string rows[] = {
        WithinAnswer(Repeated("<A>", levels) + Repeated("</A>", levels)),
        WithinAnswer(Repeated("<A>", levels)),
        "<?xml version=\"1.0\"?>" + Repeated("<CIM>", levels),
        WithinAnswer(
            "<VALUE.NAMEDINSTANCE>" +
            Repeated("<INSTANCENAME CLASSNAME=\"A\"><KEYBINDING NAME=\"k\"><VALUE.REFERENCE>",
                     levels) +
            Repeated("</VALUE.REFERENCE></KEYBINDING></INSTANCENAME>", levels) +
            "</VALUE.NAMEDINSTANCE>"),
    };
    for (const std::string& xml : rows) {
        const std::string outcome = OnASmallStack([&] { return OutcomeOfXml(xml); });
        EXPECT_EQ("CIMClientXmlException: ", Start(outcome, 23)) << outcome;
    }
}

TEST(PegasusHostile, NestedReferencesDoNotGrowWithoutEnd) {
    // Each level would double the quotation marks of the one below.
    std::string xml = "<INSTANCENAME CLASSNAME=\"A\"><KEYBINDING NAME=\"k\"><KEYVALUE>" +
                      std::string(500000, '"') + "</KEYVALUE></KEYBINDING></INSTANCENAME>";
    for (int i = 0; i < 15; ++i) {
        xml = "<INSTANCENAME CLASSNAME=\"A\"><KEYBINDING NAME=\"k\"><VALUE.REFERENCE>" + xml +
              "</VALUE.REFERENCE></KEYBINDING></INSTANCENAME>";
    }
    const std::string outcome =
        OutcomeOfXml(WithinAnswer("<VALUE.NAMEDINSTANCE>" + xml + "</VALUE.NAMEDINSTANCE>"));
    EXPECT_EQ("CIMClientXmlException: ", Start(outcome, 23)) << outcome;
}

TEST(PegasusHostile, EntitiesAreNeitherExpandedNorFetched) {
    std::string bomb = "<?xml version=\"1.0\"?><!DOCTYPE CIM [<!ENTITY a \"aaaaaaaaaa\">";
    for (char c = 'b'; c <= 'j'; ++c) {
        const std::string before = "&" + std::string(1, static_cast<char>(c - 1)) + ";";
        bomb += "<!ENTITY " + std::string(1, c) + " \"" + Repeated(before, 10) + "\">";
    }
    bomb += "<!ENTITY file SYSTEM \"file:///etc/passwd\">]>";
    for (const char* entity : {"&j;", "&file;"}) {
        std::string xml = WithinAnswer(
            "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"A\"/><INSTANCE CLASSNAME=\"A\">"
            "<PROPERTY NAME=\"P\" TYPE=\"string\"><VALUE>" +
            std::string(entity) + "</VALUE></PROPERTY></INSTANCE></VALUE.NAMEDINSTANCE>");
        xml.replace(0, xml.find("<CIM"), bomb);
        EXPECT_EQ("CIMClientXmlException: Validation error: on line 4: Unknown entity reference",
                  OutcomeOfXml(xml));
    }
}

TEST(PegasusHostile, OddAnswersAreTakenOrRefusedButNeverMixedUp) {
    const std::string head = "HTTP/1.1 200 OK\r\nCIMOperation: MethodResponse\r\n";
    const std::string declaration =
        "Validation error: on line 1: Expected <?xml ... ?> style declaration";
    struct Row {
        std::string answer;
        std::string outcome;
        const char* why;
    };
    const Row rows[] = {
        {"HTTP/1.1 503\r\n\r\n", kMalformed, "neither a reason nor a blank"},
        {"HTTP/1.1 503 \r\n\r\n",
         "CIMClientHTTPErrorException: HTTP Error (503 Service Unavailable).", "no reason"},
        {"HTTP/1.1 999 \r\n\r\n", "CIMClientHTTPErrorException: HTTP Error (999 <unknown-status>).",
         "an unknown status without a reason"},
        {"HTTP/1.1 204 No Content\r\n\r\n",
         "CIMClientHTTPErrorException: HTTP Error (204 No Content).", "no content"},
        {"HTTP/1.1 1000 No\r\n\r\n", kMalformed, "a status of four digits"},
        {"HTTP/9.9 200 OK\r\n\r\n", kMalformed, "another version"},
        {"HTTP/1.1 503 a\rb\r\n\r\n", kMalformed, "a bare CR in the reason"},
        {head + "X: a" + std::string(1, '\0') + "b\r\n\r\n", kMalformed, "a NUL in a header"},
        {head + " folded: x\r\ncontent-length: 0\r\n\r\n", "", "a header that begins with a blank"},
        {head + "content-length: 4\r\ntransfer-encoding: chunked\r\n\r\n0\r\n\r\n", kMalformed,
         "a length and chunks"},
        {head + "content-length: 0x10\r\n\r\n", kMalformed, "a hexadecimal length"},
        {head + "content-length: 18446744073709551616\r\n\r\n", kMalformed, "a length of 2^64"},
        {head + "content-length: 18446744073709551615\r\n\r\n", kMalformed, "one less"},
        {head + "transfer-encoding: chunked\r\n\r\n10000000000000000\r\n", kMalformed,
         "a chunk of 2^64 bytes"},
        {head + "transfer-encoding: chunked\r\n\r\n-1\r\n", kMalformed, "a chunk below nothing"},
        {head + "transfer-encoding: chunked\r\n\r\n;x=y\r\n", kMalformed, "a chunk without a size"},
        {head + "transfer-encoding: chunked\r\n\r\n0;a=b;c=\"d\"\r\n\r\n",
         "CIMClientXmlException: " + declaration, "extensions of a chunk"},
        {head + "content-encoding: gzip\r\ncontent-length: 4\r\n\r\n\x1F\x8B\x08\x01",
         "CIMClientXmlException: " + declaration, "compressed"},
        {head + "content-length: 12\r\n\r\n\xFF\xFE<" + std::string(1, '\0') + "?" +
             std::string(1, '\0') + "x" + std::string(1, '\0') + "m" + std::string(1, '\0') + "l" +
             std::string(1, '\0'),
         "CIMClientXmlException: " + declaration, "UTF-16"},
        {head + "Content-Type: text/xml; charset=utf-16\r\ncontent-length: 0\r\n\r\n",
         "CIMClientMalformedHTTPException: Bad Content-Type HTTP header; text/xml; charset=utf-16",
         "said to be UTF-16"},
        {"HTTP/1.1 101 Switching Protocols\r\n\r\n", kClosed, "another protocol, and then nothing"},
    };
    for (const Row& row : rows) {
        const std::string outcome = Outcome(row.answer);
        EXPECT_EQ(row.outcome, Start(outcome, row.outcome.size())) << row.why << ": " << outcome;
        EXPECT_NE("", outcome) << row.why;
    }
}

TEST(PegasusHostile, OfTwoHeadersTheFirstCounts) {
    ScriptedServer server({Answering([](const std::string& request) {
        return WithLength(request, EnumerationXml(kOneInstance),
                          "CIMStatusCode: 0\r\nCIMStatusCode: 1\r\nContent-Type: text/html\r\n"
                          "CIMOperation: other\r\n");
    })});
    ConnectedClient client(server);
    EXPECT_EQ(1U, client.Enumerate().size());
    EXPECT_EQ("CIMClientHTTPErrorException: HTTP Error (401 No).",
              Outcome("HTTP/1.1 401 No\r\nWWW-Authenticate: Digest x\r\n"
                      "WWW-Authenticate: Basic realm=\"x\"\r\ncontent-length: 0\r\n\r\n"));
}

TEST(PegasusHostile, DocumentsWithOddInsides) {
    const std::string start =
        "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"A\"/><INSTANCE CLASSNAME=\"A\">";
    const std::string end = "</INSTANCE></VALUE.NAMEDINSTANCE>";
    const std::string qualifier = "<QUALIFIER NAME=\"Q\" TYPE=\"string\">";
    struct Row {
        std::string inside;
        bool taken;
        const char* why;
    };
    const Row rows[] = {
        {"<PROPERTY NAME=\"P\" TYPE=\"string\" EmbeddedObject=\"instance\"><VALUE>&lt;INSTANCE "
         "CLASSNAME=\"B\"/&gt;</VALUE></PROPERTY>",
         true, "an embedded object"},
        {Repeated(qualifier, 3) + Repeated("</QUALIFIER>", 3), false, "qualifiers in qualifiers"},
        {Repeated(qualifier, 50000) + Repeated("</QUALIFIER>", 50000), false, "and many of them"},
        {"<PROPERTY NAME=\"P\" TYPE=\"string\"><VALUE>a\x01\x7F</VALUE></PROPERTY>", true,
         "control bytes"},
        {"<PROPERTY NAME=\"P\" TYPE=\"string\"><VALUE>\xED\xA0\x80</VALUE></PROPERTY>", false,
         "half a surrogate pair"},
        {"<PROPERTY NAME=\"P\" TYPE=\"string\"><VALUE>\xF4\x90\x80\x80</VALUE></PROPERTY>", false,
         "beyond Unicode"},
        {"<PROPERTY NAME=\"P\" TYPE=\"string\"><VALUE>\xC0\x80</VALUE></PROPERTY>", false,
         "NUL in two bytes"},
        {"<PROPERTY NAME=\"P\" TYPE=\"string\" NAME=\"R\"/>", true, "an attribute twice"},
    };
    for (const Row& row : rows) {
        const std::string outcome = OutcomeOfXml(WithinAnswer(start + row.inside + end));
        EXPECT_EQ(row.taken ? "" : "CIMClientXmlException: ", Start(outcome, 23)) << row.why;
    }
}

TEST(PegasusHostile, TextsOfAServerThatAreNoUtf8StillMakeAMessage) {
    EXPECT_EQ("CIMClientHTTPErrorException: HTTP Error (503 caf\xC3\xA9).",
              Outcome("HTTP/1.1 503 caf\xE9\r\n\r\n"));
    EXPECT_EQ("CIMClientMalformedHTTPException: Bad Content-Type HTTP header; \xC3\xA9",
              Outcome("HTTP/1.1 200 OK\r\nCIMOperation: MethodResponse\r\nContent-Type: \xE9\r\n"
                      "content-length: 0\r\n\r\n"));
}

}  // namespace
