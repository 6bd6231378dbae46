// SPDX-License-Identifier: Apache-2.0
#include <sys/prctl.h>
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

// It would hold the passwords. A handler that the kernel pipes core dumps to does not ask for the
// limit; but a process that is not dumpable cannot be traced by its own user either, and that is
// how the leak sanitizer works.
void ForbidCoreDumps() {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
#ifndef __SANITIZE_ADDRESS__
    prctl(PR_SET_DUMPABLE, 0);
#endif
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
    (void)std::signal(SIGXFSZ, SIG_IGN);  // a file that grows too large is an error like others
    ForbidCoreDumps();
    parsed.options->liveProgress = IsLiveTerminal();
    return Ended(Kemffdc::Run(*parsed.options, std::cout, std::cerr));
}
