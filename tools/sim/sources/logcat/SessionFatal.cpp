// A fatal line: the rule the call flow broke, in plain words.
#include "sources/logcat/LibraryLine.h"
#include "sources/logcat/SessionBuilder.h"

#include <algorithm>

namespace ryxsim {

// "please check flow": an 11th frame entered while ten waited; which camera held them up.
std::string SessionBuilder::fatalInFlight(int frame) {
    std::vector<int> waiting(mLive.begin(), mLive.end());
    waiting.erase(std::remove(waiting.begin(), waiting.end(), frame), waiting.end());
    std::string held;
    if (!waiting.empty()) {
        FrameRecord const& oldest = work(waiting.front());
        std::vector<int> missing;
        for (int id :
             mLastTargets.empty() ? std::vector<int>(mCams.begin(), mCams.end()) : mLastTargets) {
            if (oldest.cell(id) == nullptr) {
                missing.push_back(id);
            }
        }
        held = " while frames " + std::to_string(waiting.front()) + "-" +
               std::to_string(waiting.back()) + " waited";
        for (size_t i = 0; i < missing.size(); ++i) {
            held += (i ? ", " : " for camera ") + std::to_string(missing[i]);
        }
    }
    return "an 11th frame" + (frame >= 0 ? " (f" + std::to_string(frame) + ")" : "") +
           " was put in flight" + held;
}

std::string fatalRule(std::string_view message) {
    std::string msg(message);
    int f = 0, c = 0;
    if (readPrefix(msg, RYX_MSG_DUPLICATE_INPUT, &f, &c) ||
        readPrefix(msg, RYX_MSG_DUPLICATE_OUTPUT, &f, &c)) {
        return "camera " + std::to_string(c) + " entered frame " + std::to_string(f) + " twice";
    }
    if (startsWith(msg, RYX_MSG_CHECK_FLOW)) {
        return "an 11th frame was put in flight while ten waited";
    }
    if (startsWith(msg, RYX_MSG_NOT_A_TARGET)) {
        return "a camera called for a frame whose sync targets do not include it";
    }
    if (startsWith(msg, RYX_MSG_ELEMENT_NOT_NULL)) {
        return "a frame fell out of the " + std::to_string(kArrivalRecord) +
               "-frame arrival record while it still waited";
    }
    if (startsWith(msg, RYX_MSG_INVALID_OPERATION)) {
        return "an updater was given a frame with no sync targets";
    }
    size_t suffix = msg.find(" (");
    return "the library stopped the process: " +
           (suffix == std::string::npos ? msg : msg.substr(0, suffix));
}

bool isLibraryAbort(std::string_view message) {
    size_t at = message.rfind("){#");
    return at != std::string_view::npos &&
           message.find("/SyncHelper/", at) != std::string_view::npos;
}

void SessionBuilder::fatal(LogLine const& l, std::string_view text) {
    if (!t.fatal.empty()) {
        return;
    }
    std::string msg(text);
    t.fatalText = msg;
    std::string cam = camOf(l.tid) ? "camera " + std::to_string(*camOf(l.tid)) : "a camera";
    // Without thread ids, the call that broke the rule is taken as the latest to enter.
    int frame = mCalls.count(l.tid) ? mCalls[l.tid].frame : l.tid < 0 ? mLastEntry : -1;
    if (startsWith(msg, RYX_MSG_CHECK_FLOW)) {
        t.fatal = fatalInFlight(frame);
    } else if (startsWith(msg, RYX_MSG_NOT_A_TARGET)) {
        t.fatal = cam + " called for frame " + std::to_string(frame) +
                  ", whose sync targets do not include it";
    } else if (startsWith(msg, RYX_MSG_ELEMENT_NOT_NULL)) {
        int pruned = mPruned.count(l.tid) ? mPruned[l.tid] : -1;
        t.fatal = "frame " + std::to_string(pruned) + " fell out of the " +
                  std::to_string(kArrivalRecord) + "-frame arrival record while it still waited";
    } else {
        t.fatal = fatalRule(msg);
    }
}

}  // namespace ryxsim
