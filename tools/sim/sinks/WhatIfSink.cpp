#include "sinks/WhatIfSink.h"

#include "model/Words.h"

#include <ostream>

namespace ryxsim {

namespace {

std::string outcome(Verdict v, DropCause cause) {
    std::string words = verdictName(v);
    return cause == DropCause::None ? words : words + " (" + dropCauseName(cause) + ")";
}

std::string offsetWords(Timeline const& t, VerdictChange const& c, char const* relation) {
    if (!c.spreadUs || !c.toleranceUs || !c.firstTarget) {
        return "";
    }
    return ": the frame's starts of frame lie at most " + std::to_string(*c.spreadUs) +
           " us from " + t.label(*c.firstTarget) + "'s (" +
           std::to_string(c.comparedMs.value_or(0)) + " ms as the library compares), " + relation +
           " the tolerance of " + std::to_string(*c.toleranceUs) + " us";
}

bool outOfSync(Verdict v) {
    return v == Verdict::OutOfSync1 || v == Verdict::OutOfSync2 || v == Verdict::OutOfSync;
}

// Why the frame came out as it did after, in the words of what decides it.
std::string why(Timeline const& t, VerdictChange const& c) {
    if (c.after == Verdict::InSync) {
        return offsetWords(t, c, "within");
    }
    if (outOfSync(c.after) && !outOfSync(c.before)) {
        return offsetWords(t, c, "beyond");
    }
    if (c.after == Verdict::OutOfSync2) {
        return ": mode 1 fails an out-of-sync frame";
    }
    if (c.after == Verdict::OutOfSync1) {
        return ": mode 0 delivers an out-of-sync frame flagged";
    }
    if (c.after == Verdict::Unchecked) {
        return ": not checked (sync off, or the camera alone in its frame)";
    }
    if (c.causeAfter == DropCause::Refused && c.refusalAfter != Refusal::None) {
        return std::string(": refused by the master's updater, ") + refusalName(c.refusalAfter);
    }
    if (c.after == Verdict::Blocked) {
        return ": its call never returned";
    }
    return "";
}

}  // namespace

std::string changeLine(Timeline const& t, VerdictChange const& c) {
    return outcome(c.before, c.causeBefore) + " → " + outcome(c.after, c.causeAfter) + why(t, c);
}

namespace {

// Per camera in the text report; the JSON report lists them all.
constexpr size_t kListedChanges = 30;

void writeChanges(std::ostream& out, Timeline const& t, std::vector<VerdictChange> const& list) {
    std::map<int, std::vector<VerdictChange const*>> bySensor;
    for (auto const& c : list) {
        bySensor[c.sensor].push_back(&c);
    }
    for (auto const& [sensor, changes] : bySensor) {
        out << "  " << t.label(sensor) << ": "
            << plural(static_cast<long long>(changes.size()), "frame", "frames") << "\n";
        for (size_t i = 0; i < changes.size() && i < kListedChanges; ++i) {
            out << "    f" << changes[i]->frame << "  " << changeLine(t, *changes[i]) << "\n";
        }
        if (changes.size() > kListedChanges) {
            out << "    ... and " << changes.size() - kListedChanges
                << " more (the JSON report lists every one)\n";
        }
    }
}

void writeCounts(std::ostream& out, Timeline const& t, WhatIfFacts const& w) {
    out << "  verdicts, before → after:\n";
    std::set<int> sensors;
    for (auto const& counts : {w.countsBefore, w.countsAfter}) {
        for (auto const& [sensor, byVerdict] : counts) {
            sensors.insert(sensor);
        }
    }
    auto count = [](VerdictCounts const& c, int sensor, Verdict v) {
        auto s = c.find(sensor);
        if (s == c.end()) {
            return 0;
        }
        auto it = s->second.find(v);
        return it == s->second.end() ? 0 : it->second;
    };
    for (int sensor : sensors) {
        std::string line;
        for (int v = 0; v <= static_cast<int>(Verdict::Undetermined); ++v) {
            int before = count(w.countsBefore, sensor, Verdict(v));
            int after = count(w.countsAfter, sensor, Verdict(v));
            if (before != 0 || after != 0) {
                line += (line.empty() ? "" : ", ") + std::string(verdictName(Verdict(v))) + " " +
                        std::to_string(before) + " → " + std::to_string(after);
            }
        }
        out << "    " << t.label(sensor) << ": " << line << "\n";
    }
}

}  // namespace

void writeWhatIfText(std::ostream& out, Timeline const& t) {
    if (!t.whatIf) {
        return;
    }
    WhatIfFacts const& w = *t.whatIf;
    std::string settings;
    for (auto const& s : w.settings) {
        settings += (settings.empty() ? "" : ", ") + s;
    }
    out << "\nwhat if " << (settings.empty() ? "nothing changed" : settings) << " (against "
        << w.before << ")\n";
    if (w.changes.empty()) {
        out << "  no frame's verdict changes\n";
    }
    writeChanges(out, t, w.changes);
    writeCounts(out, t, w);
    if (w.undeterminedBefore > 0) {
        out << "  " << plural(w.undeterminedBefore, "cell", "cells")
            << " the capture cannot tell are left out of the comparison\n";
    }
    if (!w.timing.empty()) {
        out << "  replayed without changes, these already come out otherwise (thread timing: a "
               "drop that raced a wait, or a spread that straddles the tolerance):\n";
        writeChanges(out, t, w.timing);
    }
}

namespace {

nlohmann::json changesJson(Timeline const& t, std::vector<VerdictChange> const& list) {
    nlohmann::json a = nlohmann::json::array();
    for (auto const& c : list) {
        a.push_back({{"frame", c.frame},
                     {"sensor", c.sensor},
                     {"before", verdictName(c.before)},
                     {"before_cause", c.causeBefore == DropCause::None
                                          ? nlohmann::json(nullptr)
                                          : nlohmann::json(dropCauseName(c.causeBefore))},
                     {"after", verdictName(c.after)},
                     {"after_cause", c.causeAfter == DropCause::None
                                         ? nlohmann::json(nullptr)
                                         : nlohmann::json(dropCauseName(c.causeAfter))},
                     {"why", changeLine(t, c)}});
    }
    return a;
}

nlohmann::json countsJson(VerdictCounts const& counts) {
    nlohmann::json j = nlohmann::json::object();
    for (auto const& [sensor, byVerdict] : counts) {
        nlohmann::json s = nlohmann::json::object();
        for (auto const& [v, n] : byVerdict) {
            s[verdictName(v)] = n;
        }
        j[std::to_string(sensor)] = s;
    }
    return j;
}

}  // namespace

nlohmann::json whatIfJson(Timeline const& t) {
    if (!t.whatIf) {
        return nullptr;
    }
    WhatIfFacts const& w = *t.whatIf;
    return {{"settings", w.settings},
            {"against", w.before},
            {"changes", changesJson(t, w.changes)},
            {"verdicts_before", countsJson(w.countsBefore)},
            {"verdicts_after", countsJson(w.countsAfter)},
            {"undetermined_before", w.undeterminedBefore},
            {"timing", changesJson(t, w.timing)}};
}

}  // namespace ryxsim
