#pragma once
// What a log can tell of one camera's frame: its verdict (RESULT 1 and 2 both read as out of
// sync, the log carrying no mode), its cause and, for a refusal, why.

#include "model/Timeline.h"

#include <ostream>

namespace ryxtest {

struct Seen {
    ryxsim::Verdict verdict;
    ryxsim::DropCause cause;
    ryxsim::Refusal refusal;
    bool operator==(Seen const& o) const {
        return verdict == o.verdict && cause == o.cause && refusal == o.refusal;
    }
};

inline Seen seenOf(ryxsim::FrameRecord const& f, ryxsim::CameraCell const& c) {
    using ryxsim::Verdict;
    Verdict v = c.verdict == Verdict::OutOfSync1 || c.verdict == Verdict::OutOfSync2
                    ? Verdict::OutOfSync
                    : c.verdict;
    return {v, c.cause, c.cause == ryxsim::DropCause::Refused ? f.refusal : ryxsim::Refusal::None};
}

inline std::ostream& operator<<(std::ostream& o, Seen const& s) {
    return o << ryxsim::verdictName(s.verdict) << "/" << ryxsim::dropCauseName(s.cause) << "/"
             << ryxsim::refusalName(s.refusal);
}

}  // namespace ryxtest
