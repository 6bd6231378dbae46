// SPDX-License-Identifier: Apache-2.0
//
// What the tool makes of the library's records, in which a BMC's words stand. One record after
// another, each ended by a line with "--": a letter for the source, a digit for the level, the
// text. Whatever they say, each step of each channel ends in a sentence that is fit for display.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
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
    "src/module/kvs/ffdc/ffdcredfish_impl",
    "src/common/rest/RedfishClient",
    "src/module/kvs/ffdc/ffdc_impl",
    "src/common/cimom/src/cimfunc",
    "src/module/kvs/ffdc/ffdcipmi_impl",
    "platform/src/IpmiClient",
    "platform/src/KEMAccount",
    "platform/src/UsbLanCfg",
    "platform/src/file_client",
    "platform/src/HostKeyCheck",
};

void ExpectSentence(const Outcome& outcome) {
    if (outcome.Ok() != outcome.reason.empty()) std::abort();
    if (Kemffdc::ValidUtf8(outcome.reason) != outcome.reason) std::abort();
    for (const char c : outcome.reason) {
        if ((c >= 0 && c < 0x20) || c == 0x7F) std::abort();
    }
}

class Reader {
public:
    void Take(const std::string& entry) {
        if (entry.size() < 2) return;
        const auto source = static_cast<std::size_t>(entry[0] - 'a') % std::size(kSources);
        const std::string text = entry.substr(2);
        const Varnex::LogRecord record{entry[1] - '0', kSources[source], 1, text};
        if (const auto found = Kemffdc::FindRedfishSign(record)) m_redfish.push_back(*found);
        if (const auto found = Kemffdc::FindCimSign(record)) m_cim.Take(*found, {});
        if (const auto found = Kemffdc::FindIpmiSign(record)) {
            m_ipmi.Take(*found);
            m_ipmi.TransferStarted();
            m_ipmi.TransferEnded(std::error_code(28, std::generic_category()));
        }
    }

    void Judge(int code) {
        Kemffdc::Options options;
        ExpectSentence(Kemffdc::JudgeStart(m_redfish, std::chrono::seconds(1)));
        ExpectSentence(Kemffdc::JudgeConnect(code, m_redfish));
        ExpectSentence(Kemffdc::JudgeExport(code, "", m_redfish));
        ExpectSentence(Kemffdc::JudgeWait(code == 0, "/x", m_redfish, options, code));
        ExpectSentence(Kemffdc::JudgeDownload(code, m_redfish, false));
        options.via = "cim";
        m_cim.End(code == 0, {});
        (void)Kemffdc::ObjectProgress(m_cim.Account());
        ExpectSentence(Kemffdc::JudgeCimConnect(code, m_cim.Account()));
        ExpectSentence(Kemffdc::JudgeCimExport(code, m_cim.Account()));
        options.via = "ipmi";
        if (!m_ipmi.Account().files.empty()) (void)Kemffdc::FileProgress(m_ipmi.Account());
        ExpectSentence(Kemffdc::JudgeIpmiConnect(code, m_ipmi.Account(), options));
        ExpectSentence(Kemffdc::JudgeIpmiCollect(code, m_ipmi.Account(), options));
    }

private:
    std::vector<Kemffdc::Finding> m_redfish;
    Kemffdc::CimLedger m_cim;
    Kemffdc::IpmiLedger m_ipmi{2};
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
