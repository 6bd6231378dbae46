// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_TRANSFER_WATCHERS_H
#define VARNEX_PLATFORM_SRC_TRANSFER_WATCHERS_H

#include <cstdint>
#include <string>
#include <system_error>

#include "Transfer.h"

// What file_client tells the watchers of Transfer.h. Never throws; a watcher that throws counts
// as one that stops the download.
namespace transfer_watchers {

// Whether there is one, who may want to know what arrived.
bool Any() noexcept;

void ListingStarted(const std::string& folder) noexcept;
void NamePassedOver(const Varnex::PassedOverName& name) noexcept;
void ListingEnded(const Varnex::ListingResult& result) noexcept;
void HostKeyJudged(const Varnex::HostKeyResult& result) noexcept;

void Started(const std::string& localPath) noexcept;

// What to do with a part of this file: keep one, continue one (empty: none).
struct PartWish {
    bool keep = false;
    std::string validator;
};
PartWish WishFor(const std::string& localPath) noexcept;
void PartBegun(const Varnex::PartialFile& part) noexcept;
void PartKept(const Varnex::PartialFile& part) noexcept;

// False: a watcher wants the download to stop.
bool Progress(const std::string& localPath, std::uint64_t bytes, std::uint64_t expected) noexcept;

void Completed(const Varnex::TransferResult& result) noexcept;

void Ended(const std::string& localPath, const std::error_code& error) noexcept;

}  // namespace transfer_watchers

#endif
