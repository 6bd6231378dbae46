// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Assignment.h"

#include <openssl/crypto.h>
#include <poll.h>
#include <unistd.h>

#include <boost/json.hpp>
#include <cerrno>
#include <chrono>
#include <limits>

namespace Kemffdc::Fleet {
namespace {

namespace json = boost::json;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kLongestLine = std::size_t{64} * 1024;
constexpr std::chrono::seconds kPatience{30};

Outcome Usage(const std::string& text) { return Failure(kUsage, "Assignment: " + text); }

// Memory of its own, wiped at its end: the JSON reader leaves passwords where it has read them.
class WipedMemory : public json::memory_resource {
public:
    WipedMemory() : m_buffer(kSize), m_within(m_buffer.data(), m_buffer.size()) {}
    ~WipedMemory() override { OPENSSL_cleanse(m_buffer.data(), m_buffer.size()); }
    WipedMemory(const WipedMemory&) = delete;
    WipedMemory& operator=(const WipedMemory&) = delete;

private:
    // A line of the greatest length fits; what does not is no assignment.
    static constexpr std::size_t kSize = 8 * kLongestLine;

    void* do_allocate(std::size_t bytes, std::size_t alignment) override {
        return m_within.allocate(bytes, alignment);
    }
    void do_deallocate(void*, std::size_t, std::size_t) override {}
    bool do_is_equal(const json::memory_resource& other) const noexcept override {
        return this == &other;
    }

    std::vector<unsigned char> m_buffer;
    json::monotonic_resource m_within;
};

// Reads the members of the object one after the other, and keeps the first fault.
class Members {
public:
    explicit Members(const json::object& object) : m_object(object) {}

    const json::value* Find(const char* name) {
        const json::value* value = m_object.if_contains(name);
        if (value != nullptr) ++m_found;
        return value;
    }

    void Words(const char* name, std::vector<std::string>& words) {
        const json::value* value = Find(name);
        const json::array* list = value == nullptr ? nullptr : value->if_array();
        if (list == nullptr || list->empty()) return Fail(name, "a list of texts");
        for (const json::value& word : *list) {
            if (!word.is_string()) return Fail(name, "a list of texts");
            words.emplace_back(word.get_string());
        }
    }

    void Password(const char* name, Secret& secret) {
        const json::value* value = Find(name);
        if (value == nullptr || value->is_null()) return;
        if (!value->is_string()) return Fail(name, "a text");
        secret = Secret(std::string(value->get_string()));
    }

    std::int64_t Number(const char* name, std::int64_t most) {
        const json::value* value = Find(name);
        const std::int64_t* number = value == nullptr ? nullptr : value->if_int64();
        if (number != nullptr && *number > 0 && *number <= most) return *number;
        Fail(name, "a number from 1");
        return 0;
    }

    bool Flag(const char* name) {
        const json::value* value = Find(name);
        if (value == nullptr) return false;
        if (!value->is_bool()) Fail(name, "true or false");
        return value->is_bool() && value->get_bool();
    }

    bool Has(const char* name) const { return m_object.contains(name); }

    Outcome End() {
        if (m_fault.Ok() && m_found != m_object.size()) m_fault = Usage("a member is not known.");
        return m_fault;
    }

private:
    void Fail(const char* name, const char* wanted) {
        if (m_fault.Ok()) m_fault = Usage(std::string(name) + " is not " + wanted + ".");
    }

    const json::object& m_object;
    std::size_t m_found = 0;
    Outcome m_fault;
};

bool IsReadable(int descriptor, Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd wanted{descriptor, POLLIN, 0};
    return left > 0 && poll(&wanted, 1, static_cast<int>(left)) > 0;
}

}  // namespace

Outcome ParseAssignment(const std::string& line, Assignment& assignment) {
    WipedMemory memory;
    json::error_code error;
    const json::value value = json::parse(line, error, &memory);
    const json::object* object = error ? nullptr : value.if_object();
    if (object == nullptr) return Usage("the line is no JSON object.");
    Members members(*object);
    members.Words("arguments", assignment.arguments);
    members.Password("password", assignment.password);
    members.Password("export_password", assignment.exportPassword);
    assignment.fleet = members.Number("fleet", std::numeric_limits<std::int64_t>::max());
    assignment.number = static_cast<int>(members.Number("number", std::numeric_limits<int>::max()));
    assignment.gate = members.Flag("gate");
    if (members.Has("conductor")) {
        assignment.conductor =
            static_cast<pid_t>(members.Number("conductor", std::numeric_limits<pid_t>::max()));
    }
    return members.End();
}

// Byte by byte: what stands behind the line is for somebody else.
Outcome ReadAssignment(int descriptor, Assignment& assignment) {
    const Clock::time_point end = Clock::now() + kPatience;
    std::string line;
    line.reserve(kLongestLine);  // one place to wipe
    Outcome outcome;
    for (char byte = 0; outcome.Ok() && byte != '\n';) {
        if (!IsReadable(descriptor, end)) {
            outcome = Usage("no line came.");
        } else if (const ssize_t got = read(descriptor, &byte, 1); got != 1) {
            if (got == 0 || errno != EINTR) outcome = Usage("the input ended before its line did.");
        } else if (line.size() == kLongestLine) {
            outcome = Usage("the line is longer than 64 KiB.");
        } else {
            line += byte;
        }
    }
    if (outcome.Ok()) outcome = ParseAssignment(line, assignment);
    OPENSSL_cleanse(line.data(), line.size());
    return outcome;
}

}  // namespace Kemffdc::Fleet
