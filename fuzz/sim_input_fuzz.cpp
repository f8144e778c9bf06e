// The simulator's readers of hostile input: an Android log capture (and the report, JSON and
// trace drawn from it), a trace file, a scenario file. Any input must end in a result or a
// ParseError naming its file and line; a crash, a hang or unbounded memory is a finding.
//
// The first byte picks the reader: 'L' the log reader, 'T' the trace reader, 'S' the scenario
// reader; the rest is the file's text.

#include "model/ParseError.h"
#include "sinks/JsonSink.h"
#include "sinks/PerfettoSink.h"
#include "sinks/TextSink.h"
#include "sources/logcat/LogcatSource.h"
#include "sources/scenario/Scenario.h"
#include "sources/trace/TraceIo.h"

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    std::string text(reinterpret_cast<char const*>(data) + 1, size - 1);
    try {
        switch (data[0]) {
            case 'L': {
                auto sessions = ryxsim::readLogcat(text, "fuzz.log");
                if (sessions.empty()) {
                    std::abort();  // a capture always gives at least one session
                }
                std::ostringstream out;
                for (auto const& t : sessions) {
                    ryxsim::writeText(out, t);
                }
                out << ryxsim::reportJson(sessions).dump(-1, ' ', false,
                                                         nlohmann::json::error_handler_t::replace);
                ryxsim::writePerfetto(out, sessions);
                break;
            }
            case 'T':
                ryxsim::parseTrace(text, "fuzz.csv");
                break;
            case 'S':
                ryxsim::parseScenario(text, "fuzz.json");
                break;
            default:
                break;
        }
    } catch (ryxsim::ParseError const& e) {
        if (e.line() < 1 || e.file().empty()) {
            std::abort();  // every error names where it is
        }
    }
    return 0;
}
