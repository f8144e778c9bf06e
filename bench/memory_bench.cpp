// synchelper_memory: what the library keeps per frame served. One thread per sensor calls it as a
// pipeline does (getSensorCropRegion when crops are in play, then syncResultCheck; a new crop set
// every second), and the heap in use and the resident size are read before and after the frames.
// Prints figures; judges nothing.
//
//   synchelper_memory [FRAMES]   (default 1000000; 100000 are run first, then FRAMES are measured)

#include "bench_session.h"

#include <SyncHelper.h>

#include <android/log.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

using namespace ryxbench;

namespace {

struct Usage {
    double heapBytes;
    double residentBytes;
};

// One malloc arena, so that the heap figure covers every thread's allocations.
Usage usage() {
    struct mallinfo2 m = mallinfo2();
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return {static_cast<double>(m.uordblks),
            static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE))};
}

// Frames [first, last) of a session of `sensors` cameras, one thread each.
void serve(SyncHelper& helper, std::vector<std::unique_ptr<CamSlot>>& cams, int first, int last,
           bool crops) {
    std::vector<std::thread> threads;
    for (auto& cam : cams) {
        threads.emplace_back([&, c = cam.get()] {
            for (int f = first; f < last; ++f) {
                c->setFrame(f);
                if (crops && c->in.m_id == 0 && f % 30 == 0) {
                    std::unordered_map<int, NSCam::MRect> set;
                    for (size_t s = 0; s < cams.size(); ++s) {
                        set[static_cast<int>(s)] = NSCam::MRect(f % 97, 0, 4000 - f % 97, 3000);
                    }
                    helper.setSensorCropRegion(f, set);
                }
                if (crops) {
                    helper.getSensorCropRegion(c->in);
                }
                helper.syncResultCheck(c->in, &c->out);
            }
        });
    }
    for (auto& t : threads) {
        t.join();
    }
}

void measure(int sensors, bool crops, int warm, int frames) {
    auto helper = std::dynamic_pointer_cast<SyncHelper>(ISyncHelper::createInstance(
        1, true, std::unordered_map<unsigned int, NSCam::CameraInfo>{}));
    std::vector<std::unique_ptr<CamSlot>> cams;
    for (int s = 0; s < sensors; ++s) {
        cams.push_back(std::make_unique<CamSlot>(s, sensors));
    }
    serve(*helper, cams, 0, warm, crops);
    malloc_trim(0);
    Usage before = usage();
    serve(*helper, cams, warm, warm + frames, crops);
    malloc_trim(0);
    Usage after = usage();
    std::printf("%d sensor%s, %-13s %10.1f %14.1f %16.1f\n", sensors, sensors == 1 ? " " : "s",
                crops ? "crop calls" : "no crop calls",
                (after.heapBytes - before.heapBytes) / frames,
                (after.residentBytes - before.residentBytes) / frames,
                (after.residentBytes - before.residentBytes) / (1 << 20));
}

}  // namespace

int main(int argc, char** argv) {
    mallopt(M_ARENA_MAX, 1);
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    int const frames = argc > 1 ? std::atoi(argv[1]) : 1000000;
    int const warm = 100000;
    std::printf(
        "synchelper_memory: bytes the library keeps per frame served, over %d frames after "
        "%d\n",
        frames, warm);
    std::printf("%-25s %10s %14s %16s\n", "session", "heap B/f", "resident B/f",
                "resident growth MB");
    for (int sensors = 1; sensors <= 3; ++sensors) {
        for (bool crops : {false, true}) {
            measure(sensors, crops, warm, frames);
        }
    }
    return 0;
}
