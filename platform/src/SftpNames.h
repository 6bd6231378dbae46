// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SFTPNAMES_H
#define VARNEX_PLATFORM_SRC_SFTPNAMES_H

#include <list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Transfer.h"

// The names in a folder that a server tells, packet by packet.
class SftpNames {
public:
    // Throws SftpFailure for nonsense, and for more than anybody has.
    void Add(std::string_view body);

    // Logs what is passed over, a level-2 record each, because it is not one plain component of a
    // path, and tells the watchers. To be called once, when all are there.
    void TellPassedOver(const std::string& folder) const;

    std::list<std::string>& All() { return m_names; }

private:
    void Keep(const std::string& name);

    std::list<std::string> m_names;
    std::vector<std::pair<std::string, Varnex::NameFault>> m_passedOver;
    std::size_t m_bytes = 0;
};

#endif
