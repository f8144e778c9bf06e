#include "cli/CapturePile.h"

#include "cli/Cli.h"
#include "cli/Command.h"
#include "model/ParseError.h"
#include "model/SessionSummary.h"
#include "sinks/SummarySink.h"
#include "sources/logcat/LogcatSource.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <thread>

namespace ryxsim::cli {

namespace fs = std::filesystem;

std::vector<std::string> pileCaptures(std::vector<std::string> const& inputs) {
    std::vector<std::string> captures;
    for (auto const& in : inputs) {
        std::error_code ec;
        if (in == "-" || !fs::is_directory(in, ec)) {
            captures.push_back(in);
            continue;
        }
        std::vector<std::string> found;
        for (auto const& e : fs::recursive_directory_iterator(in, ec)) {
            if (e.is_regular_file(ec)) {
                found.push_back(e.path().string());
            }
        }
        std::sort(found.begin(), found.end());
        captures.insert(captures.end(), found.begin(), found.end());
    }
    return captures;
}

namespace {

std::vector<SessionSummary> explainOne(std::string const& path, CameraNames const* names) {
    std::vector<SessionSummary> rows;
    try {
        std::vector<Timeline> sessions = readLogcatFile(path, inputName(path));
        if (names != nullptr) {
            names->apply(sessions);
        }
        for (auto const& t : sessions) {
            rows.push_back(summarize(t, inputName(path)));
        }
    } catch (ParseError const& e) {
        rows.push_back(unreadable(inputName(path), e.what()));
    } catch (std::exception const& e) {  // out of memory on a huge capture: that row only
        rows.push_back(unreadable(inputName(path), std::string("cannot explain: ") + e.what()));
    }
    return rows;
}

// Captures handed to the workers one at a time; the results kept in the captures' order.
class Pile {
  public:
    Pile(std::vector<std::string> captures, CameraNames const* names)
        : mCaptures(std::move(captures)), mNames(names), mRows(mCaptures.size()) {}

    void run(unsigned jobs, bool progress) {
        // libarchive's zip reader converts entry times through the time zone. With TZ unset the
        // C library reads the zone anew on every conversion, freeing and copying its name under
        // a lock of its own that the thread sanitizer does not see; naming the same default
        // zone makes every later reading a comparison. Done once, before the workers start.
        setenv("TZ", ":/etc/localtime", 0);
        tzset();
        std::vector<std::thread> workers;
        for (unsigned i = 0; i < jobs; ++i) {
            workers.emplace_back([this] { work(); });
        }
        std::unique_lock<std::mutex> lock(mLock);
        while (mDone < mCaptures.size()) {
            mChanged.wait_for(lock, std::chrono::milliseconds(200));
            if (progress) {
                std::fprintf(stderr, "\r\033[Kexplained %zu of %zu captures", mDone,
                             mCaptures.size());
            }
        }
        lock.unlock();
        for (auto& w : workers) {
            w.join();
        }
        if (progress) {
            std::fprintf(stderr, "\r\033[K");
        }
    }

    std::vector<SessionSummary> rows() const {
        std::vector<SessionSummary> all;
        for (auto const& r : mRows) {
            all.insert(all.end(), r.begin(), r.end());
        }
        return all;
    }

  private:
    void work() {
        for (size_t i; (i = mNext++) < mCaptures.size();) {
            std::vector<SessionSummary> rows = explainOne(mCaptures[i], mNames);
            std::lock_guard<std::mutex> lock(mLock);
            mRows[i] = std::move(rows);
            ++mDone;
            mChanged.notify_one();
        }
    }

    std::vector<std::string> const mCaptures;
    CameraNames const* mNames;
    std::atomic<size_t> mNext{0};
    std::mutex mLock;
    std::condition_variable mChanged;
    size_t mDone = 0;                                // guarded by mLock
    std::vector<std::vector<SessionSummary>> mRows;  // by capture; each slot written once
};

bool writeSummary(PileOptions const& options, std::vector<SessionSummary> const& rows) {
    OutputStream out;
    if (!out.open(options.summary)) {
        return false;
    }
    std::string const& path = options.summary.path;
    bool csv = options.format.empty()
                   ? path.size() >= 4 && path.compare(path.size() - 4, 4, ".csv") == 0
                   : options.format == "csv";
    (csv ? writeSummaryCsv : writeSummaryJsonLines)(out.stream(), rows);
    return out.finish();
}

}  // namespace

int explainPile(PileOptions const& options) {
    std::vector<std::string> captures = pileCaptures(options.inputs);
    if (captures.empty()) {
        return badInput("explain: the folders given hold no file");
    }
    unsigned jobs =
        options.jobs != 0 ? options.jobs : std::max(1u, std::thread::hardware_concurrency());
    jobs = static_cast<unsigned>(std::min<size_t>(jobs, captures.size()));
    Pile pile(captures, options.names);
    pile.run(jobs, isatty(STDERR_FILENO) != 0);
    std::vector<SessionSummary> rows = pile.rows();
    std::ostream& table = options.summary.path == "-" ? std::cerr : std::cout;
    writeSummaryText(table, rows);
    size_t failed = static_cast<size_t>(std::count_if(
        rows.begin(), rows.end(), [](SessionSummary const& r) { return !r.error.empty(); }));
    table << captures.size() << " captures, " << rows.size() - failed << " sessions, " << failed
          << " captures not read\n";
    if (!options.summary.path.empty() && !writeSummary(options, rows)) {
        return kExitWriteFailed;
    }
    return failed > 0 ? kExitBadInput : kExitOk;
}

}  // namespace ryxsim::cli
