// SPDX-License-Identifier: Apache-2.0
#include "journeys/JourneyTest.h"

#include <boost/algorithm/string/replace.hpp>
#include <boost/filesystem/operations.hpp>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

std::string Contents(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    EXPECT_TRUE(stream.good()) << "cannot read " << file;
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

std::string Joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return text;
}

// With VARNEX_WRITE_EXPECTED set, writes the file anew, to be read before it is committed.
void Compare(const std::string& name, const std::vector<std::string>& lines) {
    const std::string file = std::string(VARNEX_JOURNEYS) + "/" + name;
    if (std::getenv("VARNEX_WRITE_EXPECTED") != nullptr) {
        std::ofstream(file) << Joined(lines);
        ADD_FAILURE() << file << " is written, not compared";
        return;
    }
    EXPECT_EQ(Contents(file), Joined(lines));
}

}  // namespace

JourneyTest::JourneyTest()
    : folder((boost::filesystem::temp_directory_path() /
              boost::filesystem::unique_path("varnex-journey-%%%%%%%%"))
                 .string()) {
    boost::filesystem::create_directory(folder);
}

JourneyTest::~JourneyTest() {
    bmc.reset();
    boost::system::error_code ignored;
    boost::filesystem::remove_all(folder, ignored);
}

void JourneyTest::Start(const std::string& scenario, const std::vector<std::string>& arguments) {
    bmc = std::make_unique<EmulatedBmc>(scenario, arguments);
    conn.host = bmc->Text("/address");
    conn.userid = bmc->Text("/user");
    conn.password = bmc->Text("/password");
    conn.port = static_cast<std::uint16_t>(bmc->Number("/redfish/port"));
    Name(std::to_string(conn.port), "{PORT}");
    Name(bmc->Text("/archives/mini/path"), "{ARCHIVE}");
    Name(bmc->Text("/archives/full/path"), "{ARCHIVE}");
}

void JourneyTest::Name(const std::string& text, const std::string& name) {
    m_names.emplace_back(text, name);
}

// Tokens are the BMC's own: the log tells them first. They come before other names, whose digits
// they may hold.
void JourneyTest::NameTokens() {
    const std::string before = "token is: X-Auth-Token:";
    for (const fakes::LogLine& line : log.Lines()) {
        const std::size_t token = line.text.find(before);
        if (token == std::string::npos) continue;
        m_names.insert(m_names.begin(), {line.text.substr(token + before.size()), "{TOKEN}"});
    }
}

std::string JourneyTest::Named(std::string text) const {
    for (const auto& [from, to] : m_names) boost::algorithm::replace_all(text, from, to);
    boost::algorithm::replace_all(text, "\n", "\\n");
    return text;
}

void JourneyTest::ExpectLog(const std::string& name) {
    NameTokens();
    std::vector<std::string> lines;
    for (const fakes::LogLine& line : log.Lines()) {
        const std::string prefix = std::to_string(line.level) + " " + line.source + " ";
        // What the BMC answers is not this log's subject, and is full of times.
        const std::size_t body = line.text.find("strResponse = ");
        const std::string text =
            body == std::string::npos ? line.text : line.text.substr(0, body) + "strResponse = ...";
        lines.push_back(prefix + Named(text));
    }
    Compare(name + ".log", lines);
}

void JourneyTest::ExpectRequests(const std::string& name) {
    std::vector<std::string> lines;
    for (const std::string& request : bmc->Requests()) lines.push_back(Named(request));
    Compare(name + ".requests", lines);
}

void JourneyTest::ExpectNowhereInLog(const std::string& secret) {
    for (const fakes::LogLine& line : log.Lines()) {
        EXPECT_EQ(std::string::npos, line.text.find(secret)) << line.text;
    }
}

void JourneyTest::ExpectSameBytes(const std::string& file, const std::string& other) {
    EXPECT_TRUE(Contents(file) == Contents(other)) << file << " differs from " << other;
}
