#include <NSCam/SystemTrace.h>

#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace NSCam {
namespace Utils {
namespace SystemTrace {

std::atomic<uint64_t> gEnabledTags{0};

namespace {

std::atomic<Writer*> gWriter{nullptr};
constexpr size_t kMarkerMax = 1024;  // trace_marker takes at most this per write

struct ThreadIdentity {
    int pid = 0;
    int tid = 0;
    char task[16] = {};
};

ThreadIdentity const& self() {
    // The name is read once per thread: threads are named before their first trace point.
    thread_local ThreadIdentity identity = [] {
        ThreadIdentity i;
        i.pid = static_cast<int>(getpid());
        i.tid = static_cast<int>(syscall(SYS_gettid));
        if (pthread_getname_np(pthread_self(), i.task, sizeof i.task) != 0 || i.task[0] == 0) {
            std::snprintf(i.task, sizeof i.task, "<...>");
        }
        return i;
    }();
    return identity;
}

int64_t monotonicNow() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t{ts.tv_sec} * 1000000000 + ts.tv_nsec;
}

void emit(char const* text) {
    Writer* writer = gWriter.load(std::memory_order_acquire);
    if (writer == nullptr) {
        return;
    }
    ThreadIdentity const& id = self();
    Marker m;
    m.monotonicNs = monotonicNow();
    m.pid = id.pid;
    m.tid = id.tid;
    m.task = id.task;
    m.text = text;
    writer->write(m);
}

}  // namespace

Writer* install(Writer* writer) {
    return gWriter.exchange(writer, std::memory_order_acq_rel);
}

void setEnabledTags(uint64_t tags) {
    gEnabledTags.store(tags, std::memory_order_relaxed);
}

void beginSection(const char* name) {
    char text[kMarkerMax];
    std::snprintf(text, sizeof text, "B|%d|%s", self().pid, name);
    emit(text);
}

void endSection() {
    char text[32];
    std::snprintf(text, sizeof text, "E|%d", self().pid);
    emit(text);
}

void setCounter(const char* name, int64_t value) {
    char text[kMarkerMax];
    std::snprintf(text, sizeof text, "C|%d|%s|%" PRId64, self().pid, name, value);
    emit(text);
}

std::string atraceHeader() {
    return "# tracer: nop\n"
           "#\n"
           "# entries-in-buffer/entries-written: 0/0   #P:1\n"
           "#\n"
           "#                                      _-----=> irqs-off\n"
           "#                                     / _----=> need-resched\n"
           "#                                    | / _---=> hardirq/softirq\n"
           "#                                    || / _--=> preempt-depth\n"
           "#                                    ||| /     delay\n"
           "#           TASK-PID     TGID   CPU#  ||||   TIMESTAMP  FUNCTION\n"
           "#              | |         |      |   ||||      |         |\n";
}

std::string ftraceLine(Marker const& m) {
    char head[96];
    std::snprintf(head, sizeof head, "%16s-%-7d (%7d) [000] .... %5" PRId64 ".%06" PRId64 ": ",
                  m.task, m.tid, m.pid, m.monotonicNs / 1000000000,
                  m.monotonicNs % 1000000000 / 1000);
    return std::string(head) + "tracing_mark_write: " + m.text;
}

AtraceTextWriter::AtraceTextWriter(std::ostream& out) : mOut(out) {
    mOut << atraceHeader();
}

void AtraceTextWriter::write(Marker const& marker) {
    std::lock_guard<std::mutex> lock(mMutex);
    // A marker that lost the race for the lock to a later one is printed at that one's time, so
    // that the file stays in time order as atrace's is.
    Marker m = marker;
    m.monotonicNs = std::max(m.monotonicNs, mLastNs);
    mLastNs = m.monotonicNs;
    mOut << ftraceLine(m) << '\n';
}

void RecordingWriter::write(Marker const& marker) {
    std::lock_guard<std::mutex> lock(mMutex);
    mLines.push_back({marker.tid, marker.task, marker.text});
}

std::vector<RecordingWriter::Line> RecordingWriter::lines() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mLines;
}

}  // namespace SystemTrace
}  // namespace Utils
}  // namespace NSCam
