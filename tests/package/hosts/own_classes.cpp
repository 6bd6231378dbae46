// SPDX-License-Identifier: Apache-2.0
//
// own_classes HOST PORT USER FILE < PASSWORD: a host that has classes of its own under the names
// of the platform's services, with the same members. The library must not find them.
#include <varnex/KEMFfdc.h>

#include <cstdlib>
#include <ctime>
#include <iostream>
#include <list>
#include <sstream>
#include <system_error>

#ifdef WITH_PLATFORM
#include <LogSink.h>
#include <Transfer.h>
#endif

class Log {
public:
    Log(int level, const char* sourceFile, int line);
    ~Log();
    std::ostream& Stream();

private:
    std::ostringstream m_text;
};

class Uri {
public:
    Uri(const std::string&, const std::string&, std::uint16_t, const std::string&,
        const std::string&, const std::string&);
    void set_auth(const std::string&, const std::string&);
    void set_path(const std::string&);
    std::string str() const;
    static std::string join_path(const std::string&, const std::string&);
    static std::string encodeURI(const std::string&);
};

class Clock {
public:
    static long long Now();
    static std::tm LocalTime();
};

class Ipmanip {
public:
    static bool is_ipv6(const std::string&);
};

namespace curlcpp {
class option_trait_base;
}

class file_client {
public:
    static std::error_code ls_directory(const Uri&, std::list<std::string>&);
    static std::error_code download(const Uri&, const std::string&,
                                    const curlcpp::option_trait_base&);
};

int GetGlobalConfigValue(const std::string&, int);

namespace {

[[noreturn]] void Taken(const char* name) {
    std::cout << "taken over: " << name << std::endl;
    std::abort();
}

}  // namespace

Log::Log(int, const char* sourceFile, int) { m_text << sourceFile << ": "; }
Log::~Log() { std::cout << m_text.str() << '\n'; }
std::ostream& Log::Stream() { return m_text; }

Uri::Uri(const std::string&, const std::string&, std::uint16_t, const std::string&,
         const std::string&, const std::string&) {
    Taken("Uri");
}
void Uri::set_auth(const std::string&, const std::string&) { Taken("set_auth"); }
void Uri::set_path(const std::string&) { Taken("set_path"); }
std::string Uri::str() const { Taken("str"); }
std::string Uri::join_path(const std::string&, const std::string&) { Taken("join_path"); }
std::string Uri::encodeURI(const std::string&) { Taken("encodeURI"); }

long long Clock::Now() { Taken("Now"); }
std::tm Clock::LocalTime() { Taken("LocalTime"); }

bool Ipmanip::is_ipv6(const std::string&) { Taken("is_ipv6"); }

std::error_code file_client::ls_directory(const Uri&, std::list<std::string>&) {
    Taken("ls_directory");
}
std::error_code file_client::download(const Uri&, const std::string&,
                                      const curlcpp::option_trait_base&) {
    Taken("download");
}

int GetGlobalConfigValue(const std::string&, int) { Taken("GetGlobalConfigValue"); }

#ifdef WITH_PLATFORM
namespace {

struct Counter : Varnex::LogSink {
    void Receive(const Varnex::LogRecord&) override { ++records; }
    int records = 0;
};

struct Watcher : Varnex::TransferWatcher {
    bool Progress(const Varnex::TransferProgress&) override { return true; }
    void Ended(const std::string&, const std::error_code&) override { ++ended; }
    int ended = 0;
};

}  // namespace
#endif

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    Varnex::VarnexConnection::ConnectionInfo bmc;
    bmc.host = argv[1];
    bmc.port = static_cast<std::uint16_t>(std::atoi(argv[2]));
    bmc.userid = argv[3];
    std::getline(std::cin, bmc.password);
#ifdef WITH_PLATFORM
    Counter counter;
    Watcher watcher;
    Varnex::AddLogSink(&counter);
    Varnex::AddTransferWatcher(&watcher);
#endif

    Log(1, "host", __LINE__).Stream() << "begins";
    int result = 1;
    {
        Varnex::KEMFfdc ffdc(bmc, Varnex::KEMFfdcUploadingUri(), Varnex::BMCLOG_MINI_LOG);
        std::string onBmc;
        if (ffdc.Connect() == 0 && ffdc.Apply() == 0 && ffdc.IsFFDCLogExist(onBmc)) {
            result = ffdc.DownloadFFDC(onBmc, argv[4]);
        }
    }
    Log(1, "host", __LINE__).Stream() << "ends with " << result;

#ifdef WITH_PLATFORM
    Varnex::RemoveTransferWatcher(&watcher);
    Varnex::RemoveLogSink(&counter);
    if (counter.records == 0 || watcher.ended != 1) return 3;
#endif
    return result;
}
