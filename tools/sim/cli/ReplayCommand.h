#pragma once
// synchelper-sim replay TRACE: the calls of a trace (recorded by `run --record`, or written by
// hand) made again against the library.

#include "cli/Command.h"
#include "cli/LibraryRun.h"
#include "cli/Outputs.h"

namespace ryxsim::cli {

class ReplayCommand : public Command {
  public:
    CLI::App* addTo(CLI::App& app) override;
    int execute() override;

  private:
    std::string mTrace;
    LibraryRunOptions mRun;
    SharedOutputs mOutputs;
};

}  // namespace ryxsim::cli
