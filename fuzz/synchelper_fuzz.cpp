// libFuzzer target: decodes its input into a sequence of single-threaded calls on one helper.
//
// Input layout (read front to back; an exhausted input reads as zeros):
//   header   log words, the two properties, allowCropReplace, the camera-information map
//   ops      one opcode byte each, followed by that operation's arguments (see runOp)
//
// Every operation the pipeline can make is reachable: the per-frame check on both paths (tags
// present, absent, empty, of odd counts, wrong item types and odd values), updateData on
// arbitrary SyncData, drops by input, by frame (flush) and by sensor, the crop calls, the switch
// flag and face-detection control. The harness keeps to the documented call contract, which
// leaves out the fatal flows (a camera entering a frame twice, a camera outside its frame's sync
// targets, an 11th live frame, the arrival record pruning a live frame, an empty target list
// reaching an updater) and anything that would block its one thread:
//   - on one thread no frame can stay live between calls (a call that does not wait always
//     removes its frame's element), so the first four cannot arise, and the harness checks that
//     the queue holds no live frame after every call;
//   - before a call that would enter the queue's rendezvous, the harness predicts from the
//     queue's state whether it completes (flushed, dropped for this camera, or the last of its
//     sync targets to arrive) and skips the call when it would wait;
//   - SyncData handed to updateData with an empty target list selects only the physical-meta
//     updater, the one updater that does not require targets.
// Beyond crashes and sanitizer reports, each call's documented result is checked where it
// follows from the call alone; a mismatch aborts with a message.

#include "ISyncHelper.h"
#include "SyncHelper.h"
#include "SyncHelperInspector.h"
#include "SyncMetaTags.h"
#include "SyncQueue.h"

#include <NSCam/IMetadata.h>
#include <NSCam/Properties.h>
#include <NSCam/ULogger.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

using NSCam::IMetadata;
using NSCam::MRect;
using NSCam::camsys::camcoordinator::ISyncHelper;
using NSCam::camsys::camcoordinator::SyncData;
using NSCam::camsys::camcoordinator::SyncDataUpdaterType;
using NSCam::camsys::camcoordinator::SyncHelper;
using NSCam::camsys::camcoordinator::SyncHelperInspector;
using NSCam::camsys::camcoordinator::SyncQueue;
using NSCam::camsys::camcoordinator::SyncResultInputParams;
using NSCam::camsys::camcoordinator::SyncResultOutputParams;
namespace tags = NSCam::camsys::camcoordinator;

#define FUZZ_CHECK(cond, ...)                                                            \
    do {                                                                                 \
        if (!(cond)) {                                                                   \
            std::fprintf(stderr, "fuzz check failed at line %d: %s: ", __LINE__, #cond); \
            std::fprintf(stderr, __VA_ARGS__);                                           \
            std::fprintf(stderr, "\n");                                                  \
            std::abort();                                                                \
        }                                                                                \
    } while (0)

// SYNCHELPER_FUZZ_TRACE=1 prints each call and its result to stderr, to read what an input does.
bool const gTrace = std::getenv("SYNCHELPER_FUZZ_TRACE") != nullptr;
#define TRACE(...)                             \
    do {                                       \
        if (gTrace) {                          \
            std::fprintf(stderr, __VA_ARGS__); \
            std::fprintf(stderr, "\n");        \
        }                                      \
    } while (0)

// Discards unified-logger output, so that enabled statements are formatted but not printed.
class NullULogger : public NSCam::Utils::ULog::ULogger {
  public:
    void output(uint32_t, const char*, uint32_t, const char* text, int length) override {
        mSink += static_cast<size_t>(length) + static_cast<size_t>(text[0]);
    }
    void flush(int) override {}
    size_t mSink = 0;
};

class Reader {
  public:
    Reader(uint8_t const* data, size_t size) : mData(data), mSize(size) {}
    bool empty() const { return mPos >= mSize; }
    uint8_t u8() { return mPos < mSize ? mData[mPos++] : 0; }
    // Multi-byte values are little-endian. Every read below is its own statement: the order of
    // reads inside one expression (operands, call arguments) is unspecified.
    uint16_t u16() {
        uint16_t lo = u8();
        uint16_t hi = u8();
        return static_cast<uint16_t>(lo | (hi << 8));
    }
    uint32_t u32() {
        uint32_t lo = u16();
        uint32_t hi = u16();
        return lo | (hi << 16);
    }
    uint64_t u64() {
        uint64_t lo = u32();
        uint64_t hi = u32();
        return lo | (hi << 32);
    }

    // Mostly small ids (-1..6) so that cameras meet; 0xff escapes to any 32-bit value.
    int32_t sensorId() {
        uint8_t v = u8();
        return v == 0xff ? static_cast<int32_t>(u32()) : static_cast<int32_t>(v % 8) - 1;
    }
    // Mostly -8..55 so that frames collide and the fixed limits are reached; 0xff escapes.
    int32_t frameNo() {
        uint8_t v = u8();
        return v == 0xff ? static_cast<int32_t>(u32()) : static_cast<int32_t>(v % 64) - 8;
    }
    int64_t timestamp() {
        constexpr int64_t kBase = 1000000000000;  // about 17 minutes of uptime, in ns
        switch (u8() % 4) {
            case 0:
                return 0;
            case 1:
                return static_cast<int64_t>(u64());
            case 2:
                return kBase + static_cast<int16_t>(u16()) * int64_t{10000};  // 10 us steps
            default:
                return kBase + static_cast<int16_t>(u16()) * int64_t{1000000};  // 1 ms steps
        }
    }
    MRect rect() {
        MRect r;
        r.left = static_cast<int16_t>(u16());
        r.top = static_cast<int16_t>(u16());
        r.width = static_cast<int16_t>(u16());
        r.height = static_cast<int16_t>(u16());
        return r;
    }

  private:
    uint8_t const* mData;
    size_t mSize;
    size_t mPos = 0;
};

enum class ItemType { I32, I64, U8, MRECT, FLOAT };

// Pushes one item of `type`, its value drawn from the input.
void pushItem(Reader& r, IMetadata::IEntry& entry, ItemType type) {
    switch (type) {
        case ItemType::I32:
            entry.push_back(r.sensorId());
            break;
        case ItemType::I64: {
            uint8_t k = r.u8() % 3;
            int64_t v = k == 0   ? static_cast<int64_t>(r.u16())
                        : k == 1 ? static_cast<int64_t>(r.u64())
                                 : -static_cast<int64_t>(r.u16());
            entry.push_back(v);
            break;
        }
        case ItemType::U8:
            entry.push_back(static_cast<uint8_t>(r.u8() % 4));
            break;
        case ItemType::MRECT:
            entry.push_back(r.rect());
            break;
        case ItemType::FLOAT:
            entry.push_back(static_cast<float>(r.u16()) / 100.0f);
            break;
    }
}

// Sets `tag` in `meta` to an empty entry, one item, several items (odd counts included) or an
// item of the wrong type.
void fillTag(Reader& r, IMetadata& meta, uint32_t tag, ItemType type) {
    IMetadata::IEntry entry(tag);
    switch (r.u8() % 4) {
        case 0:
            break;
        case 1:
            pushItem(r, entry, type);
            break;
        case 2: {
            int n = 1 + r.u8() % 4;
            for (int i = 0; i < n; ++i)
                pushItem(r, entry, type);
            break;
        }
        default: {
            static constexpr ItemType kAll[] = {ItemType::I32, ItemType::I64, ItemType::U8,
                                                ItemType::MRECT, ItemType::FLOAT};
            ItemType other = kAll[r.u8() % 5];
            if (other == type)
                other = type == ItemType::FLOAT ? ItemType::I32 : ItemType::FLOAT;
            pushItem(r, entry, other);
            break;
        }
    }
    meta.update(tag, entry);
}

struct TagSpec {
    uint32_t tag;
    ItemType type;
};
constexpr TagSpec kHalControlTags[] = {
    {tags::RYX_FRAMESYNC_ID, ItemType::I32},
    {tags::RYX_FRAMESYNC_REQUIRED, ItemType::I32},
    {tags::RYX_FRAMESYNC_ENABLE, ItemType::I32},
    {tags::RYX_FRAMESYNC_TOLERANCE, ItemType::I64},
    {tags::RYX_FRAMESYNC_MODE, ItemType::I32},
    {tags::RYX_NEED_SYNC, ItemType::I32},
    {tags::RYX_MW_MASTER_SLAVE_LIST, ItemType::I32},
    {tags::RYX_DUALZOOM_REAL_MASTER, ItemType::I32},
    {tags::RYX_FRAMESYNC_FD_CONTROL, ItemType::I32},
    {tags::RYX_SENSOR_CROP_OVERRIDE, ItemType::MRECT},
};

// One camera's frame result: the records and the metadata they point to.
struct Frame {
    IMetadata appControl, halControl, halDynamic, appDynamic;
    SyncResultInputParams in;
    SyncResultOutputParams out;
    Frame() = default;
    Frame(Frame const&) = delete;
    Frame& operator=(Frame const&) = delete;
};

// `nullable`: whether the HAL control and the output's metadata may be left null.
std::unique_ptr<Frame> decodeFrame(Reader& r, bool nullable) {
    auto f = std::make_unique<Frame>();
    f->in.m_id = r.sensorId();
    f->in.requestNo = static_cast<int16_t>(r.u16());
    f->in.frameNo = r.frameNo();
    f->in.sofTimeStamp = r.timestamp();
    f->in.expTimeStamp = r.timestamp();

    uint8_t flags = r.u8();
    if ((flags & 0x01) == 0) {
        f->in.AppControl = &f->appControl;
        if (flags & 0x02)
            fillTag(r, f->appControl, tags::CAPTURE_INTENT, ItemType::U8);
    }
    if (!(nullable && (flags & 0x04))) {
        f->in.HalControl = &f->halControl;
        uint16_t present = r.u16();
        for (size_t i = 0; i < sizeof(kHalControlTags) / sizeof(kHalControlTags[0]); ++i) {
            if (present & (1u << i)) {
                fillTag(r, f->halControl, kHalControlTags[i].tag, kHalControlTags[i].type);
            }
        }
    }
    f->out.HalDynamic = (nullable && (flags & 0x08)) ? nullptr : &f->halDynamic;
    f->out.AppDynamic = (nullable && (flags & 0x10)) ? nullptr : &f->appDynamic;
    f->out.bMasterCam = (flags & 0x20) != 0;
    if (flags & 0x40) {
        IMetadata::setEntry<long>(&f->halDynamic, tags::RYX_FRAMESYNC_RESULT, r.u8() % 4);
    }
    if (flags & 0x80) {
        IMetadata::setEntry<int>(&f->appDynamic, tags::CONTROL_POST_RAW_SENSITIVITY_BOOST, 50);
        IMetadata::setEntry<uint8_t>(&f->appDynamic, tags::CONTROL_VIDEO_STABILIZATION_MODE, 1);
        fillTag(r, f->appDynamic, tags::LENS_FOCAL_LENGTH, ItemType::FLOAT);
    }
    return f;
}

bool contains(std::vector<int> const& v, int x) {
    return std::find(v.begin(), v.end(), x) != v.end();
}

// Whether SyncQueue::enque(frame) from camera `cam`, whose frame has `targets` sync targets,
// returns without waiting, given that no frame is live: flushed frames and frames dropped for
// this camera return at once, and a frame completes when its distinct arrivals (this one
// included, after the arrival record has pruned its oldest frame if full) equal its targets.
bool enqueReturnsAtOnce(SyncQueue& queue, int frame, int cam, size_t targets) {
    if (contains(queue.flushListSnapshot(), frame))
        return true;
    auto arrived = queue.arrivedSnapshot();
    if (arrived.size() >= SyncQueue::kMaxArrivedFrames)
        arrived.pop_front();
    size_t count = 1;
    for (auto it = arrived.rbegin(); it != arrived.rend(); ++it) {
        if (it->first == frame) {
            auto cams = it->second;
            cams.insert(cam);
            count = cams.size();
            break;
        }
    }
    auto const drops = queue.dropQueueSnapshot();
    auto const d = drops.find(frame);
    if (d != drops.end() && contains(d->second, cam))
        return true;
    return count == targets;
}

bool sameOverride(IMetadata const& a, IMetadata const& b) {
    MRect ra, rb;
    bool ha = IMetadata::getEntry<MRect>(&a, tags::RYX_SENSOR_CROP_OVERRIDE, ra);
    bool hb = IMetadata::getEntry<MRect>(&b, tags::RYX_SENSOR_CROP_OVERRIDE, rb);
    return ha == hb && (!ha || ra == rb);
}

struct Session {
    std::shared_ptr<ISyncHelper> iface;
    SyncHelper* helper = nullptr;
    SyncQueue* queue = nullptr;
};

// The per-frame check, on whichever path the frame's tags select.
void opSyncResultCheck(Session& s, Reader& r) {
    auto f = decodeFrame(r, /*nullable=*/true);
    bool passNullOutput = (r.u8() & 0x07) == 0;
    SyncResultOutputParams* out = passNullOutput ? nullptr : &f->out;
    if (f->in.HalControl == nullptr || out == nullptr) {
        FUZZ_CHECK(!s.iface->syncResultCheck(f->in, out), "null HalControl or output passed");
        return;
    }
    bool queuePath = !f->halControl.entryFor(tags::RYX_FRAMESYNC_REQUIRED).isEmpty() &&
                     !f->halControl.entryFor(tags::RYX_FRAMESYNC_ID).isEmpty();
    if (!queuePath) {
        // The single-camera path hands the output to the updaters untested: the pipeline's
        // contract is non-null result metadata.
        f->out.HalDynamic = &f->halDynamic;
        f->out.AppDynamic = &f->appDynamic;
        bool verdict = s.iface->syncResultCheck(f->in, out);
        TRACE("check cam%d f%d single-camera -> %d", f->in.m_id, f->in.frameNo, verdict);
        return;
    }
    if (f->out.HalDynamic == nullptr || f->out.AppDynamic == nullptr) {
        FUZZ_CHECK(!s.iface->syncResultCheck(f->in, out), "null result metadata passed");
        return;
    }
    int32_t enable = 0;
    if (IMetadata::getEntry<int>(&f->halControl, tags::RYX_FRAMESYNC_ENABLE, enable) &&
        (enable & 1) == 0) {
        size_t halCount = f->halDynamic.count(), appCount = f->appDynamic.count();
        FUZZ_CHECK(s.iface->syncResultCheck(f->in, out), "sync disabled, yet not passed");
        FUZZ_CHECK(f->halDynamic.count() == halCount && f->appDynamic.count() == appCount,
                   "sync disabled, yet the result metadata changed");
        return;
    }
    size_t targets = 1 + f->halControl.entryFor(tags::RYX_FRAMESYNC_ID).count();
    if (!enqueReturnsAtOnce(*s.queue, f->in.frameNo, f->in.m_id, targets)) {
        TRACE("check cam%d f%d queue: skipped, would wait", f->in.m_id, f->in.frameNo);
        return;  // would wait for cameras that this one thread can never bring
    }
    bool verdict = s.iface->syncResultCheck(f->in, out);
    long result = 1;
    IMetadata::getEntry<long>(&f->halDynamic, tags::RYX_FRAMESYNC_RESULT, result);
    TRACE("check cam%d f%d queue (%zu targets) -> %d, result %ld", f->in.m_id, f->in.frameNo,
          targets, verdict, result);
    FUZZ_CHECK(!(verdict && result == tags::FRAMESYNC_RESULT_FAIL_DROP),
               "f%d passed with RYX_FRAMESYNC_RESULT 2", f->in.frameNo);
}

// Several cameras of one frame: all but the last drop it as slaves (their drops count as
// arrivals), then the last checks it through the queue, completing the rendezvous on this thread.
void opGroup(Session& s, Reader& r) {
    int n = 2 + r.u8() % 3;
    int first = static_cast<int>(r.u8() % 8) - 1;  // small, so that first + i cannot overflow
    int frame = r.frameNo();
    std::vector<std::unique_ptr<Frame>> frames;
    for (int i = 0; i < n; ++i) {
        auto f = decodeFrame(r, /*nullable=*/false);
        f->in.m_id = first + i;
        f->in.frameNo = frame;
        frames.push_back(std::move(f));
    }
    Frame& last = *frames.back();
    IMetadata::IEntry ids(tags::RYX_FRAMESYNC_ID);
    for (int i = 0; i + 1 < n; ++i)
        ids.push_back(first + i);
    for (auto& f : frames) {
        f->halControl.update(tags::RYX_FRAMESYNC_ID, ids);
        IMetadata::setEntry<int>(&f->halControl, tags::RYX_DUALZOOM_REAL_MASTER, last.in.m_id);
    }
    for (int i = 0; i + 1 < n; ++i) {
        FUZZ_CHECK(!s.iface->notifyDrop(frames[i]->in), "notifyDrop(input) returned true");
    }
    IMetadata::setEntry<int>(&last.halControl, tags::RYX_FRAMESYNC_REQUIRED, 1);
    last.halControl.remove(tags::RYX_FRAMESYNC_ENABLE);
    if (!enqueReturnsAtOnce(*s.queue, frame, last.in.m_id, static_cast<size_t>(n))) {
        TRACE("group of %d f%d: skipped, would wait", n, frame);
        return;
    }
    bool verdict = s.iface->syncResultCheck(last.in, &last.out);
    long result = 1;
    IMetadata::getEntry<long>(&last.halDynamic, tags::RYX_FRAMESYNC_RESULT, result);
    int master = -1;
    IMetadata::getEntry<int>(&last.halDynamic, tags::RYX_DUALZOOM_REAL_MASTER, master);
    TRACE("group of %d f%d -> %d, result %ld, master %d", n, frame, verdict, result, master);
    FUZZ_CHECK(!(verdict && result == tags::FRAMESYNC_RESULT_FAIL_DROP),
               "group f%d passed with RYX_FRAMESYNC_RESULT 2", frame);
}

// updateData on an arbitrary SyncData (records valid, contents anything).
void opUpdateData(Session& s, Reader& r) {
    uint32_t mask = r.u8();
    SyncData data;
    data.frameNo = r.frameNo();
    data.requestNo = static_cast<int16_t>(r.u16());
    for (int i = r.u8() % 5; i > 0; --i)
        data.syncTargetList.push_back(r.sensorId());
    for (int i = r.u8() % 4; i > 0; --i)
        data.masterSlaveList.push_back(r.sensorId());
    std::vector<std::unique_ptr<Frame>> frames;
    for (int i = r.u8() % 5; i > 0; --i) {
        frames.push_back(decodeFrame(r, /*nullable=*/false));
        Frame& f = *frames.back();
        uint8_t where = r.u8();
        if (where & 1)
            data.inputParams.emplace(f.in.m_id, &f.in);
        if (where & 2)
            data.outputParams.emplace(r.sensorId(), &f.out);
    }
    if (data.syncTargetList.empty()) {
        mask &= ~uint32_t{tags::TIMESTAMP | tags::MASTER_CAM | tags::ACTIVE};
    }
    bool result = s.helper->updateData(static_cast<SyncDataUpdaterType>(mask), &data);
    TRACE("updateData mask %u targets %zu inputs %zu outputs %zu -> %d", mask,
          data.syncTargetList.size(), data.inputParams.size(), data.outputParams.size(), result);
    if ((mask & 0xf) == 0)
        FUZZ_CHECK(result, "updateData ran nothing, yet returned false");
}

void opNotifyDropInput(Session& s, Reader& r) {
    auto f = decodeFrame(r, /*nullable=*/false);
    FUZZ_CHECK(!s.iface->notifyDrop(f->in), "notifyDrop(input) returned true");
    TRACE("drop cam%d f%d; drop queue %zu entries", f->in.m_id, f->in.frameNo,
          s.queue->dropQueueSnapshot().size());
}

void opFlush(Session& s, Reader& r) {
    int frame = r.frameNo();
    int unused = static_cast<int32_t>(r.u32());
    FUZZ_CHECK(s.iface->notifyDrop(frame, unused), "flush of f%d returned false", frame);
    TRACE("flush f%d", frame);
    auto flushed = s.queue->flushListSnapshot();
    FUZZ_CHECK(contains(flushed, frame), "flushed f%d not in the flush list", frame);
    FUZZ_CHECK(flushed.size() <= SyncQueue::kMaxFlushFrames, "flush list holds %zu",
               flushed.size());
    std::sort(flushed.begin(), flushed.end());
    FUZZ_CHECK(std::adjacent_find(flushed.begin(), flushed.end()) == flushed.end(),
               "flush list holds a frame twice");
}

void opDropBySensor(Session& s, Reader& r) {
    FUZZ_CHECK(!s.iface->notifyDropBySensor(r.sensorId()), "notifyDropBySensor returned true");
}

void opSetCrop(Session& s, Reader& r) {
    int request = static_cast<int16_t>(r.u16());
    std::unordered_map<int, MRect> crops;
    for (int i = r.u8() % 5; i > 0; --i) {
        int id = r.sensorId();
        crops[id] = r.rect();
    }
    FUZZ_CHECK(s.iface->setSensorCropRegion(request, crops), "setSensorCropRegion false");
}

void opGetCrop(Session& s, Reader& r) {
    auto f = decodeFrame(r, /*nullable=*/false);
    IMetadata before = f->halControl;
    FUZZ_CHECK(s.helper->getSensorCropRegion(f->in), "getSensorCropRegion false");
    MRect crop;
    bool written = IMetadata::getEntry<MRect>(&f->halControl, tags::RYX_SENSOR_CROP_OVERRIDE, crop);
    TRACE("crop cam%d f%d -> %s (%d,%d %dx%d); snapshots %zu", f->in.m_id, f->in.frameNo,
          written ? "override" : "none", crop.left, crop.top, crop.width, crop.height,
          SyncHelperInspector::cropSnapshotCount(*s.helper));
    if (!SyncHelperInspector::needCropReplace(*s.helper)) {
        FUZZ_CHECK(sameOverride(before, f->halControl),
                   "crop override written although crop replacement is off");
    }
}

void opSwitchFlag(Session& s, Reader& r) {
    auto f = decodeFrame(r, /*nullable=*/false);
    int32_t flag = s.iface->getSyncSwitchFlag(f->in);
    FUZZ_CHECK(flag == 1 || flag == 2048, "switch flag %d", flag);
    TRACE("switch flag cam%d f%d -> %d", f->in.m_id, f->in.frameNo, flag);
    if (f->in.frameNo >= 0)
        FUZZ_CHECK(flag == 2048, "f%d got flag %d", f->in.frameNo, flag);
}

void opFdControl(Session& s, Reader& r) {
    IMetadata meta;
    bool passNull = (r.u8() & 3) == 0;
    if (r.u8() & 1)
        fillTag(r, meta, tags::RYX_FRAMESYNC_FD_CONTROL, ItemType::I32);
    IMetadata::IEntry entry = meta.entryFor(tags::RYX_FRAMESYNC_FD_CONTROL);
    bool expected = passNull || entry.isEmpty() || entry.itemAt<int>(0) > 0;
    FUZZ_CHECK(s.iface->isNeedFdControl(passNull ? nullptr : &meta) == expected, "isNeedFdControl");
}

void opLicense(Session& s, Reader& r) {
    FUZZ_CHECK(s.iface->reassignLicense(r.u32()), "reassignLicense false");
    FUZZ_CHECK(s.iface->hasOtherUser(static_cast<int32_t>(r.u32())), "hasOtherUser false");
}

void runOp(Session& s, Reader& r) {
    switch (r.u8() % 11) {
        case 0:
            opSyncResultCheck(s, r);
            break;
        case 1:
            opGroup(s, r);
            break;
        case 2:
            opUpdateData(s, r);
            break;
        case 3:
            opNotifyDropInput(s, r);
            break;
        case 4:
            opFlush(s, r);
            break;
        case 5:
            opDropBySensor(s, r);
            break;
        case 6:
            opSetCrop(s, r);
            break;
        case 7:
            opGetCrop(s, r);
            break;
        case 8:
            opSwitchFlag(s, r);
            break;
        case 9:
            opFdControl(s, r);
            break;
        default:
            opLicense(s, r);
            break;
    }
}

NullULogger gLogger;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    using NSCam::Utils::ULog::ULogger;
    namespace props = NSCam::Utils::Properties;
    Reader r(data, size);

    // Header: where log statements go (never to stderr: the Android channel stays off), the
    // properties read at construction, and the session's sensors.
    uint8_t logCfg = r.u8();
    static constexpr uint32_t kModes[] = {0, 2, 8, 0xA};
    ULogger::install(&gLogger);
    ULogger::sMode = kModes[logCfg & 3];
    ULogger::sDetailsLevel = (logCfg & 4) ? 5 : 2;
    ULogger::sNormalDetailsMask = (logCfg & 8) ? 0xFFFFFFFFu : 0;

    uint8_t propCfg = r.u8();
    static constexpr char const* kCropValues[] = {nullptr, "0", "1", "junk"};
    if (char const* v = kCropValues[propCfg & 3]) {
        props::setHostProperty("vendor.debug.camera.crop_replace", v);
    } else {
        props::clearHostProperty("vendor.debug.camera.crop_replace");
    }
    props::setHostProperty("vendor.debug.camera.SyncDataUpdater.log",
                           std::to_string((propCfg >> 2) & 3));
    bool allowCropReplace = (propCfg & 0x10) != 0;

    std::unordered_map<unsigned int, NSCam::CameraInfo> info;
    for (int i = r.u8() % 5; i > 0; --i) {
        NSCam::CameraInfo ci;
        unsigned int id = r.u8() % 8;
        ci.activeArrayRegion = r.rect();
        ci.focalLength = static_cast<float>(r.u16()) / 100.0f;
        info[id] = ci;
    }

    Session s;
    s.iface = ISyncHelper::createInstance(r.u16(), allowCropReplace, info);
    s.helper = dynamic_cast<SyncHelper*>(s.iface.get());
    FUZZ_CHECK(s.helper != nullptr && SyncHelperInspector::queue(*s.helper) != nullptr,
               "factory result");
    s.queue = SyncHelperInspector::queue(*s.helper);

    for (int ops = 0; ops < 256 && !r.empty(); ++ops) {
        runOp(s, r);
        FUZZ_CHECK(s.queue->liveFrameCount() == 0, "a frame stayed live on a single thread");
        FUZZ_CHECK(s.queue->arrivedSnapshot().size() <= SyncQueue::kMaxArrivedFrames,
                   "arrival record over its limit");
    }
    return 0;
}
