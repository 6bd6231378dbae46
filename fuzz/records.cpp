// SPDX-License-Identifier: Apache-2.0
//
// What the tool makes of the library's records, in which a BMC's words stand. One record after
// another, each ended by a line with "--": a letter for the source, a digit for the level, the
// text. Whatever they say, each step of each channel ends in a sentence that is fit for display.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "cli/cim/Diagnosis.h"
#include "cli/cim/Events.h"
#include "cli/ipmi/Diagnosis.h"
#include "cli/ipmi/Events.h"
#include "cli/redfish/Diagnosis.h"
#include "cli/redfish/Events.h"
#include "cli/terminal/Text.h"

namespace {

using Kemffdc::Outcome;

constexpr const char* kSources[] = {
    "src/module/kvs/ffdc/ffdcredfish_impl", "src/common/rest/RedfishClient",
    "src/module/kvs/ffdc/ffdc_impl",        "src/common/cimom/src/cimfunc",
    "src/module/kvs/ffdc/ffdcipmi_impl",
};

constexpr std::size_t kAllSources = std::size(kSources) + 7;  // and the platform's services

void ExpectSentence(const Outcome& outcome) {
    if (outcome.Ok() != outcome.reason.empty()) std::abort();
    if (Kemffdc::ValidUtf8(outcome.reason) != outcome.reason) std::abort();
    for (const char c : outcome.reason) {
        if ((c >= 0 && c < 0x20) || c == 0x7F) std::abort();
    }
}

using Varnex::IpmiError;

class Reader {
public:
    void Take(const std::string& entry) {
        if (entry.size() < 2) return;
        const auto source = static_cast<std::size_t>(entry[0] - 'a') % kAllSources;
        const int level = entry[1] - '0';
        const std::string text = entry.substr(2);
        if (source >= std::size(kSources)) {
            TakeFromPlatform(source - std::size(kSources), level, text);
            return;
        }
        const Varnex::LogRecord record{level, kSources[source], 1, text};
        if (const auto event = Kemffdc::Redfish::ReadEvent(record)) m_redfish.Add(*event);
        if (const auto event = Kemffdc::Cim::ReadEvent(record)) m_cim.Take(*event, {});
        if (const auto event = Kemffdc::Ipmi::ReadEvent(record)) m_ipmi.Take(*event);
    }

    void Judge(int code) {
        Kemffdc::Options options;
        const std::error_code lost(28, Varnex::TransferCategory());
        ExpectSentence(Kemffdc::Redfish::DiagnoseStart(m_redfish, std::chrono::seconds(1)));
        ExpectSentence(Kemffdc::Redfish::DiagnoseConnect(code, m_redfish));
        ExpectSentence(Kemffdc::Redfish::DiagnoseExport(code, "", m_redfish));
        ExpectSentence(Kemffdc::Redfish::DiagnoseWait({code == 0, "/x", code}, m_redfish, options));
        ExpectSentence(Kemffdc::Redfish::DiagnoseDownload({code, lost, lost.message()}, m_redfish));
        m_cim.End(code == 0, {});
        (void)Kemffdc::Cim::ObjectProgress(m_cim.Events());
        ExpectSentence(Kemffdc::Cim::DiagnoseConnect(code, m_cim.Events()));
        ExpectSentence(Kemffdc::Cim::DiagnoseExport(code, m_cim.Events()));
        if (!m_ipmi.Events().files.empty()) (void)Kemffdc::Ipmi::FileProgress(m_ipmi.Events());
        ExpectSentence(Kemffdc::Ipmi::DiagnoseConnect(code, m_ipmi.Events(), options));
        ExpectSentence(Kemffdc::Ipmi::DiagnoseCollect(code, m_ipmi.Events(), options));
    }

private:
    // What it tells as values: the number stands for each of them, the text for what people read.
    void TakeFromPlatform(std::size_t service, int number, const std::string& text) {
        const std::string host = "[bmc]:115";
        switch (service) {
            case 0:
                m_ipmi.Take(Varnex::IpmiConnection{false, IpmiError(number), text, text});
                break;
            case 1:
                m_ipmi.Take(Varnex::IpmiExchange{number > 4, 0x3A, 0x49, IpmiError(number),
                                                 static_cast<std::uint8_t>(text.size()), text});
                break;
            case 2:
                m_ipmi.Take(Varnex::UsbLanLookupResult{Varnex::UsbLanLookup::kNoTable, text});
                break;
            case 3:
                m_ipmi.Take(Varnex::PassedOverName{host, text, Varnex::NameFault::kSlash});
                break;
            case 4:
                m_ipmi.Take(Varnex::ListingResult{
                    host, text.size(), std::error_code(number, Varnex::TransferCategory())});
                break;
            case 5:
                (void)m_ipmi.Take(Varnex::HostKeyResult{Varnex::HostKeyDecision::kFirstSeen,
                                                        true,
                                                        host,
                                                        host,
                                                        text,
                                                        host,
                                                        1,
                                                        {},
                                                        text});
                break;
            default:
                m_ipmi.TransferStarted();
                m_ipmi.TransferEnded(std::error_code(number, std::generic_category()));
        }
    }

    Kemffdc::Redfish::Events m_redfish;
    Kemffdc::Cim::RunTracker m_cim;
    Kemffdc::Ipmi::RunTracker m_ipmi{2, false};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    Reader reader;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find("\n--\n", at);
        reader.Take(text.substr(at, end - at));
        at = end == std::string::npos ? text.size() : end + 4;
    }
    reader.Judge(data[0] % 9);
    return 0;
}
