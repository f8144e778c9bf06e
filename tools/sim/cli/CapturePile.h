#pragma once
// `explain` over a pile of captures (a test lab's night of bugreports): files, folders (every
// file under them) and "-", explained in parallel, one worker per core, into one table with a
// row per session. A capture that cannot be read is a row with its error; the others go on.

#include "cli/CameraNames.h"
#include "cli/Outputs.h"

#include <string>
#include <vector>

namespace ryxsim::cli {

struct PileOptions {
    std::vector<std::string> inputs;
    OutputPath summary{"--summary", "summary", ""};
    std::string format;  // "csv" or "jsonl"; empty: by the summary's extension (.csv, else jsonl)
    unsigned jobs = 0;   // 0: one per core
    CameraNames const* names = nullptr;
};

// The captures the inputs name: files as given, each folder's files (recursively, in path
// order), "-" as standard input.
std::vector<std::string> pileCaptures(std::vector<std::string> const& inputs);

// Explains every capture and writes the table (standard output, or standard error when the
// summary takes standard output) and the summary. Progress goes to standard error while it is a
// terminal. Returns 0 when every capture was read, 2 when one could not be, 1 when the summary
// could not be written.
int explainPile(PileOptions const& options);

}  // namespace ryxsim::cli
