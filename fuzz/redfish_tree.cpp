// SPDX-License-Identifier: Apache-2.0
//
// A BMC whose tree is read, and that answers with anything: one answer after another, each ended by
// a line with "--", the last one for ever. A first line of three digits is the status.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "LogSink.h"
#include "Support.h"
#include "cli/redfish/tree/Walker.h"

namespace {

using namespace Kemffdc::Redfish::Tree;

class Answers : public Source {
public:
    explicit Answers(std::string text) : m_rest(std::move(text)) {}

    Kemffdc::Answer Get(const std::string& path) override {
        // Not each one once: the next page of one collection may be a page of another.
        Require(path.rfind("/redfish/", 0) == 0);
        ++m_asked;
        const std::size_t end = m_rest.find("\n--\n");
        std::string body = m_rest.substr(0, end);
        if (end != std::string::npos) m_rest.erase(0, end + 4);
        Kemffdc::Answer answer;
        answer.httpCode = 200;
        if (body.size() > 3 && body[3] == '\n') {
            answer.httpCode = std::atol(body.substr(0, 3).c_str());
            body.erase(0, 4);
        }
        answer.body = body;
        return answer;
    }

    std::string Ended() const override { return ""; }

    std::size_t Asked() const { return m_asked; }

private:
    std::string m_rest;
    std::size_t m_asked = 0;
};

// Names of files stay below the folder that they are unpacked into, and none comes twice.
class Names : public Sink {
public:
    bool Take(const std::string& name, const std::string& content) override {
        Require(m_names.insert(name).second && name.rfind("redfish/", 0) == 0);
        Require(("/" + name + "/").find("/../") == std::string::npos);
        Require(name.find('\0') == std::string::npos && !content.empty());
        return true;
    }

private:
    std::set<std::string> m_names;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Varnex::SetLogLevel(0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Answers answers(std::string(reinterpret_cast<const char*>(data), size));
    Names names;
    Bounds bounds;
    bounds.requests = 100;
    bounds.pages = 10;
    bounds.known = 500;
    Walker walker(answers, names, {{"192.0.2.1", false, 443}, "192.0.2.1"}, bounds);
    walker.Run();
    Require(answers.Asked() <= bounds.requests && walker.Counts().requests == answers.Asked());
    Require(walker.Trouble().size() <= 1000);
    return 0;
}
