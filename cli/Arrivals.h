// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_ARRIVALS_H
#define KEMFFDC_ARRIVALS_H

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "Transfer.h"
#include "cli/ExitCodes.h"

namespace Kemffdc {

// The files that downloads of this process have brought while the object lives, with the SHA-256
// that was computed while they came.
class Arrivals : public Varnex::TransferWatcher {
public:
    Arrivals();
    ~Arrivals() override;

    Arrivals(const Arrivals&) = delete;
    Arrivals& operator=(const Arrivals&) = delete;

    // Size and SHA-256 of a file, as Measure() in Archive.h gives them. The file is read only where
    // it is not one that arrived, or was changed since.
    Outcome Measure(const std::string& path, const std::function<bool()>& stop, std::uint64_t& size,
                    std::string& sha256) const;

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
};

}  // namespace Kemffdc

#endif
