#pragma once
// Host implementation of the system trace that code writes through on a phone (Android's
// <cutils/trace.h>: sections, counters and the enabled-tags word).
//
// A trace point first reads the enabled-tags word (one relaxed atomic load, nothing else when its
// tag is off). With its tag on, it hands the text the kernel's trace_marker would receive
// ("B|<pid>|<name>", "E|<pid>", "C|<pid>|<name>|<value>") to the installed writer, together with
// the time (CLOCK_MONOTONIC), the thread id and the thread's name the kernel would add.
//
// Tags and the writer are process-wide. Set them before the traced threads start, or accept that
// a trace point running meanwhile may see the old value. Host default: every tag off, no writer.

#include <atomic>
#include <cstdint>
#include <mutex>
#include <ostream>
#include <string>
#include <vector>

namespace NSCam {
namespace Utils {
namespace SystemTrace {

// The same bit as Android's ATRACE_TAG_CAMERA, so that `atrace camera` reads the same.
constexpr uint64_t kTagCamera = uint64_t{1} << 10;

extern std::atomic<uint64_t> gEnabledTags;

inline bool isTagEnabled(uint64_t tag) {
    return (gEnabledTags.load(std::memory_order_relaxed) & tag) != 0;
}

// One write to trace_marker with what the kernel adds to it.
struct Marker {
    int64_t monotonicNs = 0;
    int pid = 0;
    int tid = 0;
    const char* task = "";  // the thread's name (at most 15 characters)
    const char* text = "";  // "B|pid|name" and so on, without a newline
};

// Receives every marker of an enabled tag. Called on the traced thread; must be thread-safe.
class Writer {
  public:
    virtual ~Writer() = default;
    virtual void write(Marker const& marker) = 0;
};

// Puts `writer` in place (nullptr: markers go nowhere) and returns the previous one; the caller
// keeps ownership of both. Then sets the enabled tags.
Writer* install(Writer* writer);
void setEnabledTags(uint64_t tags);

// The trace points. Names longer than 1000 bytes are cut, as trace_marker's buffer would.
void beginSection(const char* name);
void endSection();
void setCounter(const char* name, int64_t value);

// Prints markers as `atrace` prints a recorded trace: the "# tracer: nop" header once, then one
// ftrace line per marker ("<task>-<tid> (<pid>) [000] .... <s.us>: tracing_mark_write: B|..").
// The stream must outlive the writer. Thread-safe; lines come out in the order of their times.
class AtraceTextWriter : public Writer {
  public:
    explicit AtraceTextWriter(std::ostream& out);
    void write(Marker const& marker) override;

  private:
    std::mutex mMutex;
    std::ostream& mOut;
    int64_t mLastNs = 0;
};

// The header `atrace` prints before the lines.
std::string atraceHeader();
// One marker as an ftrace text line, without the newline.
std::string ftraceLine(Marker const& marker);

// Keeps the marker texts and their threads, for tests. Thread-safe.
class RecordingWriter : public Writer {
  public:
    struct Line {
        int tid = 0;
        std::string task, text;
    };
    void write(Marker const& marker) override;
    std::vector<Line> lines() const;

  private:
    mutable std::mutex mMutex;
    std::vector<Line> mLines;
};

}  // namespace SystemTrace
}  // namespace Utils
}  // namespace NSCam
