// synchelper_bench: the cost of the helper against the limits it is measured by.
//
//   BM_Rendezvous_SyncHelper/threads:N   N sensor threads meet per frame through syncResultCheck,
//                                        all four updaters, logging gated off
//   BM_Rendezvous_Plain/threads:N        the limit: a plain mutex + condition-variable rendezvous
//                                        whose last arrival runs a trivial callback
//   BM_Rendezvous_MessageFilters/...     ROS message_filters, ExactTime of 3 inputs, each producer
//                                        waiting for its frame's callback (ros_baseline.cpp)
//   BM_ReleaseLatency_{SyncHelper,Plain} p50/p99 of the time from a frame's last arrival to each
//                                        waiter's return
//   BM_SingleCamera_{UpdateData,SyncResultCheck,MetadataBaseline}
//                                        the single-camera path against the metadata edits it
//                                        must make anyway
//   BM_Log_{GatedOffDebug,EmptyLoop}     a log statement whose gate fails, against an empty loop
//   BM_Trace_PointOff                    a trace point while tracing is off (the check a call
//                                        makes), against the same empty loop
//   BM_Rendezvous_SyncHelperTraced/...   the helper's rendezvous with tracing on, the markers
//                                        handed to a writer that counts them (what the library
//                                        itself spends; a phone's kernel write comes on top)
//   BM_Memory_Frames/crops:{0,1}         resident and heap size after 10,000 and after 1,000,000
//                                        simulated frames (RYX_BENCH_MEMORY_FRAMES)
// After the runs it prints each benchmark's ratio against its baseline of the same run.

#define LOG_TAG "RyxCam/Bench"
#define LOG_SOURCE "bench/synchelper_bench"
#include "SyncLog.h"

#include <NSCam/SystemTrace.h>
#include <NSCam/ULogger.h>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "SyncHelper.h"
#include "SyncHelperInspector.h"
#include "SyncQueue.h"
#include "bench_session.h"

namespace ryxbench {
namespace {

using NSCam::Utils::ULog::ULogger;

std::unordered_map<unsigned int, NSCam::CameraInfo> infoFor(int sensors) {
    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    for (int s = 0; s < sensors; ++s) {
        info[unsigned(s)].activeArrayRegion = NSCam::MRect(0, 0, 4000 + s, 3000);
        info[unsigned(s)].focalLength = 4.0f + float(s);
    }
    return info;
}

void gateLoggingOff() {
    ULogger::sDetailsLevel = 1;  // errors only: every debug, info and warning gate fails
}

// --- rendezvous through the helper --------------------------------------------------------------

struct HelperSession {
    std::shared_ptr<ISyncHelper> helper;
    std::vector<std::unique_ptr<CamSlot>> cams;
    std::atomic<int64_t> failed{0};
    std::unique_ptr<LatencyLog> latency;
};
HelperSession* gHelper = nullptr;
int64_t gHelperCalls = 0;  // calls of the latest traced run

void setupHelper(benchmark::State const& st) {
    gateLoggingOff();
    gHelper = new HelperSession;
    gHelper->helper = ISyncHelper::createInstance(0xbe7c, true, infoFor(st.threads()));
    for (int s = 0; s < st.threads(); ++s) {
        gHelper->cams.push_back(std::make_unique<CamSlot>(s, st.threads()));
    }
}
void teardownHelper(benchmark::State const&) {
    delete gHelper;
    gHelper = nullptr;
}

void BM_Rendezvous_SyncHelper(benchmark::State& st) {
    CamSlot& cam = *gHelper->cams[size_t(st.thread_index())];
    int n = 0;
    int64_t failed = 0;
    for (auto _ : st) {
        cam.setFrame(n++);
        failed += gHelper->helper->syncResultCheck(cam.in, &cam.out) ? 0 : 1;
    }
    gHelper->failed += failed;
    if (st.thread_index() == 0) {
        st.counters["frames/s"] =
            benchmark::Counter(double(st.iterations()), benchmark::Counter::kIsRate);
    }
    if (failed != 0)
        st.SkipWithError("a frame came out of the rendezvous unsynchronised");
}
BENCHMARK(BM_Rendezvous_SyncHelper)
    ->Setup(setupHelper)
    ->Teardown(teardownHelper)
    ->DenseThreadRange(2, 4)
    ->UseRealTime();

// Counts the markers it is handed: the library's side of a trace point, without the kernel's.
class CountingWriter : public NSCam::Utils::SystemTrace::Writer {
  public:
    void write(NSCam::Utils::SystemTrace::Marker const& m) override {
        mBytes.fetch_add(std::strlen(m.text), std::memory_order_relaxed);
        mMarkers.fetch_add(1, std::memory_order_relaxed);
    }
    std::atomic<int64_t> mMarkers{0}, mBytes{0};
};
CountingWriter* gTraceWriter = nullptr;

void setupTracedHelper(benchmark::State const& st) {
    setupHelper(st);
    gTraceWriter = new CountingWriter;
    NSCam::Utils::SystemTrace::install(gTraceWriter);
    NSCam::Utils::SystemTrace::setEnabledTags(NSCam::Utils::SystemTrace::kTagCamera);
}
void teardownTracedHelper(benchmark::State const& st) {
    NSCam::Utils::SystemTrace::setEnabledTags(0);
    NSCam::Utils::SystemTrace::install(nullptr);
    std::printf("  (traced: %.1f markers, %.0f bytes per frame and camera)\n",
                double(gTraceWriter->mMarkers) / double(std::max<int64_t>(1, gHelperCalls)),
                double(gTraceWriter->mBytes) / double(std::max<int64_t>(1, gHelperCalls)));
    delete gTraceWriter;
    gTraceWriter = nullptr;
    teardownHelper(st);
}

void BM_Rendezvous_SyncHelperTraced(benchmark::State& st) {
    BM_Rendezvous_SyncHelper(st);
    if (st.thread_index() == 0) {
        gHelperCalls = int64_t(st.iterations()) * st.threads();
    }
}
BENCHMARK(BM_Rendezvous_SyncHelperTraced)
    ->Setup(setupTracedHelper)
    ->Teardown(teardownTracedHelper)
    ->Threads(3)
    ->UseRealTime();

PlainRendezvous* gPlain = nullptr;
std::unique_ptr<LatencyLog> gPlainLatency;
void setupPlain(benchmark::State const& st) {
    gPlain = new PlainRendezvous(st.threads());
}
void teardownPlain(benchmark::State const&) {
    delete gPlain;
    gPlain = nullptr;
    gPlainLatency.reset();
}

void BM_Rendezvous_Plain(benchmark::State& st) {
    for (auto _ : st) {
        gPlain->arrive();
    }
    if (st.thread_index() == 0) {
        st.counters["frames/s"] =
            benchmark::Counter(double(st.iterations()), benchmark::Counter::kIsRate);
        if (gPlain->callbacks() != uint64_t(st.iterations()))
            st.SkipWithError("lost a callback");
    }
}
BENCHMARK(BM_Rendezvous_Plain)
    ->Setup(setupPlain)
    ->Teardown(teardownPlain)
    ->DenseThreadRange(2, 4)
    ->UseRealTime();

// --- release latency ----------------------------------------------------------------------------

void BM_ReleaseLatency_SyncHelper(benchmark::State& st) {
    int const t = st.thread_index();
    CamSlot& cam = *gHelper->cams[size_t(t)];
    // Sized here: the state given to Setup does not know the run's iterations. Other threads
    // read it only inside the loop, which starts once every thread, this one included, is there.
    if (t == 0)
        gHelper->latency = std::make_unique<LatencyLog>(st.threads(), st.max_iterations);
    LatencyLog* log = nullptr;
    int64_t n = 0;
    for (auto _ : st) {
        if (log == nullptr)
            log = gHelper->latency.get();
        cam.setFrame(int(n));
        log->enter(t, n);
        bool ok = gHelper->helper->syncResultCheck(cam.in, &cam.out);
        log->exit(t, n);
        if (!ok)
            ++gHelper->failed;
        ++n;
    }
    if (t == 0) {  // every thread has finished its iterations once the loop is left
        auto [p50, p99] = log->percentiles(n);
        st.counters["p50_ns"] = p50;
        st.counters["p99_ns"] = p99;
        if (gHelper->failed != 0)
            st.SkipWithError("a frame came out unsynchronised");
    }
}
BENCHMARK(BM_ReleaseLatency_SyncHelper)
    ->Setup(setupHelper)
    ->Teardown(teardownHelper)
    ->DenseThreadRange(2, 4)
    ->UseRealTime();

void BM_ReleaseLatency_Plain(benchmark::State& st) {
    int const t = st.thread_index();
    if (t == 0)
        gPlainLatency = std::make_unique<LatencyLog>(st.threads(), st.max_iterations);
    LatencyLog* log = nullptr;
    int64_t n = 0;
    for (auto _ : st) {
        if (log == nullptr)
            log = gPlainLatency.get();
        log->enter(t, n);
        gPlain->arrive();
        log->exit(t, n);
        ++n;
    }
    if (t == 0) {
        auto [p50, p99] = log->percentiles(n);
        st.counters["p50_ns"] = p50;
        st.counters["p99_ns"] = p99;
    }
}
BENCHMARK(BM_ReleaseLatency_Plain)
    ->Setup(setupPlain)
    ->Teardown(teardownPlain)
    ->DenseThreadRange(2, 4)
    ->UseRealTime();

// --- single-camera path -------------------------------------------------------------------------

void BM_SingleCamera_UpdateData(benchmark::State& st) {
    gateLoggingOff();
    auto iface = ISyncHelper::createInstance(0xbe7d, true, infoFor(1));
    auto* helper = dynamic_cast<SyncHelper*>(iface.get());
    CamSlot cam(0, 1, /*sync=*/false);
    SyncData data;
    SyncHelperInspector::queue(*helper)->genSyncData(&data, cam.in, &cam.out);
    SyncDataUpdaterType const all = static_cast<SyncDataUpdaterType>(15);
    for (auto _ : st) {
        bool ok = helper->updateData(all, &data);
        benchmark::DoNotOptimize(ok);
    }
    if (!cam.out.bMasterCam)
        st.SkipWithError("the updaters did not run");
}
BENCHMARK(BM_SingleCamera_UpdateData);

void BM_SingleCamera_SyncResultCheck(benchmark::State& st) {
    gateLoggingOff();
    auto iface = ISyncHelper::createInstance(0xbe7e, true, infoFor(1));
    CamSlot cam(0, 1, /*sync=*/false);
    int n = 0;
    int64_t failed = 0;
    for (auto _ : st) {
        cam.setFrame(n++);
        failed += iface->syncResultCheck(cam.in, &cam.out) ? 0 : 1;
    }
    if (failed != 0)
        st.SkipWithError("a single-camera frame failed");
}
BENCHMARK(BM_SingleCamera_SyncResultCheck);

// The edits a single camera's frame needs whatever the design (singleCameraEdits).
void BM_SingleCamera_MetadataBaseline(benchmark::State& st) {
    CamSlot cam(0, 1, /*sync=*/false);
    NSCam::MRect const region(0, 0, 4000, 3000);
    for (auto _ : st) {
        singleCameraEdits(cam, region, 4.0f);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_SingleCamera_MetadataBaseline);

// --- logging ------------------------------------------------------------------------------------

void BM_Log_GatedOffDebug(benchmark::State& st) {
    gateLoggingOff();
    int n = 0;
    for (auto _ : st) {
        RYX_LOGD("[f%d] CamId = %d wait-", n, n & 3);
        ++n;
        benchmark::ClobberMemory();  // the gate's words are re-read every time, as in real code
    }
    benchmark::DoNotOptimize(n);
}
BENCHMARK(BM_Log_GatedOffDebug);

void BM_Log_EmptyLoop(benchmark::State& st) {
    int n = 0;
    for (auto _ : st) {
        ++n;
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(n);
}
BENCHMARK(BM_Log_EmptyLoop);

void BM_Trace_PointOff(benchmark::State& st) {
    NSCam::Utils::SystemTrace::setEnabledTags(0);
    int n = 0;
    for (auto _ : st) {
        if (NSCam::camsys::camcoordinator::synctrace::on()) {
            NSCam::camsys::camcoordinator::synctrace::markf("RyxSync f%d cam%d", n, n & 3);
        }
        ++n;
        benchmark::ClobberMemory();  // the tags word is re-read every time, as in real code
    }
    benchmark::DoNotOptimize(n);
}
BENCHMARK(BM_Trace_PointOff);

// --- memory -------------------------------------------------------------------------------------

size_t residentBytes() {
    std::ifstream statm("/proc/self/statm");
    size_t size = 0, resident = 0;
    statm >> size >> resident;
    return resident * size_t(sysconf(_SC_PAGESIZE));
}
size_t heapBytes() {
    struct mallinfo2 mi = mallinfo2();
    return mi.uordblks + mi.hblkhd;
}

// One thread simulates a 3-camera session: cameras 1 and 2 drop each frame as slaves (a drop
// counts as an arrival) and camera 0 completes it through the queue, running all updaters. Every
// 100th frame is flushed first. With crops, a crop set is published every 30 frames and every
// camera asks for its crop of every frame.
void BM_Memory_Frames(benchmark::State& st) {
    bool const crops = st.range(0) != 0;
    char const* env = std::getenv("RYX_BENCH_MEMORY_FRAMES");
    int const frames = env != nullptr ? std::atoi(env) : 1000000;
    int const early = std::min(10000, frames);
    gateLoggingOff();
    for (auto _ : st) {
        auto iface = ISyncHelper::createInstance(0xbe7f, true, infoFor(3));
        auto* helper = dynamic_cast<SyncHelper*>(iface.get());
        std::vector<std::unique_ptr<CamSlot>> cams;
        for (int s = 0; s < 3; ++s)
            cams.push_back(std::make_unique<CamSlot>(s, 3));
        size_t rssEarly = 0, heapEarly = 0, snapshotsEarly = 0;
        int64_t passed = 0;
        for (int n = 0; n < frames; ++n) {
            if (n == early) {
                rssEarly = residentBytes();
                heapEarly = heapBytes();
                snapshotsEarly = SyncHelperInspector::cropSnapshotCount(*helper);
            }
            for (auto& c : cams)
                c->setFrame(n);
            if (crops && n % 30 == 0) {
                std::unordered_map<int, NSCam::MRect> set;
                for (int s = 0; s < 3; ++s)
                    set[s] = NSCam::MRect(s, n, 1000, 750);
                helper->setSensorCropRegion(n, set);
            }
            if (n % 100 == 99)
                helper->notifyDrop(n, 0);
            for (int s : {1, 2}) {
                if (crops)
                    helper->getSensorCropRegion(cams[size_t(s)]->in);
                helper->notifyDrop(cams[size_t(s)]->in);
            }
            if (crops)
                helper->getSensorCropRegion(cams[0]->in);
            passed += helper->syncResultCheck(cams[0]->in, &cams[0]->out) ? 1 : 0;
        }
        size_t rssLate = residentBytes(), heapLate = heapBytes();
        double span = double(frames - early);
        st.counters["frames"] = frames;
        st.counters["passed"] = double(passed);
        st.counters["rss_early_KiB"] = double(rssEarly) / 1024;
        st.counters["rss_late_KiB"] = double(rssLate) / 1024;
        st.counters["rss_B_per_frame"] = (double(rssLate) - double(rssEarly)) / span;
        st.counters["heap_B_per_frame"] = (double(heapLate) - double(heapEarly)) / span;
        st.counters["crop_snapshots_per_frame"] =
            double(SyncHelperInspector::cropSnapshotCount(*helper) - snapshotsEarly) / span;
        if (passed < frames * 98 / 100)
            st.SkipWithError("frames failed that should have passed");
    }
}
BENCHMARK(BM_Memory_Frames)
    ->Arg(0)
    ->Arg(1)
    ->ArgName("crops")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// --- ratios -------------------------------------------------------------------------------------

// Keeps every run's figures, and hands them on to the console.
class Collector : public benchmark::ConsoleReporter {
  public:
    struct Figures {
        double realNs = 0;
        std::map<std::string, double> counters;
    };
    void ReportRuns(std::vector<Run> const& runs) override {
        for (auto const& r : runs) {
            if (r.error_occurred || r.run_type != Run::RT_Iteration)
                continue;
            Figures f;
            f.realNs = r.GetAdjustedRealTime() * timeUnitToNs(r.time_unit);
            for (auto const& [k, v] : r.counters)
                f.counters[k] = v.value;
            mRuns[r.benchmark_name()] = f;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, Figures> const& runs() const { return mRuns; }

  private:
    static double timeUnitToNs(benchmark::TimeUnit u) {
        switch (u) {
            case benchmark::kSecond:
                return 1e9;
            case benchmark::kMillisecond:
                return 1e6;
            case benchmark::kMicrosecond:
                return 1e3;
            default:
                return 1;
        }
    }
    std::map<std::string, Figures> mRuns;
};

void printRatios(Collector const& c) {
    auto const& runs = c.runs();
    auto find = [&](std::string const& name) -> Collector::Figures const* {
        auto it = runs.find(name);
        return it == runs.end() ? nullptr : &it->second;
    };
    std::printf("\nratios against the baseline of the same run:\n");
    for (int t = 2; t <= 4; ++t) {
        std::string suffix = "/real_time/threads:" + std::to_string(t);
        auto lib = find("BM_Rendezvous_SyncHelper" + suffix);
        auto plain = find("BM_Rendezvous_Plain" + suffix);
        auto ros = find("BM_Rendezvous_MessageFilters" + suffix);
        if (lib && plain) {
            std::printf(
                "  RATIO rendezvous_vs_plain/threads:%d %.3f (throughput of the limit; goal >= "
                "0.7)\n",
                t, plain->realNs / lib->realNs);
        }
        if (lib && ros) {
            std::printf("  RATIO rendezvous_vs_message_filters/threads:%d %.3f (goal >= 1.0)\n", t,
                        ros->realNs / lib->realNs);
        }
        auto llib = find("BM_ReleaseLatency_SyncHelper" + suffix);
        auto lplain = find("BM_ReleaseLatency_Plain" + suffix);
        if (llib && lplain) {
            std::printf(
                "  RATIO release_p50_vs_plain/threads:%d %.3f (%.0f ns vs %.0f ns; goal <= 1.3)\n",
                t, llib->counters.at("p50_ns") / lplain->counters.at("p50_ns"),
                llib->counters.at("p50_ns"), lplain->counters.at("p50_ns"));
            std::printf(
                "  RATIO release_p99_vs_plain/threads:%d %.3f (%.0f ns vs %.0f ns; goal <= 1.3)\n",
                t, llib->counters.at("p99_ns") / lplain->counters.at("p99_ns"),
                llib->counters.at("p99_ns"), lplain->counters.at("p99_ns"));
        }
    }
    auto base = find("BM_SingleCamera_MetadataBaseline");
    for (char const* name : {"BM_SingleCamera_UpdateData", "BM_SingleCamera_SyncResultCheck"}) {
        auto lib = find(name);
        if (lib && base) {
            std::printf("  RATIO %s_vs_metadata_edits %.3f (%.1f ns vs %.1f ns per frame)\n",
                        name + 3, lib->realNs / base->realNs, lib->realNs, base->realNs);
        }
    }
    // Each cost against its baseline of the same run: "NAME ratio (lib vs base: extra per UNIT)".
    auto extra = [&](char const* lib, char const* base, char const* name, char const* unit,
                     char const* goal) {
        auto l = find(lib), b = find(base);
        if (l && b) {
            std::printf("  RATIO %s %.3f (%.2f ns vs %.2f ns: %.2f ns %s%s)\n", name,
                        l->realNs / b->realNs, l->realNs, b->realNs, l->realNs - b->realNs, unit,
                        goal);
        }
    };
    extra("BM_Log_GatedOffDebug", "BM_Log_EmptyLoop", "gated_off_log_vs_empty_loop", "a statement",
          "; goal <= 1 ns");
    extra("BM_Trace_PointOff", "BM_Log_EmptyLoop", "trace_point_off_vs_empty_loop", "a call",
          "; goal <= 1 ns");
    extra("BM_Rendezvous_SyncHelperTraced/real_time/threads:3",
          "BM_Rendezvous_SyncHelper/real_time/threads:3", "traced_vs_untraced_rendezvous/threads:3",
          "a frame with tracing on", "");
    for (char const* name :
         {"BM_Memory_Frames/crops:0/iterations:1", "BM_Memory_Frames/crops:1/iterations:1"}) {
        auto m = find(name);
        if (m) {
            std::printf(
                "  MEMORY %s: %.0f frames, RSS %.0f KiB -> %.0f KiB, %.3f B/frame resident, %.3f "
                "B/frame heap, %.3f crop snapshots/frame\n",
                name, m->counters.at("frames"), m->counters.at("rss_early_KiB"),
                m->counters.at("rss_late_KiB"), m->counters.at("rss_B_per_frame"),
                m->counters.at("heap_B_per_frame"), m->counters.at("crop_snapshots_per_frame"));
        }
    }
}

}  // namespace
}  // namespace ryxbench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    ryxbench::Collector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    ryxbench::printRatios(collector);
    benchmark::Shutdown();
    return 0;
}
