#include "cli/Outputs.h"

#include "cli/Cli.h"
#include "sinks/JsonSink.h"
#include "sinks/PerfettoSink.h"
#include "sinks/SvgSink.h"
#include "sinks/TextSink.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>

namespace ryxsim::cli {

namespace {

std::string systemReason(int error) {
    return error != 0 ? std::strerror(error) : "the system gave no reason";
}

// The same file however it is written: "./r.json", "r.json" and "/abs/r.json".
std::string fileKey(std::string const& path) {
    std::error_code ec;
    auto canonical = std::filesystem::weakly_canonical(path, ec);
    return ec ? path : canonical.string();
}

}  // namespace

bool OutputStream::open(OutputPath const& out) {
    mOut = out;
    if (out.path == "-") {
        errno = 0;
        return true;
    }
    errno = 0;
    mFile = std::make_unique<std::ofstream>(out.path, std::ios::binary | std::ios::trunc);
    if (!*mFile) {
        printError("cannot write the " + out.what + " to '" + out.path +
                   "': " + systemReason(errno));
        return false;
    }
    errno = 0;
    return true;
}

std::ostream& OutputStream::stream() {
    return mFile ? static_cast<std::ostream&>(*mFile) : std::cout;
}

// errno is cleared when the output is opened, so a failed write while the body was written
// leaves its reason there.
bool OutputStream::finish() {
    stream().flush();
    if (!stream()) {
        std::string where = mOut.path == "-" ? "standard output" : "'" + mOut.path + "'";
        printError("cannot write the " + mOut.what + " to " + where + ": " + systemReason(errno));
        return false;
    }
    return true;
}

void SharedOutputs::addTo(CLI::App& command) {
    command.add_option("--json", mJson.path, "Write the report as JSON")->type_name("FILE");
    command.add_option("--svg", mSvg.path, "Draw the timeline as SVG (of the first session)")
        ->type_name("FILE");
    command
        .add_option("--perfetto", mPerfetto.path,
                    "Write the timeline as a trace for ui.perfetto.dev (Chrome JSON format)")
        ->type_name("FILE");
    command
        .add_option("--text", mText.path,
                    "Write the text report to FILE (default: standard output)")
        ->type_name("FILE");
}

void SharedOutputs::alsoWrites(OutputPath* other) {
    mOthers.push_back(other);
}

std::vector<OutputPath const*> SharedOutputs::all() const {
    std::vector<OutputPath const*> outs{&mJson, &mSvg, &mPerfetto, &mText};
    outs.insert(outs.end(), mOthers.begin(), mOthers.end());
    return outs;
}

bool SharedOutputs::standardOutputTaken() const {
    for (OutputPath const* o : all()) {
        if (o != &mText && o->path == "-") {
            return true;
        }
    }
    return false;
}

std::string SharedOutputs::check(std::vector<std::string> const& inputs) const {
    std::vector<std::string> toStdout;
    std::map<std::string, std::string> byFile;  // file -> the option that writes it
    for (std::string const& in : inputs) {
        if (!in.empty() && in != "-") {
            byFile.emplace(fileKey(in), "the input");
        }
    }
    for (OutputPath const* o : all()) {
        if (o->path == "-") {
            toStdout.push_back(o->option);
        } else if (!o->path.empty()) {
            auto [it, fresh] = byFile.emplace(fileKey(o->path), o->option);
            if (!fresh) {
                return o->option + " and " + it->second + " both name '" + o->path +
                       "': each output needs a file of its own";
            }
        }
    }
    if (toStdout.size() > 1) {
        return toStdout[0] + " and " + toStdout[1] +
               " both write to standard output (-): at most one output can";
    }
    return "";
}

int SharedOutputs::write(std::vector<Timeline> const& sessions) const {
    bool ok = true;
    auto emit = [&](OutputPath const& out, std::function<void(std::ostream&)> const& body) {
        OutputStream s;
        if (!s.open(out)) {
            ok = false;
            return;
        }
        body(s.stream());
        ok = s.finish() && ok;
    };
    auto text = [&](std::ostream& o) {
        for (size_t i = 0; i < sessions.size(); ++i) {
            o << (i ? "\n" : "");
            writeText(o, sessions[i]);
        }
    };
    if (!mText.path.empty()) {
        emit(mText, text);
    } else {
        std::ostream& o = standardOutputTaken() ? std::cerr : std::cout;
        text(o);
        o.flush();
    }
    if (!mJson.path.empty()) {
        emit(mJson, [&](std::ostream& o) { writeReportJson(o, sessions); });
    }
    if (!mSvg.path.empty()) {
        emit(mSvg, [&](std::ostream& o) { writeSvg(o, sessions.front()); });
    }
    if (!mPerfetto.path.empty()) {
        emit(mPerfetto, [&](std::ostream& o) { writePerfetto(o, sessions); });
    }
    int status = sessions.front().exitStatus;
    return status == 0 && !ok ? kExitWriteFailed : status;
}

bool SharedOutputs::reportsAsked() const {
    return !mJson.path.empty() || !mSvg.path.empty() || !mPerfetto.path.empty() ||
           !mText.path.empty();
}

}  // namespace ryxsim::cli
