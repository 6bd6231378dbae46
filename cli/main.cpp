// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "cli/BuiltFrom.h"
#include "cli/CommandLine.h"
#include "cli/Commands.h"
#include "cli/ExitCodes.h"
#include "cli/Version.h"
#include "cli/Worker.h"

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

// Where a standard stream is closed, the next file or socket would get its number, and what is
// written to the stream. In its place stands one that can be neither written to nor read from.
void HoldStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const bool closed = fcntl(stream, F_GETFD) < 0;
        if (closed) (void)open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

bool IsLiveTerminal() {
    const char* kind = std::getenv("TERM");
    return isatty(STDERR_FILENO) == 1 && kind != nullptr && *kind != '\0' &&
           std::strcmp(kind, "dumb") != 0;
}

void PrepareProcess() {
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);  // a file that grows too large is an error like others
    ForbidCoreDumps();
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
    HoldStandardStreams();
    if (argc == 2 && std::strcmp(argv[1], "fleet-worker") == 0) {
        PrepareProcess();
        return Ended(Kemffdc::RunWorker());
    }
    Kemffdc::Parsed parsed = Kemffdc::ParseOptions(argc, argv, Kemffdc::SurroundingsOfProcess());
    if (parsed.asksForVersion) parsed.out = Kemffdc::VersionText(Kemffdc::kBuiltFrom);
    if (!parsed.options) {
        std::cout << parsed.out;
        std::cerr << parsed.err;
        return Ended(parsed.exitCode);
    }
    PrepareProcess();
    parsed.options->liveProgress = IsLiveTerminal();
    const auto& command = Kemffdc::EntryOf(parsed.options->command);
    return Ended(command.run(*parsed.options, std::cout, std::cerr));
}
