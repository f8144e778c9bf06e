#pragma once
// synchelper-sim run as a user runs it: a fresh temporary folder per test, the binary under a
// watchdog, its exit status, standard output and standard error.

#include "Watchdog.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
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
    void TearDown() override { std::system(("rm -rf '" + mDir + "'").c_str()); }

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
