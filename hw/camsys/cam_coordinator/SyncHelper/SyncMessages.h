#pragma once
// Every message the library logs or aborts with, defined once. RYX_MSG_<NAME> is the printf
// format of the text after the "(%4d) [%s] " frame that SyncLog.h adds; the library's log calls
// name it, so a text changed here is changed in the log. RYX_SYNC_MESSAGES lists each with its
// severity and what it tells, for readers of the log: a reader that looks for a message by its
// entry sees the change too, or stops compiling when the entry goes.
//
// Severities: 'D' debug, 'I' info, 'W' warning, 'E' error, 'F' fatal (the process ends with the
// text). A message logged at two severities is two entries. The texts, typos and all, are what
// device logs have always shown: readers and people search for them.

#include <cinttypes>
#include <cstddef>

// The queue's limits, which its messages and its readers' timing rest on.
namespace NSCam::camsys::camcoordinator::synclimits {
constexpr size_t kMaxLiveFrames = 10;     // frames in flight at once: one more is fatal
constexpr size_t kMaxArrivedFrames = 20;  // the arrival record: dropping a live frame is fatal
constexpr size_t kMaxDropQueue = 21;      // drop-queue entries kept; the oldest goes first
constexpr size_t kMaxFlushFrames = 21;    // flushed frame numbers kept
}  // namespace NSCam::camsys::camcoordinator::synclimits

// The system properties the library reads, with what it takes when one is unset or not a number.
// Crop replacement: 1 or more writes the crop overrides (if the session allows them).
#define RYX_PROP_CROP_REPLACE "vendor.debug.camera.crop_replace"
#define RYX_PROP_CROP_REPLACE_DEFAULT 1
// The updaters' detail level: 1 adds the master's decisions, 2 their entry and exit lines.
#define RYX_PROP_UPDATER_LOG "vendor.debug.camera.SyncDataUpdater.log"
#define RYX_PROP_UPDATER_LOG_DEFAULT 0

// --- a session's creation and end ---
#define RYX_MSG_QUEUE_CREATED "2020/01/14 - create type (%d)"
#define RYX_MSG_UPDATER_LOG_LEVEL "SyncDataUpdater mLogLevel(%d)"
#define RYX_MSG_SENSOR_FOCAL_LENGTHS "Sensor %d LENS_INFO_AVAILABLE_FOCAL_LENGTHS: %.2f"
#define RYX_MSG_SENSOR_ACTIVE_ARRAY "Sensor %d SENSOR_INFO_ACTIVE_ARRAY_REGION: (%d, %d) %dx%d"
#define RYX_MSG_NEED_CROP_REPLACE "needCropReplace(%d)"
#define RYX_MSG_RELEASE "release"
#define RYX_MSG_SET_CALLBACK_FAILED "set callback fail"

// --- a camera's call, through the rendezvous ---
#define RYX_MSG_CHECK_ENTERED "[f%d] +"
#define RYX_MSG_QUEUE_NOTIFY "[%s][f%d] CamId = %d notify"
#define RYX_MSG_QUEUE_UNLOCK "[%s][f%d] CamId = %d unlock"
#define RYX_MSG_QUEUE_WAIT "[%s][f%d] CamId = %d wait(%d)+"
#define RYX_MSG_QUEUE_WAITED "[%s][f%d] CamId = %d wait-"
#define RYX_MSG_QUEUE_NO_WAIT "[%s][f%d] no need wait CamId = %d"
#define RYX_MSG_CHECK_DONE "m_id(%d) [f%d] sync check diff = %lf"
#define RYX_MSG_ARRIVAL_PRUNED "Remove frame: %d in mArrivedSyncMap"
#define RYX_MSG_QUEUE_SIZES "mSyncTarget.size(%lu), mArrivedSyncMap.size(%d)"

// --- the updaters ---
#define RYX_MSG_UPDATERS_RUN "[r%d:f%d] type(%d) process type(%d)"
#define RYX_MSG_UPDATER_ENTER "+"
#define RYX_MSG_UPDATER_LEAVE "-"
#define RYX_MSG_SINGLE_CAMERA "single cam frame, ignore"
#define RYX_MSG_TIMESTAMP_MISSING "Timestamp not exist! Check flow!"
#define RYX_MSG_INPUT_NULL "SyncResultInputParams is null"
// One piece per compared camera, unseparated, with the verdict so far.
#define RYX_MSG_COMPARISON                                                                         \
    "[r%d:f%d], CamId=%d, time1=%" PRId64 "ns, SyncId=%d, time2=%" PRId64 "ns, tolerance=%" PRId64 \
    "us, syncOK=%d"
#define RYX_MSG_COMPARISONS "%s"
#define RYX_MSG_MASTER_DEFAULT "RYX_DUALZOOM_REAL_MASTER not found, use cam%d"
#define RYX_MSG_MASTER_IS "masterId(%d)"
#define RYX_MSG_SLAVE_WITHOUT_MASTER_TS "slave meta doesnt hav master TS, TS will update by master"
#define RYX_MSG_SLAVE_NOT_MASTER "slave sensor(%d), set bMasterCam false"
#define RYX_MSG_SOF_MISSING "[cam%d::f%d] Fail to get sofTimeStamp"
#define RYX_MSG_EXPOSURE_MISSING "[cam%d::f%d] Fail to get expTimeStamp"
#define RYX_MSG_NO_TIMES_DROP "cant get TS, drop this frame(%d)"
#define RYX_MSG_MASTER_TIMES "master(%d): sofTime(%lu), shutterTs(%lu)"
#define RYX_MSG_INTENT_MISSING "Fail to get sensor(%d) f(%d) CAPTURE_INTENT from app meta."
#define RYX_MSG_MASTER_CAPTURE "Get master(%d) isCapture(%d)"
#define RYX_MSG_FRAME_INVERSION "masterId(%d), f(%d) frame inversion:previous master(%d), f(%d)"
#define RYX_MSG_TIME_INVERSION                                                             \
    "time inversion, drop directly, change masterId(%d), f(%d), shutterTs(%lu), previous " \
    "shutterTs(%lu)"
#define RYX_MSG_MASTER_SET "master id(%d) f(%d)"

// --- drops and flushes ---
#define RYX_MSG_DROP_NO_SYNC_ID "There is no RYX_FRAMESYNC_ID when P1 call dropframe"
#define RYX_MSG_MASTER_NOT_FOUND "RYX_DUALZOOM_REAL_MASTER not found"
#define RYX_MSG_SLAVE_DROP "Frame:%d Drop slave cam(%d), isLastItem(%d)!"
#define RYX_MSG_MASTER_DROP_LIST "Frame:%d Update cameraDropList[%s] to DropQueue "
#define RYX_MSG_REFUSAL_DROP_LIST "Frame:%d Update cameraDropList[%s] to DropQueue."
#define RYX_MSG_DROP_ALREADY_QUEUED "Frame:%d already in DropQueue. Skip Add."
#define RYX_MSG_DROP_INVALID "Invalid frame (%d) or CamId[%d]"
#define RYX_MSG_DROP_DUPLICATE "already has same frame %d Cam[%d] in DropQueue, pass append"
#define RYX_MSG_MASTER_DROP_QUEUED "Remove frame(%d) from Queue because it should be drop"
#define RYX_MSG_DROP_QUEUE_PRUNED "target Prune frame: %d in DropQueue"
#define RYX_MSG_DROP_QUEUE_CLEARED "All cam's frameno: %d has delete from DropQueue"
#define RYX_MSG_NEED_DROP "need drop frame(%d)"
#define RYX_MSG_EQUAL_TO_DROP "cam[%d] frame(%d) is equal to DROP cam[%d] target(%d), remove"
#define RYX_MSG_TARGET_DROPPING "target(%d) is equal to dropping frame(%d), remove"
#define RYX_MSG_DROP_NOTIFY "[f%d] notify"
#define RYX_MSG_DROP_UNLOCK "[f%d] unlock"
#define RYX_MSG_RETIRE_UNLOCK "[r%d:f%d] unlock"
#define RYX_MSG_SENSOR_LEFT "[S:%d] list : %s"

// --- controls and crops ---
#define RYX_MSG_NO_CONTROL "sensorId(%d) frameNo(%d) NO_CTRL"
#define RYX_MSG_CONTROL "sensorId(%d) frameNo(%d) bNeedSync(%d) res(%d)"
#define RYX_MSG_CROP_OVERRIDE "[%d] souReq: %d, crop override: (%d, %d, %dx%d)"

// --- a caller's bad input ---
#define RYX_MSG_QUEUE_NULL "mSyncQueue_ResultCheck is nullptr"
#define RYX_MSG_CONTROL_NULL "input.HalControl is nullptr"
#define RYX_MSG_OUTPUT_NULL "output is nullptr"
#define RYX_MSG_DYNAMIC_NULL "output->HalDynamic(%p) or output->AppDynamic(%p) is nullptr"
#define RYX_MSG_ELEMENT_NULL "[%d] syncElement is nullptr"

// --- broken call flows: fatal ---
#define RYX_MSG_INVALID_OPERATION "Invalid operation."
#define RYX_MSG_CHECK_FLOW "please check flow"
#define RYX_MSG_DUPLICATE_INPUT "(input) Duplicate insert! frameno(%d) input cam(%d)"
#define RYX_MSG_DUPLICATE_OUTPUT "(output) Duplicate insert! frameno(%d) input cam(%d)"
#define RYX_MSG_NOT_A_TARGET "camid is NOT exist in sync target"
#define RYX_MSG_ELEMENT_NOT_NULL "SyncElement should be NULL"

// X(name, severity, format, meaning)
#define RYX_SYNC_MESSAGES(X)                                                                      \
    X(QueueCreated, 'D', RYX_MSG_QUEUE_CREATED, "a helper is created: a new session")             \
    X(UpdaterLogLevel, 'D', RYX_MSG_UPDATER_LOG_LEVEL, "the timestamp updater's detail level")    \
    X(SensorFocalLengths, 'D', RYX_MSG_SENSOR_FOCAL_LENGTHS, "a sensor of the session")           \
    X(SensorActiveArray, 'D', RYX_MSG_SENSOR_ACTIVE_ARRAY, "a sensor's active array")             \
    X(NeedCropReplace, 'I', RYX_MSG_NEED_CROP_REPLACE, "the helper's creation ends")              \
    X(Release, 'D', RYX_MSG_RELEASE, "the helper is destroyed: the session ends")                 \
    X(SetCallbackFailed, 'E', RYX_MSG_SET_CALLBACK_FAILED, "the queue got no live callback")      \
    X(CheckEntered, 'D', RYX_MSG_CHECK_ENTERED, "a camera's call for a frame starts")             \
    X(QueueNotify, 'D', RYX_MSG_QUEUE_NOTIFY, "the frame's last camera came: updaters run")       \
    X(QueueUnlock, 'D', RYX_MSG_QUEUE_UNLOCK, "the last camera releases the others")              \
    X(QueueWait, 'D', RYX_MSG_QUEUE_WAIT, "a camera waits for the frame's others")                \
    X(QueueWaited, 'D', RYX_MSG_QUEUE_WAITED, "a waiting camera is released")                     \
    X(QueueNoWait, 'D', RYX_MSG_QUEUE_NO_WAIT, "the frame was done before the camera waited")     \
    X(CheckDone, 'D', RYX_MSG_CHECK_DONE, "the frame's master completes its call")                \
    X(ArrivalPruned, 'D', RYX_MSG_ARRIVAL_PRUNED, "the oldest frame leaves the arrival record")   \
    X(QueueSizes, 'D', RYX_MSG_QUEUE_SIZES, "the queue's sizes")                                  \
    X(UpdatersRun, 'D', RYX_MSG_UPDATERS_RUN, "updaters run: type 0 ready, 1 dropped while live") \
    X(UpdaterEnter, 'D', RYX_MSG_UPDATER_ENTER, "an updater starts (detail level 2)")             \
    X(UpdaterLeave, 'D', RYX_MSG_UPDATER_LEAVE, "an updater ends (detail level 2)")               \
    X(SingleCamera, 'D', RYX_MSG_SINGLE_CAMERA, "a frame of one camera is not compared")          \
    X(TimestampMissing, 'W', RYX_MSG_TIMESTAMP_MISSING, "a start of frame is 0: no verdict")      \
    X(InputNull, 'E', RYX_MSG_INPUT_NULL, "the first camera's input is missing")                  \
    X(Comparison, '-', RYX_MSG_COMPARISON, "one compared camera: a piece of the line below")      \
    X(ComparisonsInSync, 'D', RYX_MSG_COMPARISONS, "the frame's comparisons: in sync")            \
    X(ComparisonsOutOfSync, 'W', RYX_MSG_COMPARISONS, "the frame's comparisons: out of sync")     \
    X(MasterDefault, 'D', RYX_MSG_MASTER_DEFAULT, "no master in the metadata: the first camera")  \
    X(MasterIs, 'D', RYX_MSG_MASTER_IS, "the master the metadata names")                          \
    X(SlaveWithoutMasterTs, 'D', RYX_MSG_SLAVE_WITHOUT_MASTER_TS,                                 \
      "the master is not in the frame")                                                           \
    X(SlaveNotMaster, 'D', RYX_MSG_SLAVE_NOT_MASTER, "a camera is told it is no master")          \
    X(SofMissing, 'E', RYX_MSG_SOF_MISSING, "the master's start of frame is 0: refused")          \
    X(ExposureMissing, 'E', RYX_MSG_EXPOSURE_MISSING, "the master's exposure time is 0: refused") \
    X(NoTimesDrop, 'D', RYX_MSG_NO_TIMES_DROP, "the frame is refused for a missing time")         \
    X(MasterTimes, 'D', RYX_MSG_MASTER_TIMES, "the master's times")                               \
    X(IntentMissing, 'E', RYX_MSG_INTENT_MISSING, "a late frame's capture intent is missing")     \
    X(MasterCapture, 'D', RYX_MSG_MASTER_CAPTURE, "whether a late frame is a still capture")      \
    X(FrameInversion, 'W', RYX_MSG_FRAME_INVERSION, "a frame older than one seen: refused")       \
    X(TimeInversion, 'W', RYX_MSG_TIME_INVERSION, "the shutter went back in time: refused")       \
    X(MasterSet, 'D', RYX_MSG_MASTER_SET, "the frame's master is written")                        \
    X(DropNoSyncId, 'D', RYX_MSG_DROP_NO_SYNC_ID, "a drop without sync ids: nothing to do")       \
    X(MasterNotFound, 'W', RYX_MSG_MASTER_NOT_FOUND, "a drop without a master in the metadata")   \
    X(SlaveDrop, 'D', RYX_MSG_SLAVE_DROP, "a camera that is no master dropped its own frame")     \
    X(MasterDropList, 'D', RYX_MSG_MASTER_DROP_LIST, "the master's drop: the cameras it drops")   \
    X(RefusalDropList, 'D', RYX_MSG_REFUSAL_DROP_LIST, "a refusal: the cameras it drops")         \
    X(DropAlreadyQueued, 'D', RYX_MSG_DROP_ALREADY_QUEUED, "a refusal of a frame queued already") \
    X(DropInvalid, 'E', RYX_MSG_DROP_INVALID, "a drop names no frame or camera")                  \
    X(DropDuplicate, 'D', RYX_MSG_DROP_DUPLICATE, "a second master drop of a frame")              \
    X(MasterDropQueued, 'D', RYX_MSG_MASTER_DROP_QUEUED, "the master's drop enters the queue")    \
    X(DropQueuePruned, 'D', RYX_MSG_DROP_QUEUE_PRUNED, "the drop queue's oldest entry goes")      \
    X(DropQueueCleared, 'D', RYX_MSG_DROP_QUEUE_CLEARED, "every camera took its drop")            \
    X(NeedDrop, 'D', RYX_MSG_NEED_DROP, "a camera finds its frame dropped on its way out")        \
    X(EqualToDrop, 'D', RYX_MSG_EQUAL_TO_DROP, "a camera arrives in a frame it must drop")        \
    X(TargetDropping, 'D', RYX_MSG_TARGET_DROPPING, "the arriving frame is the dropped one")      \
    X(DropNotifyInfo, 'I', RYX_MSG_DROP_NOTIFY, "the queue is cleared: a frame's updaters run")   \
    X(DropNotify, 'D', RYX_MSG_DROP_NOTIFY, "a live frame is dropped: its updaters run")          \
    X(DropUnlock, 'D', RYX_MSG_DROP_UNLOCK, "the dropped frame's waiting cameras are released")   \
    X(RetireUnlock, 'D', RYX_MSG_RETIRE_UNLOCK, "the queue is cleared: a frame's cameras go")     \
    X(SensorLeft, 'D', RYX_MSG_SENSOR_LEFT, "a sensor left: the frames it drops")                 \
    X(NoControl, 'D', RYX_MSG_NO_CONTROL, "a frame without controls")                             \
    X(Control, 'D', RYX_MSG_CONTROL, "a frame's controls")                                        \
    X(CropOverride, 'D', RYX_MSG_CROP_OVERRIDE, "the crop written for a frame")                   \
    X(QueueNull, 'E', RYX_MSG_QUEUE_NULL, "the helper has no queue")                              \
    X(ControlNull, 'E', RYX_MSG_CONTROL_NULL, "a call without controls")                          \
    X(OutputNull, 'E', RYX_MSG_OUTPUT_NULL, "a call without output")                              \
    X(DynamicNull, 'E', RYX_MSG_DYNAMIC_NULL, "a call without result metadata")                   \
    X(ElementNull, 'E', RYX_MSG_ELEMENT_NULL, "a frame's element is missing")                     \
    X(InvalidOperation, 'F', RYX_MSG_INVALID_OPERATION, "a frame with no sync target")            \
    X(CheckFlow, 'F', RYX_MSG_CHECK_FLOW, "more than ten frames in flight")                       \
    X(DuplicateInput, 'F', RYX_MSG_DUPLICATE_INPUT, "a camera called twice for one frame")        \
    X(DuplicateOutput, 'F', RYX_MSG_DUPLICATE_OUTPUT, "a camera's output came twice")             \
    X(NotATarget, 'F', RYX_MSG_NOT_A_TARGET, "a camera not among the frame's sync ids")           \
    X(ElementNotNull, 'F', RYX_MSG_ELEMENT_NOT_NULL, "the oldest arrival pruned while in flight")

// The names of the library's system-trace points (TracedSyncHelper.h). A call is a section, a
// point in time a mark (a section that ends where it begins), under the camera tag.
#define RYX_TRACE_SESSION "RyxSync session %lu cameras %s"
#define RYX_TRACE_SESSION_END "RyxSync session %lu end"
#define RYX_TRACE_CALL "RyxSync f%d cam%d"
#define RYX_TRACE_DROP_CALL "RyxSync drop f%d cam%d"
// At the end of a call: its verdict words, its start of frame and what its controls asked for,
// as the pieces below, then RYX_TRACE_MASTER_PIECE when the call was the master's.
#define RYX_TRACE_VERDICT "RyxSync f%d cam%d %s; sof %" PRId64 "%s"
#define RYX_TRACE_TOLERANCE_PIECE "; tolerance %" PRId64 " us"
#define RYX_TRACE_MODE_PIECE "; mode %d"
// The rest of what the call's controls held, so that a trace can be replayed call for call:
// its exposure time, the master it asked for, its sync ids (blank-separated), the required tag,
// the enable flag, the capture intent, the master-slave list, and its request when not its frame.
#define RYX_TRACE_EXPOSURE_PIECE "; exp %" PRId64
#define RYX_TRACE_ASKED_MASTER_PIECE "; asks master %d"
#define RYX_TRACE_SYNC_IDS_PIECE "; ids %s"
#define RYX_TRACE_REQUIRED_PIECE "; required"
#define RYX_TRACE_ENABLE_PIECE "; enable %d"
#define RYX_TRACE_INTENT_PIECE "; intent %d"
#define RYX_TRACE_MS_LIST_PIECE "; ms %s"
#define RYX_TRACE_REQUEST_PIECE "; request %d"
#define RYX_TRACE_MASTER_PIECE "; master"
#define RYX_TRACE_PASSED "passed"
#define RYX_TRACE_UNCHECKED "passed, not checked"
#define RYX_TRACE_RESULT_1 "out of sync, RESULT 1"
#define RYX_TRACE_RESULT_2 "out of sync, RESULT 2"
#define RYX_TRACE_DROPPED "dropped"
#define RYX_TRACE_OWN_DROP "dropped by its sensor"
#define RYX_TRACE_FLUSH "RyxSync flush f%d"
#define RYX_TRACE_MASTER_DROP "RyxSync master drop f%d cam%d"
#define RYX_TRACE_LEAVE "RyxSync leave cam%d"
// Every name starts so. A warning, error or fatal message is a mark of the prefix, its severity
// ('W', 'E', 'F'), a space and the log's text after its frame (SyncLog.h).
#define RYX_TRACE_PREFIX "RyxSync "
// Counters: the master camera, and start of frame of b minus that of a, in microseconds.
#define RYX_TRACE_MASTER_COUNTER "RyxSync master"
#define RYX_TRACE_SOF_COUNTER "RyxSync sof cam%d-cam%d us"
