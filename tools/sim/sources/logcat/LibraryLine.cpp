#include "sources/logcat/LibraryLine.h"

namespace ryxsim {

// The functions that write lines of ours.
constexpr std::string_view kFunctions[] = {"SyncHelper",
                                           "~SyncHelper",
                                           "syncResultCheck",
                                           "notifyDrop",
                                           "notifyDropBySensor",
                                           "getSensorCropRegion",
                                           "setSensorCropRegion",
                                           "getSyncSwitchFlag",
                                           "onEvent",
                                           "updateData",
                                           "SyncQueue",
                                           "~SyncQueue",
                                           "enque",
                                           "addDropFrameInfo",
                                           "clearDropQueue",
                                           "dropItem",
                                           "dropItemsBySensor",
                                           "dropItemsForFlush",
                                           "dropLastItem",
                                           "isNeedDropFrame",
                                           "sequenceCheck",
                                           "updateArrivedSyncMap",
                                           "createSyncElement",
                                           "updateSyncElement",
                                           "removeItem",
                                           "operator()",
                                           "update",
                                           "TimestampSyncDataUpdater",
                                           "MasterCamSyncDataUpdater",
                                           "ActiveSyncDataUpdater",
                                           "PhysicalMetaSyncDataUpdater"};

bool isLibraryFunction(std::string_view func) {
    for (auto f : kFunctions) {
        if (f == func) {
            return true;
        }
    }
    return false;
}

// Without a tag (thread, raw, and process once its "(TAG)" is cut away), a line cut inside our
// frame: "( 14", "( 147) [" or "( 147) [upd".
bool cutFrameWithoutTag(std::string_view m) {
    if (!startsWith(m, "(") || m.find(']') != std::string_view::npos) {
        return false;
    }
    size_t i = 1;
    while (i < m.size() && (m[i] == ' ' || (m[i] >= '0' && m[i] <= '9'))) {
        ++i;
    }
    if (i == 1 || i > 6) {
        return m.size() == 1;  // "(" alone, or not the "(%4d" of a line number
    }
    std::string_view after = m.substr(i);
    if (after.empty() || after == ")" || after == ") ") {
        return true;
    }
    if (!startsWith(after, ") [")) {
        return false;
    }
    std::string_view name = after.substr(3);
    for (std::string_view f : kFunctions) {
        if (startsWith(f, name)) {
            return true;
        }
    }
    return false;
}

LineKind classify(LogLine const& l, std::string_view& func, std::string_view& rest) {
    bool framed = splitFrame(l.message, func, rest);
    bool tagged = startsWith(l.tag, kLibraryTagPrefix);
    if (!tagged && l.tag.empty() && !framed && cutFrameWithoutTag(l.message)) {
        return LineKind::Cut;
    }
    if (!tagged && !(l.tag.empty() && framed && isLibraryFunction(func))) {
        return LineKind::Other;
    }
    if (l.message.find(kLibraryTagPrefix) != std::string_view::npos) {
        return LineKind::Cut;  // the next line's header inside this one's text
    }
    if (!framed) {
        if (l.level != 'F') {
            // "(1234) [enq": a frame that never closes was cut; other text is a shape we skip.
            return startsWith(l.message, "(") ? LineKind::Cut : LineKind::Other;
        }
        rest = l.message;  // a fatal line is the message as given
    }
    return LineKind::Ours;
}

bool holdsLibraryText(std::string_view line) {
    return line.find(kLibraryTagPrefix) != std::string_view::npos;
}

std::optional<int> frameIn(std::string_view text) {
    for (std::string_view key : {"[f", "f(", "Frame:", "frameno(", ":f"}) {  // ":f": "[r3:f3]"
        for (size_t at = text.find(key); at != std::string_view::npos;
             at = text.find(key, at + 1)) {
            size_t i = at + key.size();
            int n = 0, digits = 0;
            while (i < text.size() && text[i] >= '0' && text[i] <= '9' && digits < 9) {
                n = n * 10 + (text[i++] - '0');
                ++digits;
            }
            if (digits > 0) {
                return n;
            }
        }
    }
    return std::nullopt;
}

std::optional<int> inFlightFrame(LogLine const& l, std::string_view func) {
    // The updaters' refusals are warnings and errors; the queue's lambdas log housekeeping of
    // frames long gone at debug level. (A raw line shows no level: its text tells.)
    bool refusal = l.level == 'W' || l.level == 'E' || refusalMessage(l.message);
    bool ofTheFrame = func == "syncResultCheck" || func == "enque" || func == "onEvent" ||
                      func == "update" || (func == "operator()" && refusal);
    return ofTheFrame ? frameIn(l.message) : std::nullopt;
}

}  // namespace ryxsim
