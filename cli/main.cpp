// SPDX-License-Identifier: Apache-2.0
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "ExitCodes.h"
#include "Options.h"
#include "Run.h"

namespace {

// A core file would hold the passwords.
void ForbidCoreFiles() {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

bool IsLiveTerminal() {
    const char* kind = std::getenv("TERM");
    return isatty(STDERR_FILENO) == 1 && kind != nullptr && *kind != '\0' &&
           std::strcmp(kind, "dumb") != 0;
}

// What could not be written was not said: the caller has to know.
int Ended(int code) {
    std::cout.flush();
    if (std::cout) return code;
    std::cerr << "kemffdc: cannot write to standard output\n";
    return code == Kemffdc::kDone ? static_cast<int>(Kemffdc::kLocalFile) : code;
}

}  // namespace

int main(int argc, char** argv) {
    Kemffdc::Parsed parsed = Kemffdc::ParseOptions(argc, argv);
    if (!parsed.options) {
        std::cout << parsed.out;
        std::cerr << parsed.err;
        return Ended(parsed.exitCode);
    }
    (void)std::signal(SIGPIPE, SIG_IGN);
    ForbidCoreFiles();
    parsed.options->liveProgress = IsLiveTerminal();
    return Ended(Kemffdc::Run(*parsed.options, std::cout, std::cerr));
}
