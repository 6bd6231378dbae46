// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_LOGMESSAGECALLBACK_H
#define VARNEX_LOGMESSAGECALLBACK_H

#include <string>

namespace Varnex {

// Receives progress texts of a long Apply() on the thread that called it. The host owns the
// object and keeps it alive as long as a KEMFfdc holds its address.
class LogMessageCallBack {
public:
    virtual ~LogMessageCallBack() = default;

    // One text, for instance "In progress" and then "." for every further poll of the BMC. The
    // text carries no line end. Must not throw.
    virtual void LogMessage(const std::string& message) = 0;
};

// For hosts that want no progress texts but need an object to hand over.
class EmptyLogMessageCallBack : public LogMessageCallBack {
public:
    void LogMessage(const std::string&) override {}
};

}  // namespace Varnex

#endif
