// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_METRICS_H
#define KEMFFDC_FLEET_METRICS_H

#include <map>
#include <string>

#include "cli/fleet/Results.h"
#include "cli/history/FleetJournal.h"

namespace Kemffdc::Fleet {

// When the newest good archive of each host came, seconds since the epoch, by HostKey(): of all
// fleet runs of the history that are still there. Throws StoreError.
std::map<std::string, double> NewestArchives(const History::FleetJournal& journal);

// The outcomes of a run in the text format of Prometheus (exposition format 0.0.4), for the
// textfile collector of its node exporter. Every series has the label `inventory`: several runs may
// write files side by side.
std::string MetricsText(const Results& results, const std::map<std::string, double>& newest);

}  // namespace Kemffdc::Fleet

#endif
