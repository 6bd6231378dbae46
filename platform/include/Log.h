// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_PLATFORM_LOG_H
#define VARNEX_PLATFORM_LOG_H

#include <iosfwd>
#include <memory>

#pragma GCC visibility push(default)

#ifndef VARNEX_PLATFORM_GLOBAL
inline namespace varnex_platform {
#endif

// One log record: made, written into, and emitted when it is destroyed, normally at the end of
// the statement that made it:
//
//   Log(1, "src/module/kvs/ffdc/ffdc", __LINE__).Stream() << "text";
//
// An implementer guarantees:
//   - the record is emitted whole by the destructor, also when its text is empty or holds line
//     ends, and the destructor never throws; a record that cannot be written is lost;
//   - any number of threads may make records at the same time, each its own;
//   - `sourceFile` need not outlive the record;
//   - numbers are written as in the classic locale ("1404"), whatever the host's global one is;
//   - the library masks passwords before it logs, but not everything else that is secret: a
//     Redfish session token stands in a level-3 record, and bodies of a BMC's answers stand in
//     records as they came. What is written to a terminal or a file is to be masked there.
//
// Levels: 1 error, 2 warning, 3 info (a milestone), 4 debug (a trace).
class Log {
public:
    Log(int level, const char* sourceFile, int line);
    ~Log();

    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    std::ostream& Stream();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

#ifndef VARNEX_PLATFORM_GLOBAL
}  // namespace varnex_platform
#endif

#pragma GCC visibility pop

#endif
