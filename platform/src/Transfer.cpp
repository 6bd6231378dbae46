// SPDX-License-Identifier: Apache-2.0
#include "Transfer.h"

#include "Listeners.h"
#include "transfer_watchers.h"

namespace {

// Never destroyed: a thread may still download while the process ends.
Listeners<Varnex::TransferWatcher>& Watchers() {
    static auto& watchers = *new Listeners<Varnex::TransferWatcher>;
    return watchers;
}

}  // namespace

void Varnex::AddTransferWatcher(TransferWatcher* watcher) { Watchers().Add(watcher); }

void Varnex::RemoveTransferWatcher(TransferWatcher* watcher) { Watchers().Remove(watcher); }

bool transfer_watchers::Any() noexcept {
    bool any = false;
    Watchers().Tell([&any](Varnex::TransferWatcher&) { any = true; });
    return any;
}

void transfer_watchers::ListingStarted(const std::string& folder) noexcept {
    Watchers().Tell([&](Varnex::TransferWatcher& watcher) { watcher.ListingStarted(folder); });
}

void transfer_watchers::NamePassedOver(const Varnex::PassedOverName& name) noexcept {
    Watchers().Tell([&](Varnex::TransferWatcher& watcher) { watcher.NamePassedOver(name); });
}

void transfer_watchers::ListingEnded(const Varnex::ListingResult& result) noexcept {
    Watchers().Tell([&](Varnex::TransferWatcher& watcher) { watcher.ListingEnded(result); });
}

void transfer_watchers::HostKeyJudged(const Varnex::HostKeyResult& result) noexcept {
    Watchers().Tell([&](Varnex::TransferWatcher& watcher) { watcher.HostKeyJudged(result); });
}

void transfer_watchers::Started(const std::string& localPath) noexcept {
    Watchers().Tell([&](Varnex::TransferWatcher& watcher) { watcher.Started(localPath); });
}

transfer_watchers::PartWish transfer_watchers::WishFor(const std::string& localPath) noexcept {
    PartWish wish;
    Watchers().Tell([&](Varnex::TransferWatcher& watcher) {
        if (watcher.KeepsPart(localPath)) wish.keep = true;
        if (wish.validator.empty()) wish.validator = watcher.ContinuesPart(localPath);
    });
    return wish;
}

void transfer_watchers::PartBegun(const Varnex::PartialFile& part) noexcept {
    Watchers().Tell([&](Varnex::TransferWatcher& watcher) { watcher.PartBegun(part); });
}

void transfer_watchers::PartKept(const Varnex::PartialFile& part) noexcept {
    Watchers().Tell([&](Varnex::TransferWatcher& watcher) { watcher.PartKept(part); });
}

bool transfer_watchers::Progress(const std::string& localPath, std::uint64_t bytes,
                                 std::uint64_t expected) noexcept {
    try {
        bool goOn = true;
        Watchers().ForEach([&](Varnex::TransferWatcher& watcher) {
            goOn = watcher.Progress({localPath, bytes, expected}) && goOn;
        });
        return goOn;
    } catch (...) {
        return false;
    }
}

void transfer_watchers::Completed(const Varnex::TransferResult& result) noexcept {
    Watchers().Tell([&](Varnex::TransferWatcher& watcher) { watcher.Completed(result); });
}

void transfer_watchers::Ended(const std::string& localPath, const std::error_code& error) noexcept {
    Watchers().Tell([&](Varnex::TransferWatcher& watcher) { watcher.Ended(localPath, error); });
}
