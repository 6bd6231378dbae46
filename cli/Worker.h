// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_WORKER_H
#define KEMFFDC_WORKER_H

namespace Kemffdc {

// `kemffdc fleet-worker`, which no help names: one host of a fleet run, for its conductor. Reads
// what to do from standard input (fleet/Assignment.h), which stays open as long as the conductor
// lives, and carries it out. What earlier attempts of the host have left is not done again.
//
// Standard output carries the lines of --events, with "host-state" for each milestone after it has
// been written into the journal, and "turn" where the worker waits for the line "go" to download.
// The last line is the result, also of an assignment that cannot be read. Standard error stays
// empty. Returns the exit code.
int RunWorker();

}  // namespace Kemffdc

#endif
