// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_FAKEFILES_H
#define VARNEX_TESTS_FAKEFILES_H

#include <cstdint>
#include <list>
#include <string>
#include <system_error>
#include <vector>

namespace fakes {

struct FileRequest {
    std::string scheme;
    std::string host;
    std::uint16_t port;
    std::string user;
    std::string password;
    std::string path;
};

struct Download : FileRequest {
    std::string localPath;
    int option;                          // number of the extra option
    std::list<std::string> headerLines;  // of CURLOPT_HTTPHEADER
};

// The files of a BMC. Transfers nothing; answers with what the test says, else with success. The
// journal gets "list FOLDER" and "download PATH".
class FakeFiles {
public:
    FakeFiles();
    ~FakeFiles();
    FakeFiles(const FakeFiles&) = delete;
    FakeFiles& operator=(const FakeFiles&) = delete;

    // What every listing gives.
    void ListingIs(const std::list<std::string>& names);

    // Queued in order.
    void NextListingFails(const std::error_code& error);
    void NextDownloadFails(const std::error_code& error);

    // Every download of a path that ends so fails.
    void DownloadFailsOf(const std::string& pathEnd, const std::error_code& error);

    std::vector<FileRequest> Listings() const;
    std::vector<Download> Downloads() const;
};

}  // namespace fakes

#endif
