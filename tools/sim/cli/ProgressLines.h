#pragma once
// Progress of a run for a stderr that is not a terminal (CI logs, `| tee`): whole lines, one at
// each further tenth of the calls or after 10 s without a line, so a long run shows it is alive
// without flooding the log.

#include "sources/run/Runner.h"

#include <string>

namespace ryxsim {

class ProgressLines {
  public:
    // The line due for this figure (ending in '\n'), or "" when none is due.
    std::string update(RunProgress const& p);
    // The closing line with the final figure, unless the last line already showed it.
    std::string finish(RunProgress const& p);

  private:
    static std::string line(RunProgress const& p);

    int mTenths = 0;
    double mLastSeconds = 0;
    size_t mLastDone = 0;
    bool mAny = false;
};

}  // namespace ryxsim
