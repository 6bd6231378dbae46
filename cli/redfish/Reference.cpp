// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/Reference.h"

#include <curl/curl.h>
#include <strings.h>

#include <memory>
#include <new>

#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

struct FreeUrl {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

class Url {
public:
    Url() : m_url(curl_url()) {
        if (!m_url) throw std::bad_alloc();
    }

    // Whole, or relative to what it is so far.
    bool Set(const std::string& text) {
        return curl_url_set(m_url.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) ==
               CURLUE_OK;
    }

    std::string Part(CURLUPart part) const {
        char* text = nullptr;
        if (curl_url_get(m_url.get(), part, &text, CURLU_DEFAULT_PORT) != CURLUE_OK) return "";
        std::string copy = text;
        curl_free(text);
        return copy;
    }

private:
    std::unique_ptr<CURLU, FreeUrl> m_url;
};

bool SameName(const std::string& a, const std::string& b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

// As a URL writes it.
std::string InBrackets(const std::string& address) {
    return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

}  // namespace

Reference Resolve(const std::string& reference, const std::string& base, const Endpoint& service,
                  const std::string& address) {
    Url from;
    Url to;
    const bool sound = !reference.empty() && from.Set(service.Url() + base) &&
                       to.Set(service.Url() + base) && to.Set(reference);
    if (!sound) return {};
    const std::string host = to.Part(CURLUPART_HOST);
    const bool here = SameName(to.Part(CURLUPART_SCHEME), "https") &&
                      to.Part(CURLUPART_PORT) == from.Part(CURLUPART_PORT) &&
                      (SameName(host, from.Part(CURLUPART_HOST)) ||
                       (!address.empty() && SameName(host, InBrackets(address))));
    if (!here) {
        return {"", "",
                Clean(to.Part(CURLUPART_SCHEME) + "://" + host + ":" + to.Part(CURLUPART_PORT))};
    }
    return {to.Part(CURLUPART_PATH), to.Part(CURLUPART_QUERY), ""};
}

}  // namespace Kemffdc::Redfish
