// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CHANNEL_H
#define KEMFFDC_CHANNEL_H

#include <chrono>
#include <string>

#include "cli/ExitCodes.h"
#include "cli/OptionTable.h"

namespace Kemffdc {

struct Context;
class Report;

constexpr std::chrono::seconds kKnockTime{5};

// One way to a BMC, as --via names it: all that the rest of the tool knows of it. A further channel
// is a folder with such a descriptor and a line in Channels.cpp.
struct Channel {
    enum class Host { kRequired, kOptional };  // optional: in band

    const char* name;
    const char* brief;  // for help
    Host host;

    // Its own options, and the common ones that it takes (CommonOptions.h).
    OptionGroups (*options)();

    // Settles what depends on other options: the port where none is given, and the like. Returns
    // what is wrong with them together, a whole sentence for the operator that begins with the
    // option's name where it is about one; empty: nothing is. Reads and changes `options` alone.
    std::string (*complete)(Options& options);

    // Tells the report what it has besides what every channel has, also where nothing comes of it.
    void (*outline)(const Options& options, Report& report);

    // Whether its service answers at the BMC that the options name, found out with one request that
    // needs no credentials, and which certificate that shows is not looked at. Blocks for about
    // kKnockTime at most. Null: there is nothing to ask.
    Outcome (*knock)(const Options& options);

    Outcome (*collect)(Context& run);  // gathers, and delivers the archive
    Outcome (*check)(Context& run);    // finds out whether collect would get as far as gathering
    Outcome (*resume)(Context& run) = nullptr;  // goes on with an earlier run; null: cannot

    bool built = true;  // false: left out of this build, and `complete` says so
};

}  // namespace Kemffdc

#endif
