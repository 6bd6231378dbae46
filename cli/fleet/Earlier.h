// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_EARLIER_H
#define KEMFFDC_FLEET_EARLIER_H

#include <cstdint>
#include <functional>
#include <string>

#include "cli/history/FleetJournal.h"
#include "cli/history/Store.h"

namespace Kemffdc::Fleet {

// What the earlier attempts of a host have left, as the journal tells. At most one of the first
// two.
struct Earlier {
    std::string archive;  // path of one that was brought whole; empty: none, as the next two
    std::uint64_t size = 0;
    std::string sha256;

    History::RunRow run;  // the attempt that can be gone on with; id 0: none

    // What the operator is to know of an attempt that cannot be gone on with; may be empty.
    std::string note;
};

// Of host `number` in that fleet run. `canGoOn`: whether a run that has made the BMC gather can be
// gone on with. Throws StoreError.
Earlier LookBack(const History::Store& store, History::Id fleet, int number,
                 const std::function<bool(const History::RunRow& run)>& canGoOn);

}  // namespace Kemffdc::Fleet

#endif
