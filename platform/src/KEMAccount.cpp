// SPDX-License-Identifier: Apache-2.0
#include "KEMAccount.h"

#include <cstdio>
#include <ostream>
#include <utility>
#include <vector>

#include "IpmiClient.h"
#include "Log.h"
#include "ipmi_watchers.h"

namespace {

using Varnex::AccountLookup;

constexpr char kLogSource[] = "platform/src/KEMAccount";

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

// `why` is set for what the client has not said itself.
AccountLookup LookUp(XM_WIDGETS::KEMAccount& account, std::uint8_t& code, std::string& why) {
    IpmiClient local(0);
    if (local.connect() != 0) return AccountLookup::kNoInterface;

    std::vector<std::uint8_t> answer;
    if (local.send({0x79, {0x01}, 0x3A}, answer, code) != 0) return AccountLookup::kNoAnswer;
    if (code != 0) {
        char number[8];
        (void)std::snprintf(number, sizeof number, "0x%X", unsigned{code});
        why = std::string("The BMC gives no account for its files: completion code ") + number;
        return AccountLookup::kRefused;
    }

    XM_WIDGETS::KEMAccount received;
    std::size_t at = 0;
    if (!TakeText(answer, at, received.user) || !TakeText(answer, at, received.password)) {
        why = "The BMC's answer with the account for its files is cut: " +
              std::to_string(answer.size()) + " bytes";
        return AccountLookup::kBadAnswer;
    }
    account = std::move(received);
    return AccountLookup::kFound;
}

}  // namespace

int XM_WIDGETS::GetKEMAccountViaKCS(KEMAccount& account, std::uint16_t) {
    std::uint8_t code = 0;
    std::string why;
    const AccountLookup result = LookUp(account, code, why);
    if (!why.empty()) Log(1, kLogSource, __LINE__).Stream() << why;
    ipmi_watchers::AccountLookedUp({result, code, why});
    return static_cast<int>(result);
}
