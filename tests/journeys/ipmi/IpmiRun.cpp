// SPDX-License-Identifier: Apache-2.0
#include "IpmiRun.h"

#include <boost/filesystem/operations.hpp>
#include <boost/json/parse.hpp>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace fs = boost::filesystem;
namespace json = boost::json;

namespace {

constexpr char kScenario[] =
    "ipmi: {polls: 3, credential: {user: ffdc, password: \"Gather-17\"}}\nsftp: ";

std::string FreshFolder() {
    const fs::path made = fs::temp_directory_path() / fs::unique_path("ipmi-run-%%%%%%%%");
    fs::create_directory(made);
    return made.string();
}

std::string TextOf(const json::value& text) { return std::string(text.as_string().c_str()); }

bool EndsWith(const std::string& text, const std::string& ending) {
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

std::vector<json::value> Requests(const EmulatedBmc& bmc, const std::string& service) {
    std::vector<json::value> requests;
    std::ifstream file(bmc.Text("/requests"));
    for (std::string line; std::getline(file, line);) {
        json::value request = json::parse(line);
        if (TextOf(request.at("service")) == service) requests.push_back(std::move(request));
    }
    return requests;
}

std::vector<std::string> LinesOf(const std::vector<std::string>& lines, const std::string& source) {
    std::vector<std::string> found;
    for (const std::string& line : lines) {
        if (line[0] <= '2' && line.compare(2, source.size(), source) == 0) found.push_back(line);
    }
    return found;
}

}  // namespace

IpmiRun::IpmiRun() : folder(FreshFolder()) {
    setenv("VARNEX_KNOWN_HOSTS", (folder + "/known_hosts").c_str(), 1);
    setenv("VARNEX_LOG_LEVEL", "0", 1);
    setenv("EMULATED_KCS", "errno:2", 1);  // no device, whatever the machine has
    std::tm time{};
    time.tm_year = 126;
    time.tm_mon = 0;
    time.tm_mday = 31;
    time.tm_hour = 23;
    time.tm_min = 59;
    time.tm_sec = 58;
    clock.SetLocalTime(time);
}

IpmiRun::~IpmiRun() {
    boost::system::error_code ignored;
    fs::remove_all(folder, ignored);
}

std::unique_ptr<EmulatedBmc> IpmiRun::StartBmc(const std::string& sftp,
                                               const std::string& address) {
    return std::make_unique<EmulatedBmc>(kScenario + sftp + "\n",
                                         std::vector<std::string>{"--bind", address});
}

void IpmiRun::PutInto(const EmulatedBmc& bmc) {
    setenv("EMULATED_KCS", bmc.Text("/ipmi/kcs").c_str(), 1);
}

Varnex::VarnexConnection::ConnectionInfo IpmiRun::OverLan(const EmulatedBmc& bmc,
                                                          std::uint16_t cipherSuite) {
    Varnex::VarnexConnection::ConnectionInfo conn;
    conn.host = bmc.Text("/address");
    conn.port = static_cast<std::uint16_t>(bmc.Number("/ipmi/port"));
    conn.userid = "admin";
    conn.password = "secret";
    conn.ciphersuite = cipherSuite;
    conn.connection_case = 1;
    return conn;
}

std::string IpmiRun::OutputPath() {
    const fs::path path = fs::path(folder) / fs::unique_path("out-%%%%%%%%");
    fs::create_directory(path);
    return path.string() + "/";
}

IpmiRun::Outcome IpmiRun::Run(const Varnex::VarnexConnection::ConnectionInfo& conn,
                              const std::string& outputPath, int mode) {
    Varnex::KEMFfdc ffdc(conn, outputPath, mode);
    if (ffdc.Connect() != 0) return {-100, ""};
    const int result = ffdc.Apply();
    ffdc.Disconnect();
    return {result, ffdc.GetFFDCPath()};
}

std::vector<std::string> IpmiRun::Complaints() const { return LinesOf(log.Lines(), "src/"); }

std::vector<std::string> IpmiRun::PlatformComplaints() const {
    return LinesOf(log.Lines(), "platform/");
}

std::string ContentOf(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream content;
    content << stream.rdbuf();
    return content.str();
}

Files FilesIn(const std::string& folder) {
    Files files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const bool isFolder = fs::is_directory(entry.path());
        files[entry.path().filename().string()] =
            isFolder ? "a folder" : ContentOf(entry.path().string());
    }
    return files;
}

Files FilesOf(const EmulatedBmc& bmc, const std::string& remoteFolder, const std::string& ending) {
    const json::value folders = json::parse(ContentOf(bmc.Text("/sftp/files")));
    Files files;
    for (const json::value& file : folders.at(remoteFolder).as_array()) {
        const std::string name = TextOf(file.at("name"));
        if (file.as_object().contains("folder") || !EndsWith(name, ending)) continue;
        files[name] = ContentOf(TextOf(file.at("file")));
    }
    return files;
}

std::vector<std::string> SessionsOf(const EmulatedBmc& bmc) {
    std::vector<std::string> sessions;
    for (const json::value& request : Requests(bmc, "ipmi")) {
        const json::value* event = request.as_object().if_contains("event");
        if (event == nullptr || TextOf(*event) != "open") continue;
        sessions.push_back(TextOf(request.at("user")) + " " +
                           std::to_string(request.at("cipher_suite").to_number<int>()));
    }
    return sessions;
}

std::vector<std::string> SftpRequestsOf(const EmulatedBmc& bmc) {
    std::vector<std::string> lines;
    for (const json::value& request : Requests(bmc, "sftp")) {
        const std::string operation = TextOf(request.at("operation"));
        if (operation == "login") {
            lines.push_back("login " + TextOf(request.at("user")) +
                            (request.at("accepted").as_bool() ? " yes" : " no"));
        } else {
            lines.push_back(operation + " " + TextOf(request.at("path")));
        }
    }
    return lines;
}
