// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PLATFORM_HTTPSPEER_H
#define VARNEX_TESTS_PLATFORM_HTTPSPEER_H

#include <algorithm>
#include <boost/property_tree/json_parser.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "Uri.h"
#include "support/Peer.h"
#include "support/TempFolder.h"

using Json = boost::property_tree::ptree;

inline Json ParseJson(const std::string& text) {
    std::istringstream stream(text);
    Json tree;
    boost::property_tree::read_json(stream, tree);
    return tree;
}

// One member whose name may hold dots and dashes; empty where there is none.
inline std::string Member(const Json& tree, const std::string& name) {
    const auto found = tree.find(name);
    return found == tree.not_found() ? "" : found->second.data();
}

// https_peer.py: what a path makes it do stands there.
class HttpsPeer {
public:
    explicit HttpsPeer(const std::vector<std::string>& options = {})
        : m_host(Option(options, "--bind", "127.0.0.1")), m_peer(Command(options)) {
        m_port = static_cast<std::uint16_t>(std::stoi(Member(ParseJson(m_peer.Line()), "port")));
    }

    std::uint16_t Port() const { return m_port; }
    Uri At(const std::string& path) const { return Uri("https", m_host, m_port, "", "", path); }
    std::string Ca() const { return m_folder / "ca.pem"; }
    std::string OtherCa() const { return m_folder / "other.pem"; }

    std::vector<Json> Requests() const {
        std::istringstream lines(Content(m_folder / "requests.jsonl"));
        std::vector<Json> requests;
        for (std::string line; std::getline(lines, line);) requests.push_back(ParseJson(line));
        return requests;
    }

    // The file that all its paths serve.
    static std::string FileContent(std::size_t size) {
        constexpr std::size_t period = 1U << 16;
        std::string content;
        content.reserve(size + period);
        for (std::size_t i = 0; i < std::min(size, period); ++i) {
            content += static_cast<char>((i * 31 + (i >> 8)) & 0xFF);
        }
        while (content.size() < size) content.append(content, 0, period);
        content.resize(size);
        return content;
    }

private:
    static std::string Option(const std::vector<std::string>& options, const std::string& name,
                              const std::string& otherwise) {
        for (std::size_t i = 0; i + 1 < options.size(); ++i) {
            if (options[i] == name) return options[i + 1];
        }
        return otherwise;
    }
    std::vector<std::string> Command(const std::vector<std::string>& options) const {
        std::vector<std::string> command = {"/usr/bin/python3", VARNEX_TEST_FOLDER "/https_peer.py",
                                            "--folder", m_folder.Path()};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    TempFolder m_folder;
    std::string m_host;
    Peer m_peer;
    std::uint16_t m_port = 0;
};

#endif
