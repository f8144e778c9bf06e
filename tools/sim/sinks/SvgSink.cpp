#include "sinks/SvgSink.h"

#include "model/Words.h"
#include "sinks/FrameStrip.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

namespace ryxsim {

namespace {

struct Style {
    char const* key;
    char const* colour;
    char const* label;
};

Style const kStyles[] = {
    {"in", "#43a047", "in sync"},
    {"unchecked", "#a5d6a7", "delivered, not checked"},
    {"out1", "#ffb300", "out of sync, delivered (RESULT 1)"},
    {"out2", "#e53935", "out of sync, failed (RESULT 2)"},
    {"own", "#546e7a", "dropped by the sensor"},
    {"masterdrop", "#8e24aa", "dropped: master drop"},
    {"flush", "#1e88e5", "dropped: flush"},
    {"refused", "#6d4c41", "dropped: refused (inversion, drop queue)"},
    {"left", "#78909c", "dropped: the sensor left"},
    {"out", "#fb8c00", "out of sync, 1 or 2 (mode not logged)"},
    {"blocked", "#212121", "blocked, never returned"},
    {"notrun", "#eceff1", "never called"},
    {"undetermined", "#bdbdbd", "undetermined: the capture cannot tell"},
};

Style const& styleOf(SensorCell const& lc) {
    CameraCell const& c = *lc.c;
    auto find = [](char const* key) -> Style const& {
        for (auto const& s : kStyles) {
            if (std::string(s.key) == key) {
                return s;
            }
        }
        return kStyles[0];
    };
    switch (c.verdict) {
        case Verdict::InSync:
            return find("in");
        case Verdict::Unchecked:
            return find("unchecked");
        case Verdict::OutOfSync1:
            return find("out1");
        case Verdict::OutOfSync2:
            return find("out2");
        case Verdict::OutOfSync:
            return find("out");
        case Verdict::Blocked:
            return find("blocked");
        case Verdict::NotRun:
            return find("notrun");
        case Verdict::Undetermined:
            return find("undetermined");
        case Verdict::Dropped:
            break;
    }
    switch (c.cause) {
        case DropCause::Own:
            return find("own");
        case DropCause::MasterDrop:
            return find("masterdrop");
        case DropCause::Flush:
            return find("flush");
        case DropCause::Leave:
            return find("left");
        default:
            return find("refused");
    }
}

std::string esc(std::string const& s) {
    std::string o;
    for (char c : s) {
        switch (c) {
            case '&':
                o += "&amp;";
                break;
            case '<':
                o += "&lt;";
                break;
            case '>':
                o += "&gt;";
                break;
            case '"':
                o += "&quot;";
                break;
            default:
                o += c;
        }
    }
    return o;
}

std::string num(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.1f", v);
    std::string s = buf;
    if (s.size() > 2 && s.compare(s.size() - 2, 2, ".0") == 0) {
        s.resize(s.size() - 2);
    }
    return s;
}

// Frames per pixel column beyond which the timeline is drawn by columns of several frames.
constexpr int kFrameColumns = 4000;

// A column's look: the worst that happened to the sensor's frames in it.
char const* columnColour(FrameColumn::Counts const& c) {
    return c.failed    ? "#e53935"
           : c.stuck   ? "#212121"
           : c.dropped ? "#546e7a"
           : c.flagged ? "#ffb300"
           : c.passed  ? "#43a047"
                       : "#eceff1";
}

std::string columnText(FrameColumn::Counts const& c) {
    std::string s;
    auto add = [&](int n, char const* what) {
        if (n > 0) {
            s += (s.empty() ? "" : ", ") + std::to_string(n) + " " + what;
        }
    };
    add(c.passed, "passed");
    add(c.flagged, "out of sync, delivered");
    add(c.failed, "out of sync, failed");
    add(c.dropped, "dropped");
    add(c.stuck, "blocked, never called or undetermined");
    return s.empty() ? "no frames" : s;
}

// One rectangle per run of columns with the same look for one sensor's lane.
void writeColumns(std::ostream& out, FrameStrip const& strip, SensorFigures const& s, double y,
                  double h, double px);
// Along the top of the lane: columns where the sensor was the master for most of its frames.
void writeMasterColumns(std::ostream& out, FrameStrip const& strip, SensorFigures const& s,
                        double y, double h, double px);

struct Marker {
    int frame;
    std::string text;
    char const* colour;
    bool dashed;
};

// A mark under every frame of the sensor that did not pass, titled with its frame and verdict.
template <typename XOf>
void writeUnpassedMarks(std::ostream& out, Timeline const& r, SensorFigures const& s,
                        XOf const& xOf, double px, double bottom) {
    for (FrameRecord const* f : unpassedFrames(r)) {
        CameraCell const* c = f->cell(s.sensor);
        if (c == nullptr || passed(c->verdict)) {
            continue;
        }
        SensorCell lc{f->frame, c};
        out << "<path d=\"M" << num(xOf(f->frame) + px / 2) << " " << num(bottom)
            << " l-4 -5 l8 0 z\" fill=\"" << styleOf(lc).colour << "\"><title>sensor "
            << esc(s.label) << " f" << f->frame << ": " << esc(styleOf(lc).label)
            << "</title></path>\n";
    }
}

}  // namespace

namespace {

// Where everything goes: one column per frame while the frames fit and every record is kept;
// beyond, the columns of the timeline's strip, several frames each.
struct Geometry {
    Geometry(Timeline const& r, FrameStrip const& strip) {
        int const count = std::max(1, r.lastFrame - r.firstFrame + 1);
        perFrame = count <= kFrameColumns && r.frames.size() == static_cast<size_t>(r.frameCount);
        first = perFrame || strip.columns.empty() ? r.firstFrame : strip.firstFrame;
        perColumn = perFrame ? 1 : strip.columnFrames;
        columns = perFrame ? count : std::max<int>(1, static_cast<int>(strip.columns.size()));
        px = perFrame ? std::max(1.5, 1600.0 / count) : std::max(1.0, 1600.0 / columns);
        plotW = px * columns;
        width = left + plotW + right;
    }
    double xOf(int frame) const {
        return left + static_cast<double>(std::max(0, frame - first) / perColumn) * px;
    }

    bool perFrame;
    int first, perColumn, columns;
    double px, plotW, width;
    double const left = 150, right = 30;
    double const laneH = 34, cellH = 22, stripH = 5, titleH = 46;
    // Filled in once the annotations are laid out.
    double lanesTop = 0, lanesH = 0, axisTop = 0, legendTop = 0, height = 0;
};

constexpr int kLegendColumns = 3;

class SvgWriter {
  public:
    SvgWriter(std::ostream& out, Timeline const& r)
        : out(out), r(r), strip(FrameStrip::of(r.outcomes)), g(r, strip) {}

    void write() {
        collectMarkers();
        layOut();
        writeHeader();
        writeMarkers();
        for (size_t li = 0; li < r.sensors.size(); ++li) {
            writeLane(li);
        }
        writeAxis();
        writeCropSets();
        writeLegend();
        out << "</svg>\n";
    }

  private:
    // Annotations above the lanes: master switches, flushes, drops, leaves and anomalies.
    void collectMarkers() {
        for (auto const& [f, m] : r.masterChanges) {
            std::string who = std::to_string(m);
            for (auto const& s : r.sensors) {
                who = s.sensor == m ? s.label : who;
            }
            markers.push_back({f, "master " + who, "#0d47a1", false});
        }
        for (auto const& e : r.flushes) {
            markers.push_back({e.frame, "flush f" + std::to_string(e.frame), "#1e88e5", true});
        }
        for (auto const& e : r.masterDrops) {
            markers.push_back(
                {e.frame, "master drop f" + std::to_string(e.frame), "#8e24aa", true});
        }
        for (auto const& e : r.leaves) {
            markers.push_back({e.frame < g.first ? g.first : e.frame,
                               "sensor " + std::to_string(e.sensor) + " leaves", "#37474f", true});
        }
        auto anomaly = [&](std::vector<LoggedAnomaly> const& list, char const* what) {
            for (auto const& a : list) {
                markers.push_back({a.frame, what + std::to_string(a.frame), "#c62828", false});
            }
        };
        anomaly(r.timeInversions, "time inversion f");
        anomaly(r.frameInversions, "frame inversion f");
        anomaly(r.missingTimestamps, "no timestamp f");
        for (int f : r.neverCompleted) {
            markers.push_back({f, "never completed f" + std::to_string(f), "#212121", false});
        }
        std::sort(markers.begin(), markers.end(),
                  [](Marker const& a, Marker const& b) { return a.frame < b.frame; });
    }

    // The annotations staggered into rows so that their texts do not overlap, then the lanes,
    // the axis and the legend below them.
    void layOut() {
        std::vector<double> rowEnd;
        for (auto const& m : markers) {
            double x = g.xOf(m.frame) + g.px / 2;
            double w = 6.2 * static_cast<double>(m.text.size()) + 8;
            size_t row = 0;
            while (row < rowEnd.size() && rowEnd[row] > x - 2) {
                ++row;
            }
            if (row == rowEnd.size()) {
                rowEnd.push_back(0);
            }
            rowEnd[row] = x + w;
            markerRow.push_back(static_cast<int>(row));
        }
        double const annotH = 16.0 * static_cast<double>(rowEnd.size()) + (rowEnd.empty() ? 0 : 6);
        g.lanesTop = g.titleH + annotH;
        g.lanesH = g.laneH * static_cast<double>(r.sensors.size());
        g.axisTop = g.lanesTop + g.lanesH + 4;
        g.legendTop = g.axisTop + 44;
        size_t const legendItems = std::size(kStyles) + 5;
        double const legendH =
            20.0 * std::ceil(static_cast<double>(legendItems) / kLegendColumns) + 24;
        g.height = g.legendTop + legendH;
    }

    void writeHeader() {
        out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
        out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << num(g.width)
            << "\" height=\"" << num(g.height) << "\" viewBox=\"0 0 " << num(g.width) << " "
            << num(g.height) << "\" font-family=\"DejaVu Sans, Arial, sans-serif\" "
            << "font-size=\"11\">\n";
        out << "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
        std::string title =
            r.name + ": " + plural(static_cast<long long>(r.sensors.size()), "sensor", "sensors") +
            ", " + plural(r.frameCount, "frame", "frames") + " (f" + std::to_string(r.firstFrame) +
            "..f" + std::to_string(r.lastFrame) + ") at " + num(r.fps) + " fps";
        out << "<text x=\"12\" y=\"20\" font-size=\"15\" font-weight=\"bold\">synchelper-sim - "
            << esc(title) << "</text>\n";
        std::string sub = r.source;
        auto add = [&](std::string const& part) { sub += (sub.empty() ? "" : ", ") + part; };
        if (r.run.seed) {
            add("seed " + std::to_string(*r.run.seed));
        }
        if (!g.perFrame) {
            add(std::to_string(g.perColumn) +
                " frames per column (every frame that did not pass is marked)");
        }
        if (!r.blocked.empty()) {
            add(plural(static_cast<long long>(r.blocked.size()), "thread", "threads") +
                " still blocked at the end");
        }
        out << "<text x=\"12\" y=\"37\" fill=\"#555\">" << esc(sub) << "</text>\n";
    }

    // A line through every lane and the text in its row above.
    void writeMarkers() {
        for (size_t i = 0; i < markers.size(); ++i) {
            auto const& m = markers[i];
            double x = g.xOf(m.frame) + g.px / 2;
            double ty = g.titleH + 12 + 16.0 * markerRow[i];
            out << "<line x1=\"" << num(x) << "\" y1=\"" << num(ty + 3) << "\" x2=\"" << num(x)
                << "\" y2=\"" << num(g.lanesTop + g.lanesH) << "\" stroke=\"" << m.colour
                << "\" stroke-width=\"1.2\"" << (m.dashed ? " stroke-dasharray=\"4 3\"" : "")
                << "/>\n";
            out << "<text x=\"" << num(x + 3) << "\" y=\"" << num(ty) << "\" fill=\"" << m.colour
                << "\">" << esc(m.text) << "</text>\n";
        }
    }

    void writeLane(size_t li) {
        auto const& s = r.sensors[li];
        double y = g.lanesTop + g.laneH * static_cast<double>(li);
        out << "<rect x=\"" << num(g.left) << "\" y=\"" << num(y) << "\" width=\"" << num(g.plotW)
            << "\" height=\"" << num(g.laneH) << "\" fill=\"" << (li % 2 ? "#fafafa" : "#f3f5f7")
            << "\"/>\n";
        out << "<text x=\"" << num(g.left - 8) << "\" y=\"" << num(y + g.stripH + g.cellH / 2 + 4)
            << "\" text-anchor=\"end\" font-size=\"12\">sensor " << esc(s.label) << "</text>\n";
        if (!g.perFrame) {
            writeColumns(out, strip, s, y + g.stripH + 2, g.cellH, g.px);
            writeMasterColumns(out, strip, s, y + 1, g.stripH, g.px);
            writeUnpassedMarks(
                out, r, s, [&](int f) { return g.xOf(f); }, g.px, y + g.laneH - 1);
            return;
        }
        std::vector<SensorCell> const cells = r.cellsOf(s.sensor);
        writeFrameRuns(s, cells, y);
        writeMasterRuns(s, cells, y);
        writeCellMarks(s, cells, y);
    }

    // Runs of frames with the same look.
    void writeFrameRuns(SensorFigures const& s, std::vector<SensorCell> const& cells, double y) {
        for (size_t i = 0, j = 0; i < cells.size(); i = j) {
            Style const& st = styleOf(cells[i]);
            j = i + 1;
            while (j < cells.size() && &styleOf(cells[j]) == &st &&
                   cells[j].frame == cells[j - 1].frame + 1) {
                ++j;
            }
            double w = g.px * (cells[j - 1].frame - cells[i].frame + 1);
            out << "<rect x=\"" << num(g.xOf(cells[i].frame)) << "\" y=\"" << num(y + g.stripH + 2)
                << "\" width=\"" << num(w) << "\" height=\"" << num(g.cellH) << "\" fill=\""
                << st.colour << "\""
                << (std::string(st.key) == "notrun" ? " stroke=\"#cfd8dc\" stroke-width=\"0.5\""
                                                    : "")
                << "><title>sensor " << esc(s.label) << " f" << cells[i].frame;
            if (j - i > 1) {
                out << "..f" << cells[j - 1].frame;
            }
            out << ": " << esc(st.label) << "</title></rect>\n";
        }
    }

    // Master frames: a strip along the top of the lane.
    void writeMasterRuns(SensorFigures const& s, std::vector<SensorCell> const& cells, double y) {
        for (size_t i = 0, j = 0; i < cells.size(); i = j) {
            j = i + 1;
            if (!cells[i].c->master) {
                continue;
            }
            while (j < cells.size() && cells[j].c->master &&
                   cells[j].frame == cells[j - 1].frame + 1) {
                ++j;
            }
            out << "<rect x=\"" << num(g.xOf(cells[i].frame)) << "\" y=\"" << num(y + 1)
                << "\" width=\"" << num(g.px * (cells[j - 1].frame - cells[i].frame + 1))
                << "\" height=\"" << num(g.stripH) << "\" fill=\"#0d47a1\"><title>sensor "
                << esc(s.label) << " master f" << cells[i].frame << "..f" << cells[j - 1].frame
                << "</title></rect>\n";
        }
    }

    // Own drops and blocked calls get a mark, so that single frames stay visible.
    void writeCellMarks(SensorFigures const& s, std::vector<SensorCell> const& cells, double y) {
        for (auto const& lc : cells) {
            CameraCell const& c = *lc.c;
            double cx = g.xOf(lc.frame) + g.px / 2;
            double cy = y + g.stripH + 2 + g.cellH / 2;
            if (c.cause == DropCause::Own) {
                out << "<path d=\"M" << num(cx - 4) << " " << num(cy - 4) << " l8 8 m0 -8 l-8 8\" "
                    << "stroke=\"#263238\" stroke-width=\"1.6\"><title>sensor " << esc(s.label)
                    << " drops f" << lc.frame << "</title></path>\n";
            } else if (c.verdict == Verdict::Blocked) {
                if (g.px >= 60) {
                    out << "<text x=\"" << num(cx) << "\" y=\"" << num(cy + 4)
                        << "\" text-anchor=\"middle\" fill=\"#ffffff\" font-weight=\"bold\">"
                        << "blocked</text>\n";
                }
            } else if (c.verdict == Verdict::OutOfSync2 || c.verdict == Verdict::OutOfSync1 ||
                       c.verdict == Verdict::OutOfSync || c.cause == DropCause::Refused) {
                out << "<path d=\"M" << num(cx) << " " << num(y + g.laneH - 1)
                    << " l-4 -5 l8 0 z\" fill=\"" << styleOf(lc).colour << "\"/>\n";
            }
        }
    }

    // The smallest step of 1, 2, 5, 10 frames or whole seconds that leaves room for a label.
    int axisStep() const {
        int const second = std::max(1, static_cast<int>(std::lround(r.fps)));
        std::vector<int> steps{1,           2,           5,           10,
                               second,      2 * second,  5 * second,  10 * second,
                               30 * second, 60 * second, 300 * second};
        std::sort(steps.begin(), steps.end());
        double const pxPerFrame = g.px / g.perColumn;
        int step = 1;
        for (int s : steps) {
            step = s;
            if (s * pxPerFrame >= 60) {
                break;
            }
        }
        while (step * pxPerFrame < 60 && step < INT32_MAX / 10) {
            step *= 10;
        }
        return step;
    }

    // One tick a step, labelled in frames and seconds.
    void writeAxis() {
        out << "<line x1=\"" << num(g.left) << "\" y1=\"" << num(g.axisTop) << "\" x2=\""
            << num(g.left + g.plotW) << "\" y2=\"" << num(g.axisTop) << "\" stroke=\"#90a4ae\"/>\n";
        int const step = axisStep();
        char buf[64];
        for (int64_t f = g.first - ((g.first % step) + step) % step; f <= r.lastFrame; f += step) {
            if (f < g.first) {
                continue;
            }
            double x = g.xOf(static_cast<int>(f));
            out << "<line x1=\"" << num(x) << "\" y1=\"" << num(g.axisTop) << "\" x2=\"" << num(x)
                << "\" y2=\"" << num(g.axisTop + 5) << "\" stroke=\"#90a4ae\"/>\n";
            std::snprintf(buf, sizeof buf, "f%lld", static_cast<long long>(f));
            out << "<text x=\"" << num(x) << "\" y=\"" << num(g.axisTop + 16)
                << "\" text-anchor=\"middle\" fill=\"#455a64\">" << buf << "</text>\n";
            if (r.fps > 0) {
                std::snprintf(buf, sizeof buf, "%.1f s", (f - g.first) / r.fps);
                out << "<text x=\"" << num(x) << "\" y=\"" << num(g.axisTop + 28)
                    << "\" text-anchor=\"middle\" fill=\"#90a4ae\" font-size=\"9\">" << buf
                    << "</text>\n";
            }
        }
    }

    // Crop sets: diamonds on the axis at the first frame each set serves (one a column).
    void writeCropSets() {
        double lastDiamond = -1;
        for (auto const& [f, q] : r.cropSets) {
            if (f < g.first || f > r.lastFrame || g.xOf(f) == lastDiamond) {
                continue;
            }
            lastDiamond = g.xOf(f);
            double x = g.xOf(f) + g.px / 2;
            out << "<path d=\"M" << num(x) << " " << num(g.axisTop - 4) << " l4 4 l-4 4 l-4 -4 z\" "
                << "fill=\"#00897b\"><title>crop set of request " << q << " for f" << f
                << "</title></path>\n";
        }
    }

    struct LegendItem {
        std::string kind;  // "box", "strip", "cross", "dash", "tri", "diamond"
        char const* colour;
        std::string label;
    };

    void writeSwatch(LegendItem const& it, double x, double y) {
        if (it.kind == "box") {
            out << "<rect x=\"" << num(x) << "\" y=\"" << num(y) << "\" width=\"18\" height=\"12\""
                << " fill=\"" << it.colour << "\" stroke=\"#b0bec5\" stroke-width=\"0.5\"/>\n";
        } else if (it.kind == "strip") {
            out << "<rect x=\"" << num(x) << "\" y=\"" << num(y + 3) << "\" width=\"18\" "
                << "height=\"5\" fill=\"" << it.colour << "\"/>\n";
        } else if (it.kind == "cross") {
            out << "<path d=\"M" << num(x + 5) << " " << num(y + 2) << " l8 8 m0 -8 l-8 8\" "
                << "stroke=\"" << it.colour << "\" stroke-width=\"1.6\"/>\n";
        } else if (it.kind == "dash") {
            out << "<line x1=\"" << num(x + 9) << "\" y1=\"" << num(y - 1) << "\" x2=\""
                << num(x + 9) << "\" y2=\"" << num(y + 13) << "\" stroke=\"" << it.colour
                << "\" stroke-width=\"1.2\" stroke-dasharray=\"4 3\"/>\n";
        } else if (it.kind == "tri") {
            out << "<path d=\"M" << num(x + 9) << " " << num(y + 11) << " l-4 -5 l8 0 z\" fill=\""
                << it.colour << "\"/>\n";
        } else {
            out << "<path d=\"M" << num(x + 9) << " " << num(y + 1) << " l5 5 l-5 5 l-5 -5 z\" "
                << "fill=\"" << it.colour << "\"/>\n";
        }
    }

    void writeLegend() {
        out << "<text x=\"12\" y=\"" << num(g.legendTop)
            << "\" font-weight=\"bold\">legend</text>\n";
        std::vector<LegendItem> items;
        for (auto const& s : kStyles) {
            items.push_back({"box", s.colour, s.label});
        }
        items.push_back({"strip", "#0d47a1", "master camera (bMasterCam)"});
        items.push_back({"cross", "#263238", "the sensor called notifyDrop"});
        items.push_back({"dash", "#1e88e5", "flush / master drop / leave (dashed)"});
        items.push_back({"diamond", "#00897b", "crop set (setSensorCropRegion)"});
        items.push_back({"tri", "#e53935", "marks a frame out of sync or refused"});
        double colW = std::max(280.0, (g.width - 24) / kLegendColumns);
        for (size_t k = 0; k < items.size(); ++k) {
            double x = 12 + colW * static_cast<double>(k % kLegendColumns);
            double y = g.legendTop + 10 + 20.0 * static_cast<double>(k / kLegendColumns);
            writeSwatch(items[k], x, y);
            out << "<text x=\"" << num(x + 24) << "\" y=\"" << num(y + 10) << "\">"
                << esc(items[k].label) << "</text>\n";
        }
    }

    std::ostream& out;
    Timeline const& r;
    FrameStrip const strip;
    Geometry g;
    std::vector<Marker> markers;
    std::vector<int> markerRow;
};

}  // namespace

void writeSvg(std::ostream& out, Timeline const& r) {
    SvgWriter(out, r).write();
}

namespace {

template <typename Pick>
void writeColumnRuns(std::ostream& out, FrameStrip const& strip, std::string const& label, double y,
                     double h, double px, Pick const& pick) {
    auto const& cols = strip.columns;
    size_t i = 0;
    while (i < cols.size()) {
        auto look = pick(i);
        size_t j = i + 1;
        while (j < cols.size() && pick(j) == look) {
            ++j;
        }
        if (look.first != nullptr) {
            int from = strip.firstFrame + static_cast<int>(i) * strip.columnFrames;
            int to = strip.firstFrame + static_cast<int>(j) * strip.columnFrames - 1;
            out << "<rect x=\"" << num(150 + px * static_cast<double>(i)) << "\" y=\"" << num(y)
                << "\" width=\"" << num(px * static_cast<double>(j - i)) << "\" height=\"" << num(h)
                << "\" fill=\"" << look.first << "\"><title>sensor " << esc(label) << " f" << from
                << "..f" << to << ": " << esc(look.second) << "</title></rect>\n";
        }
        i = j;
    }
}

void writeColumns(std::ostream& out, FrameStrip const& strip, SensorFigures const& s, double y,
                  double h, double px) {
    writeColumnRuns(out, strip, s.label, y, h, px, [&](size_t i) {
        FrameColumn::Counts c = strip.columns[i].of(s.sensor);
        // A run of passed columns is one rectangle; any other column keeps its own counts.
        std::string text = c.failed || c.stuck || c.dropped || c.flagged ? columnText(c) : "passed";
        return std::make_pair(columnColour(c), text);
    });
}

void writeMasterColumns(std::ostream& out, FrameStrip const& strip, SensorFigures const& s,
                        double y, double h, double px) {
    writeColumnRuns(out, strip, s.label, y, h, px, [&](size_t i) {
        FrameColumn::Counts c = strip.columns[i].of(s.sensor);
        int frames = c.passed + c.flagged + c.failed + c.dropped + c.stuck;
        bool master = frames > 0 && 2 * c.master > frames;
        return std::make_pair(master ? "#0d47a1" : nullptr, std::string("master"));
    });
}

}  // namespace

}  // namespace ryxsim
