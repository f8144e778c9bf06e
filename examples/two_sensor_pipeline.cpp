// A two-sensor pipeline: how a camera HAL drives the sync helper.
//
// Sensor 0 (wide, the requested master) and sensor 2 (tele) stream on their own threads. For
// every frame result each thread builds the HAL control metadata with the sync tags, calls
// syncResultCheck() before delivering the result, and reads back what the helper wrote. Frames:
//   1  in sync: both verdicts true, result tag 0, master 0 everywhere
//   2  start of frame 5 ms apart with a 1 ms tolerance, fail mode 1: both verdicts false (tag 2)
//   3  the tele sensor drops its result (notifyDrop); the wide sensor still gets its verdict
//   4  the session flushes frame 4 before either sensor delivers it: both verdicts false
// The program checks these outcomes and exits 1 when one differs, so it doubles as a smoke test.
//
// The only header needed is the library's interface; it brings the metadata container
// (NSCam::IMetadata), the records and the tag ids.
#include "ISyncHelper.h"

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

using namespace NSCam::camsys::camcoordinator;
using NSCam::IMetadata;
using NSCam::MRect;

namespace {

constexpr int kWide = 0;
constexpr int kTele = 2;
constexpr int64_t kFrameNs = 33'333'333;  // 30 fps
constexpr int kFlushedFrame = 4;

std::mutex gPrintLock;  // one sensor's report stays on consecutive lines
int gFailures = 0;      // guarded by gPrintLock

// Reads one value of `tag`; "-" when the helper did not write it.
template <typename T>
std::string tagText(IMetadata const& meta, uint32_t tag) {
    T value{};
    if (!IMetadata::getEntry<T>(&meta, tag, value)) {
        return "-";
    }
    return std::to_string(value);
}

std::string floatText(IMetadata const& meta, uint32_t tag) {
    float value = 0;
    if (!IMetadata::getEntry<float>(&meta, tag, value)) {
        return "-";
    }
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string rectText(IMetadata const& meta, uint32_t tag) {
    MRect r;
    if (!IMetadata::getEntry<MRect>(&meta, tag, r)) {
        return "-";
    }
    return std::to_string(r.left) + "," + std::to_string(r.top) + " " + std::to_string(r.width) +
           "x" + std::to_string(r.height);
}

// One camera's result of one frame: the four metadata objects and the two records pointing at
// them. The helper borrows them only for the duration of each call.
struct FrameResult {
    IMetadata appControl, halControl, halDynamic, appDynamic;
    SyncResultInputParams in;
    SyncResultOutputParams out;

    FrameResult(int sensor, int frameNo, int64_t startOfFrameNs) {
        in.m_id = sensor;
        in.requestNo = frameNo;
        in.frameNo = frameNo;
        in.AppControl = &appControl;
        in.HalControl = &halControl;
        in.sofTimeStamp = startOfFrameNs;
        in.expTimeStamp = startOfFrameNs + 1'000'000;
        out.HalDynamic = &halDynamic;  // both are required on the sync path
        out.AppDynamic = &appDynamic;

        // The sync group: the other sensors this frame must meet (not the caller itself).
        IMetadata::IEntry group(RYX_FRAMESYNC_ID);
        group.push_back(static_cast<int32_t>(sensor == kWide ? kTele : kWide));
        halControl.update(RYX_FRAMESYNC_ID, group);
        // Its presence sends the frame through the rendezvous instead of the single-camera path.
        IMetadata::setEntry<int32_t>(&halControl, RYX_FRAMESYNC_REQUIRED, 1);
        // Largest start-of-frame difference still in sync, in microseconds.
        IMetadata::setEntry<int64_t>(&halControl, RYX_FRAMESYNC_TOLERANCE, 1000);
        // 1: an out-of-sync frame fails syncResultCheck (result tag 2); otherwise it passes (1).
        IMetadata::setEntry<int32_t>(&halControl, RYX_FRAMESYNC_MODE, 1);
        // The master the application asked for.
        IMetadata::setEntry<int32_t>(&halControl, RYX_DUALZOOM_REAL_MASTER, kWide);
    }

    // Prints the verdict and every tag the helper writes, and checks the verdict.
    void report(char const* what, bool verdict, bool expected) const {
        std::lock_guard<std::mutex> lock(gPrintLock);
        std::printf(
            "f%d sensor %d %-9s verdict %-5s result %s master %s/%s bMasterCam %d "
            "active %s focal %s boost %s stab %s\n",
            in.frameNo, in.m_id, what, verdict ? "true" : "false",
            tagText<int64_t>(halDynamic, RYX_FRAMESYNC_RESULT).c_str(),
            tagText<int32_t>(halDynamic, RYX_DUALZOOM_REAL_MASTER).c_str(),
            tagText<int32_t>(appDynamic, RYX_APP_REAL_MASTER).c_str(), out.bMasterCam ? 1 : 0,
            rectText(appDynamic, PHYSICAL_ACTIVE_ARRAY_REGION).c_str(),
            floatText(appDynamic, LENS_FOCAL_LENGTH).c_str(),
            tagText<int32_t>(appDynamic, CONTROL_POST_RAW_SENSITIVITY_BOOST).c_str(),
            tagText<uint8_t>(appDynamic, CONTROL_VIDEO_STABILIZATION_MODE).c_str());
        if (verdict != expected) {
            std::printf("  unexpected: verdict should be %s\n", expected ? "true" : "false");
            ++gFailures;
        }
    }
};

// One sensor's pipeline thread.
void runSensor(ISyncHelper& helper, int sensor) {
    for (int frameNo = 1; frameNo <= kFlushedFrame; ++frameNo) {
        int64_t sof = frameNo * kFrameNs;
        if (frameNo == 2 && sensor == kTele) {
            sof += 5'000'000;  // 5 ms late: beyond the 1 ms tolerance
        }
        FrameResult result(sensor, frameNo, sof);

        if (frameNo == 3 && sensor == kTele) {
            // The tele pipeline loses this frame. Saying so counts as its arrival, so the wide
            // sensor does not wait for it. (Always returns false; no meaning in it.)
            helper.notifyDrop(result.in);
            std::lock_guard<std::mutex> lock(gPrintLock);
            std::printf("f%d sensor %d dropped   (notifyDrop)\n", frameNo, sensor);
            continue;
        }
        // Blocks until the other sensor of the frame has arrived or dropped, or the frame is
        // dropped or flushed.
        bool verdict = helper.syncResultCheck(result.in, &result.out);
        bool expected = frameNo == 1 || frameNo == 3;
        result.report(frameNo == kFlushedFrame ? "flushed" : "delivered", verdict, expected);
    }
}

}  // namespace

int main() {
    // The static description of each sensor; the helper copies what it writes into results.
    std::unordered_map<unsigned int, NSCam::CameraInfo> cameras;
    cameras[kWide].activeArrayRegion = MRect(0, 0, 4000, 3000);
    cameras[kWide].focalLength = 4.7f;
    cameras[kTele].activeArrayRegion = MRect(0, 0, 4032, 3024);
    cameras[kTele].focalLength = 9.2f;

    // One helper per session; the key names the session to the camera stack.
    std::shared_ptr<ISyncHelper> helper = ISyncHelper::createInstance(0x5e55, true, cameras);

    // A flush: frame 4 is dropped for every camera, now and when its results arrive.
    helper->notifyDrop(kFlushedFrame, 0);

    std::thread wide(runSensor, std::ref(*helper), kWide);
    std::thread tele(runSensor, std::ref(*helper), kTele);
    wide.join();
    tele.join();

    // Every pipeline thread has stopped calling the helper: now it may go.
    helper.reset();
    std::printf("%s\n", gFailures == 0 ? "all verdicts as expected" : "unexpected verdicts");
    return gFailures == 0 ? 0 : 1;
}
