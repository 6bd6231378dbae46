// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/standard/Selection.h"

#include <algorithm>
#include <iterator>

#include "cli/OptionTable.h"
#include "cli/terminal/Text.h"

namespace Kemffdc::Redfish {
namespace {

constexpr char kOem[] = "OEM";
constexpr char kManager[] = "Manager";
constexpr std::size_t kMaxCollections = 64;

using Texts = std::vector<std::string>;

std::string WithoutSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// A type with its rank: the lower, the sooner it is taken.
std::size_t RankOf(const std::string& type, bool mini) {
    static const Texts full{kOem, kManager, "OS", "PreOS"};
    static const Texts small{kManager, "PreOS", "OS"};
    const Texts& order = mini ? small : full;
    const auto found = std::find(order.begin(), order.end(), type);
    if (found != order.end()) return static_cast<std::size_t>(found - order.begin());
    return order.size() + (type == kOem ? 1 : 0);
}

// All that a service can be asked for.
std::vector<Collection> OffersOf(const LogService& service, const ChannelOptions& wishes) {
    std::vector<Collection> offers;
    if (!service.types) {
        const std::string type = wishes.diagnosticType.empty() ? kManager : wishes.diagnosticType;
        offers.push_back({service, wishes.oemType.empty() ? type : kOem, wishes.oemType});
        return offers;
    }
    for (const std::string& type : *service.types) {
        if (type != kOem) {
            offers.push_back({service, type, ""});
            continue;
        }
        for (const std::string& oemType : service.oemTypes) {
            offers.push_back({service, type, oemType});
        }
        // Which OEM types there are is not told: who names one knows it.
        if (service.oemTypes.empty() && !wishes.oemType.empty()) {
            offers.push_back({service, type, wishes.oemType});
        }
    }
    return offers;
}

bool Fits(const Collection& offer, const ChannelOptions& wishes) {
    const std::string& place = wishes.logService;
    if (!place.empty() && WithoutSlash(place) != WithoutSlash(offer.service.path)) return false;
    if (!wishes.oemType.empty()) return offer.type == kOem && offer.oemType == wishes.oemType;
    return wishes.diagnosticType.empty() || offer.type == wishes.diagnosticType;
}

std::string Wanted(const ChannelOptions& wishes) {
    std::string wanted = "diagnostic data";
    if (!wishes.oemType.empty()) {
        wanted += " of the OEM type " + Clean(wishes.oemType);
    } else if (!wishes.diagnosticType.empty()) {
        wanted += " of the type " + Clean(wishes.diagnosticType);
    }
    return wanted + (wishes.logService.empty() ? "" : " at " + Clean(wishes.logService));
}

std::string NotOffered(const LogServices& services, const ChannelOptions& wishes) {
    if (services.found.empty()) {
        return "No log service of this BMC offers the standard's action "
               "(LogService.CollectDiagnosticData)." +
               (services.gap.empty() ? "" : " Not all could be looked at: " + services.gap + ".");
    }
    Texts offers;
    for (const LogService& service : services.found) offers.push_back(Described(service));
    return "This BMC does not offer " + Wanted(wishes) + ". It offers " + Joined(offers, "; ") +
           ".";
}

}  // namespace

Selection Select(const LogServices& services, const ChannelOptions& wishes) {
    Selection selection;
    std::vector<Collection>& taken = selection.collections;
    for (const LogService& service : services.found) {
        const auto offers = OffersOf(service, wishes);
        std::copy_if(offers.begin(), offers.end(), std::back_inserter(taken),
                     [&](const Collection& offer) { return Fits(offer, wishes); });
    }
    // A service that tells what it takes goes before one that does not.
    std::stable_sort(taken.begin(), taken.end(), [&](const Collection& a, const Collection& b) {
        const bool told = a.service.types.has_value();
        if (told != b.service.types.has_value()) return told;
        return RankOf(a.type, wishes.miniLog) < RankOf(b.type, wishes.miniLog);
    });
    if (taken.empty()) {
        selection.fault = NotOffered(services, wishes);
        return selection;
    }
    taken.resize(std::min(taken.size(), wishes.allTypes ? kMaxCollections : 1));
    if (!taken.front().service.types) {
        selection.note = "The BMC does not tell which types of diagnostic data it takes; " +
                         Clean(taken.front().type) + " is asked for.";
    }
    return selection;
}

}  // namespace Kemffdc::Redfish
