#include "cli/Cli.h"

#include "model/Strings.h"
#include "sources/InputChecks.h"

#include <ISyncHelper.h>

#include <dlfcn.h>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#ifndef RYX_SIM_VERSION
#define RYX_SIM_VERSION "unknown"
#endif

namespace ryxsim::cli {

void printError(std::string const& message) {
    std::fprintf(stderr, "synchelper-sim: error: %s\n", message.c_str());
}

void printWarning(std::string const& message) {
    std::fprintf(stderr, "synchelper-sim: warning: %s\n", message.c_str());
}

int badInput(std::string const& message) {
    printError(message);
    return kExitBadInput;
}

namespace {

// The shared library the loader mapped for the helper's factory, and the version its file name
// carries (libryxcam_synchelper.so.1.0.0): what actually runs, not what the tool was built with.
std::string libraryVersion() {
    using NSCam::camsys::camcoordinator::ISyncHelper;
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&ISyncHelper::createInstance), &info) == 0 ||
        info.dli_fname == nullptr) {
        return "libryxcam_synchelper: unknown (the loader does not say which file it loaded)";
    }
    char resolved[PATH_MAX];
    std::string file = realpath(info.dli_fname, resolved) != nullptr ? resolved : info.dli_fname;
    size_t so = file.rfind(".so.");
    std::string version = so == std::string::npos ? "unknown" : file.substr(so + 4);
    return "libryxcam_synchelper " + version + " (" + file + ")";
}

// The subcommand given on the command line, for "see 'synchelper-sim run --help'".
CLI::App const* givenCommand(CLI::App const* app) {
    for (CLI::App const* sub : app->get_subcommands({})) {
        if (sub->parsed()) {
            return sub;
        }
    }
    return app;
}

// The first option the command does not have, else every argument it did not take.
std::string unexpected(CLI::App const* app) {
    std::vector<std::string> left = app->remaining(true);
    for (CLI::App const* sub : app->get_subcommands({})) {
        auto more = sub->remaining(true);
        left.insert(left.end(), more.begin(), more.end());
    }
    std::string first, all;
    for (std::string const& a : left) {
        all += (all.empty() ? "" : " ") + a;
        if (first.empty() && startsWith(a, "-") && a != "-") {
            first = a;
        }
    }
    return first.empty() ? "unexpected argument '" + all + "'" : first;
}

// CLI11's messages in the tool's one style, with where to look for help.
std::string failureMessage(CLI::App const* app, CLI::Error const& e) {
    CLI::App const* command = givenCommand(app);
    std::string path = "synchelper-sim";
    if (command != app) {
        path += " " + command->get_name();
    }
    std::string what = e.what();
    if (dynamic_cast<CLI::ExtrasError const*>(&e) != nullptr) {
        std::string extra = unexpected(app);
        what = startsWith(extra, "-") ? path + " has no option " + extra : extra;
    }
    return "synchelper-sim: error: " + what + " (see '" + path + " --help')\n";
}

// Help that fits 100 columns: descriptions wrapped at word boundaries beside the name column.
class WrappingFormatter : public CLI::Formatter {
  public:
    static constexpr size_t kWidth = 100;

    std::string make_option_desc(CLI::Option const* opt) const override {
        return wrap(CLI::Formatter::make_option_desc(opt), kWidth - get_column_width());
    }
    std::string make_subcommand(CLI::App const* sub) const override {
        std::string out = "  " + sub->get_display_name();
        out.resize(std::max(out.size() + 1, get_column_width()), ' ');
        return out +
               wrap(sub->get_description(), kWidth - get_column_width(),
                    std::string(get_column_width(), ' ')) +
               "\n";
    }
    std::string make_description(CLI::App const* app) const override {
        return wrap(app->get_description(), kWidth) + "\n";
    }

  private:
    static std::string wrap(std::string const& text, size_t width, std::string const& indent = "") {
        std::string out, line;
        std::istringstream words(text);
        std::string word;
        while (words >> word) {
            if (!line.empty() && line.size() + 1 + word.size() > width) {
                out += line + "\n" + indent;
                line.clear();
            }
            line += (line.empty() ? "" : " ") + word;
        }
        return out + line;
    }
};

}  // namespace

std::string versionText() {
    return std::string("synchelper-sim ") + RYX_SIM_VERSION + "\n" + libraryVersion() + "\n";
}

void configureApp(CLI::App& app) {
    auto formatter = std::make_shared<WrappingFormatter>();
    formatter->column_width(30);
    formatter->label("REQUIRED", "");
    app.formatter(formatter);
    app.failure_message(failureMessage);
    app.set_version_flag(
        "--version", [] { return versionText(); },
        "Print the tool's and the library's versions and exit");
}

std::optional<int> parseArgs(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
    } catch (CLI::CallForVersion const&) {
        std::fputs(versionText().c_str(), stdout);
        return kExitOk;
    } catch (CLI::ParseError const& e) {
        int rc = app.exit(e);
        return rc == 0 ? kExitOk : kExitBadInput;
    }
    return std::nullopt;
}

CLI::Validator integerIn(int64_t lo, int64_t hi) {
    return CLI::Validator(
        [lo, hi](std::string& text) {
            int64_t value = 0;
            IntegerVerdict verdict = readInteger(text, lo, hi, value);
            return verdict == IntegerVerdict::Ok ? std::string()
                                                 : integerProblem(verdict, text, lo, hi);
        },
        "", "integer");
}

CLI::Validator numberIn(double lo, double hi) {
    return CLI::Validator(
        [lo, hi](std::string& text) {
            char* end = nullptr;
            double value = std::strtod(text.c_str(), &end);
            if (text.empty() || end == nullptr || *end != '\0') {
                return "expected a number, got '" + text + "'";
            }
            if (!(value >= lo && value <= hi)) {
                std::ostringstream m;
                m << "value " << text << " is out of range [" << lo << ", " << hi << "]";
                return m.str();
            }
            return std::string();
        },
        "", "number");
}

std::string docPath(std::string const& name) {
    std::error_code ec;
    auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        auto installed = exe.parent_path().parent_path() / "share" / "synchelper-sim" / name;
        if (std::filesystem::exists(installed, ec)) {
            return installed.lexically_normal().string();
        }
    }
#ifdef RYX_SIM_SOURCE_DIR
    auto source = std::filesystem::path(RYX_SIM_SOURCE_DIR) / name;
    if (std::filesystem::exists(source, ec)) {
        return source.string();
    }
#endif
    return "share/synchelper-sim/" + name;
}

}  // namespace ryxsim::cli
