#pragma once
// Drives the library through ISyncHelper as the sensors' pipelines do: one thread per sensor,
// each making its calls in trace order, and reads back what the library wrote.

#include "Model.h"

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
    // without any call returning is over: those threads are blocked for good.
    double deadlineSeconds = 2.0;
    // When set, every line the library gives the unified logger is written here as a device's
    // `logcat -v threadtime` shows it (the level of the lines follows the logger words).
    std::ostream* logcat = nullptr;
    // Calls enter the library one at a time in trace order, across the sensor threads: a call
    // enters once the call before it has returned or has begun waiting in the library's
    // rendezvous (seen from the library's own "wait(%d)+" debug line, so the library's debug
    // lines are turned on for the run; they reach the log output only at --log debug). The
    // verdicts and any abort are then the same on every replay. Off: the sensor threads run
    // freely, as real pipelines do.
    bool ordered = false;
    // Called on the calling thread about ten times a second while the sensors run.
    std::function<void(RunProgress const&)> progress;
};

// Runs the trace against a fresh helper made with the trace's session (key, crop replacement,
// camera info) and returns one outcome per row. The library's frame-inversion, time-inversion
// and missing-timestamp warnings are collected when the unified logger is on
// (ULogger::sMode & 0xA) at warning level; see LogSetup.h.
//
// When threads are left blocked, they are detached and the helper and the call records are
// deliberately leaked (the blocked threads still use them); such a process should report and
// end with _exit.
RunResult runTrace(Trace const& trace, RunOptions const& options = {});

}  // namespace ryxsim
