// Bugreports as a phone gives them: dumpstate's text with its logs in sections, the same text in
// a bugreport zip (named by main_entry.txt, tombstones as entries of their own), and a capture
// compressed with gzip. Sessions keep their section and the file's line numbers; a tombstone's
// abort of the library gives the rule it broke.

#include "SimulatedCapture.h"
#include "model/ParseError.h"
#include "sinks/TextSink.h"
#include "sources/logcat/LogcatSource.h"

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>

using namespace ryxsim;
using namespace ryxtest;

namespace {

constexpr char kBanner[] =
    "========================================================\n"
    "== dumpstate: 2026-11-24 10:00:00\n"
    "========================================================\n"
    "\n"
    "Build: test-build\n"
    "------ UPTIME (uptime) ------\n"
    "up 0 weeks, 0 days, 1 hour\n"
    "------ 0.003s was the duration of 'UPTIME' ------\n";
constexpr int kBannerLines = 8;

std::string fileText(std::string const& name) {
    std::ifstream in(std::string(RYX_LOGCAT_DATA) + "/" + name);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

int lineCount(std::string const& text) {
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

std::string systemLog() {
    return formatCapture(debugRun().entries, {"threadtime", "printable", "uid"});
}

std::string tombstone(int pid, int tid, std::string const& abort) {
    return "*** *** *** *** *** *** *** *** *** *** *** *** *** *** *** ***\n"
           "Build fingerprint: 'test/test/test:15/T/1:userdebug/test-keys'\n"
           "ABI: 'arm64'\n"
           "pid: " +
           std::to_string(pid) + ", tid: " + std::to_string(tid) +
           ", name: camera_pipe  >>> /vendor/bin/hw/camerahal <<<\n"
           "signal 6 (SIGABRT), code -1 (SI_QUEUE), fault addr --------\n"
           "Abort message: '" +
           abort + "'\n";
}

constexpr char kDuplicateAbort[] =
    "(input) Duplicate insert! frameno(37) input cam(2) "
    "(updateSyncElement){#99:hw/camsys/cam_coordinator/SyncHelper/SyncQueue}";

// A bugreport: the simulated run's log as the SYSTEM LOG, an EVENT LOG, a capture of the previous
// boot as the LAST LOGCAT, and `tombstones` in the text.
std::string bugreport(std::string const& tombstones) {
    return std::string(kBanner) +
           "------ SYSTEM LOG (logcat -v threadtime -v printable -v uid -d *:v) ------\n" +
           systemLog() + "------ 0.512s was the duration of 'SYSTEM LOG' ------\n" +
           "------ EVENT LOG (logcat -b events -v threadtime -v printable -v uid -d *:v) ------\n"
           "--------- beginning of events\n"
           "------ 0.020s was the duration of 'EVENT LOG' ------\n" +
           tombstones +
           "------ LAST LOGCAT (logcat -L -b all -v threadtime -v printable -v uid -d *:v) "
           "------\n" +
           fileText("threadtime_first_frame_waits.txt") +
           "------ 0.100s was the duration of 'LAST LOGCAT' ------\n";
}

int runPid() {
    return readLogcat(systemLog(), "plain").at(0).capture.pid;
}

// What an archive holds: (entry name, bytes) in order.
using Entries = std::vector<std::pair<std::string, std::string>>;

void writeArchive(std::string const& path, bool zip, Entries const& entries) {
    archive* a = archive_write_new();
    if (zip) {
        archive_write_set_format_zip(a);
    } else {
        archive_write_add_filter_gzip(a);
        archive_write_set_format_raw(a);
    }
    ASSERT_EQ(archive_write_open_filename(a, path.c_str()), ARCHIVE_OK) << archive_error_string(a);
    for (auto const& [name, bytes] : entries) {
        archive_entry* e = archive_entry_new();
        archive_entry_set_pathname(e, name.c_str());
        archive_entry_set_filetype(e, AE_IFREG);
        archive_entry_set_perm(e, 0644);
        archive_entry_set_size(e, static_cast<la_int64_t>(bytes.size()));
        ASSERT_EQ(archive_write_header(a, e), ARCHIVE_OK) << archive_error_string(a);
        ASSERT_EQ(archive_write_data(a, bytes.data(), bytes.size()),
                  static_cast<la_ssize_t>(bytes.size()));
        archive_entry_free(e);
    }
    archive_write_close(a);
    archive_write_free(a);
}

std::string tempPath(std::string const& name) {
    return std::string(::testing::TempDir()) + "/" + std::to_string(::getpid()) + "-" + name;
}

Timeline const* sectionSession(std::vector<Timeline> const& sessions, std::string const& section) {
    for (auto const& t : sessions) {
        if (t.capture.section == section) {
            return &t;
        }
    }
    return nullptr;
}

}  // namespace

TEST(Bugreport, EachLogIsReadAsItsSectionWithTheFilesLineNumbers) {
    auto plain = readLogcat(systemLog(), "plain").at(0);
    auto sessions = readLogcat(bugreport(""), "bugreport.txt");
    ASSERT_EQ(sessions.size(), 2u);
    Timeline const* now = sectionSession(sessions, "SYSTEM LOG");
    Timeline const* before = sectionSession(sessions, "LAST LOGCAT");
    ASSERT_TRUE(now && before);
    EXPECT_EQ(verdictsOf(*now), verdictsOf(plain));
    // The frames are where the bugreport has them: past the banner and the section's header.
    auto first = unpassedFrames(plain).at(0);
    auto same = now->frames.begin();
    while (same->frame != first->frame) {
        ++same;
    }
    EXPECT_EQ(*same->firstLine, *first->firstLine + kBannerLines + 1);

    EXPECT_EQ(before->capture.pid, 812);
    std::ostringstream text;
    writeText(text, *before);
    EXPECT_NE(text.str().find("section LAST LOGCAT (the previous boot)"), std::string::npos)
        << text.str();
    int lastLogcatHeader = kBannerLines + 1 + lineCount(systemLog()) + 4;
    EXPECT_GT(*before->frames.at(0).firstLine, lastLogcatHeader);
}

TEST(Bugreport, ATombstonesAbortOfTheLibraryGivesTheRuleItBroke) {
    int pid = runPid();
    std::string tombstones =
        "------ TOMBSTONE (/data/tombstones/tombstone_00: 2026-11-24 09:59:00) ------\n" +
        tombstone(pid, pid + 3, kDuplicateAbort) +
        "------ TOMBSTONE (/data/tombstones/tombstone_01: 2026-11-24 09:59:30) ------\n" +
        tombstone(4242, 4304,
                  "please check flow (onInput){#89:hw/camsys/cam_coordinator/"
                  "SyncHelper/SyncQueue}") +
        "------ TOMBSTONE (/data/tombstones/tombstone_02: 2026-11-24 09:59:40) ------\n" +
        tombstone(5000, 5001, "Check failed: some other library's assert");
    auto sessions = readLogcat(bugreport(tombstones), "bugreport.txt");
    ASSERT_EQ(sessions.size(), 3u);  // the other library's abort is not ours to report

    Timeline const* now = sectionSession(sessions, "SYSTEM LOG");
    ASSERT_TRUE(now);
    EXPECT_EQ(now->fatal, "camera 2 entered frame 37 twice");
    EXPECT_EQ(now->fatalText, kDuplicateAbort);
    bool noted = false;
    for (auto const& n : now->notes) {
        noted |= n.find("tombstone at line") != std::string::npos &&
                 n.find("process " + std::to_string(pid)) != std::string::npos;
    }
    EXPECT_TRUE(noted);

    Timeline const* unseen = sectionSession(sessions, "TOMBSTONE");
    ASSERT_TRUE(unseen);
    EXPECT_EQ(unseen->capture.pid, 4242);
    EXPECT_EQ(unseen->fatal, "an 11th frame was put in flight while ten waited");
    EXPECT_EQ(unseen->name, "tombstone of process 4242");
}

TEST(Bugreport, AZipAndAGzipAreReadAsTheirTextIs) {
    std::string text = bugreport("");
    std::string zip = tempPath("bugreport.zip");
    writeArchive(zip, true,
                 {{"version.txt", "2.0\n"},
                  {"bugreport-test-2026-11-24-10-00-00.txt", text},
                  {"FS/data/tombstones/tombstone_00", tombstone(4242, 4304, kDuplicateAbort)},
                  {"FS/data/tombstones/tombstone_00.pb", "\x0a\x02pb"},
                  {"main_entry.txt", "bugreport-test-2026-11-24-10-00-00.txt"}});
    auto fromText = readLogcat(text, "bugreport.txt");
    auto fromZip = readLogcatFile(zip);
    ASSERT_EQ(fromZip.size(), 3u);
    EXPECT_EQ(verdictsOf(fromZip[0]), verdictsOf(fromText[0]));
    EXPECT_EQ(fromZip[0].capture.section, "SYSTEM LOG");
    EXPECT_EQ(fromZip[0].frames.at(3).firstLine, fromText[0].frames.at(3).firstLine);
    EXPECT_NE(fromZip[0].source.find("bugreport-test-2026-11-24-10-00-00.txt"), std::string::npos);
    EXPECT_EQ(fromZip[2].fatal, "camera 2 entered frame 37 twice");
    EXPECT_NE(fromZip[2].description.find("FS/data/tombstones/tombstone_00, line 6"),
              std::string::npos)
        << fromZip[2].description;

    std::string gz = tempPath("capture.txt.gz");
    writeArchive(gz, false, {{"capture.txt", systemLog()}});
    auto fromGz = readLogcatFile(gz);
    ASSERT_EQ(fromGz.size(), 1u);
    EXPECT_EQ(verdictsOf(fromGz[0]), verdictsOf(readLogcat(systemLog(), "plain").at(0)));

    // Without main_entry.txt (an older bugreport), its one bugreport-*.txt.
    std::string older = tempPath("older.zip");
    writeArchive(older, true,
                 {{"version.txt", "1.0\n"},
                  {"FS/proc/version", "Linux version 6.1\n"},
                  {"bugreport-device-2026-11-24-10-00-00.txt", text}});
    auto fromOlder = readLogcatFile(older);
    ASSERT_EQ(fromOlder.size(), 2u);
    EXPECT_EQ(verdictsOf(fromOlder[0]), verdictsOf(fromText[0]));

    // Which file of an archive is the capture, when nothing says: refused, not guessed.
    std::string two = tempPath("two.zip");
    writeArchive(two, true, {{"a.txt", systemLog()}, {"b.txt", systemLog()}});
    try {
        readLogcatFile(two);
        ADD_FAILURE() << "an archive of two captures was read";
    } catch (ParseError const& e) {
        EXPECT_NE(std::string(e.what()).find("an archive of 2 files without main_entry.txt"),
                  std::string::npos)
            << e.what();
    }
    for (auto const& p : {zip, gz, older, two}) {
        std::remove(p.c_str());
    }
}
