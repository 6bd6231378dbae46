// SPDX-License-Identifier: Apache-2.0
//
// bench_cim_calls [CALLS [ROUNDS]]: CALLS (500) method calls on one connection to a server in a
// process of its own, with the CIM client and, in turn, with a bare libcurl loop that posts the
// same bytes. Prints one line a round: seconds of ours, seconds of the bare loop.
#include <Pegasus/Client/CIMClient.h>
#include <arpa/inet.h>
#include <curl/curl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>

namespace {

using namespace Pegasus;

// --- the server: one connection after the other, the same answer to every request ---

std::string AnswerTo(const std::string& request) {
    static constexpr char kId[] = "<MESSAGE ID=\"";
    const std::size_t at = request.find(kId) + sizeof kId - 1;
    const std::string body =
        "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">\n"
        "<MESSAGE ID=\"" +
        request.substr(at, request.find('"', at) - at) +
        "\" PROTOCOLVERSION=\"1.0\">\n<SIMPLERSP>\n<METHODRESPONSE NAME=\"ExportData\">\n"
        "<RETURNVALUE PARAMTYPE=\"uint32\">\n<VALUE>0</VALUE>\n</RETURNVALUE>\n</METHODRESPONSE>\n"
        "</SIMPLERSP>\n</MESSAGE>\n</CIM>\n";
    char size[24];
    std::snprintf(size, sizeof size, "%zx", body.size());
    return "HTTP/1.1 200 OK\r\nContent-Type: application/xml; charset=utf-8\r\n"
           "transfer-encoding: chunked\r\nCIMOperation: MethodResponse\r\n"
           "Trailer: CIMStatusCode, CIMStatusCodeDescription, Content-Language\r\n\r\n" +
           std::string(size) + "\r\n" + body + "\r\n0\r\n\r\n";
}

// Length of the whole request, 0 while its head is not there.
std::size_t RequestSize(const std::string& bytes) {
    const std::size_t end = bytes.find("\r\n\r\n");
    const std::size_t length = bytes.find("content-length: ");
    if (end == std::string::npos || length == std::string::npos) return 0;
    return end + 4 + std::strtoul(bytes.c_str() + length + 16, nullptr, 10);
}

void ServeConnection(int socket) {
    std::string bytes;
    char piece[16384];
    for (;;) {
        const ssize_t n = ::recv(socket, piece, sizeof piece, 0);
        if (n <= 0) return;
        bytes.append(piece, static_cast<std::size_t>(n));
        const std::size_t size = RequestSize(bytes);
        if (size == 0 || bytes.size() < size) continue;
        const std::string answer = AnswerTo(bytes);
        if (::send(socket, answer.data(), answer.size(), MSG_NOSIGNAL) < 0) return;
        bytes.erase(0, size);
    }
}

[[noreturn]] void Serve(int listener) {
    for (;;) {
        const int socket = ::accept(listener, nullptr, nullptr);
        if (socket < 0) ::_exit(1);
        const int on = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        ServeConnection(socket);
        ::close(socket);
    }
}

class Server {
public:
    Server() : m_listener(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (::bind(m_listener, generic, size) != 0 || ::listen(m_listener, 4) != 0) std::abort();
        ::getsockname(m_listener, generic, &size);
        m_port = ntohs(address.sin_port);
        m_child = ::fork();
        if (m_child == 0) Serve(m_listener);
    }
    ~Server() {
        ::kill(m_child, SIGKILL);
        ::waitpid(m_child, nullptr, 0);
        ::close(m_listener);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    unsigned Port() const { return m_port; }

private:
    int m_listener;
    unsigned m_port = 0;
    pid_t m_child = 0;
};

// --- the two clients ---

CIMObjectPath Path(const char* className,
                   std::initializer_list<std::pair<const char*, const char*>> keys) {
    Array<CIMKeyBinding> bindings;
    for (const auto& [name, value] : keys) {
        bindings.append(CIMKeyBinding(name, value, CIMKeyBinding::STRING));
    }
    return {String(), CIMNamespaceName(), className, bindings};
}

template <class Call>
double Seconds(int calls, Call call) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i) call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double WithCimClient(unsigned port, int calls) {
    CIMClient client;
    client.connect("127.0.0.1", port, "user", "password");
    const CIMObjectPath service =
        Path("ZOR_FFDCService", {{"CreationClassName", "ZOR_FFDCService"},
                                 {"Name", "FFDC"},
                                 {"SystemCreationClassName", "ZOR_ComputerSystem"},
                                 {"SystemName", "kem"}});
    const CIMObjectPath data = Path("ZOR_FFDCData", {{"InstanceID", "ZOR:FFDC:1:1"}});
    return Seconds(calls, [&] {
        Array<CIMParamValue> in;
        in.append(CIMParamValue("InitializationNeeded", CIMValue(true)));
        in.append(CIMParamValue("ExportURI", CIMValue(String("sftp://10.0.0.5/ffdc"))));
        in.append(CIMParamValue("Username", CIMValue(String("store"))));
        in.append(CIMParamValue("Password", CIMValue(String("password"))));
        in.append(CIMParamValue("DataCollectionType", CIMValue(data)));
        Array<CIMParamValue> out;
        const CIMValue result = client.invokeMethod("root/cimv2", service, "ExportData", in, out);
        if (result != CIMValue(Uint32(0))) std::abort();
    });
}

// What the CIM client sends, for libcurl to send the same.
std::string RecordedRequest() {
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener, generic, size) != 0 || ::listen(listener, 1) != 0) std::abort();
    ::getsockname(listener, generic, &size);
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            WithCimClient(ntohs(address.sin_port), 1);
        } catch (const Exception&) {
            ::_exit(0);  // it is cut off as soon as it has sent
        }
        ::_exit(0);
    }
    const int socket = ::accept(listener, nullptr, nullptr);
    std::string request;
    char piece[16384];
    while (RequestSize(request) == 0 || request.size() < RequestSize(request)) {
        const ssize_t n = ::recv(socket, piece, sizeof piece, 0);
        if (n <= 0) std::abort();
        request.append(piece, static_cast<std::size_t>(n));
    }
    ::close(socket);
    ::close(listener);
    ::waitpid(child, nullptr, 0);
    return request;
}

std::size_t Append(char* data, std::size_t size, std::size_t count, void* to) {
    static_cast<std::string*>(to)->append(data, size * count);
    return size * count;
}

double WithCurl(unsigned port, int calls, const std::string& request) {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(),
                                                                   &curl_easy_cleanup);
    const std::size_t end = request.find("\r\n\r\n");
    const std::string body = request.substr(end + 4);
    curl_slist* headers = nullptr;
    std::size_t at = request.find("\r\n") + 2;
    while (at < end) {  // the host and the length come from libcurl
        const std::size_t line = request.find("\r\n", at);
        const std::string header = request.substr(at, line - at);
        if (header.rfind("HOST:", 0) != 0 && header.rfind("content-length:", 0) != 0) {
            headers = curl_slist_append(headers, header.c_str());
        }
        at = line + 2;
    }
    // The server looks for it as the CIM client spells it.
    headers =
        curl_slist_append(headers, ("content-length: " + std::to_string(body.size())).c_str());
    headers = curl_slist_append(headers, "Accept:");
    std::string answer;
    curl_easy_setopt(curl.get(), CURLOPT_URL,
                     ("http://127.0.0.1:" + std::to_string(port) + "/cimom").c_str());
    curl_easy_setopt(curl.get(), CURLOPT_PROXY, "");
    curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &Append);
    curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &answer);
    const double seconds = Seconds(calls, [&] {
        answer.clear();
        if (curl_easy_perform(curl.get()) != CURLE_OK || answer.empty()) std::abort();
    });
    curl_slist_free_all(headers);
    return seconds;
}

}  // namespace

int main(int argc, char** argv) {
    const int calls = argc > 1 ? std::atoi(argv[1]) : 500;
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 11;
    if (calls < 1 || rounds < 1) {
        std::fprintf(stderr, "usage: bench_cim_calls [CALLS [ROUNDS]]\n");
        return 2;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);
    const std::string request = RecordedRequest();
    const Server server;
    for (int i = 0; i < rounds; ++i) {
        const double ours = WithCimClient(server.Port(), calls);
        std::printf("%.6f %.6f\n", ours, WithCurl(server.Port(), calls, request));
    }
    curl_global_cleanup();
    return 0;
}
