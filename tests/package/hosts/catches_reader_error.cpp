// SPDX-License-Identifier: Apache-2.0
//
// A host that is ready for a BMC whose answer to the export is not JSON. The exception is thrown in
// a library with hidden symbols and caught here by its type.
#include <varnex/KEMFfdc.h>

#include <boost/property_tree/json_parser.hpp>
#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    Varnex::VarnexConnection::ConnectionInfo bmc;
    bmc.host = argv[1];
    bmc.port = static_cast<std::uint16_t>(std::atoi(argv[2]));
    bmc.userid = argv[3];
    std::getline(std::cin, bmc.password);

    Varnex::KEMFfdc ffdc(bmc, Varnex::KEMFfdcUploadingUri(), Varnex::BMCLOG_PROCESSOR_DUMP);
    try {
        const int result = ffdc.Apply();
        std::cout << "returned " << result << '\n';
    } catch (const boost::property_tree::json_parser_error&) {
        std::cout << "json_parser_error\n";
    } catch (...) {
        std::cout << "something else\n";
    }
    return 0;
}
