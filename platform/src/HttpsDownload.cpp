// SPDX-License-Identifier: Apache-2.0
#include "HttpsDownload.h"

#include <ostream>
#include <utility>

#include "Log.h"
#include "TransferError.h"
#include "Validator.h"

namespace {

constexpr char kLogSource[] = "platform/src/file_client";
constexpr long kPartialContent = 206;
constexpr long kRangeNotSatisfiable = 416;

// 202, 204, 205 and 206 say in their different ways that this is not the whole file.
bool IsWholeFile(long status) { return status == 200 || status == 201 || status == 203; }

bool IsHeaderOption(const curlcpp::option_trait_base& option) {
    return option.option() == CURLOPT_HTTPHEADER;
}

}  // namespace

std::error_code HttpsDownload::Run(const curlcpp::option_trait_base& option) {
    // A validator travels in a header line, and only lines of this kind can be added to.
    const bool canAsk =
        !IsHeaderOption(option) || dynamic_cast<const HeaderLines*>(&option) != nullptr;
    if (m_file.Bytes() > 0 && canAsk) {
        const std::error_code error = Fetch(option);
        if (m_answer != Answer::kUnfit) return error;
    }
    if (m_file.Bytes() > 0 && !m_file.Restart()) return m_file.DiskError();
    return Fetch(option);
}

std::error_code HttpsDownload::Fetch(const curlcpp::option_trait_base& option) {
    m_from = m_file.Bytes();
    m_answer = Answer::kNone;
    m_range.reset();
    m_handle = MakeHandle();
    if (!m_handle) return TransferError(CURLE_FAILED_INIT, "");
    const CURLcode set = SetUp(option);
    LogVerification();
    const CURLcode code = set == CURLE_OK ? curl_easy_perform(m_handle.get()) : set;
    if (m_answer == Answer::kNone) m_answer = Recognise();  // it had no body
    if (m_answer == Answer::kComplete) return {};
    const std::error_code error = Judge(code);
    return error ? error : JudgeSize();
}

CURLcode HttpsDownload::SetUp(const curlcpp::option_trait_base& option) {
    Settings settings(m_handle.get());
    SetHttpsTransfer(settings, m_uri);
    settings.Set(option);
    if (m_from > 0) {
        const auto* given = dynamic_cast<const HeaderLines*>(&option);
        std::list<std::string> lines = given == nullptr ? std::list<std::string>() : given->value();
        lines.push_back("If-Range: " + m_file.Validator());
        m_lines = std::make_unique<const HeaderLines>(std::move(lines));
        settings.Set(*m_lines);
        settings.Set(CURLOPT_RANGE, std::to_string(m_from) + "-");
    }
    // After the caller's option, which cannot take these away.
    m_excess.Watch(settings);
    settings.Set(CURLOPT_URL, m_uri.str());
    settings.Set(CURLOPT_ERRORBUFFER, m_errorText);
    settings.Set(CURLOPT_WRITEFUNCTION, &HttpsDownload::OnData);
    settings.Set(CURLOPT_WRITEDATA, this);
    settings.Set(CURLOPT_NOPROGRESS, 0L);
    settings.Set(CURLOPT_XFERINFOFUNCTION, &HttpsDownload::OnProgress);
    settings.Set(CURLOPT_XFERINFODATA, this);
    return settings.Result();
}

void HttpsDownload::LogVerification() const {
    const std::string ca = CaFile();
    Log(4, kLogSource, __LINE__).Stream()
        << "The certificate of " << m_uri.host() << " is "
        << (ca.empty() ? "not verified" : "verified against " + ca) << ".";
}

std::size_t HttpsDownload::OnData(char* data, std::size_t size, std::size_t count, void* self) {
    return static_cast<HttpsDownload*>(self)->Take(data, size * count) ? size * count : 0;
}

int HttpsDownload::OnProgress(void* self, curl_off_t expected, curl_off_t, curl_off_t, curl_off_t) {
    const auto& download = *static_cast<HttpsDownload*>(self);
    const std::uint64_t answer = expected > 0 ? static_cast<std::uint64_t>(expected) : 0;
    return download.m_file.GoOn(download.m_range ? download.m_range->size : answer) ? 0 : 1;
}

bool HttpsDownload::Take(const char* data, std::size_t size) {
    if (m_answer == Answer::kNone) m_answer = Recognise();
    if (m_answer != Answer::kFile && m_answer != Answer::kRest) return false;
    if (m_range && size > m_range->last + 1 - m_file.Bytes()) {
        m_tooMuch = true;
        return false;
    }
    return m_file.Take(data, size);
}

HttpsDownload::Answer HttpsDownload::Recognise() {
    const long status = Number(CURLINFO_RESPONSE_CODE);
    if (IsWholeFile(status)) return FileBegins();
    if (m_from > 0 && status == kPartialContent) return RestBegins();
    if (m_from > 0 && status == kRangeNotSatisfiable) return NoRest();
    return status == 0 ? Answer::kNone : Answer::kOther;
}

HttpsDownload::Answer HttpsDownload::FileBegins() {
    if (m_from > 0 && !m_file.Restart()) return Answer::kOther;
    m_from = 0;
    if (!m_file.IsPartWanted()) return Answer::kFile;
    curl_off_t size = -1;
    curl_easy_getinfo(m_handle.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &size);
    m_file.Begin(OffersParts(m_handle.get()) ? ValidatorOf(m_handle.get()) : "",
                 size > 0 ? static_cast<std::uint64_t>(size) : 0);
    return Answer::kFile;
}

HttpsDownload::Answer HttpsDownload::RestBegins() {
    m_range = ReadContentRange(AnswerHeader(m_handle.get(), "Content-Range"));
    if (!m_range || m_range->first != m_from || !Confirms(m_handle.get(), m_file.Validator())) {
        return Answer::kUnfit;
    }
    if (m_file.IsPartWanted()) m_file.Begin(m_file.Validator(), m_range->size);
    return Answer::kRest;
}

// A server that has the file in this very state and nothing behind the bytes says how long it is.
HttpsDownload::Answer HttpsDownload::NoRest() const {
    const auto size = ReadUnsatisfiedRange(AnswerHeader(m_handle.get(), "Content-Range"));
    return size == m_from ? Answer::kComplete : Answer::kUnfit;
}

std::error_code HttpsDownload::Judge(CURLcode code) {
    const long status = Number(CURLINFO_RESPONSE_CODE);
    if (code == CURLE_ABORTED_BY_CALLBACK) return StoppedError();
    if (status >= 200 && m_answer == Answer::kOther) {
        return TransferError(kHttpStatus + static_cast<int>(status), "");
    }
    if (code == CURLE_OK || m_tooMuch) return {};
    if (code != CURLE_HTTP_RETURNED_ERROR) return LibcurlError(code, m_errorText);
    // libcurl has no text for a proxy that refuses the tunnel.
    return TransferError(code, "The proxy answered HTTP status " +
                                   std::to_string(Number(CURLINFO_HTTP_CONNECTCODE)));
}

// Of an answer that libcurl calls a success.
std::error_code HttpsDownload::JudgeSize() {
    if (m_tooMuch || m_excess.Any(m_handle.get(), m_file.Bytes() - m_from)) {
        const std::uint64_t announced = m_range ? m_range->last + 1 : m_file.Bytes();
        (void)m_file.Restart();  // nothing of such a server is worth to be kept
        return TransferError(CURLE_PARTIAL_FILE, "The server sends more than the " +
                                                     std::to_string(announced) +
                                                     " bytes that it announced");
    }
    if (!m_range || m_file.Bytes() == m_range->size) return {};
    return TransferError(CURLE_PARTIAL_FILE, "The server has sent " +
                                                 std::to_string(m_file.Bytes()) + " of " +
                                                 std::to_string(m_range->size) + " bytes");
}

long HttpsDownload::Number(CURLINFO information) const {
    long number = 0;
    curl_easy_getinfo(m_handle.get(), information, &number);
    return number;
}
