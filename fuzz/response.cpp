// SPDX-License-Identifier: Apache-2.0
//
// What libcurl hands the engine of one answer: header lines of any bytes, then a body. The first
// blank line ends the headers, as on the wire.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "common/rest/RestClient.h"
#include "fakes/FakeCurl.h"

namespace {

CURLcode Deliver(fakes::Transfer& transfer, const std::string& answer) {
    std::size_t begin = 0;
    while (begin < answer.size()) {
        const std::size_t end = answer.find('\n', begin);
        const std::string line = answer.substr(begin, end - begin) + "\n";
        if (transfer.Header(line) != line.size()) return CURLE_WRITE_ERROR;
        begin = end == std::string::npos ? answer.size() : end + 1;
        if (line == "\n" || line == "\r\n") break;
    }
    const std::string body = answer.substr(begin);
    if (transfer.Write(body) != body.size()) return CURLE_WRITE_ERROR;
    transfer.SetStatus(200);
    return CURLE_OK;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string answer(reinterpret_cast<const char*>(data), size);
    fakes::FakeCurl web;
    web.Play([&](fakes::Transfer& transfer) { return Deliver(transfer, answer); });

    Rest::RestClient client;
    const Rest::Response response = client.Get("https://192.0.2.1/");
    if (response.curlCode == CURLE_WRITE_ERROR) {
        if (size < Rest::RestClient::kMaxHeaderBytes) std::abort();  // cut below every bound
        return 0;
    }
    if (response.httpCode != 200 || response.body.size() > answer.size()) std::abort();
    return 0;
}
