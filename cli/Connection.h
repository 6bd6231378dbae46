// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_CONNECTION_H
#define KEMFFDC_CONNECTION_H

#include <varnex/ConnectionInfo.h>

#include "cli/Context.h"

namespace Kemffdc {

// What the library has to know of the BMC whatever the channel: host, port, account.
inline Varnex::VarnexConnection::ConnectionInfo ConnectionToBmc(const Context& run) {
    Varnex::VarnexConnection::ConnectionInfo conn;
    conn.host = run.options.host;
    conn.port = run.options.port;
    conn.userid = run.options.user;
    conn.password = run.password.Reveal();
    conn.connection_ipversion = run.options.ipv6 ? 1 : 0;
    return conn;
}

}  // namespace Kemffdc

#endif
