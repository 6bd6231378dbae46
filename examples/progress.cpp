// SPDX-License-Identifier: Apache-2.0
//
// progress HOST PORT USER FILE < PASSWORD: fetches the small archive of one BMC. What the library
// logs goes through the host's own log, and how far the download is to the screen.
#include <LogSink.h>
#include <Transfer.h>
#include <varnex/KEMFfdc.h>

#include <cstdlib>
#include <iostream>
#include <mutex>

namespace {

constexpr int kMilestone = 3;  // 1 and 2 are errors and warnings, 4 tells each step

// In its place a host calls the log that it has.
class HostLog : public Varnex::LogSink {
public:
    HostLog() {
        Varnex::SetLogLevel(0);  // the library itself writes nothing
        Varnex::AddLogSink(this);
    }
    ~HostLog() override { Varnex::RemoveLogSink(this); }

    // Records come whole: a session's token is masked by who writes them.
    void Receive(const Varnex::LogRecord& record) override {
        if (record.level > kMilestone) return;
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::clog << "host " << record.level << ": " << Varnex::MaskedForDisplay(record.text)
                  << '\n';
    }

private:
    std::mutex m_mutex;
};

class ProgressLine : public Varnex::TransferWatcher {
public:
    ProgressLine() { Varnex::AddTransferWatcher(this); }
    ~ProgressLine() override { Varnex::RemoveTransferWatcher(this); }

    bool Progress(const Varnex::TransferProgress& now) override {
        if (now.expected != 0) {  // the BMC has answered, and says how much it is
            std::cout << '\r' << now.bytes << " of " << now.expected << " bytes" << std::flush;
        }
        return true;  // false would stop the download
    }

    void Completed(const Varnex::TransferResult& file) override {
        std::cout << "\rSHA-256 " << file.sha256 << ", " << file.bytes << " bytes\n";
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    Varnex::VarnexConnection::ConnectionInfo bmc;
    bmc.host = argv[1];
    bmc.port = static_cast<std::uint16_t>(std::atoi(argv[2]));
    bmc.userid = argv[3];
    std::getline(std::cin, bmc.password);

    const HostLog log;
    const ProgressLine progress;
    Varnex::HideInLog(bmc.password, bmc.userid);

    Varnex::KEMFfdc ffdc(bmc, Varnex::KEMFfdcUploadingUri(), Varnex::BMCLOG_MINI_LOG);
    ffdc.SetTrialCount(360);
    std::string onBmc;
    if (ffdc.Connect() != 0 || ffdc.Apply() != 0 || !ffdc.IsFFDCLogExist(onBmc)) return 1;
    return ffdc.DownloadFFDC(onBmc, argv[4]);
}
