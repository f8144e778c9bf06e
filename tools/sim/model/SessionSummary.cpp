#include "model/SessionSummary.h"

namespace ryxsim {

SessionSummary summarize(Timeline const& t, std::string const& capture) {
    SessionSummary s;
    s.capture = capture;
    s.section = t.capture.section;
    s.session = t.name;
    s.pid = t.capture.pid;
    s.frames = t.frameCount;
    s.gaps = static_cast<int>(t.capture.gaps.size());
    s.build = t.capture.build;
    s.fatal = !t.fatal.empty() || !t.fatalText.empty();
    s.everyCall = t.capture.callsSeen;
    for (auto const& f : t.sensors) {
        s.sensors.push_back(f.label);
        s.outOfSync += f.outOfSync1 + f.outOfSync2 + f.outOfSync;
        s.ownDrop += f.dropOwn;
        s.masterDrop += f.dropMaster;
        s.flush += f.dropFlush;
        s.refused += f.dropRefused;
        s.left += f.dropLeave;
        s.stuck += f.blocked + f.notRun;
        s.undetermined += f.undetermined;
    }
    for (auto const& p : t.skews) {
        s.tolerance99.push_back({p.a, p.b, p.tolerance99Us});
    }
    return s;
}

SessionSummary unreadable(std::string const& capture, std::string const& error) {
    SessionSummary s;
    s.capture = capture;
    s.error = error;
    return s;
}

}  // namespace ryxsim
