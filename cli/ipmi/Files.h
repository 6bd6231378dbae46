// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_IPMI_FILES_H
#define KEMFFDC_IPMI_FILES_H

#include <boost/json/fwd.hpp>
#include <cstdint>
#include <iosfwd>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cli/report/ChannelPart.h"

namespace Kemffdc::Ipmi {

// A file that a BMC keeps. Texts are fit for display, but for the name.
struct RemoteFile {
    enum class State {
        kRunning,  // on its way
        kFetched,
        kFailed,
        kSkipped,     // not asked for in this mode
        kPassedOver,  // its name is no file name
        kFolder,      // a folder of the BMC, which is not asked for
    };
    std::string name;  // as the BMC sent it: any bytes
    State state = State::kSkipped;
    std::string reason;         // of kFailed, kSkipped and kPassedOver
    bool localTrouble = false;  // kFailed, and this machine is at fault
    std::string path;           // absolute, where it was delivered
    std::uint64_t size = 0;     // kFetched
    std::string sha256;         // kFetched; lower-case hexadecimal
    std::optional<bool> whole;  // kFetched, as in DeliveredFile; so is the next
    std::string damage;         // why the archive cannot be read to its end
};

// A request that the BMC has answered with a completion code other than 0.
struct Refusal {
    enum class Request { kStart, kPoll, kAccount };
    Request request;
    std::uint8_t completionCode;
};

// What the channel has to tell about a run: the BMC's files, and what it refused.
class FileList : public ChannelPart {
public:
    // The BMC's files, and how many more it has that were never tried.
    void Set(const std::vector<RemoteFile>& files, std::size_t notTried);

    void SetRefusals(const std::vector<Refusal>& refusals);

    void AddTo(boost::json::object& run) const override;  // "files", "files_not_tried", "refusals"
    void Write(std::ostream& out) const override;

private:
    mutable std::mutex m_lock;
    std::vector<RemoteFile> m_files;  // free of secrets
    std::size_t m_notTried = 0;
    std::vector<Refusal> m_refusals;
};

}  // namespace Kemffdc::Ipmi

#endif
