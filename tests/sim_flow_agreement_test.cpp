// One story per input: for every contract trace, what the call-flow check says, what an ordered
// replay does and what free-running replays do agree, or the report says why they differ. A
// disagreement is a fault of the check or of the runner.

#include "SimCommandLine.h"
#include "sources/run/FlowCheck.h"
#include "sources/trace/TraceIo.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <filesystem>
#include <set>

using ryxtest::CommandLine;
using namespace ryxsim;

namespace {

std::vector<std::string> contractTraces() {
    std::vector<std::string> files;
    for (auto const& e : std::filesystem::directory_iterator(RYX_CONTRACT_TRACES)) {
        files.push_back(e.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::set<int> blockedCameras(nlohmann::json const& report) {
    std::set<int> cameras;
    for (auto const& b : report["anomalies"]["blocked_threads"]) {
        cameras.insert(b["sensor"].get<int>());
    }
    return cameras;
}

}  // namespace

class FlowAgreement : public CommandLine {
  protected:
    // The ordered replay does exactly what the check foresaw for trace order.
    void expectOrderedReplay(std::string const& file, FlowOutcome const& foreseen) {
        Result r = sim("replay " + file + " --allow-fatal --ordered --deadline 0.3 --json " +
                       path("ordered.json"));
        switch (foreseen.kind) {
            case FlowOutcome::Kind::Completes:
                EXPECT_EQ(r.status, 0) << r.err;
                EXPECT_EQ(json("ordered.json")["notes"], nlohmann::json::array());
                break;
            case FlowOutcome::Kind::Aborts:
                EXPECT_EQ(r.status, 128 + SIGABRT);
                EXPECT_NE(r.err.find("the library ended the process (fatal 1): " + foreseen.fatal),
                          std::string::npos)
                    << r.err;
                break;
            case FlowOutcome::Kind::Blocks:
                EXPECT_EQ(r.status, 3) << r.err;
                EXPECT_EQ(blockedCameras(json("ordered.json")), foreseen.waiting);
                break;
        }
    }

    // A free run either does what trace order does, aborts on a rule the check named, or says in
    // its report how and why it differs from trace order.
    void expectFreeReplay(std::string const& file, FlowReport const& check) {
        Result r =
            sim("replay " + file + " --allow-fatal --deadline 0.3 --json " + path("free.json"));
        if (r.status == 128 + SIGABRT) {
            EXPECT_FALSE(check.violations.empty()) << "an abort the check did not name\n" << r.err;
            return;
        }
        ASSERT_TRUE(r.status == 0 || r.status == 3) << r.status << "\n" << r.err;
        nlohmann::json report = json("free.json");
        FlowOutcome did = runOutcome(blockedCameras(report));
        bool same = did.kind == check.traceOrder.kind && did.waiting == check.traceOrder.waiting;
        std::string note = report["notes"].empty() ? "" : report["notes"][0].get<std::string>();
        if (check.violations.empty() && check.warnings.empty()) {
            EXPECT_TRUE(same) << "a clean trace ran " << did.words << "\n" << r.err;
        }
        if (same) {
            EXPECT_EQ(note, "");
        } else {
            EXPECT_EQ(note, flowDifference(check, did, false));
            EXPECT_NE(note.find("because its threads arrived in another order"), std::string::npos);
        }
    }
};

TEST_F(FlowAgreement, CheckOrderedAndFreeRunsTellOneStoryOnEveryContractTrace) {
    auto files = contractTraces();
    ASSERT_GE(files.size(), 10u);
    for (std::string const& file : files) {
        SCOPED_TRACE(file);
        FlowReport check = checkCallFlow(readTraceFile(file));

        // Without --allow-fatal a broken contract is named, line by line, and nothing runs.
        Result refused = sim("replay " + file + " --deadline 0.3");
        if (!check.violations.empty()) {
            EXPECT_EQ(refused.status, 2);
            EXPECT_EQ(refused.out, "");
            for (auto const& v : check.violations) {
                EXPECT_NE(refused.err.find("error: call flow: " + v + "\n"), std::string::npos)
                    << v;
            }
        }
        for (auto const& w : check.warnings) {
            EXPECT_NE(refused.err.find("warning: call flow: " + w + "\n"), std::string::npos) << w;
        }
        expectOrderedReplay(file, check.traceOrder);
        for (int run = 0; run < 4; ++run) {
            expectFreeReplay(file, check);
        }
    }
}

// The faults this test found, each named: a claim that the trace order aborts where in trace
// order the outside camera comes after the frame completed (it blocks instead); a camera sending
// a frame twice, passed by the check; a repeat queued behind the camera's own waiting call, which
// blocks an ordered replay; a drop without sync ids, which the library ignores.
TEST(FlowCheckRegressions, EachFaultTheAgreementFoundIsForeseen) {
    std::string const dir = RYX_CONTRACT_TRACES;
    auto check = [&](std::string const& name) {
        return checkCallFlow(readTraceFile(dir + "/" + name));
    };
    FlowReport after = check("outside_targets_after_completion.csv");
    EXPECT_EQ(after.traceOrder.kind, FlowOutcome::Kind::Blocks);
    EXPECT_EQ(after.traceOrder.waiting, std::set<int>{2});
    for (auto const& v : after.violations) {
        EXPECT_EQ(v.find("trace order"), std::string::npos) << v;
    }

    FlowReport repeated = check("repeated_frame.csv");
    ASSERT_EQ(repeated.violations.size(), 1u);
    EXPECT_EQ(repeated.violations[0],
              "f0: camera 1 sends its result twice (line 3 and line 4): a pipeline delivers each "
              "frame once; the library takes a repeat as a new arrival, so its verdicts depend on "
              "the arrival order");
    EXPECT_EQ(repeated.traceOrder.kind, FlowOutcome::Kind::Completes);

    FlowReport behind = check("repeated_frame_before_partner.csv");
    EXPECT_EQ(behind.traceOrder.kind, FlowOutcome::Kind::Blocks);
    EXPECT_EQ(behind.traceOrder.waiting, (std::set<int>{0, 1}));

    FlowReport ignored = check("drop_without_sync_ids.csv");
    EXPECT_EQ(ignored.traceOrder.kind, FlowOutcome::Kind::Blocks);
    EXPECT_EQ(ignored.traceOrder.waiting, std::set<int>{0});
}
