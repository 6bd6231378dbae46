// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_COMMONOPTIONS_H
#define KEMFFDC_COMMONOPTIONS_H

#include "cli/OptionTable.h"

namespace Kemffdc {

// Options that more than one channel or command has, each declared once. A further option of every
// run is a line in RunOptions(), and so on; one of a channel's own is a line in its folder.

const OptionGroup& ViaOptions();       // --via
const OptionGroup& PortOptions();      // --port
const OptionGroup& LoginOptions();     // user and password on the BMC
const OptionGroup& TlsOptions();       // what the BMC's certificate is checked against
const OptionGroup& ExportOptions();    // the file store that the BMC itself sends its archive to
const OptionGroup& DownloadOptions();  // the folder for downloads, and their bounds
const OptionGroup& RunOptions();       // every run on a BMC has these
const OptionGroup& ListOptions();      // how much of a long list is shown
const OptionGroup& StateOptions();     // the folder for what outlives a run
const OptionGroup& ResultOptions();    // every command has these

// What channels say of them together, once all are taken: a whole sentence for the operator, empty
// where all is well.

// A certificate is judged in one way.
std::string CheckTrust(const Options& options);

// HTTP Basic authentication (RFC 7617) cannot tell where a name with a colon ends.
std::string CheckBasicUser(const Options& options);

// Leaves out what kemffdc.conf says of a file store where no archive is sent to one: there is no
// URI, or --output on the command line asks for the download.
std::string CheckExport(Options& options);

}  // namespace Kemffdc

#endif
