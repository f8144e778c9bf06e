#pragma once
// synchelper-sim run as a user runs it: a fresh temporary folder per test, the binary under a
// watchdog, its exit status, standard output and standard error; every report and trace it
// wrote is validated against the tool's schemas at the end of the test.

#include "SchemaValidation.h"
#include "Watchdog.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace ryxtest {

using namespace std::chrono_literals;

class CommandLine : public ::testing::Test {
  protected:
    struct Result {
        int status = -1;
        std::string out, err;
    };

    void SetUp() override {
        char tmpl[] = "/tmp/synchelper-sim-test-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        mDir = tmpl;
    }
    // Every JSON report and Perfetto trace the test had the tool write (files, and the last
    // standard output) is validated against the tool's schemas before the folder goes.
    void TearDown() override {
        std::vector<std::string> reports, traces;
        for (auto const& e : std::filesystem::directory_iterator(mDir)) {
            if (!e.is_regular_file()) {
                continue;
            }
            std::ifstream in(e.path());
            nlohmann::json doc = nlohmann::json::parse(in, nullptr, false);
            if (doc.is_discarded()) {
                continue;
            }
            nlohmann::json first = doc.is_array() && !doc.empty() ? doc[0] : doc;
            if (first.is_object() && first.value("tool", "") == "synchelper-sim") {
                reports.push_back(e.path().string());
            } else if (doc.is_object() && doc.contains("traceEvents")) {
                traces.push_back(e.path().string());
            }
        }
        if (!reports.empty()) {
            EXPECT_EQ(schemaErrors(RYX_REPORT_SCHEMA, reports), "");
        }
        if (!traces.empty()) {
            EXPECT_EQ(schemaErrors(RYX_TRACE_SCHEMA, traces), "");
        }
        std::system(("rm -rf '" + mDir + "'").c_str());
    }

    std::string path(std::string const& name) const { return mDir + "/" + name; }
    std::string slurp(std::string const& name) const {
        std::stringstream ss;
        ss << std::ifstream(path(name)).rdbuf();
        return ss.str();
    }
    nlohmann::json json(std::string const& name) const {
        return nlohmann::json::parse(slurp(name));
    }

    // `args` starts with the subcommand; runs and replays get `progress` after it.
    Result sim(std::string const& args, char const* progress = " --no-progress ",
               std::string const& input = "") {
        ryxtest::Watchdog dog("synchelper-sim " + args, 60s);
        size_t word = args.find(' ');
        std::string command = args.substr(0, word);
        std::string rest = word == std::string::npos ? "" : args.substr(word);
        bool runs = command == "run" || command == "replay";
        int raw =
            std::system((std::string(RYX_SIM_BINARY) + " " + command + (runs ? progress : " ") +
                         rest + " <'" + (input.empty() ? "/dev/null" : input) + "' >'" +
                         path("stdout") + "' 2>'" + path("stderr") + "'")
                            .c_str());
        dog.disarm();
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw), slurp("stdout"),
                slurp("stderr")};
    }

    std::string mDir;
};

}  // namespace ryxtest
