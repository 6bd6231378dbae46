// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/standard/DataHead.h"

#include <boost/algorithm/string/case_conv.hpp>

#include "shared/Base64.h"
#include "shared/Hex.h"
#include "shared/Percent.h"

namespace Kemffdc::Redfish {
namespace {

constexpr std::size_t kSha256Bytes = 32;
constexpr std::size_t kMaxName = 200;

// What follows `begin`, in whatever case, up to one of `ends`; empty where it is not there.
std::string Behind(const std::string& text, const std::string& begin, const char* ends) {
    const std::size_t at = boost::algorithm::to_lower_copy(text).find(begin);
    if (at == std::string::npos) return "";
    const std::string rest = text.substr(at + begin.size());
    return rest.substr(0, rest.find_first_of(ends));
}

std::string FileNameIn(const std::string& disposition) {
    std::string name = shared::PercentDecoded(Behind(disposition, "filename*=utf-8''", "; "));
    if (name.empty()) name = Behind(disposition, "filename=\"", "\"");
    if (name.empty()) name = Behind(disposition, "filename=", "; ");
    return name.substr(name.find_last_of("/\\") + 1).substr(0, kMaxName);
}

std::string Sha256In(const Answer& answer) {
    std::string base64 = Behind(answer.Header("repr-digest"), "sha-256=:", ":");
    if (base64.empty()) base64 = Behind(answer.Header("digest"), "sha-256=", ", ");
    const std::string bytes = shared::FromBase64(base64);
    return bytes.size() == kSha256Bytes ? shared::ToHex(bytes) : "";
}

}  // namespace

DataHead ReadHead(const Answer& answer) {
    if (answer.failedAt != Stage::kDone || !answer.IsSuccess()) return {};
    const std::string type = answer.Header("content-type");
    return {type.substr(0, type.find(';')), FileNameIn(answer.Header("content-disposition")),
            Sha256In(answer)};
}

}  // namespace Kemffdc::Redfish
