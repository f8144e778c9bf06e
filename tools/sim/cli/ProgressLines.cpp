#include "cli/ProgressLines.h"

#include <algorithm>
#include <cstdio>

namespace ryxsim {

std::string ProgressLines::line(RunProgress const& p) {
    char buf[128];
    std::snprintf(buf, sizeof buf, "synchelper-sim: %3d%% (%zu/%zu calls, %.1f s)\n",
                  static_cast<int>(100.0 * p.callsDone / std::max<size_t>(1, p.callsTotal)),
                  p.callsDone, p.callsTotal, p.elapsedSeconds);
    return buf;
}

std::string ProgressLines::update(RunProgress const& p) {
    int tenths = static_cast<int>(10 * p.callsDone / std::max<size_t>(1, p.callsTotal));
    if (tenths <= mTenths && p.elapsedSeconds - mLastSeconds < 10.0) {
        return "";
    }
    mTenths = std::max(mTenths, tenths);
    mLastSeconds = p.elapsedSeconds;
    mLastDone = p.callsDone;
    mAny = true;
    return line(p);
}

std::string ProgressLines::finish(RunProgress const& p) {
    if (mAny && mLastDone == p.callsDone) {
        return "";
    }
    mAny = true;
    mLastDone = p.callsDone;
    return line(p);
}

}  // namespace ryxsim
