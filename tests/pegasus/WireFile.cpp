// SPDX-License-Identifier: Apache-2.0
#include "WireFile.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

#include "support.h"

namespace {

std::string Content(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// <CR> and <XX> into the bytes that they stand for.
std::string Bytes(const std::string& text) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::string mark = text.substr(i, 4);
        const bool framed = mark.size() == 4 && mark[0] == '<' && mark[3] == '>';
        if (mark == "<CR>") {
            bytes += '\r';
            i += 3;
        } else if (framed && mark.find_first_not_of(kHex, 1) == 3) {
            bytes += static_cast<char>(std::stoi(mark.substr(1, 2), nullptr, 16));
            i += 3;
        } else {
            bytes += text[i];
        }
    }
    return bytes;
}

std::size_t Length(const std::string& head) {
    for (const char* name : {"\r\ncontent-length: ", "\r\nContent-Length: "}) {
        const std::size_t at = head.find(name);
        if (at != std::string::npos) return std::stoul(head.substr(at + 18));
    }
    return 0;
}

// Without what the recording adds behind a message.
std::string Message(const std::string& text) {
    const std::string bytes = Bytes(text);
    const std::size_t end = bytes.find("\r\n\r\n");
    if (end == std::string::npos) return {};
    const std::string head = bytes.substr(0, end + 4);
    if (head.find("transfer-encoding: chunked") == std::string::npos) {
        return bytes.substr(0, end + 4 + Length(head));
    }
    const std::size_t lastChunk = bytes.find("\r\n0\r\n", end);
    return bytes.substr(0, bytes.find("\r\n\r\n", lastChunk) + 4);
}

struct Section {
    std::string title;
    std::string text;
};

std::vector<Section> Sections(const std::string& content) {
    static constexpr char kMark[] = "######## ";
    std::vector<Section> sections;
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(kMark, 0) == 0) {
            sections.push_back({line.substr(sizeof kMark - 1), ""});
        } else if (!sections.empty()) {
            sections.back().text += line + "\n";
        }
    }
    return sections;
}

void Replace(std::string& text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    if (at != std::string::npos) text.replace(at, from.size(), to);
}

std::string HostLine(const std::string& request) {
    const std::size_t at = request.find("\r\nHOST: ");
    return request.substr(at, request.find("\r\n", at + 2) - at);
}

}  // namespace

std::vector<WireExchange> ReadWire(const std::string& file) {
    std::vector<WireExchange> exchanges;
    std::string name;
    std::string request;
    for (const Section& section : Sections(Content(VARNEX_WIRE_DIR "/" + file))) {
        const std::string& title = section.title;
        if (title.rfind("case ", 0) == 0) name = title.substr(5);
        if (title == "request" || title == "connection 1, client") request = Message(section.text);
        if (title == "response" || title == "connection 1, server") {
            if (!request.empty()) exchanges.push_back({name, request, Message(section.text)});
        }
    }
    EXPECT_FALSE(exchanges.empty()) << file;
    return exchanges;
}

std::string AsRecorded(const std::string& request, const WireExchange& recorded) {
    std::string text = request;
    Replace(text, "<MESSAGE ID=\"" + MessageId(request) + "\"",
            "<MESSAGE ID=\"" + MessageId(recorded.request) + "\"");
    Replace(text, HostLine(request), HostLine(recorded.request));
    return text;
}

std::string ForRequest(const WireExchange& recorded, const std::string& request) {
    const std::string was = MessageId(recorded.request);
    const std::string is = MessageId(request);
    std::string response = recorded.response;
    Replace(response, "<MESSAGE ID=\"" + was + "\"", "<MESSAGE ID=\"" + is + "\"");
    const std::size_t end = response.find("\r\n\r\n");
    const std::size_t length = Length(response.substr(0, end + 2));
    if (length != 0 && was.size() != is.size()) {
        const std::size_t digits = response.find(std::to_string(length));
        response.replace(digits, std::to_string(length).size(),
                         std::to_string(length + is.size() - was.size()));
    }
    return response;
}
