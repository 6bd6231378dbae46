// SPDX-License-Identifier: Apache-2.0
#include "cli/http/CurlHandle.h"

#include <cstring>
#include <new>

namespace Kemffdc {
namespace {

constexpr unsigned kReusable = 0x080100;  // libcurl 8.1.0

bool IsReusable() { return curl_version_info(CURLVERSION_NOW)->version_num >= kReusable; }

CURL* MakeEasy() {
    CURL* easy = curl_easy_init();
    if (easy == nullptr) throw std::bad_alloc();
    return easy;
}

CURLSH* MakeShare() {
    CURLSH* share = curl_share_init();
    if (share == nullptr) throw std::bad_alloc();
    curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT);
    curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    return share;
}

}  // namespace

CurlHandle::CurlHandle() : m_share(IsReusable() ? nullptr : MakeShare()), m_easy(MakeEasy()) {}

CURL* CurlHandle::Renew() {
    if (m_share) {
        m_easy.reset();  // before the next one, so that its connection is free
        m_easy.reset(MakeEasy());
        curl_easy_setopt(m_easy.get(), CURLOPT_SHARE, m_share.get());
    } else {
        curl_easy_reset(m_easy.get());
    }
    return m_easy.get();
}

void SetVerification(CURL* easy, const std::string& caFile) {
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, caFile.empty() ? 0L : 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, caFile.empty() ? 0L : 2L);
    if (caFile.empty()) return;
    curl_easy_setopt(easy, CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(easy, CURLOPT_CAPATH, nullptr);  // these CAs, and not the system's besides
}

std::optional<Certificate> CertificateOf(CURL* easy, bool verified) {
    curl_certinfo* shown = nullptr;
    curl_easy_getinfo(easy, CURLINFO_CERTINFO, &shown);
    if (shown == nullptr || shown->num_of_certs <= 0) return std::nullopt;
    std::optional<Certificate> certificate;
    for (const curl_slist* line = shown->certinfo[0]; line != nullptr; line = line->next) {
        if (std::strncmp(line->data, "Cert:", 5) == 0)
            certificate = ReadCertificate(line->data + 5);
    }
    if (certificate && verified) {
        certificate->verified = true;
        certificate->trust = CertificateTrust::kCaFile;
    }
    return certificate;
}

}  // namespace Kemffdc
