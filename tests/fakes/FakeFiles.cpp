// SPDX-License-Identifier: Apache-2.0
#include "fakes/FakeFiles.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <memory>

#include "fakes/Journal.h"
#include "file_client.h"

namespace {

struct Files {
    std::list<std::string> names;
    std::deque<std::error_code> listingErrors;
    std::deque<std::error_code> downloadErrors;
    std::map<std::string, std::error_code> downloadErrorsByEnd;
    std::vector<fakes::FileRequest> listings;
    std::vector<fakes::Download> downloads;
};

std::unique_ptr<Files> g_files;

std::list<std::string> HeaderLines(const curlcpp::option_trait_base& option) {
    using Headers = curlcpp::option_traits<std::list<std::string>, CURLOPT_HTTPHEADER>;
    const auto* headers = dynamic_cast<const Headers*>(&option);
    return headers == nullptr ? std::list<std::string>() : headers->value();
}

fakes::FileRequest RequestOf(const Uri& uri) {
    return {uri.scheme(), uri.host(), uri.port(), uri.user(), uri.password(), uri.path()};
}

bool EndsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::error_code TakeFirst(std::deque<std::error_code>& errors) {
    if (errors.empty()) return std::error_code();
    const std::error_code error = errors.front();
    errors.pop_front();
    return error;
}

}  // namespace

std::error_code file_client::ls_directory(const Uri& uri, std::list<std::string>& names) {
    if (!g_files) {
        ADD_FAILURE() << "a listing without FakeFiles";
        return std::make_error_code(std::errc::not_supported);
    }
    fakes::Journal::Append("list " + uri.path());
    g_files->listings.push_back(RequestOf(uri));
    const std::error_code error = TakeFirst(g_files->listingErrors);
    if (!error) names = g_files->names;
    return error;
}

std::error_code file_client::download(const Uri& uri, const std::string& localPath,
                                      const curlcpp::option_trait_base& option) {
    if (!g_files) {
        ADD_FAILURE() << "a download without FakeFiles";
        return std::make_error_code(std::errc::not_supported);
    }
    fakes::Journal::Append("download " + uri.path());
    g_files->downloads.push_back(
        {RequestOf(uri), localPath, static_cast<int>(option.option()), HeaderLines(option)});
    for (const auto& [end, error] : g_files->downloadErrorsByEnd) {
        if (EndsWith(uri.path(), end)) return error;
    }
    return TakeFirst(g_files->downloadErrors);
}

namespace fakes {

FakeFiles::FakeFiles() { g_files = std::make_unique<Files>(); }
FakeFiles::~FakeFiles() { g_files.reset(); }

void FakeFiles::ListingIs(const std::list<std::string>& names) { g_files->names = names; }

void FakeFiles::NextListingFails(const std::error_code& error) {
    g_files->listingErrors.push_back(error);
}

void FakeFiles::NextDownloadFails(const std::error_code& error) {
    g_files->downloadErrors.push_back(error);
}

void FakeFiles::DownloadFailsOf(const std::string& pathEnd, const std::error_code& error) {
    g_files->downloadErrorsByEnd[pathEnd] = error;
}

std::vector<FileRequest> FakeFiles::Listings() const { return g_files->listings; }
std::vector<Download> FakeFiles::Downloads() const { return g_files->downloads; }

}  // namespace fakes
