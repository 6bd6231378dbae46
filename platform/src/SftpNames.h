// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_SRC_SFTPNAMES_H
#define VARNEX_PLATFORM_SRC_SFTPNAMES_H

#include <list>
#include <string>
#include <string_view>

// The names in a folder that a server tells, packet by packet.
class SftpNames {
public:
    // Passes over, with a level-2 record, what is not one plain component of a path. Throws
    // SftpFailure for nonsense, and for more than anybody has.
    void Add(std::string_view body);

    std::list<std::string>& All() { return m_names; }

private:
    void Keep(const std::string& name);

    std::list<std::string> m_names;
    std::size_t m_bytes = 0;
};

#endif
