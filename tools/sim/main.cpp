// synchelper-sim: the multi-camera session simulator, trace replay and device-log explainer of
// libryxcam_synchelper. main only wires the subcommands; each lives in cli/.

#include "cli/Cli.h"
#include "cli/ExplainCommand.h"
#include "cli/ReplayCommand.h"
#include "cli/RunCommand.h"

#include <memory>
#include <vector>

namespace {

char const* const kFooter = R"(
Every file option takes - for standard input or output; when an output takes standard output,
the text report goes to standard error.

Exit status
  0    the run completed, or the capture was explained
  1    an output file could not be written
  2    bad arguments or input (a malformed scenario, trace or capture; a call flow that breaks
       the library's contract, unless --allow-fatal)
  3    threads were still blocked in the library at the end of a run
  134  the library aborted the process (SIGABRT) on a broken call flow; its message is printed
)";

}  // namespace

int main(int argc, char** argv) {
    using namespace ryxsim::cli;
    CLI::App app{
        "synchelper-sim: runs multi-camera sessions against libryxcam_synchelper, one thread per "
        "sensor, replays traces of calls, and explains device log captures: what the library "
        "decided for every frame, and why.",
        "synchelper-sim"};
    configureApp(app);
    app.footer(kFooter);
    app.require_subcommand(1);
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<RunCommand>());
    commands.push_back(std::make_unique<ReplayCommand>());
    commands.push_back(std::make_unique<ExplainCommand>());
    std::vector<CLI::App*> subcommands;
    for (auto& c : commands) {
        subcommands.push_back(c->addTo(app));
    }
    if (auto status = parseArgs(app, argc, argv)) {
        return *status;
    }
    for (size_t i = 0; i < commands.size(); ++i) {
        if (subcommands[i]->parsed()) {
            return commands[i]->execute();
        }
    }
    return kExitBadInput;
}
