// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_ARRIVALS_H
#define KEMFFDC_ARRIVALS_H

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "Transfer.h"
#include "cli/ExitCodes.h"
#include "cli/archive/Check.h"

namespace Kemffdc {

// The files that downloads of this process have brought while the object lives, with the SHA-256
// that was computed while they came. Archives among them are read to their end on a thread of its
// own, as soon as they are here.
class Arrivals : public Varnex::TransferWatcher {
public:
    // `stop`: whether nobody waits for a result any more; asked on several threads.
    explicit Arrivals(const std::function<bool()>& stop);
    ~Arrivals() override;

    Arrivals(const Arrivals&) = delete;
    Arrivals& operator=(const Arrivals&) = delete;

    // Size and SHA-256 of a file, as Measure() in Archive.h gives them. The file is read only where
    // it is not one that arrived, or was changed since.
    Outcome Measure(const std::string& path, const std::function<bool()>& stop, std::uint64_t& size,
                    std::string& sha256) const;

    // How an archive could be read; nothing of a file whose name is none of an archive. Blocks
    // until it is read, or until `stop` is true.
    std::optional<Archives::Reading> Reading(const std::string& path);

    bool Progress(const Varnex::TransferProgress&) override { return true; }
    void Completed(const Varnex::TransferResult& result) override;

private:
    using File = std::pair<std::uint64_t, std::uint64_t>;  // device and inode
    struct Content {
        std::uint64_t size = 0;
        std::int64_t modified = 0;  // nanoseconds since 1970
        std::string sha256;
    };

    bool Find(const std::string& path, Content& content) const;

    mutable std::mutex m_lock;
    std::map<File, Content> m_files;
    Archives::Check m_check;
};

}  // namespace Kemffdc

#endif
