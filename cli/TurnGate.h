// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TURNGATE_H
#define KEMFFDC_TURNGATE_H

#include <functional>

namespace Kemffdc {

// Where many runs download, few at a time: what each of them passes before it begins.
class TurnGate {
public:
    virtual ~TurnGate() = default;

    // Blocks until it is the caller's turn, or until `stop` is true, which is looked at several
    // times a second.
    virtual void Wait(const std::function<bool()>& stop) = 0;
};

}  // namespace Kemffdc

#endif
