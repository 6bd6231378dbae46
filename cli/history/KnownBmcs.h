// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_HISTORY_KNOWNBMCS_H
#define KEMFFDC_HISTORY_KNOWNBMCS_H

#include <cstdint>
#include <string>
#include <vector>

#include "cli/ExitCodes.h"

namespace Kemffdc::History {

// A certificate that is trusted for a BMC.
struct KnownBmc {
    std::string sha256;  // of its DER form, upper-case hexadecimal with colons
    int line = 0;        // where it stands in the file, counted from 1
};

// The fingerprint in `text` as KnownBmc::sha256 writes it: 64 hexadecimal digits of either case,
// with or without colons between the bytes, with or without "SHA256:" before them. Empty where
// `text` is something else.
std::string ReadFingerprint(const std::string& text);

// The certificates of BMCs that this user trusts: a text file for people, as SSH's known_hosts is.
// A line for a host and port; words are separated by blanks, what follows the fingerprint is a
// comment, and so is a line that begins with "#".
//
//   bmc7.example:443 SHA256:9F:86:D0:...:0A:08 first seen 2026-01-31T23:59:58Z
//   [2001:db8::7]:5989 SHA256:E3:B0:...:B8:55
//
// Several lines of one host and port are all trusted: two BMCs may take turns at an address. Names
// compare without regard to case, IPv6 addresses by what they mean; a name and its address are two
// hosts.
//
// Processes may use the file side by side: what one writes is whole for the others. An operation
// blocks while another process writes, 5 s at most. Failures are kLocalFile. Where the file cannot
// be understood nobody is trusted: the reason then names FILE:LINE.
class KnownBmcs {
public:
    // The file `known_bmcs` of that folder (StateFolder.h). Neither need exist.
    explicit KnownBmcs(const std::string& stateFolder);

    const std::string& Path() const { return m_path; }

    // What is trusted for that BMC: nothing where it is unknown.
    Outcome Find(const std::string& host, std::uint16_t port, std::vector<KnownBmc>& known) const;

    // Trust on first use: adds a line, unless there is one for that BMC by now. `known` receives
    // what stands there afterwards, and is to be compared: another process may have been first.
    // Makes the folder and the file, for this user alone, where they are missing.
    Outcome Remember(const std::string& host, std::uint16_t port, const std::string& sha256,
                     std::vector<KnownBmc>& known);

    // From now on this certificate is trusted for that BMC, and no other. Everything else in the
    // file stays as it is.
    Outcome Replace(const std::string& host, std::uint16_t port, const std::string& sha256);

private:
    std::string m_folder;
    std::string m_path;
};

}  // namespace Kemffdc::History

#endif
