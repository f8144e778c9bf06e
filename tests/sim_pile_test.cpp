// A test lab's pile of bugreports through `explain`: a hundred generated bugreport zips, one of
// them cut short, explained into one table whose rows agree with each capture explained alone.

#include "SimCommandLine.h"

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

using namespace ryxtest;

namespace {

std::vector<std::string> lines(std::string const& text) {
    std::vector<std::string> v;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) {
        v.push_back(l);
    }
    return v;
}

}  // namespace

TEST_F(CommandLine, AHundredBugreportsAreOneTableWithTheBrokenZipAsItsOwnRow) {
    std::string pile = path("pile");
    ASSERT_EQ(
        std::system((std::string(RYX_PYTHON) +
                     " '" RYX_SOURCE_DIR "/scripts/make-bugreport-pile.py' '" RYX_SIM_BINARY "' '" +
                     pile + "' 100 40")
                        .c_str()),
        0);
    Result r = sim("explain '" + pile + "' --summary '" + path("pile.csv") + "'");
    EXPECT_EQ(r.status, 2) << "one capture could not be read: " << r.err;
    EXPECT_NE(r.out.find("100 captures, 99 sessions, 1 captures not read"), std::string::npos)
        << r.out;
    std::vector<std::string> csv = lines(slurp("pile.csv"));
    ASSERT_EQ(csv.size(), 101u);
    EXPECT_EQ(csv[0].rfind("capture,section,process,session,every_call,sensors,frames,", 0), 0u);
    std::set<std::string> builds;
    int broken = 0;
    for (size_t i = 1; i < csv.size(); ++i) {
        if (csv[i].find("cannot unpack it") != std::string::npos) {
            ++broken;
            EXPECT_NE(csv[i].find("bugreport-lab-050.zip"), std::string::npos) << csv[i];
            continue;
        }
        EXPECT_NE(csv[i].find(",SYSTEM LOG,"), std::string::npos) << csv[i];
        builds.insert(csv[i].substr(csv[i].find(",ryx/")));
    }
    EXPECT_EQ(broken, 1);
    EXPECT_EQ(builds.size(), 3u) << "each bugreport's build fingerprint is its row's";

    // Each row is what the capture says alone.
    for (std::string const name : {"bugreport-lab-007.zip", "bugreport-lab-008.zip"}) {
        SCOPED_TRACE(name);
        Result one = sim("explain '" + pile + "/" + name + "' --json '" + path("one.json") + "'");
        ASSERT_EQ(one.status, 0) << one.err;
        auto report = json("one.json");
        int notPassed = 0;
        for (auto const& s : report["sensors"]) {
            notPassed += s["offered"].get<int>() - s["in_sync"].get<int>() -
                         s["unchecked"].get<int>() - s["undetermined"].get<int>();
        }
        Result row = sim("explain '" + pile + "/" + name + "' --summary - --summary-format jsonl");
        ASSERT_EQ(row.status, 0) << row.err;
        auto j = nlohmann::json::parse(row.out);
        EXPECT_EQ(j["frames"], report["frames"]);
        EXPECT_EQ(j["not_passed"], notPassed);
        EXPECT_EQ(j["every_call"], name == std::string("bugreport-lab-007.zip"));  // 008 is warn
    }
}

TEST_F(CommandLine, APileTakesFilesFoldersAndStandardInputAndRefusesOneCaptureOptions) {
    ASSERT_EQ(sim("run --frames 30 --log debug --write-logcat '" + path("a.log") + "'").status, 0);
    ASSERT_EQ(sim("run --frames 30 --system-trace '" + path("b.trace") + "'").status, 0);
    Result r = sim("explain '" + path("a.log") + "' - '" + path("missing.txt") + "' --summary '" +
                       path("s.jsonl") + "'",
                   "", path("b.trace"));
    EXPECT_EQ(r.status, 2) << r.err;
    std::vector<std::string> rows = lines(slurp("s.jsonl"));
    ASSERT_EQ(rows.size(), 3u) << slurp("s.jsonl");
    EXPECT_EQ(nlohmann::json::parse(rows[0])["capture"], path("a.log"));
    EXPECT_EQ(nlohmann::json::parse(rows[1])["capture"], "standard input");
    EXPECT_EQ(nlohmann::json::parse(rows[1])["frames"], 30);
    EXPECT_NE(nlohmann::json::parse(rows[2])["error"].get<std::string>().find("No such file"),
              std::string::npos)
        << rows[2];
    for (char const* one : {"--follow", "--json x.json", "--what-if mode=0", "--session 1"}) {
        Result refused = sim("explain '" + path("a.log") + "' '" + path("a.log") + "' " + one);
        EXPECT_EQ(refused.status, 2) << one;
        EXPECT_NE(refused.err.find("take one capture"), std::string::npos) << refused.err;
    }
}
