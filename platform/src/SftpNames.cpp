// SPDX-License-Identifier: Apache-2.0
#include "SftpNames.h"

#include <curl/curl.h>

#include <optional>
#include <ostream>

#include "Log.h"
#include "SftpFailure.h"
#include "SftpPacket.h"
#include "transfer_watchers.h"

namespace {

constexpr char kLogSource[] = "platform/src/file_client";
constexpr std::size_t kLargestListing = 16UL * 1024 * 1024;  // bytes
constexpr std::size_t kCostOfName = 32;                      // bytes, besides its own

using Varnex::NameFault;

std::optional<NameFault> FaultOf(const std::string& name) {
    if (name.empty()) return NameFault::kEmpty;
    if (name.find('/') != std::string::npos) return NameFault::kSlash;
    if (name.find('\0') != std::string::npos) return NameFault::kNulByte;
    if (name.find('\n') != std::string::npos) return NameFault::kLineEnd;
    return std::nullopt;
}

const char* WordsFor(NameFault fault) {
    switch (fault) {
        case NameFault::kEmpty:
            return "it is empty";
        case NameFault::kSlash:
            return "it holds a slash";
        case NameFault::kNulByte:
            return "it holds a NUL byte";
        case NameFault::kLineEnd:
            return "it holds a line end";
    }
    return "";
}

}  // namespace

void SftpNames::Add(std::string_view body) {
    SftpReader fields(body);
    const std::uint32_t count = fields.Number();
    if (count == 0) throw SftpNonsense("a part of a listing without names");
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::string name(fields.Text());
        (void)fields.Text();  // as "ls -l" writes it
        (void)fields.Attributes();
        m_bytes += name.size() + kCostOfName;
        if (m_bytes > kLargestListing) {
            throw SftpFailure{CURLE_FILESIZE_EXCEEDED, "The listing is too long", true};
        }
        Keep(name);
    }
}

void SftpNames::Keep(const std::string& name) {
    if (const auto fault = FaultOf(name)) {
        m_passedOver.emplace_back(name, *fault);
    } else if (name != "." && name != "..") {
        m_names.push_back(name);
    }
}

void SftpNames::TellPassedOver(const std::string& folder) const {
    for (const auto& [name, fault] : m_passedOver) {
        Log(2, kLogSource, __LINE__).Stream()
            << "The name \"" << name << "\" of the listing is passed over: " << WordsFor(fault)
            << ".";
        transfer_watchers::NamePassedOver({folder, name, fault});
    }
}
