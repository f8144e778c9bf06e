#include "TruthJudge.h"

#include "SeenCell.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <set>
#include <sstream>

namespace ryxtest {

namespace {

using ryxsim::CameraCell;
using ryxsim::DropCause;
using ryxsim::FrameRecord;
using ryxsim::Refusal;
using ryxsim::Timeline;
using ryxsim::Verdict;

// How near (in frame numbers) a loss may make a frame undetermined: the library keeps at most
// ten frames in flight, and a loss may hide the frames around it.
constexpr int kNear = 12;

constexpr char kLost[] = "lines lost near it, or cut by the capture's start or end";
constexpr char kNoThreads[] = "no thread ids, and a camera of the frame was dropped";
constexpr char kNoRendezvous[] = "no rendezvous: a flush, or sync switched off";
constexpr char kHiddenDrop[] = "a drop that only debug lines show";
constexpr char kOpen[] = "still open where the capture stops showing its session";

// The frame number a library line names, -1 when none.
int frameNamed(std::string const& m) {
    static char const* const kHeads[] = {
        "[f", ":f", " f(", "Frame:", "frame(", "frameno(", "frame: ", "] ["};
    for (char const* head : kHeads) {
        size_t at = m.find(head);
        while (at != std::string::npos) {
            size_t d = at + std::strlen(head);
            if (d < m.size() && std::isdigit(static_cast<unsigned char>(m[d]))) {
                if (std::strcmp(head, "] [") != 0 || m.find("souReq", d) != std::string::npos) {
                    return std::atoi(m.c_str() + d);
                }
            }
            at = m.find(head, at + 1);
        }
    }
    return -1;
}

std::string words(Seen const& s) {
    return std::string(ryxsim::verdictName(s.verdict)) + "/" + ryxsim::dropCauseName(s.cause) +
           "/" + ryxsim::refusalName(s.refusal);
}

// One true session's frames and the frame each of its lines names.
struct TrueFrames {
    std::map<int, FrameRecord const*> frames;
    std::vector<int> entryFrame;
    std::map<int, std::pair<size_t, size_t>> span;  // frame -> its first and last line
};

using Where = std::pair<int, int>;  // (true session, piece)

class Judge {
  public:
    Judge(TrueProcessLog const& t, Capture const& c) : T(t), C(c) {
        minPriority = c.form.level >= 5   ? ANDROID_LOG_DEBUG
                      : c.form.level >= 3 ? ANDROID_LOG_INFO
                                          : ANDROID_LOG_WARN;
        for (auto const& s : T.sessions) {
            TrueFrames tf;
            for (auto const& f : s.truth.frames) {
                tf.frames[f.frame] = &f;
            }
            for (size_t e = 0; e < s.log.size(); ++e) {
                int f = frameNamed(s.log[e].message);
                tf.entryFrame.push_back(f);
                if (f >= 0) {
                    auto [it, added] = tf.span.try_emplace(f, e, e);
                    it->second.second = e;
                }
            }
            frames.push_back(std::move(tf));
        }
    }

    Judgement run(std::vector<Timeline> const& report);

  private:
    bool visible(int s, size_t e) const { return T.sessions[s].log[e].priority >= minPriority; }
    Shown const& shown(Where w) const { return C.shown[w.second][w.first]; }
    LineOrigin origin(std::optional<int> line) const {
        return line && *line > 0 && static_cast<size_t>(*line) < C.origin.size() ? C.origin[*line]
                                                                                 : LineOrigin{};
    }
    int frameNear(int s, size_t e) const;
    int threadFrameBefore(int s, size_t e) const;
    int shownFrameBefore(Where w, size_t e) const;
    bool touched(Where w, int frame) const;
    bool outOfSyncAndRefused(Where w, int frame, Seen const& truth, Seen const& said) const;
    bool cutAtEnd(Where w) const { return shown(w).to < T.sessions[w.first].log.size(); }
    std::set<Where> placesOf(Timeline const& r) const;
    void frame(Timeline const& r, FrameRecord const& f, Where w);
    void cell(FrameRecord const& f, CameraCell const& c, Where w);
    void gap(ryxsim::CaptureGap const& g, Where w, std::set<Where> const& places);
    bool realGap(ryxsim::CaptureGap const& g, Where w) const;
    bool lossAround(int line, Where w) const;
    bool lostLineAt(int line, Where w) const;
    bool sameProcessAsFarAsShown(int a, int b) const;
    void noLineClaim(std::string const& what, Where w);
    void session(Timeline const& r, std::set<Where> const& places);
    void decidable();
    void falseOne(std::string what) { J.falseOnes.push_back(std::move(what)); }

    TrueProcessLog const& T;
    Capture const& C;
    Judgement J;
    std::vector<TrueFrames> frames;
    int minPriority = 0;
    bool joinsSessions = false;  // the report session being judged holds several true ones
    std::map<Where, std::map<std::pair<int, int>, Seen>> said;  // what the report decided
};

int Judge::frameNear(int s, size_t e) const {
    auto const& ef = frames[s].entryFrame;
    for (size_t d = 0; d < ef.size(); ++d) {
        if (e >= d && e - d < ef.size() && ef[e - d] >= 0) {
            return ef[e - d];
        }
        if (e + d < ef.size() && ef[e + d] >= 0) {
            return ef[e + d];
        }
    }
    return -1;
}

// A frame out of tolerance that the master updater also refused for an inversion: the run
// counts it out of sync when RESULT 2 was written (mode 1), refused otherwise; the log carries no
// mode, and both are true of the frame, whichever the report says.
bool Judge::outOfSyncAndRefused(Where w, int frame, Seen const& truth, Seen const& said) const {
    Seen const& refused = truth.cause == DropCause::Refused ? truth : said;
    Seen const& outOfSync = truth.cause == DropCause::Refused ? said : truth;
    if (outOfSync.verdict != Verdict::OutOfSync || refused.cause != DropCause::Refused) {
        return false;
    }
    Timeline const& t = T.sessions[w.first].truth;
    auto const& inversions =
        refused.refusal == Refusal::TimeInversion ? t.timeInversions : t.frameInversions;
    std::string const check = ":f" + std::to_string(frame) + "]";
    bool outOfTolerance = std::any_of(T.sessions[w.first].log.begin(),
                                      T.sessions[w.first].log.end(), [&](LogEntry const& e) {
                                          return e.message.find(check) != std::string::npos &&
                                                 e.message.find("syncOK=0") != std::string::npos;
                                      });
    auto ofFrame = [&](ryxsim::LoggedAnomaly const& a) { return a.frame == frame; };
    // "Refused, the capture does not say why" is true of either inversion.
    bool unknownWhy = refused.refusal == Refusal::Unknown &&
                      (std::any_of(t.timeInversions.begin(), t.timeInversions.end(), ofFrame) ||
                       std::any_of(t.frameInversions.begin(), t.frameInversions.end(), ofFrame));
    return outOfTolerance &&
           (unknownWhy || std::any_of(inversions.begin(), inversions.end(), ofFrame));
}

int Judge::threadFrameBefore(int s, size_t e) const {
    auto const& log = T.sessions[s].log;
    for (size_t i = e; i-- > 0;) {
        if (log[i].tid == log[e].tid && frames[s].entryFrame[i] >= 0) {
            return frames[s].entryFrame[i];
        }
    }
    return -1000;
}

// The frame of the last line the capture shows before entry `e`: for all a reader can tell, a
// line lost after it may have been that frame's.
int Judge::shownFrameBefore(Where w, size_t e) const {
    auto const& log = T.sessions[w.first].log;
    Shown const& sh = shown(w);
    for (size_t i = std::min(e, log.size()); i-- > sh.from;) {
        if (log[i].priority >= minimumPriority(C.form.level) && sh.lost.count(i) == 0 &&
            frames[w.first].entryFrame[i] >= 0) {
            return frames[w.first].entryFrame[i];
        }
    }
    return -1000;
}

bool Judge::touched(Where w, int frame) const {
    Shown const& sh = shown(w);
    auto span = frames[w.first].span.find(frame);
    if (span != frames[w.first].span.end() &&
        (span->second.first < sh.from || span->second.second >= sh.to)) {
        return true;
    }
    // Near the loss: the frames named around it, and the frame its thread was last in (a lost
    // line may be that call's last).
    auto near = [&](size_t e) {
        return std::abs(frame - frameNear(w.first, e)) <= kNear ||
               std::abs(frame - threadFrameBefore(w.first, e)) <= kNear ||
               frame == shownFrameBefore(w, e);
    };
    for (size_t e : sh.lost) {
        if (near(e) || (span != frames[w.first].span.end() && span->second.first <= e &&
                        e <= span->second.second)) {
            return true;
        }
    }
    return (sh.from > 0 && near(sh.from)) || (cutAtEnd(w) && sh.to > 0 && near(sh.to - 1));
}

std::set<Where> Judge::placesOf(Timeline const& r) const {
    std::set<Where> places;
    for (auto const& f : r.frames) {
        for (auto line : {f.firstLine, f.lastLine}) {
            LineOrigin o = origin(line);
            if (o.session >= 0) {
                places.insert({o.session, o.piece});
            }
        }
    }
    return places;
}

void Judge::cell(FrameRecord const& f, CameraCell const& c, Where w) {
    ++J.statements;
    Seen r = seenOf(f, c);
    auto tf = frames[w.first].frames.find(f.frame);
    FrameRecord const* truth = tf == frames[w.first].frames.end() ? nullptr : tf->second;
    CameraCell const* tc = truth ? truth->cell(c.sensor) : nullptr;
    std::string where = "session " + std::to_string(w.first) + " f" + std::to_string(f.frame) +
                        " camera " + std::to_string(c.sensor) + ": ";
    if (tc &&
        (seenOf(*truth, *tc) == r || outOfSyncAndRefused(w, f.frame, seenOf(*truth, *tc), r))) {
        said[w][{f.frame, c.sensor}] = r;
        if (c.master && !tc->master) {
            falseOne(where + "said to be master, it was not");
        }
        if (c.sofNs && tc->sofNs && *c.sofNs != *tc->sofNs) {
            falseOne(where + "start of frame " + std::to_string(*c.sofNs) + ", truly " +
                     std::to_string(*tc->sofNs));
        }
        return;
    }
    bool near = touched(w, f.frame);
    bool someDropped =
        truth && std::any_of(truth->cells.begin(), truth->cells.end(),
                             [](CameraCell const& x) { return x.cause != DropCause::None; });
    if (r.verdict == Verdict::Undetermined && near) {
        ++J.unknowns[kLost];
    } else if (r.verdict == Verdict::Undetermined && tc &&
               (tc->verdict == Verdict::Unchecked || tc->cause == DropCause::Flush) &&
               f.undeterminedWhy.find("no rendezvous") != std::string::npos) {
        ++J.unknowns[kNoRendezvous];
    } else if (r.verdict == Verdict::Undetermined && C.form.level < 5 &&
               (someDropped || joinsSessions) &&
               f.undeterminedWhy.find("only debug lines show") != std::string::npos) {
        // (Where the report says its lines may hold more than one session, the cameras of
        // another session's checks may be what this one's lacks.)
        ++J.unknowns[kHiddenDrop];
    } else if (r.verdict == Verdict::Undetermined && !C.form.hasThreadIds() && someDropped) {
        ++J.unknowns[kNoThreads];
    } else if ((r.verdict == Verdict::Blocked || r.verdict == Verdict::NotRun) && near) {
        ++J.unknowns[kOpen];
    } else if (r.cause == DropCause::Refused && r.refusal == Refusal::Unknown && tc &&
               tc->cause == DropCause::Refused && near) {
        ++J.unknowns[kLost];
    } else {
        falseOne(where + "said " + words(r) + ", truly " +
                 (tc ? words(seenOf(*truth, *tc)) : std::string("no such call")) +
                 (r.verdict == Verdict::Undetermined ? " (" + f.undeterminedWhy + ")" : ""));
    }
}

void Judge::frame(Timeline const& r, FrameRecord const& f, Where w) {
    LineOrigin a = origin(f.firstLine), b = origin(f.lastLine);
    if (a.session >= 0 && b.session >= 0 && (a.session != b.session || a.piece != b.piece)) {
        falseOne(r.name + ": f" + std::to_string(f.frame) + " joins lines of true session " +
                 std::to_string(a.session) + " and " + std::to_string(b.session) + " (lines " +
                 std::to_string(*f.firstLine) + "-" + std::to_string(*f.lastLine) + ")");
        return;
    }
    if (a.session >= 0) {
        w = {a.session, a.piece};
    } else if (b.session >= 0) {
        w = {b.session, b.piece};
    }
    for (auto const& c : f.cells) {
        cell(f, c, w);
    }
}

// A loss of the session's lines at `line`: between its lines shown before and after it.
bool Judge::lossAround(int line, Where w) const {
    Shown const& sh = shown(w);
    std::optional<size_t> before, after;
    for (int l = std::min<int>(line, static_cast<int>(C.origin.size()) - 1); l > 0 && !before;
         --l) {
        if (C.origin[l].session == w.first && C.origin[l].piece == w.second) {
            before = static_cast<size_t>(C.origin[l].entry);
        }
    }
    for (size_t l = static_cast<size_t>(std::max(line, 1)); l < C.origin.size() && !after; ++l) {
        if (C.origin[l].session == w.first && C.origin[l].piece == w.second) {
            after = static_cast<size_t>(C.origin[l].entry);
        }
    }
    if ((!before && sh.from > 0) || (!after && cutAtEnd(w))) {
        return true;
    }
    size_t lo = before.value_or(sh.from), hi = after.value_or(sh.to);
    auto it = sh.lost.lower_bound(lo);
    return it != sh.lost.end() && *it <= hi;
}

// One process, or a capture without process ids (tag, raw) that cannot tell them apart.
bool Judge::sameProcessAsFarAsShown(int a, int b) const {
    return !C.form.hasPids() || T.sessions[a].process == T.sessions[b].process;
}

// A line of the process the capture cut or lost at `line`, though of another of its sessions
// (a next session's creation line cut: nothing shows it is not the current session's).
bool Judge::lostLineAt(int line, Where w) const {
    for (int l : {line, line - 1}) {
        LineOrigin o = origin(l);
        if (o.session >= 0 && sameProcessAsFarAsShown(o.session, w.first) &&
            C.shown[o.piece][o.session].lost.count(static_cast<size_t>(o.entry)) != 0) {
            return true;
        }
    }
    return false;
}

// "frames X-Y have no line in the capture": none of them may have one.
void Judge::noLineClaim(std::string const& what, Where w) {
    size_t at = what.find("; frames ");
    int x = 0, y = 0;
    if (at == std::string::npos ||
        std::sscanf(what.c_str() + at, "; frames %d-%d have no line", &x, &y) != 2) {
        return;
    }
    Shown const& sh = shown(w);
    for (size_t e = sh.from; e < sh.to; ++e) {
        int f = frames[w.first].entryFrame[e];
        // (A crop read names the frame it is for, ahead of the frame's own calls.)
        bool crop = T.sessions[w.first].log[e].message.find("souReq") != std::string::npos;
        if (f >= x && f <= y && !crop && visible(w.first, e) && sh.lost.count(e) == 0) {
            falseOne("gap \"" + what + "\": f" + std::to_string(f) + " has a line");
            return;
        }
    }
}

bool Judge::realGap(ryxsim::CaptureGap const& g, Where w) const {
    if (g.what.rfind("the capture ends with", 0) == 0) {
        return cutAtEnd(w);
    }
    if (g.what == "the capture starts after the session did") {
        return shown(w).from > 0;
    }
    return lossAround(g.line, w) || lostLineAt(g.line, w);
}

// A gap of a report session is real where any of the true sessions it holds lost lines there,
// or another session of its process did (lines lost between two sessions belong to either).
void Judge::gap(ryxsim::CaptureGap const& g, Where w, std::set<Where> const& places) {
    ++J.statements;
    std::set<Where> owners = places;
    for (size_t s = 0; s < T.sessions.size(); ++s) {
        for (size_t p = 0; p < C.shown.size(); ++p) {
            if (sameProcessAsFarAsShown(static_cast<int>(s), w.first)) {
                owners.insert({static_cast<int>(s), static_cast<int>(p)});
            }
        }
    }
    bool real = std::any_of(owners.begin(), owners.end(), [&](Where p) { return realGap(g, p); });
    if (!real) {
        falseOne("gap at line " + std::to_string(g.line) + " \"" + g.what + "\" of true session " +
                 std::to_string(w.first) + " is no loss");
    }
    noLineClaim(g.what, w);
}

void Judge::session(Timeline const& r, std::set<Where> const& places) {
    ++J.statements;
    bool saysMore = std::any_of(r.notes.begin(), r.notes.end(), [](std::string const& n) {
        return n.find("more than one session") != std::string::npos;
    });
    std::set<int> pieces;
    for (auto const& p : places) {
        pieces.insert(p.second);
    }
    if (places.size() > 1 && (pieces.size() > 1 || !saysMore)) {
        std::string which;
        for (auto const& [s, p] : places) {
            which += " " + std::to_string(s) + "." + std::to_string(p);
        }
        falseOne(r.name + " holds the lines of true sessions (session.piece)" + which);
    }
    if (!places.empty() &&
        r.description.find("(the session started before the capture)") != std::string::npos &&
        shown(*places.begin()).from == 0) {
        falseOne(r.name + " is said to have started before the capture; its creation is in it");
    }
}

void Judge::decidable() {
    for (size_t p = 0; p < C.shown.size(); ++p) {
        for (size_t s = 0; s < C.shown[p].size(); ++s) {
            Where w{static_cast<int>(s), static_cast<int>(p)};
            Shown const& sh = C.shown[p][s];
            std::set<int> withLine;
            for (size_t e = sh.from; e < sh.to; ++e) {
                if (visible(w.first, e) && sh.lost.count(e) == 0) {
                    withLine.insert(frames[s].entryFrame[e]);
                }
            }
            for (auto const& [number, f] : frames[s].frames) {
                if (withLine.count(number) == 0 || touched(w, number)) {
                    continue;
                }
                for (auto const& c : f->cells) {
                    Seen t = seenOf(*f, c);
                    if (C.form.level < 5 && t.verdict != Verdict::OutOfSync) {
                        continue;
                    }
                    ++J.decidable;
                    auto it = said[w].find({number, c.sensor});
                    J.decided += it != said[w].end() && it->second == t ? 1 : 0;
                }
            }
        }
    }
}

Judgement Judge::run(std::vector<Timeline> const& report) {
    for (auto const& r : report) {
        std::set<Where> places = placesOf(r);
        session(r, places);
        Where main = places.empty() ? Where{-1, 0} : *places.begin();
        joinsSessions = places.size() > 1;
        if (main.first < 0) {
            continue;  // a session the capture shows no frame of
        }
        for (auto const& f : r.frames) {
            frame(r, f, main);
        }
        for (auto const& g : r.capture.gaps) {
            gap(g, main, places);
        }
    }
    decidable();
    return std::move(J);
}

}  // namespace

Judgement judge(TrueProcessLog const& truth, Capture const& capture,
                std::vector<Timeline> const& report) {
    return Judge(truth, capture).run(report);
}

}  // namespace ryxtest
