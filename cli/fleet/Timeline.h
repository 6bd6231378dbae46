// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_FLEET_TIMELINE_H
#define KEMFFDC_FLEET_TIMELINE_H

#include <cstddef>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "cli/fleet/Results.h"

namespace Kemffdc::Fleet {

// Times as places on an axis of some length. Where a run was resumed the next day, the night would
// take most of it: such a stretch is drawn short.
class TimeAxis {
public:
    // `times`: whatever happened, seconds since the epoch; `resumed`: those of them at which the
    // run was resumed.
    TimeAxis(std::vector<double> times, const std::vector<double>& resumed, double length);

    double At(double time) const;

    struct Tick {
        double time;
        std::string label;  // since the begin, "1:30"
    };
    // At round times, at most about `most` of them.
    std::vector<Tick> Ticks(std::size_t most) const;
    // A stretch that was left out.
    struct Break {
        double at;  // its place
        double seconds;
    };
    std::vector<Break> Breaks() const;

private:
    struct Piece {
        double from, to;  // times
        double at, end;   // places
        bool isBreak;
    };
    std::vector<Piece> m_pieces;  // without gaps, in order of time
};

// How the lines of the hosts are laid out: a few columns side by side, one line each.
struct TimelineLayout {
    explicit TimelineLayout(std::size_t hosts);

    double width = 1200;  // of the whole, in units of the drawing, as all that follows
    double top = 20;      // the first line; the axis is above it
    double row = 0;
    double gap = 24;    // between columns
    double column = 0;  // width of one, with the names
    double names = 0;   // width of the names
    std::size_t columns = 1;
    std::size_t lines = 0;  // in each column

    double Left(std::size_t place) const;  // of the column in which the host is
    double Top(std::size_t place) const;
    double Height() const;
    std::size_t NameEvery() const;  // how many lines from one name to the next
};

// Adds the drawing (SVG) with its legend: a line for each host, in the order of the plan.
void AddTimeline(pugi::xml_node parent, const Results& results);

}  // namespace Kemffdc::Fleet

#endif
