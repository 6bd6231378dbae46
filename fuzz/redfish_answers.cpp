// SPDX-License-Identifier: Apache-2.0
//
// A BMC that answers a whole run with anything. Four answers, one after another, each ended by a
// line with "--": service root, probe, export, task. Only the export's answer may end in an
// exception, and only in the JSON reader's.
#include <varnex/KEMFfdc.h>

#include <boost/property_tree/json_parser.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "LogSink.h"
#include "fakes/FakeCurl.h"

namespace {

class Answers {
public:
    explicit Answers(std::string text) : m_rest(std::move(text)) {}

    // A first line of three digits is the status.
    void Serve(fakes::FakeCurl& web) {
        const std::size_t end = m_rest.find("\n--\n");
        std::string answer = m_rest.substr(0, end);
        m_rest = end == std::string::npos ? "" : m_rest.substr(end + 4);
        long status = 200;
        if (answer.size() > 3 && answer[3] == '\n') {
            status = std::atol(answer.substr(0, 3).c_str());
            answer.erase(0, 4);
        }
        web.AnswerAlways(status, answer);
    }

private:
    std::string m_rest;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("VARNEX_REDFISH_STARTUP_WAIT_TIME", "0", 1);  // a 503 is not waited for
    Varnex::SetLogLevel(0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Answers answers(std::string(reinterpret_cast<const char*>(data), size));
    fakes::FakeCurl web;
    Varnex::VarnexConnection::ConnectionInfo bmc;
    bmc.host = "192.0.2.1";
    bmc.port = 443;

    answers.Serve(web);
    Varnex::KEMFfdc ffdc(bmc, Varnex::KEMFfdcUploadingUri(), Varnex::BMCLOG_MINI_LOG);
    ffdc.SetTrialCount(2);
    ffdc.SetTrialInterval(0);

    answers.Serve(web);
    (void)ffdc.Connect();

    answers.Serve(web);
    try {
        (void)ffdc.Apply();
    } catch (const boost::property_tree::json_parser_error&) {
    }

    answers.Serve(web);
    std::string path;
    if (!ffdc.IsFFDCLogExist(path) && !path.empty()) std::abort();
    return 0;
}
