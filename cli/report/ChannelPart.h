// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_CHANNELPART_H
#define KEMFFDC_REPORT_CHANNELPART_H

#include <boost/json/fwd.hpp>
#include <iosfwd>

namespace Kemffdc {

// What one channel alone has to tell about a run, beside what every channel tells: the list of a
// BMC's files, or of its data objects. Any thread may call any operation at any time; none blocks.
class ChannelPart {
public:
    virtual ~ChannelPart() = default;

    // Adds its members to the object of the run. Texts are free of secrets.
    virtual void AddTo(boost::json::object& run) const = 0;

    // Tells the same as lines of words, below where the archive lies.
    virtual void Write(std::ostream& out) const = 0;

    // Tells what was found on the BMC, below what check says of it.
    virtual void WriteFound(std::ostream& out) const { (void)out; }
};

}  // namespace Kemffdc

#endif
