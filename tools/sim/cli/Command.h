#pragma once
// A subcommand of synchelper-sim: its options on its own CLI11 app, and what it does once they
// are parsed. main() adds each command, parses, and executes the one that was given.

#include <CLI/CLI.hpp>

#include <string>

namespace ryxsim::cli {

class Command {
  public:
    virtual ~Command() = default;
    // Adds the subcommand and its options to `app`; returns the subcommand's app.
    virtual CLI::App* addTo(CLI::App& app) = 0;
    // Runs it; returns the exit status.
    virtual int execute() = 0;
};

// Reads an input file whole, or standard input for "-". False, with the error printed
// ("cannot read the trace 'x': No such file or directory").
bool readInput(std::string const& path, std::string const& what, std::string& text);

// How an input is named in messages and reports: its path, or "standard input".
std::string inputName(std::string const& path);

}  // namespace ryxsim::cli
