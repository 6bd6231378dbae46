// SPDX-License-Identifier: Apache-2.0
#include "KEMAccount.h"

#include <ios>
#include <ostream>
#include <vector>

#include "IpmiClient.h"
#include "Log.h"

namespace {

constexpr char kLogSource[] = "platform/src/KEMAccount";

enum : int { kDone = 0, kNoInterface = 1, kNoAnswer = 2, kRefused = 3, kBadAnswer = 4 };

// A text behind the byte that tells its length; `at` moves behind it.
bool TakeText(const std::vector<std::uint8_t>& answer, std::size_t& at, std::string& text) {
    if (at >= answer.size()) return false;
    const std::size_t length = answer[at++];
    if (length > answer.size() - at) return false;
    const auto begin = answer.begin() + static_cast<std::ptrdiff_t>(at);
    text.assign(begin, begin + static_cast<std::ptrdiff_t>(length));
    at += length;
    return true;
}

}  // namespace

int XM_WIDGETS::GetKEMAccountViaKCS(KEMAccount& account, std::uint16_t) {
    IpmiClient local(0);
    if (local.connect() != 0) return kNoInterface;

    std::vector<std::uint8_t> answer;
    std::uint8_t completionCode = 0;
    if (local.send({0x79, {0x01}, 0x3A}, answer, completionCode) != 0) return kNoAnswer;
    if (completionCode != 0) {
        Log(1, kLogSource, __LINE__).Stream()
            << "The BMC gives no account for its files: completion code 0x" << std::hex
            << std::uppercase << int{completionCode};
        return kRefused;
    }

    KEMAccount received;
    std::size_t at = 0;
    if (!TakeText(answer, at, received.user) || !TakeText(answer, at, received.password)) {
        Log(1, kLogSource, __LINE__).Stream()
            << "The BMC's answer with the account for its files is cut: " << answer.size()
            << " bytes";
        return kBadAnswer;
    }
    account = std::move(received);
    return kDone;
}
