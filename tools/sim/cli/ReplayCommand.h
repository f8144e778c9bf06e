#pragma once
// synchelper-sim replay TRACE: the calls of a trace (recorded by `run --record`, or written by
// hand) made again against the library. With --set, with other settings, and the report says
// which frames come out otherwise than in the trace replayed unchanged.

#include "cli/Command.h"
#include "cli/LibraryRun.h"
#include "cli/Outputs.h"
#include "model/Settings.h"

namespace ryxsim::cli {

class ReplayCommand : public Command {
  public:
    CLI::App* addTo(CLI::App& app) override;
    int execute() override;

  private:
    std::string mTrace;
    std::vector<std::string> mSet;  // NAME=VALUE
    Settings mSettings;
    LibraryRunOptions mRun;
    SharedOutputs mOutputs;
};

}  // namespace ryxsim::cli
