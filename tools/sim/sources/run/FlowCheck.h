#pragma once
// The call contract of the library, checked on a trace before it runs. The library aborts the
// process on a broken call flow (a camera outside the frame's sync targets, an 11th frame in
// flight, the arrival record dropping a frame that is still in flight); this check names each
// such flow in plain words instead, and a camera sending one frame twice, which the library takes
// without a word but whose verdicts then depend on the arrival order.
//
// The rendezvous is modelled with the calls arriving in trace order, as --ordered replays them:
// the check says what that replay does (completes, aborts with the library's message, or blocks
// with which cameras waiting), so an ordered replay tells the same story. A camera outside the
// targets is also found for the other arrival orders, which a free-running replay may take.
// Drops, flushes and sensors leaving end the frames they name: frames in flight across them are
// not followed further, so the check stays silent there rather than guess.

#include "model/Calls.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace ryxsim {

// What the calls do when they enter the library in trace order.
struct FlowOutcome {
    enum class Kind { Completes, Aborts, Blocks };
    Kind kind = Kind::Completes;
    int frame = -1;         // the frame where it aborts, or the first that blocks
    std::string fatal;      // Aborts: the library's fatal message
    std::set<int> waiting;  // Blocks: the cameras left waiting in syncResultCheck
    std::string words;      // "abort at f10 (...)", "block in f0 with cameras 0, 1 waiting"
};

struct FlowReport {
    std::vector<std::string> violations;  // contract breaks: refused unless --allow-fatal
    std::vector<std::string> warnings;    // frames that block, never abort
    FlowOutcome traceOrder;               // what an ordered replay does
    bool otherOrdersAbort = false;        // some other arrival order aborts
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

// What a run did, in the words of FlowOutcome: completes, aborts (never seen by a report: the
// process ended), or blocks with the cameras left waiting.
FlowOutcome runOutcome(std::set<int> const& blockedCameras);

// Empty when the run did what the check foresaw for trace order; otherwise one sentence saying
// how they differ and why (`ordered`: the run let the calls in in trace order).
std::string flowDifference(FlowReport const& check, FlowOutcome const& run, bool ordered);

}  // namespace ryxsim
