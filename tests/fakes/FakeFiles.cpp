// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeFiles.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>

#include "file_client.h"

namespace {

struct Files {
    std::deque<std::error_code> downloadErrors;
    std::vector<fakes::Download> downloads;
};

std::unique_ptr<Files> g_files;

std::list<std::string> HeaderLines(const curlcpp::option_trait_base& option) {
    using Headers = curlcpp::option_traits<std::list<std::string>, CURLOPT_HTTPHEADER>;
    const auto* headers = dynamic_cast<const Headers*>(&option);
    return headers == nullptr ? std::list<std::string>() : headers->value();
}

}  // namespace

std::error_code file_client::download(const Uri& uri, const std::string& localPath,
                                      const curlcpp::option_trait_base& option) {
    if (!g_files) {
        ADD_FAILURE() << "a download without FakeFiles";
        return std::make_error_code(std::errc::not_supported);
    }
    g_files->downloads.push_back({uri.scheme(), uri.host(), uri.port(), uri.user(), uri.password(),
                                  uri.path(), localPath, static_cast<int>(option.option()),
                                  HeaderLines(option)});
    if (g_files->downloadErrors.empty()) return std::error_code();
    const std::error_code error = g_files->downloadErrors.front();
    g_files->downloadErrors.pop_front();
    return error;
}

namespace fakes {

FakeFiles::FakeFiles() { g_files = std::make_unique<Files>(); }
FakeFiles::~FakeFiles() { g_files.reset(); }

void FakeFiles::NextDownloadFails(const std::error_code& error) {
    g_files->downloadErrors.push_back(error);
}

std::vector<Download> FakeFiles::Downloads() const { return g_files->downloads; }

}  // namespace fakes
