#pragma once
// The command line's conventions, shared by every subcommand: one message style
// ("synchelper-sim: error: ..." and "synchelper-sim: warning: ..."), CLI11's own parse errors
// included; help that fits 100 columns; --version; number options checked with messages that
// name the option, the value and the range.

#include "model/Words.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace ryxsim::cli {

// Exit statuses of the tool.
constexpr int kExitOk = 0;
constexpr int kExitWriteFailed = 1;  // an output could not be written
constexpr int kExitBadInput = 2;     // the caller's arguments or input files
constexpr int kExitBlocked = 3;      // threads left blocked in the library

void printError(std::string const& message);
void printWarning(std::string const& message);
// printError, then the status for bad input (2).
int badInput(std::string const& message);

// "synchelper-sim 1.0.0" and the library's version and file as the loader found it.
std::string versionText();

// The top-level app: help width, the error style, --version. Subcommands added afterwards
// inherit the help format and the error style.
void configureApp(CLI::App& app);

// Parses the arguments. Nothing when the command should go on; otherwise the exit status
// (0 after --help or --version, 2 after an error, which has been printed).
std::optional<int> parseArgs(CLI::App& app, int argc, char** argv);

// A validator for a whole number in [lo, hi] (1e6 and 2.0e3 are accepted), with the message
// "--frames: value 0 is out of range [1, 100000000]".
CLI::Validator integerIn(int64_t lo, int64_t hi);
// A validator for a decimal number in [lo, hi].
CLI::Validator numberIn(double lo, double hi);

// Where the installed documentation file or folder `name` (README.md, TRACE_FORMAT.md,
// report.schema.json, scenarios) is: beside the installed tool in ../share/synchelper-sim, or in
// the source tree's tools/ for a tool run from its build tree.
std::string docPath(std::string const& name);


}  // namespace ryxsim::cli
