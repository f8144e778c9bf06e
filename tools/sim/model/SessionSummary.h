#pragma once
// One session of a pile of captures in a few figures: the row a test lab's table gives it. A
// capture that could not be read is one row holding its error.

#include "model/Timeline.h"

#include <string>
#include <vector>

namespace ryxsim {

struct SessionSummary {
    std::string capture;  // the file (a folder's captures by their paths)
    std::string error;    // why the capture could not be read; the figures are then empty
    std::string section;  // the bugreport section ("SYSTEM LOG"), if any
    std::string session;  // its name in the report
    int pid = -1;
    std::vector<std::string> sensors;  // labels
    int frames = 0;
    // Camera frames (a frame on one camera) that did not pass, by what did it.
    int outOfSync = 0, ownDrop = 0, masterDrop = 0, flush = 0, refused = 0, left = 0,
        stuck = 0;  // blocked in the library or never came
    int undetermined = 0;
    int gaps = 0;
    struct PairTolerance {
        int a, b;
        double us;
    };
    std::vector<PairTolerance> tolerance99;  // per camera pair, as the library compares
    std::string build;                       // the bugreport's build fingerprint
    bool fatal = false;                      // the library aborted in the session
    bool everyCall = false;  // the capture shows every call (debug lines, or a system trace)

    int notPassed() const {
        return outOfSync + ownDrop + masterDrop + flush + refused + left + stuck;
    }
};

// The summary of one finished session read from `capture`.
SessionSummary summarize(Timeline const& t, std::string const& capture);

// The row of a capture that could not be read.
SessionSummary unreadable(std::string const& capture, std::string const& error);

}  // namespace ryxsim
