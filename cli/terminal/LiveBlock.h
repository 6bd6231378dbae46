// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_TERMINAL_LIVEBLOCK_H
#define KEMFFDC_TERMINAL_LIVEBLOCK_H

#include <string>
#include <vector>

namespace Kemffdc {

// Lines at the lower end of what a terminal shows that change in place, below lines that stay: what
// has to be written for that. The cursor rests on the line below the block and no mode of the
// terminal is touched, so that a process that is killed leaves it fit for use.
//
// No line may be as wide as the terminal, nor the block as high. All texts are without line ends.
class LiveBlock {
public:
    // The bytes that put `said` above the block and `block` in the place of the one before, as one
    // text without its last line end. Empty where there is nothing to write.
    std::string Next(const std::vector<std::string>& said, const std::vector<std::string>& block);

    // The cursor is no longer where this left it: the next block comes below.
    void Forget() { m_shown.clear(); }

private:
    std::vector<std::string> m_shown;
};

}  // namespace Kemffdc

#endif
