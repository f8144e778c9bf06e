#pragma once
// One line of a system trace in its text form, as `atrace` and `adb shell cat
// /sys/kernel/tracing/trace` print it:
//
//   "  sensor0-3120  ( 3101) [002] ...1  8123.456789: tracing_mark_write: B|3101|RyxSync f12 cam0"
//
// The task column may hold spaces and dashes, the "(tgid)" column is there only with the
// print-tgid option ("(-----)" when the kernel did not know it), and the flags column is absent
// in old kernels. Lines of other trace events are recognised and skipped; "CPU:2 [LOST 118
// EVENTS]" is the kernel saying its buffer dropped events there.

#include <cstdint>
#include <string_view>

namespace ryxsim {

struct TraceLine {
    enum class Kind {
        Other,    // a header line, another event, or text that is not a trace line
        Begin,    // B|pid|name
        End,      // E|pid (or a bare E)
        Counter,  // C|pid|name|value
        Lost,     // the kernel lost `lost` events here
    } kind = Kind::Other;
    int tid = 0;
    int pid = -1;  // the marker's own pid, else the tgid column, else -1
    int64_t ns = 0;
    long long lost = 0;
    std::string_view task;
    std::string_view name;  // Begin and Counter
    int64_t value = 0;      // Counter
};

// Reads `line`; the views point into it.
TraceLine readTraceLine(std::string_view line);

// The header line "# entries-in-buffer/entries-written: 1024/5000   #P:8": how many events the
// buffer held and how many were written (more written than held: the oldest were overwritten).
bool readEntriesHeader(std::string_view line, long long& held, long long& written);

}  // namespace ryxsim
