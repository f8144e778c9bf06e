#pragma once
// The call contract of the library, checked on a trace before it runs. The library aborts the
// process on a broken call flow (a camera outside the frame's sync targets, an 11th frame in
// flight, the arrival record dropping a frame that is still in flight); this check names each
// such flow in plain words instead. A camera entering a frame twice needs two threads for one
// camera, which a trace (one thread per sensor) cannot express.
//
// The rendezvous is modelled with the calls arriving in trace order (as --ordered replays them);
// a camera outside the targets is also found for the other arrival orders. Drops, flushes and
// sensors leaving end the frames they name: frames in flight across them are not followed
// further, so the check stays silent there rather than guess.

#include "model/Calls.h"

#include <memory>
#include <string>
#include <vector>

namespace ryxsim {

struct FlowReport {
    std::vector<std::string> violations;  // each makes the library abort
    std::vector<std::string> warnings;    // frames that block, never abort
};

// The check over rows given one at a time in trace order, in memory that does not grow with the
// session: a frame's cameras are compared once the rows are kOpenFrames frame numbers past it
// (a row later than that for its frame is compared with the frame's later rows only).
class CallFlowChecker {
  public:
    static constexpr int kOpenFrames = 256;

    CallFlowChecker();
    ~CallFlowChecker();
    void add(CallRow const& row);
    FlowReport finish();

  private:
    struct State;
    std::unique_ptr<State> mState;
};

FlowReport checkCallFlow(Trace const& trace);

}  // namespace ryxsim
