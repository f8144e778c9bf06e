#include "TracedSyncHelper.h"

#include "MetaRead.h"
#include "SyncMessages.h"
#include "SyncMetaTags.h"
#include "SyncTrace.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

std::shared_ptr<ISyncHelper> makeTracedSyncHelper(
    unsigned long sessionKey, bool allowCropReplace,
    std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo) {
    return std::make_shared<TracedSyncHelper>(sessionKey, allowCropReplace, cameraInfo);
}

namespace {

template <typename T>
std::optional<T> readEntry(NSCam::IMetadata const* metadata, NSCam::IMetadata::Tag_t tag) {
    T value{};
    if (metadata != nullptr && NSCam::IMetadata::getEntry<T>(metadata, tag, value)) {
        return value;
    }
    return std::nullopt;
}

char const* verdictWords(bool verdict, std::optional<int64_t> result) {
    if (verdict) {
        return !result                                 ? RYX_TRACE_UNCHECKED
               : *result == FRAMESYNC_RESULT_FAIL_PASS ? RYX_TRACE_RESULT_1
                                                       : RYX_TRACE_PASSED;
    }
    return result == FRAMESYNC_RESULT_FAIL_DROP ? RYX_TRACE_RESULT_2 : RYX_TRACE_DROPPED;
}

template <typename T>
void appendPiece(std::string& extra, char const* format, T value) {
    char piece[48];
    std::snprintf(piece, sizeof piece, format, value);
    extra += piece;
}

void appendListPiece(std::string& extra, char const* format, NSCam::IMetadata const* metadata,
                     NSCam::IMetadata::Tag_t tag) {
    if (metadata == nullptr || metadata->entryFor(tag).isEmpty()) {
        return;
    }
    std::vector<int32_t> items;
    appendItems(metadata, tag, items);
    std::string list;
    for (int32_t item : items) {
        list += (list.empty() ? "" : " ") + std::to_string(item);
    }
    std::vector<char> piece(list.size() + 16);
    std::snprintf(piece.data(), piece.size(), format, list.c_str());
    extra += piece.data();
}

// Everything the call's controls held that its verdict depends on, so that a trace can be
// replayed call for call.
std::string controlPieces(SyncResultInputParams const& input) {
    std::string extra;
    NSCam::IMetadata const* hal = input.HalControl;
    if (auto tolerance = readEntry<int64_t>(hal, RYX_FRAMESYNC_TOLERANCE)) {
        appendPiece(extra, RYX_TRACE_TOLERANCE_PIECE, *tolerance);
    }
    if (auto mode = readEntry<int32_t>(hal, RYX_FRAMESYNC_MODE)) {
        appendPiece(extra, RYX_TRACE_MODE_PIECE, static_cast<int>(*mode));
    }
    appendPiece(extra, RYX_TRACE_EXPOSURE_PIECE, static_cast<int64_t>(input.expTimeStamp));
    if (auto asked = readEntry<int32_t>(hal, RYX_DUALZOOM_REAL_MASTER)) {
        appendPiece(extra, RYX_TRACE_ASKED_MASTER_PIECE, static_cast<int>(*asked));
    }
    appendListPiece(extra, RYX_TRACE_SYNC_IDS_PIECE, hal, RYX_FRAMESYNC_ID);
    if (hal != nullptr && !hal->entryFor(RYX_FRAMESYNC_REQUIRED).isEmpty()) {
        extra += RYX_TRACE_REQUIRED_PIECE;
    }
    if (auto enable = readEntry<int32_t>(hal, RYX_FRAMESYNC_ENABLE)) {
        appendPiece(extra, RYX_TRACE_ENABLE_PIECE, static_cast<int>(*enable));
    }
    if (auto intent = readEntry<uint8_t>(input.AppControl, CAPTURE_INTENT)) {
        appendPiece(extra, RYX_TRACE_INTENT_PIECE, static_cast<int>(*intent));
    }
    appendListPiece(extra, RYX_TRACE_MS_LIST_PIECE, hal, RYX_MW_MASTER_SLAVE_LIST);
    if (input.requestNo != input.frameNo) {
        appendPiece(extra, RYX_TRACE_REQUEST_PIECE, input.requestNo);
    }
    return extra;
}

// "RyxSync f12 cam2 passed; sof 1000; tolerance 1000 us; mode 0; exp 990; ids 0; master"
void markVerdict(SyncResultInputParams const& input, char const* words, bool master) {
    std::string extra = controlPieces(input);
    if (master) {
        extra += RYX_TRACE_MASTER_PIECE;
    }
    synctrace::markf(RYX_TRACE_VERDICT, input.frameNo, input.m_id, words,
                     static_cast<int64_t>(input.sofTimeStamp), extra.c_str());
}

}  // namespace

TracedSyncHelper::TracedSyncHelper(
    unsigned long sessionKey, bool allowCropReplace,
    std::unordered_map<unsigned int, NSCam::CameraInfo> const& cameraInfo)
    : SyncHelper(sessionKey, allowCropReplace, cameraInfo), mKey(sessionKey) {
    if (!synctrace::on()) {
        return;
    }
    std::vector<unsigned int> ids;
    for (auto const& entry : cameraInfo) {
        ids.push_back(entry.first);
    }
    std::sort(ids.begin(), ids.end());
    std::string list;
    for (unsigned int id : ids) {
        list += (list.empty() ? "" : ",") + std::to_string(id);
    }
    synctrace::markf(RYX_TRACE_SESSION, mKey, list.c_str());
}

TracedSyncHelper::~TracedSyncHelper() {
    if (synctrace::on()) {
        synctrace::markf(RYX_TRACE_SESSION_END, mKey);
    }
}

bool TracedSyncHelper::syncResultCheck(SyncResultInputParams const& input,
                                       SyncResultOutputParams* output) {
    if (!synctrace::on()) {
        return SyncHelper::syncResultCheck(input, output);
    }
    return tracedCheck(input, output);
}

bool TracedSyncHelper::tracedCheck(SyncResultInputParams const& input,
                                   SyncResultOutputParams* output) {
    char name[64];
    std::snprintf(name, sizeof name, RYX_TRACE_CALL, input.frameNo, input.m_id);
    synctrace::begin(name);
    if (input.sofTimeStamp != 0) {
        countSofDifferences(input.frameNo, input.m_id, static_cast<int64_t>(input.sofTimeStamp));
    }
    bool verdict = SyncHelper::syncResultCheck(input, output);
    std::optional<int64_t> result;
    bool master = false;
    if (output != nullptr) {
        result = readEntry<int64_t>(output->HalDynamic, RYX_FRAMESYNC_RESULT);
        master = output->bMasterCam;
    }
    markVerdict(input, verdictWords(verdict, result), master);
    if (master) {
        synctrace::counter(RYX_TRACE_MASTER_COUNTER, input.m_id);
    }
    synctrace::end();
    return verdict;
}

bool TracedSyncHelper::notifyDrop(SyncResultInputParams const& input) {
    if (!synctrace::on()) {
        return SyncHelper::notifyDrop(input);
    }
    char name[64];
    std::snprintf(name, sizeof name, RYX_TRACE_DROP_CALL, input.frameNo, input.m_id);
    synctrace::begin(name);
    // The same test as the drop itself: the master's drop, of a frame with sync ids.
    auto master = readEntry<int32_t>(input.HalControl, RYX_DUALZOOM_REAL_MASTER);
    bool hasIds =
        input.HalControl != nullptr && !input.HalControl->entryFor(RYX_FRAMESYNC_ID).isEmpty();
    if (hasIds && master == input.m_id) {
        synctrace::markf(RYX_TRACE_MASTER_DROP, input.frameNo, input.m_id);
    }
    bool result = SyncHelper::notifyDrop(input);
    markVerdict(input, RYX_TRACE_OWN_DROP, false);
    synctrace::end();
    return result;
}

bool TracedSyncHelper::notifyDrop(int const& frameNo, int const& unused) {
    if (synctrace::on()) {
        synctrace::markf(RYX_TRACE_FLUSH, frameNo);
    }
    return SyncHelper::notifyDrop(frameNo, unused);
}

bool TracedSyncHelper::notifyDropBySensor(int sensorId) {
    if (synctrace::on()) {
        synctrace::markf(RYX_TRACE_LEAVE, sensorId);
    }
    return SyncHelper::notifyDropBySensor(sensorId);
}

void TracedSyncHelper::countSofDifferences(int frameNo, int cameraId, int64_t sofNs) {
    if (cameraId < 0 || cameraId >= kCameras) {
        return;
    }
    struct Pair {
        int a, b;
        int64_t us;
    };
    std::array<Pair, kCameras> pairs{};
    size_t count = 0;
    {
        MutexLock lock(mSofLock);
        SofSlot& slot =
            mSof[static_cast<size_t>((frameNo % kFrameSlots + kFrameSlots) % kFrameSlots)];
        if (slot.frame != frameNo) {
            slot.frame = frameNo;
            slot.sofNs.fill(0);
        }
        slot.sofNs[static_cast<size_t>(cameraId)] = sofNs;
        for (int other = 0; other < kCameras; ++other) {
            int64_t otherNs = slot.sofNs[static_cast<size_t>(other)];
            if (other == cameraId || otherNs == 0) {
                continue;
            }
            int a = std::min(other, cameraId), b = std::max(other, cameraId);
            int64_t diff = (a == cameraId ? otherNs - sofNs : sofNs - otherNs) / 1000;
            pairs[count++] = {a, b, diff};
        }
    }
    for (size_t i = 0; i < count; ++i) {
        char name[48];
        std::snprintf(name, sizeof name, RYX_TRACE_SOF_COUNTER, pairs[i].a, pairs[i].b);
        synctrace::counter(name, pairs[i].us);
    }
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
