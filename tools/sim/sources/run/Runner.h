#pragma once
// Drives the library through ISyncHelper as the sensors' pipelines do: one thread per sensor,
// each making its calls in trace order, and reads back what the library wrote.

#include "model/Calls.h"

#include <functional>
#include <iosfwd>
#include <string>

namespace ryxsim {

struct RunProgress {
    size_t callsDone = 0;
    size_t callsTotal = 0;
    double elapsedSeconds = 0;
};

struct RunOptions {
    // Pace each frame call at its start-of-frame time (relative to the first one).
    bool realtime = false;
    // A run in which every unfinished sensor thread has been inside the library for this long
    // without any call returning, while the process used less than a quarter of one core, is
    // over: those threads are blocked for good. A stall that keeps the process busy (the
    // library working through large tables on a loaded machine) is waited out.
    double deadlineSeconds = 2.0;
    // When set, every line the library gives the unified logger is written here as a device's
    // `logcat -v threadtime` shows it (the level of the lines follows the logger words).
    std::ostream* logcat = nullptr;
    // When set, the library's system-trace points (camera tag) are on for the run and written
    // here as `atrace` prints a recorded trace.
    std::ostream* systemTrace = nullptr;
    // Calls enter the library one at a time in trace order, across the sensor threads: a call
    // enters once the call before it has returned or has begun waiting in the library's
    // rendezvous (seen from the library's own "wait(%d)+" debug line, so the library's debug
    // lines are turned on for the run; they reach the log output only at --log debug). The
    // verdicts and any abort are then the same on every replay. Off: the sensor threads run
    // freely, as real pipelines do.
    bool ordered = false;
    // Called on the calling thread about ten times a second while the sensors run.
    std::function<void(RunProgress const&)> progress;
    // The calls the source will give, for progress (0: not known, progress counts calls only).
    size_t expectedCalls = 0;
};

// Receives what a run produced, on the thread that called runCalls, in trace order.
class CallSink {
  public:
    virtual ~CallSink() = default;
    // A frame-inversion, time-inversion or missing-timestamp warning of the library. Every one
    // logged by a call comes before that call.
    virtual void logged(LoggedAnomaly const& a) = 0;
    // A call and what it got back, each row once, in trace order (`index` counts the rows from
    // 0). After a run that ended blocked, the rest of the rows come not started.
    virtual void call(size_t index, CallRow const& row, CallOutcome const& out) = 0;
};

// The most calls the runner holds at once: a sensor thread runs at most this many rows ahead
// of the slowest one (the source is read as the calls are made, and every call is handed to
// the sink once each sensor thread is past it).
constexpr size_t kRunWindowCalls = size_t{1} << 15;

// Runs the calls of `rows` against a fresh helper made with its session (key, crop replacement,
// camera info), reading the source as it goes and handing every call with its outcome to `sink`
// (RunResult::outcomes and ::logged stay empty). Memory does not grow with the number of calls.
RunResult runCalls(RowSource& rows, CallSink& sink, RunOptions const& options = {});

// runCalls over a whole trace, returning one outcome per row. The library's frame-inversion,
// time-inversion and missing-timestamp warnings are collected when the unified logger is on
// (ULogger::sMode & 0xA) at warning level; see LogSetup.h.
//
// When threads are left blocked, they are detached and the helper and the call records are
// deliberately leaked (the blocked threads still use them); such a process should report and
// end with _exit.
RunResult runTrace(Trace const& trace, RunOptions const& options = {});

}  // namespace ryxsim
