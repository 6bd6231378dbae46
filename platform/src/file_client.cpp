// SPDX-License-Identifier: Apache-2.0
#include "file_client.h"

#include <cstdint>

#include "ArrivingFile.h"
#include "HttpsDownload.h"
#include "SftpFailure.h"
#include "TransferError.h"
#include "sftp_client.h"
#include "transfer_settings.h"
#include "transfer_watchers.h"

namespace {

std::error_code Refused(const Uri& uri, const curlcpp::option_trait_base& option) {
    if (IsHttps(uri)) return {};
    if (!IsSftp(uri)) {
        return TransferError(CURLE_UNSUPPORTED_PROTOCOL,
                             "Nothing is downloaded by \"" + uri.scheme() + "\"");
    }
    if (uri.str().back() == '/') return FolderError(uri.path());
    if (static_cast<int>(option.option()) != 0) {
        return TransferError(CURLE_UNKNOWN_OPTION, "SFTP knows none of libcurl's options");
    }
    return {};
}

std::error_code FetchBySftp(const Uri& uri, ArrivingFile& file) {
    try {
        sftp_client::Download(
            uri, [&file](const char* data, std::size_t size) { return file.Take(data, size); },
            [&file](std::uint64_t expected) { return file.GoOn(expected); });
        return {};
    } catch (const SftpFailure& failure) {
        if (failure.folder) return FolderError(uri.path());
        return TransferError(failure.number, failure.text);
    }
}

// Parts of files are continued over HTTPS alone.
transfer_watchers::PartWish PartWishFor(const Uri& uri, const std::string& localPath) {
    return IsHttps(uri) ? transfer_watchers::WishFor(localPath) : transfer_watchers::PartWish();
}

std::error_code Download(const Uri& uri, const std::string& localPath,
                         const curlcpp::option_trait_base& option) {
    if (const std::error_code error = Refused(uri, option)) return error;
    ArrivingFile file(localPath, PartWishFor(uri, localPath));
    std::error_code error = file.Open();
    if (!error) {
        error = IsSftp(uri) ? FetchBySftp(uri, file) : HttpsDownload(uri, file).Run(option);
    }
    if (file.DiskError()) return file.DiskError();
    if (!error) return file.Complete();
    file.KeepPart();
    return error;
}

std::error_code List(const Uri& uri, std::list<std::string>& names) {
    if (!IsSftp(uri)) {
        return TransferError(CURLE_UNSUPPORTED_PROTOCOL,
                             "Nothing is listed by \"" + uri.scheme() + "\"");
    }
    try {
        sftp_client::List(uri, names);
        return {};
    } catch (const SftpFailure& failure) {
        return TransferError(failure.number, failure.text);
    } catch (const std::bad_alloc&) {
        return std::make_error_code(std::errc::not_enough_memory);
    }
}

}  // namespace

std::error_code file_client::ls_directory(const Uri& uri, std::list<std::string>& names) {
    transfer_watchers::ListingStarted(uri.path());
    const std::error_code error = List(uri, names);
    transfer_watchers::ListingEnded({uri.path(), error ? 0 : names.size(), error});
    return error;
}

std::error_code file_client::download(const Uri& uri, const std::string& localPath,
                                      const curlcpp::option_trait_base& option) {
    transfer_watchers::Started(localPath);
    std::error_code error;
    try {
        error = Download(uri, localPath, option);
    } catch (const std::bad_alloc&) {
        error = std::make_error_code(std::errc::not_enough_memory);
    }
    transfer_watchers::Ended(localPath, error);
    return error;
}
