#pragma once
// The library's own lines inside a capture: "(TID) [function] text" under a "RyxCam/..." tag.
// Formats that drop the tag (thread, raw) still show the frame and the function, which is enough
// to tell a line of ours.

#include "model/Strings.h"
#include "sources/LibraryMessages.h"
#include "sources/logcat/LogLine.h"

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace ryxsim {

inline constexpr std::string_view kLibraryTagPrefix = "RyxCam/";

// A function that writes lines of ours.
bool isLibraryFunction(std::string_view func);

enum class LineKind {
    Other,  // another component's line
    Ours,   // a library line: func and rest are set
    Cut,    // a library line cut short, or run together with the next one
};
LineKind classify(LogLine const& l, std::string_view& func, std::string_view& rest);

// A line that is no log line but holds a piece of one of ours: a line cut at its start.
bool holdsLibraryText(std::string_view line);

// The frame number a library line names ("[f12]", "f(12)", "Frame:12", "frameno(12)"), if any.
std::optional<int> frameIn(std::string_view text);

// The frame a line of a frame's own calls or updaters names: in flight when it is written, unlike
// the frames the queue's housekeeping names (long gone from its records).
std::optional<int> inFlightFrame(LogLine const& l, std::string_view func);

// The rule a fatal message of the library says was broken, in plain words, from the message alone
// ("camera 1 entered frame 7 twice"); the log reader adds what only the session's lines show.
std::string fatalRule(std::string_view message);

// An abort message that is the library's: its fatal messages end "(function){#line:source}"
// with a source under SyncHelper/.
bool isLibraryAbort(std::string_view message);

// sscanf that also needs every literal of `fmt` matched (a pattern may still be a prefix).
template <typename... A>
bool scan(std::string const& s, char const* fmt, A*... args) {
    char withEnd[160];
    size_t n = std::strlen(fmt);
    if (n + 3 > sizeof withEnd) {
        return false;
    }
    std::memcpy(withEnd, fmt, n);
    std::memcpy(withEnd + n, "%n", 3);
    int end = -1;
    return std::sscanf(s.c_str(), withEnd, args..., &end) == static_cast<int>(sizeof...(A)) &&
           end >= 0;
}

}  // namespace ryxsim
