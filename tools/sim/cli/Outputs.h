#pragma once
// The outputs every subcommand shares (--json, --svg, --perfetto, --text) and the rules for all
// of a command's file outputs: "-" is standard output, at most one output takes it (the text
// report then goes to standard error), no two outputs name one file, and a file that cannot be
// written is named with the system's reason.

#include "model/Timeline.h"

#include <CLI/CLI.hpp>

#include <fstream>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace ryxsim::cli {

// One file output of a command, given by an option.
struct OutputPath {
    std::string option;  // "--json"
    std::string what;    // "JSON report", for messages
    std::string path;    // "" not asked for, "-" standard output
};

// An output opened for writing: a file, or standard output for "-".
class OutputStream {
  public:
    // False, with the error printed ("cannot write the trace to 'x': Permission denied").
    bool open(OutputPath const& out);
    std::ostream& stream();
    // Flushes; false, with the error printed, when anything failed to be written.
    bool finish();

  private:
    OutputPath mOut;
    std::unique_ptr<std::ofstream> mFile;
};

class SharedOutputs {
  public:
    // Adds --json, --svg, --perfetto and --text to `command`.
    void addTo(CLI::App& command);

    // Registers another output of the command (--record, --write-logcat) for the checks.
    void alsoWrites(OutputPath* other);

    // Before anything runs: at most one output is "-", no two outputs (or an output and an
    // input) name one file. Empty when fine, else the error message.
    std::string check(std::vector<std::string> const& inputs) const;

    // Writes the text report (the --text file; standard error when another output took
    // standard output; standard output otherwise) and the files asked for. Returns the first
    // session's exit status, or 1 when an output could not be written and the status was 0.
    int write(std::vector<Timeline> const& sessions) const;

    // Another output than the text report writes to standard output.
    bool standardOutputTaken() const;
    // --json, --svg, --perfetto or --text was given.
    bool reportsAsked() const;

  private:
    std::vector<OutputPath const*> all() const;

    OutputPath mJson{"--json", "JSON report", ""};
    OutputPath mSvg{"--svg", "SVG timeline", ""};
    OutputPath mPerfetto{"--perfetto", "Perfetto trace", ""};
    OutputPath mText{"--text", "text report", ""};
    std::vector<OutputPath*> mOthers;
};

}  // namespace ryxsim::cli
