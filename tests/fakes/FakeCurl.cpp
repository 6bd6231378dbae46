// SPDX-License-Identifier: Apache-2.0
#include "FakeCurl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <utility>

// libcurl's type checks wrap these in macros of the same names.
#undef curl_easy_setopt
#undef curl_easy_getinfo
#undef curl_share_setopt

struct curl_mimepart {
    std::string name;
    std::string data;
};

struct curl_mime {
    std::deque<curl_mimepart> parts;  // addresses stay
};

// libcurl's signatures have an enumeration before the "...", which clang warns of.
#pragma GCC diagnostic ignored "-Wvarargs"

namespace fakes {

struct OptionValue {
    long number = 0;
    curl_off_t offset = 0;
    void* pointer = nullptr;
    std::string text;  // libcurl copies strings
};

struct Share {
    int handles = 0;
};

struct Handle {
    std::map<CURLoption, OptionValue> options;
    Share* share = nullptr;  // no option: stays after a reset
    bool performed = false;
    long status = 0;
    curl_off_t firstByte = 0;        // microseconds until the answer began; 0 when it did not
    std::size_t postFieldsCall = 0;  // 1 + index of the call that is completed by the perform

    bool Has(CURLoption option) const { return options.count(option) != 0; }
    long Number(CURLoption option, long otherwise = 0) const {
        const auto found = options.find(option);
        return found == options.end() ? otherwise : found->second.number;
    }
    void* Pointer(CURLoption option) const {
        const auto found = options.find(option);
        return found == options.end() ? nullptr : found->second.pointer;
    }
    std::string Text(CURLoption option) const {
        const auto found = options.find(option);
        return found == options.end() ? std::string() : found->second.text;
    }
};

namespace {

FakeCurl* installed = nullptr;

enum class Kind { Number, Text, Pointer, Function, List, Offset };

struct KnownOption {
    CURLoption option;
    const char* name;
    Kind kind;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
constexpr CURLoption kDeprecatedPut = CURLOPT_PUT;
#pragma GCC diagnostic pop

const KnownOption kKnownOptions[] = {
    {CURLOPT_ACCEPT_ENCODING, "CURLOPT_ACCEPT_ENCODING", Kind::Text},
    {CURLOPT_BUFFERSIZE, "CURLOPT_BUFFERSIZE", Kind::Number},
    {CURLOPT_CAINFO, "CURLOPT_CAINFO", Kind::Text},
    {CURLOPT_CAPATH, "CURLOPT_CAPATH", Kind::Text},
    {CURLOPT_CLOSESOCKETDATA, "CURLOPT_CLOSESOCKETDATA", Kind::Pointer},
    {CURLOPT_CLOSESOCKETFUNCTION, "CURLOPT_CLOSESOCKETFUNCTION", Kind::Function},
    {CURLOPT_CONNECTTIMEOUT, "CURLOPT_CONNECTTIMEOUT", Kind::Number},
    {CURLOPT_COOKIEJAR, "CURLOPT_COOKIEJAR", Kind::Text},
    {CURLOPT_COOKIELIST, "CURLOPT_COOKIELIST", Kind::Text},
    {CURLOPT_CUSTOMREQUEST, "CURLOPT_CUSTOMREQUEST", Kind::Text},
    {CURLOPT_DEBUGDATA, "CURLOPT_DEBUGDATA", Kind::Pointer},
    {CURLOPT_DEBUGFUNCTION, "CURLOPT_DEBUGFUNCTION", Kind::Function},
    {CURLOPT_ERRORBUFFER, "CURLOPT_ERRORBUFFER", Kind::Pointer},
    {CURLOPT_FAILONERROR, "CURLOPT_FAILONERROR", Kind::Number},
    {CURLOPT_FOLLOWLOCATION, "CURLOPT_FOLLOWLOCATION", Kind::Number},
    {CURLOPT_HEADERDATA, "CURLOPT_HEADERDATA", Kind::Pointer},
    {CURLOPT_HEADERFUNCTION, "CURLOPT_HEADERFUNCTION", Kind::Function},
    {CURLOPT_HTTPAUTH, "CURLOPT_HTTPAUTH", Kind::Number},
    {CURLOPT_HTTPGET, "CURLOPT_HTTPGET", Kind::Number},
    {CURLOPT_HTTPHEADER, "CURLOPT_HTTPHEADER", Kind::List},
    {CURLOPT_HTTPPROXYTUNNEL, "CURLOPT_HTTPPROXYTUNNEL", Kind::Number},
    {CURLOPT_HTTP_VERSION, "CURLOPT_HTTP_VERSION", Kind::Number},
    {CURLOPT_INFILESIZE, "CURLOPT_INFILESIZE", Kind::Number},
    {CURLOPT_INFILESIZE_LARGE, "CURLOPT_INFILESIZE_LARGE", Kind::Offset},
    {CURLOPT_KEYPASSWD, "CURLOPT_KEYPASSWD", Kind::Text},
    {CURLOPT_LOW_SPEED_LIMIT, "CURLOPT_LOW_SPEED_LIMIT", Kind::Number},
    {CURLOPT_LOW_SPEED_TIME, "CURLOPT_LOW_SPEED_TIME", Kind::Number},
    {CURLOPT_MAXREDIRS, "CURLOPT_MAXREDIRS", Kind::Number},
    {CURLOPT_MIMEPOST, "CURLOPT_MIMEPOST", Kind::Pointer},
    {CURLOPT_NOBODY, "CURLOPT_NOBODY", Kind::Number},
    {CURLOPT_NOPROGRESS, "CURLOPT_NOPROGRESS", Kind::Number},
    {CURLOPT_NOSIGNAL, "CURLOPT_NOSIGNAL", Kind::Number},
    {CURLOPT_OPENSOCKETFUNCTION, "CURLOPT_OPENSOCKETFUNCTION", Kind::Function},
    {CURLOPT_OPENSOCKETDATA, "CURLOPT_OPENSOCKETDATA", Kind::Pointer},
    {CURLOPT_PASSWORD, "CURLOPT_PASSWORD", Kind::Text},
    {CURLOPT_PATH_AS_IS, "CURLOPT_PATH_AS_IS", Kind::Number},
    {CURLOPT_POST, "CURLOPT_POST", Kind::Number},
    {CURLOPT_POSTFIELDS, "CURLOPT_POSTFIELDS", Kind::Pointer},
    {CURLOPT_POSTFIELDSIZE, "CURLOPT_POSTFIELDSIZE", Kind::Number},
    {CURLOPT_POSTFIELDSIZE_LARGE, "CURLOPT_POSTFIELDSIZE_LARGE", Kind::Offset},
    {CURLOPT_PROTOCOLS_STR, "CURLOPT_PROTOCOLS_STR", Kind::Text},
    {CURLOPT_PROXY, "CURLOPT_PROXY", Kind::Text},
    {CURLOPT_PROXYPASSWORD, "CURLOPT_PROXYPASSWORD", Kind::Text},
    {CURLOPT_PROXYUSERNAME, "CURLOPT_PROXYUSERNAME", Kind::Text},
    {kDeprecatedPut, "CURLOPT_PUT", Kind::Number},
    {CURLOPT_READDATA, "CURLOPT_READDATA", Kind::Pointer},
    {CURLOPT_READFUNCTION, "CURLOPT_READFUNCTION", Kind::Function},
    {CURLOPT_REDIR_PROTOCOLS_STR, "CURLOPT_REDIR_PROTOCOLS_STR", Kind::Text},
    {CURLOPT_SEEKDATA, "CURLOPT_SEEKDATA", Kind::Pointer},
    {CURLOPT_SEEKFUNCTION, "CURLOPT_SEEKFUNCTION", Kind::Function},
    {CURLOPT_SHARE, "CURLOPT_SHARE", Kind::Pointer},
    {CURLOPT_SSLCERT, "CURLOPT_SSLCERT", Kind::Text},
    {CURLOPT_SSLCERTTYPE, "CURLOPT_SSLCERTTYPE", Kind::Text},
    {CURLOPT_SSLKEY, "CURLOPT_SSLKEY", Kind::Text},
    {CURLOPT_SSL_VERIFYHOST, "CURLOPT_SSL_VERIFYHOST", Kind::Number},
    {CURLOPT_SSL_VERIFYPEER, "CURLOPT_SSL_VERIFYPEER", Kind::Number},
    {CURLOPT_TIMEOUT, "CURLOPT_TIMEOUT", Kind::Number},
    {CURLOPT_UNRESTRICTED_AUTH, "CURLOPT_UNRESTRICTED_AUTH", Kind::Number},
    {CURLOPT_UPLOAD, "CURLOPT_UPLOAD", Kind::Number},
    {CURLOPT_URL, "CURLOPT_URL", Kind::Text},
    {CURLOPT_USERAGENT, "CURLOPT_USERAGENT", Kind::Text},
    {CURLOPT_USERNAME, "CURLOPT_USERNAME", Kind::Text},
    {CURLOPT_USERPWD, "CURLOPT_USERPWD", Kind::Text},
    {CURLOPT_VERBOSE, "CURLOPT_VERBOSE", Kind::Number},
    {CURLOPT_WRITEDATA, "CURLOPT_WRITEDATA", Kind::Pointer},
    {CURLOPT_WRITEFUNCTION, "CURLOPT_WRITEFUNCTION", Kind::Function},
    {CURLOPT_XFERINFODATA, "CURLOPT_XFERINFODATA", Kind::Pointer},
    {CURLOPT_XFERINFOFUNCTION, "CURLOPT_XFERINFOFUNCTION", Kind::Function},
};

const KnownOption* Find(CURLoption option) {
    for (const KnownOption& known : kKnownOptions) {
        if (known.option == option) return &known;
    }
    return nullptr;
}

std::string Joined(const curl_slist* list) {
    if (list == nullptr) return "null";
    std::string lines;
    for (; list != nullptr; list = list->next) {
        lines += "[" + std::string(list->data) + "]";
    }
    return lines;
}

std::vector<std::string> Lines(const curl_slist* list) {
    std::vector<std::string> lines;
    for (; list != nullptr; list = list->next) {
        lines.emplace_back(list->data);
    }
    return lines;
}

std::string Method(const Handle& handle) {
    if (handle.Has(CURLOPT_CUSTOMREQUEST)) return handle.Text(CURLOPT_CUSTOMREQUEST);
    if (handle.Number(CURLOPT_NOBODY) != 0) return "HEAD";
    if (handle.Number(CURLOPT_UPLOAD) != 0 || handle.Number(kDeprecatedPut) != 0) return "PUT";
    if (handle.Number(CURLOPT_POST) != 0 || handle.Has(CURLOPT_MIMEPOST)) return "POST";
    return "GET";
}

// Bytes in memory that go out without a callback.
std::string BodyInMemory(const Handle& handle) {
    if (handle.Has(CURLOPT_POSTFIELDS)) {
        const auto* bytes = static_cast<const char*>(handle.Pointer(CURLOPT_POSTFIELDS));
        const long size = handle.Number(CURLOPT_POSTFIELDSIZE, -1);
        return size < 0 ? std::string(bytes) : std::string(bytes, static_cast<std::size_t>(size));
    }
    std::string body;
    if (const auto* form = static_cast<const curl_mime*>(handle.Pointer(CURLOPT_MIMEPOST))) {
        for (const curl_mimepart& part : form->parts) {
            body += part.data;
        }
    }
    return body;
}

bool SendsStream(const Handle& handle) {
    const bool sends = handle.Number(CURLOPT_UPLOAD) != 0 || handle.Number(CURLOPT_POST) != 0;
    return sends && !handle.Has(CURLOPT_POSTFIELDS) && !handle.Has(CURLOPT_MIMEPOST);
}

WebRequest Describe(const Handle& handle) {
    WebRequest request;
    request.method = Method(handle);
    request.url = handle.Text(CURLOPT_URL);
    request.body = BodyInMemory(handle);
    request.headers = Lines(static_cast<curl_slist*>(handle.Pointer(CURLOPT_HTTPHEADER)));
    request.userPassword = handle.Text(CURLOPT_USERPWD);
    request.timeout = handle.Number(CURLOPT_TIMEOUT, -1);
    request.followsRedirects = handle.Number(CURLOPT_FOLLOWLOCATION) != 0;
    request.maxRedirects = handle.Number(CURLOPT_MAXREDIRS, -1);
    request.verifiesPeer = handle.Number(CURLOPT_SSL_VERIFYPEER, 1) != 0;
    return request;
}

std::string Reason(long status) {
    switch (status) {
        case 200:
            return "OK";
        case 201:
            return "Created";
        case 202:
            return "Accepted";
        case 204:
            return "No Content";
        case 401:
            return "Unauthorized";
        case 404:
            return "Not Found";
        case 500:
            return "Internal Server Error";
        case 503:
            return "Service Unavailable";
        default:
            return "Status";
    }
}

}  // namespace

// The C functions' way into the FakeCurl of the running test.
struct Machine {
    static void Record(const std::string& call) {
        if (installed != nullptr) installed->m_calls.push_back(call);
    }

    static void Born(const void* object) {
        if (installed != nullptr) installed->m_alive.insert(object);
    }

    static void Died(const void* object, const char* what) {
        if (installed == nullptr) return;
        if (installed->m_alive.erase(object) == 0) ADD_FAILURE() << what << " ended twice";
    }

    static void ExpectAlive(const void* object, const char* what) {
        if (installed == nullptr || object == nullptr) return;
        if (installed->m_alive.count(object) == 0) ADD_FAILURE() << what << " used after its end";
    }

    static bool Take(bool FakeCurl::*flag) {
        return installed != nullptr && std::exchange(installed->*flag, false);
    }

    static bool TakeInitFails() { return Take(&FakeCurl::m_initFails); }
    static bool TakeShareInitFails() { return Take(&FakeCurl::m_shareInitFails); }
    static unsigned Version() { return installed == nullptr ? 0x080100 : installed->m_version; }
    static bool TakeAppendFails() { return Take(&FakeCurl::m_appendFails); }
    static bool TakeMimeInitFails() { return Take(&FakeCurl::m_mimeInitFails); }
    static bool CookieQueryFails() { return installed != nullptr && installed->m_cookieQueryFails; }
    static std::vector<std::string> Cookies() {
        return installed == nullptr ? std::vector<std::string>() : installed->m_cookies;
    }

    static std::string Called(const void* address) {
        if (address == nullptr) return "null";
        if (installed == nullptr) return "pointer";
        const auto named = installed->m_names.find(address);
        return named == installed->m_names.end() ? "pointer" : named->second;
    }

    // The bytes behind CURLOPT_POSTFIELDS are known once their number is.
    static void CompletePostFields(Handle& handle) {
        if (installed == nullptr || handle.postFieldsCall == 0) return;
        const std::size_t index = handle.postFieldsCall - 1;
        if (index < installed->m_calls.size()) {
            installed->m_calls[index] = "CURLOPT_POSTFIELDS " + BodyInMemory(handle);
        }
        handle.postFieldsCall = 0;
    }

    static void NotePostFields(Handle& handle) {
        if (installed != nullptr) handle.postFieldsCall = installed->m_calls.size();
    }

    static CURLcode Perform(Handle& handle) {
        if (installed == nullptr) {
            ADD_FAILURE() << "curl_easy_perform without a FakeCurl in the test";
            return CURLE_FAILED_INIT;
        }
        ExpectAlive(handle.Pointer(CURLOPT_HTTPHEADER), "a header list");
        ExpectAlive(handle.Pointer(CURLOPT_MIMEPOST), "a form");
        CompletePostFields(handle);
        Record("curl_easy_perform");
        if (std::exchange(handle.performed, true) && installed->m_version < 0x080100) {
            ADD_FAILURE() << "this libcurl corrupts the heap when a handle is used again";
        }
        handle.status = 0;
        handle.firstByte = 0;

        WebRequest request = Describe(handle);
        Transfer transfer(handle, request);
        const CURLcode code = NextScript(request)(transfer);
        installed->m_requests.push_back(request);
        return code;
    }

    static FakeCurl::Script NextScript(const WebRequest& request) {
        if (!installed->m_scripts.empty()) {
            FakeCurl::Script script = std::move(installed->m_scripts.front());
            installed->m_scripts.pop_front();
            return script;
        }
        if (installed->m_always) return installed->m_always;
        ADD_FAILURE() << "no answer is scripted for request " << installed->m_requests.size() + 1
                      << ": " << request.method << " " << request.url;
        return [](Transfer& transfer) {
            transfer.SetErrorText("not scripted");
            return CURLE_COULDNT_CONNECT;
        };
    }
};

void Transfer::AnswerBegins() { m_handle.firstByte = 1; }

std::size_t Transfer::Header(const std::string& line) {
    AnswerBegins();
    const auto callback = Callback<curl_write_callback>(CURLOPT_HEADERFUNCTION);
    if (callback == nullptr) return line.size();
    std::string copy = line;
    return callback(copy.data(), 1, copy.size(), Pointer(CURLOPT_HEADERDATA));
}

std::size_t Transfer::Write(const std::string& bytes) {
    const auto callback = Callback<curl_write_callback>(CURLOPT_WRITEFUNCTION);
    if (callback == nullptr) {
        ADD_FAILURE() << "without a write function, libcurl writes to standard output";
        return 0;
    }
    std::string copy = bytes;
    return callback(copy.data(), 1, copy.size(), Pointer(CURLOPT_WRITEDATA));
}

std::size_t Transfer::Read(char* buffer, std::size_t size, std::size_t count) {
    const auto callback = Callback<curl_read_callback>(CURLOPT_READFUNCTION);
    if (callback == nullptr) {
        ADD_FAILURE() << "without a read function, libcurl reads standard input";
        return 0;
    }
    return callback(buffer, size, count, Pointer(CURLOPT_READDATA));
}

int Transfer::Seek(curl_off_t offset, int origin) {
    const auto callback = Callback<curl_seek_callback>(CURLOPT_SEEKFUNCTION);
    if (callback == nullptr) return CURL_SEEKFUNC_CANTSEEK;
    return callback(Pointer(CURLOPT_SEEKDATA), offset, origin);
}

int Transfer::Progress(curl_off_t downTotal, curl_off_t downNow, curl_off_t upTotal,
                       curl_off_t upNow) {
    const auto callback = Callback<curl_xferinfo_callback>(CURLOPT_XFERINFOFUNCTION);
    if (callback == nullptr || m_handle.Number(CURLOPT_NOPROGRESS, 1) != 0) return 0;
    return callback(Pointer(CURLOPT_XFERINFODATA), downTotal, downNow, upTotal, upNow);
}

CURLcode Transfer::Send(std::size_t chunk) {
    if (!SendsStream(m_handle)) return CURLE_OK;
    std::vector<char> buffer(chunk);
    while (true) {
        const std::size_t got = Read(buffer.data(), 1, chunk);
        if (got == 0) return CURLE_OK;
        if (got == CURL_READFUNC_ABORT) {
            SetErrorText("operation aborted by callback");
            return CURLE_ABORTED_BY_CALLBACK;
        }
        if (got > chunk) {
            SetErrorText("read function returned funny value");
            return CURLE_READ_ERROR;
        }
        m_request.body.append(buffer.data(), got);
    }
}

CURLcode Transfer::Receive(long status, const std::string& body,
                           const std::vector<std::string>& headers) {
    SetStatus(status);
    std::vector<std::string> lines = {"HTTP/1.1 " + std::to_string(status) + " " + Reason(status)};
    lines.insert(lines.end(), headers.begin(), headers.end());
    lines.emplace_back();
    for (const std::string& line : lines) {
        if (Header(line + "\r\n") != line.size() + 2) {
            SetErrorText("Failed writing header");
            return CURLE_WRITE_ERROR;
        }
    }
    const bool bodiless = m_handle.Number(CURLOPT_NOBODY) != 0 || body.empty();
    if (!bodiless && Write(body) != body.size()) {
        SetErrorText("Failure writing output to destination");
        return CURLE_WRITE_ERROR;
    }
    return CURLE_OK;
}

void Transfer::SetStatus(long status) { m_handle.status = status; }

void Transfer::SetErrorText(const std::string& text) {
    if (auto* buffer = static_cast<char*>(Pointer(CURLOPT_ERRORBUFFER))) {
        const std::size_t size = std::min<std::size_t>(text.size(), CURL_ERROR_SIZE - 1);
        std::memcpy(buffer, text.data(), size);
        buffer[size] = '\0';
    }
}

void* Transfer::Pointer(CURLoption option) const { return m_handle.Pointer(option); }

FakeCurl::FakeCurl() {
    if (installed != nullptr) ADD_FAILURE() << "one FakeCurl at a time";
    installed = this;
}

FakeCurl::~FakeCurl() {
    installed = nullptr;
    if (!m_scripts.empty()) {
        ADD_FAILURE() << m_scripts.size() << " scripted answers were not asked for";
    }
    if (!m_alive.empty()) {
        ADD_FAILURE() << m_alive.size()
                      << " handles, lists, forms or shares of libcurl are left over";
    }
}

namespace {
FakeCurl::Script Answering(long status, std::string body, std::vector<std::string> headers) {
    return [status, body = std::move(body), headers = std::move(headers)](Transfer& transfer) {
        const CURLcode sent = transfer.Send();
        return sent != CURLE_OK ? sent : transfer.Receive(status, body, headers);
    };
}
}  // namespace

void FakeCurl::Answer(long status, std::string body, std::vector<std::string> headers) {
    Play(Answering(status, std::move(body), std::move(headers)));
}

void FakeCurl::Fail(CURLcode code, std::string text) {
    Play([code, text = std::move(text)](Transfer& transfer) {
        transfer.SetErrorText(text);
        return code;
    });
}

void FakeCurl::Play(Script script) { m_scripts.push_back(std::move(script)); }

void FakeCurl::AnswerAlways(long status, std::string body, std::vector<std::string> headers) {
    m_always = Answering(status, std::move(body), std::move(headers));
}

void FakeCurl::HoldCookies(std::vector<std::string> lines) { m_cookies = std::move(lines); }
void FakeCurl::CookieQueryFails() { m_cookieQueryFails = true; }
void FakeCurl::IsVersion(unsigned major, unsigned minor, unsigned patch) {
    m_version = major << 16 | minor << 8 | patch;
}
void FakeCurl::ShareInitFails() { m_shareInitFails = true; }
void FakeCurl::InitFails() { m_initFails = true; }
void FakeCurl::AppendFails() { m_appendFails = true; }
void FakeCurl::MimeInitFails() { m_mimeInitFails = true; }
void FakeCurl::Name(const void* address, std::string name) { m_names[address] = std::move(name); }
std::vector<std::string> FakeCurl::TakeCalls() { return std::exchange(m_calls, {}); }

namespace {

// Stores the value and returns how a call line shows it.
std::string Store(OptionValue& value, Kind kind, std::va_list& arguments) {
    switch (kind) {
        case Kind::Number:
            value.number = va_arg(arguments, long);
            return std::to_string(value.number);
        case Kind::Offset:
            value.offset = va_arg(arguments, curl_off_t);
            return std::to_string(value.offset);
        case Kind::Text: {
            const char* text = va_arg(arguments, const char*);
            value.text = text == nullptr ? "" : text;
            return text == nullptr ? "null" : text;
        }
        case Kind::List:
            value.pointer = va_arg(arguments, void*);
            Machine::ExpectAlive(value.pointer, "a list");
            return Joined(static_cast<curl_slist*>(value.pointer));
        case Kind::Function:
            value.pointer = va_arg(arguments, void*);
            return value.pointer == nullptr ? "null" : "function";
        case Kind::Pointer:
        default:
            value.pointer = va_arg(arguments, void*);
            return Machine::Called(value.pointer);
    }
}

void Join(Handle& handle, Share* share) {
    Machine::ExpectAlive(share, "a share");
    if (!handle.options.empty() || handle.performed) {
        ADD_FAILURE() << "a share that comes late drops the handle's cookies";
    }
    handle.share = share;
    if (share != nullptr) ++share->handles;
}

const char* SharedName(curl_lock_data data) {
    switch (data) {
        case CURL_LOCK_DATA_CONNECT:
            return "connections";
        case CURL_LOCK_DATA_COOKIE:
            return "cookies";
        case CURL_LOCK_DATA_DNS:
            return "names";
        case CURL_LOCK_DATA_SSL_SESSION:
            return "TLS sessions";
        default:
            return "something else";
    }
}

curl_slist* NewLine(const char* text) {
    auto* line = new curl_slist;
    line->data = new char[std::strlen(text) + 1];
    std::memcpy(line->data, text, std::strlen(text) + 1);
    line->next = nullptr;
    return line;
}

curl_slist* Append(curl_slist* list, curl_slist* line) {
    if (list == nullptr) {
        Machine::Born(line);
        return line;
    }
    curl_slist* last = list;
    while (last->next != nullptr) last = last->next;
    last->next = line;
    return list;
}

CURLcode GetCookies(curl_slist** result) {
    Machine::Record("CURLINFO_COOKIELIST");
    *result = nullptr;
    if (Machine::CookieQueryFails()) return CURLE_OUT_OF_MEMORY;
    for (const std::string& cookie : Machine::Cookies()) {
        *result = Append(*result, NewLine(cookie.c_str()));
    }
    return CURLE_OK;
}

}  // namespace

}  // namespace fakes

extern "C" {

CURLcode curl_global_init(long) { return CURLE_OK; }
void curl_global_cleanup() {}

CURL* curl_easy_init() {
    fakes::Machine::Record("curl_easy_init");
    if (fakes::Machine::TakeInitFails()) return nullptr;
    auto* handle = new fakes::Handle;
    fakes::Machine::Born(handle);
    return handle;
}

void curl_easy_cleanup(CURL* curl) {
    fakes::Machine::Record("curl_easy_cleanup");
    if (curl == nullptr) return;
    fakes::Machine::Died(curl, "a handle");
    auto* handle = static_cast<fakes::Handle*>(curl);
    if (handle->Has(CURLOPT_COOKIEJAR)) ADD_FAILURE() << "the cookie jar is written";
    if (handle->share != nullptr) --handle->share->handles;
    delete handle;
}

void curl_easy_reset(CURL* curl) {
    fakes::Machine::Record("curl_easy_reset");
    auto* handle = static_cast<fakes::Handle*>(curl);
    fakes::Handle fresh;
    fresh.share = handle->share;
    fresh.performed = handle->performed;
    *handle = fresh;
}

CURLcode curl_easy_setopt(CURL* curl, CURLoption option, ...) {
    fakes::Machine::ExpectAlive(curl, "a handle");
    const fakes::KnownOption* known = fakes::Find(option);
    if (known == nullptr) {
        ADD_FAILURE() << "option " << option << " is unknown to the scripted libcurl";
        return CURLE_UNKNOWN_OPTION;
    }
    auto* handle = static_cast<fakes::Handle*>(curl);
    fakes::OptionValue value;
    std::va_list arguments;
    va_start(arguments, option);
    std::string shown = fakes::Store(value, known->kind, arguments);
    va_end(arguments);
    if (option == CURLOPT_SHARE) {
        if (value.pointer != nullptr) shown = "the share";
        fakes::Join(*handle, static_cast<fakes::Share*>(value.pointer));
    } else {
        handle->options[option] = value;
    }
    fakes::Machine::Record(std::string(known->name) + " " + shown);
    if (option == CURLOPT_POSTFIELDS) fakes::Machine::NotePostFields(*handle);
    return CURLE_OK;
}

CURLcode curl_easy_perform(CURL* curl) {
    fakes::Machine::ExpectAlive(curl, "a handle");
    return fakes::Machine::Perform(*static_cast<fakes::Handle*>(curl));
}

CURLcode curl_easy_send(CURL* curl, const void*, size_t, size_t*) {
    fakes::Machine::ExpectAlive(curl, "a handle");
    return CURLE_AGAIN;
}

CURLcode curl_easy_recv(CURL* curl, void*, size_t, size_t*) {
    fakes::Machine::ExpectAlive(curl, "a handle");
    return CURLE_AGAIN;
}

CURLcode curl_easy_getinfo(CURL* curl, CURLINFO info, ...) {
    fakes::Machine::ExpectAlive(curl, "a handle");
    std::va_list arguments;
    va_start(arguments, info);
    void* result = va_arg(arguments, void*);
    va_end(arguments);
    if (info == CURLINFO_COOKIELIST) return fakes::GetCookies(static_cast<curl_slist**>(result));
    if (info == CURLINFO_RESPONSE_CODE) {
        fakes::Machine::Record("CURLINFO_RESPONSE_CODE");
        *static_cast<long*>(result) = static_cast<fakes::Handle*>(curl)->status;
        return CURLE_OK;
    }
    if (info == CURLINFO_ACTIVESOCKET) {
        *static_cast<curl_socket_t*>(result) = CURL_SOCKET_BAD;
        return CURLE_OK;
    }
    if (info == CURLINFO_CONTENT_LENGTH_DOWNLOAD_T) {
        *static_cast<curl_off_t*>(result) = -1;
        return CURLE_OK;
    }
    if (info == CURLINFO_STARTTRANSFER_TIME_T) {
        fakes::Machine::Record("CURLINFO_STARTTRANSFER_TIME_T");
        *static_cast<curl_off_t*>(result) = static_cast<fakes::Handle*>(curl)->firstByte;
        return CURLE_OK;
    }
    ADD_FAILURE() << "information " << info << " is unknown to the scripted libcurl";
    return CURLE_UNKNOWN_OPTION;
}

curl_version_info_data* curl_version_info(CURLversion) {
    static curl_version_info_data told{};
    told.age = CURLVERSION_FIRST;
    told.version = "scripted";
    told.version_num = fakes::Machine::Version();
    return &told;
}

CURLSH* curl_share_init() {
    fakes::Machine::Record("curl_share_init");
    if (fakes::Machine::TakeShareInitFails()) return nullptr;
    auto* share = new fakes::Share;
    fakes::Machine::Born(share);
    return share;
}

CURLSHcode curl_share_setopt(CURLSH* share, CURLSHoption option, ...) {
    fakes::Machine::ExpectAlive(share, "a share");
    if (option != CURLSHOPT_SHARE) {
        ADD_FAILURE() << "share option " << option << " is unknown to the scripted libcurl";
        return CURLSHE_BAD_OPTION;
    }
    std::va_list arguments;
    va_start(arguments, option);
    const auto data = static_cast<curl_lock_data>(va_arg(arguments, int));
    va_end(arguments);
    fakes::Machine::Record(std::string("CURLSHOPT_SHARE ") + fakes::SharedName(data));
    return CURLSHE_OK;
}

CURLSHcode curl_share_cleanup(CURLSH* share) {
    fakes::Machine::Record("curl_share_cleanup");
    fakes::Machine::Died(share, "a share");
    const auto* ended = static_cast<fakes::Share*>(share);
    if (ended->handles > 0) ADD_FAILURE() << "a share ends before its handles";
    delete ended;
    return CURLSHE_OK;
}

const char* curl_easy_strerror(CURLcode) { return "an error of the scripted libcurl"; }

curl_slist* curl_slist_append(curl_slist* list, const char* text) {
    fakes::Machine::Record(std::string("curl_slist_append ") + text);
    fakes::Machine::ExpectAlive(list, "a list");
    if (fakes::Machine::TakeAppendFails()) return nullptr;
    return fakes::Append(list, fakes::NewLine(text));
}

void curl_slist_free_all(curl_slist* list) {
    fakes::Machine::Record("curl_slist_free_all");
    if (list != nullptr) fakes::Machine::Died(list, "a list");
    while (list != nullptr) {
        curl_slist* next = list->next;
        delete[] list->data;
        delete list;
        list = next;
    }
}

curl_mime* curl_mime_init(CURL* curl) {
    fakes::Machine::Record("curl_mime_init");
    fakes::Machine::ExpectAlive(curl, "a handle");
    if (fakes::Machine::TakeMimeInitFails()) return nullptr;
    auto* form = new curl_mime;
    fakes::Machine::Born(form);
    return form;
}

void curl_mime_free(curl_mime* form) {
    fakes::Machine::Record("curl_mime_free");
    if (form == nullptr) return;
    fakes::Machine::Died(form, "a form");
    delete form;
}

curl_mimepart* curl_mime_addpart(curl_mime* form) {
    fakes::Machine::Record("curl_mime_addpart");
    fakes::Machine::ExpectAlive(form, "a form");
    return &form->parts.emplace_back();
}

CURLcode curl_mime_name(curl_mimepart* part, const char* name) {
    fakes::Machine::Record(std::string("curl_mime_name ") + name);
    part->name = name;
    return CURLE_OK;
}

CURLcode curl_mime_filename(curl_mimepart*, const char* name) {
    fakes::Machine::Record(std::string("curl_mime_filename ") + name);
    return CURLE_OK;
}

CURLcode curl_mime_type(curl_mimepart*, const char* type) {
    fakes::Machine::Record(std::string("curl_mime_type ") + type);
    return CURLE_OK;
}

CURLcode curl_mime_data(curl_mimepart* part, const char* data, std::size_t size) {
    part->data = size == CURL_ZERO_TERMINATED ? std::string(data) : std::string(data, size);
    fakes::Machine::Record("curl_mime_data " + part->data);
    return CURLE_OK;
}

// This libcurl keeps no headers, and so has no dates to read.
time_t curl_getdate(const char*, const time_t*) { return -1; }
CURLHcode curl_easy_header(CURL*, const char*, std::size_t, unsigned, int, curl_header**) {
    return CURLHE_MISSING;
}

}  // extern "C"
