#pragma once
// synchelper-sim run [SCENARIO]: a scenario (the built-in one when none is given) expanded into
// calls and run against the library.

#include "cli/Command.h"
#include "cli/LibraryRun.h"
#include "cli/Outputs.h"

namespace ryxsim::cli {

class RunCommand : public Command {
  public:
    CLI::App* addTo(CLI::App& app) override;
    int execute() override;

  private:
    std::string mScenario;
    std::string mSeed, mFrames;
    bool mPrintScenario = false;
    LibraryRunOptions mRun;
    SharedOutputs mOutputs;
};

}  // namespace ryxsim::cli
