#pragma once
// Source: an Android log capture (LogLine.h formats) read back into session timelines: a plain
// capture, or a bugreport whose logs and tombstones are read section by section
// (CaptureSections.h).
//
// The library's own lines (tags "RyxCam/...") are picked out of whatever else the capture holds;
// every other line is skipped. A queue's creation line starts a session; lines of another process
// belong to another session; library lines of a process before any creation line form a session
// that started before the capture. At the default log level (warnings and errors) a session shows
// its out-of-sync frames, inversions and errors only; the timeline's notes say what was not seen.
// With debug lines on, every frame is rebuilt: arrivals and releases, the camera that completed
// it, verdict and cause, master and crop overrides, frames still waiting at the end, and a fatal
// abort with the rule it broke.

#include "model/ParseError.h"
#include "model/Timeline.h"
#include "sources/logcat/SessionBuilder.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace ryxsim {

// Reads the capture text; `fileName` names it in the report and in errors. Throws ParseError
// ("FILE:LINE: ...") when the text holds no log line at all.
std::vector<Timeline> readLogcat(std::string_view text, std::string const& fileName);

// Following a capture while it is written (a pipe, 'adb logcat'): each frame is handed over as
// soon as no later line can change it, and only what the report needs is kept, so that hours of
// stream take bounded memory.
struct FollowOptions {
    SessionBuilder::FrameSink folded;        // every frame, once decided
    std::map<int, std::string> cameraNames;  // labels in the explanations handed over
    std::function<bool()> interrupted;       // asked when a read is interrupted (Ctrl-C)
};

// Reads the capture from a file, "-" for standard input (streamed), plain or packed (a bugreport
// zip, a .gz; CaptureInput.h); `name` names it in the report when not the path; with `follow`,
// followed as it is read. With `systemTrace`, that file (plain or packed) is read as a system
// trace of the same sessions (TraceAndLog.h). Throws ParseError, also when a file cannot be read
// or unpacked.
std::vector<Timeline> readLogcatFile(std::string const& path, std::string const& name = "",
                                     FollowOptions const* follow = nullptr,
                                     std::string const& systemTrace = "");

// Reads the capture from `fd` to its end (or an interruption `options` accepts); `name` names it.
// Throws ParseError as readLogcatFile does.
std::vector<Timeline> followLogcat(int fd, std::string const& name, FollowOptions const& options);

}  // namespace ryxsim
