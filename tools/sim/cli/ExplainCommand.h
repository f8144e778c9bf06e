#pragma once
// synchelper-sim explain CAPTURE: a device's log capture read back into its sessions, every
// frame explained from what the library logged. With --follow (or --adb, which runs
// 'adb logcat' itself) the capture is read as it is written: each frame that did not pass is
// printed once it is decided, the report comes at the end of the input or on Ctrl-C.

#include "cli/CameraNames.h"
#include "cli/Command.h"
#include "cli/Outputs.h"
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

    std::string mCapture;
    std::string mSystemTrace;  // a system trace of the same sessions, read with the capture
    bool mFollow = false;
    bool mAdb = false;
    std::string mSerial;
    CameraNames mNames;
    SharedOutputs mOutputs;
};

}  // namespace ryxsim::cli
