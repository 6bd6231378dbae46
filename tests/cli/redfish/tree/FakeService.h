// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TESTS_REDFISH_TREE_FAKESERVICE_H
#define KEMFFDC_TESTS_REDFISH_TREE_FAKESERVICE_H

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "cli/redfish/tree/Walker.h"

// A Redfish service of a handful of texts.
class FakeService : public Kemffdc::Redfish::Tree::Source {
public:
    // What it answers to a path, with its query, from now on.
    void Has(const std::string& path, const std::string& body) { m_bodies[path] = body; }
    // A member of a collection, or a link, for the text of a resource.
    static std::string Link(const std::string& path) { return R"({"@odata.id":")" + path + "\"}"; }
    void Refuses(const std::string& path, long httpCode) { m_refused[path] = httpCode; }
    // Whatever has no text of its own.
    void HasElse(std::function<std::string(const std::string& path)> body) { m_else = body; }
    void EndsAfter(std::size_t requests) { m_last = requests; }

    Kemffdc::Answer Get(const std::string& path) override {
        asked.push_back(path);
        Kemffdc::Answer answer;
        const auto refused = m_refused.find(path);
        const auto body = m_bodies.find(path);
        answer.httpCode = refused != m_refused.end() ? refused->second : 200;
        if (body != m_bodies.end()) {
            answer.body = body->second;
        } else if (m_else) {
            answer.body = m_else(path);
        } else if (answer.httpCode == 200) {
            answer.httpCode = 404;
        }
        return answer;
    }

    std::string Ended() const override { return asked.size() >= m_last ? "It is gone." : ""; }

    std::vector<std::string> asked;

private:
    std::map<std::string, std::string> m_bodies;
    std::map<std::string, long> m_refused;
    std::function<std::string(const std::string&)> m_else;
    std::size_t m_last = static_cast<std::size_t>(-1);
};

// Keeps what it is given.
class FakeArchive : public Kemffdc::Redfish::Tree::Sink {
public:
    bool Take(const std::string& name, const std::string& content) override {
        if (files.size() >= room) return false;
        EXPECT_TRUE(files.emplace(name, content).second) << name << " came twice";
        return true;
    }

    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& file : files) names.push_back(file.first);
        return names;
    }

    std::map<std::string, std::string> files;
    std::size_t room = static_cast<std::size_t>(-1);
};

#endif
