#pragma once
// synchelper-sim explain CAPTURE: a device's log capture read back into its sessions, every
// frame explained from what the library logged. With --follow (or --adb, which runs
// 'adb logcat' itself) the capture is read as it is written: each frame that did not pass is
// printed once it is decided, the report comes at the end of the input or on Ctrl-C. With
// --to-trace a session's calls become a trace to replay; with --what-if they are run again
// through the library with other settings, and the report says which frames would change.
// Given several captures or a folder, it makes one table with a row per session.

#include "cli/CameraNames.h"
#include "cli/CapturePile.h"
#include "cli/Command.h"
#include "cli/Outputs.h"
#include "model/Settings.h"
#include "model/Timeline.h"

#include <vector>

namespace ryxsim::cli {

class ExplainCommand : public Command {
  public:
    CLI::App* addTo(CLI::App& app) override;
    int execute() override;

  private:
    std::string checkArguments();
    std::vector<Timeline> follow();
    // --to-trace and --what-if on the session they take; the exit status.
    int replaySession(std::vector<Timeline>& sessions);

    // Several captures, or a folder, or --summary: one table of every session (CapturePile.h).
    bool pile() const;
    std::string checkPile();

    std::vector<std::string> mCaptures;
    std::string mCapture;  // the one capture, when not a pile
    PileOptions mPile;
    std::string mSystemTrace;  // a system trace of the same sessions, read with the capture
    bool mFollow = false;
    bool mAdb = false;
    std::string mSerial;
    OutputPath mToTrace{"--to-trace", "trace", ""};
    std::vector<std::string> mWhatIf;  // NAME=VALUE
    Settings mSettings;
    int mSession = 0;  // 1-based; 0: the session with the most frames
    CameraNames mNames;
    SharedOutputs mOutputs;
};

}  // namespace ryxsim::cli
