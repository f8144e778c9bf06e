#pragma once
// synchelper-sim explain CAPTURE: a device's log capture read back into its sessions, every
// frame explained from what the library logged.

#include "cli/CameraNames.h"
#include "cli/Command.h"
#include "cli/Outputs.h"

namespace ryxsim::cli {

class ExplainCommand : public Command {
  public:
    CLI::App* addTo(CLI::App& app) override;
    int execute() override;

  private:
    std::string mCapture;
    CameraNames mNames;
    SharedOutputs mOutputs;
};

}  // namespace ryxsim::cli
