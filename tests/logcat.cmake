# synchelper-sim's log reader (unit, on hand-made captures in tests/data/logcat), the round trip
# of a simulated run through its own log, and the formats of the JSON report and the Perfetto
# trace checked on real output (e2e).
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  set(RYX_LOGCAT_DATA RYX_LOGCAT_DATA="${CMAKE_CURRENT_SOURCE_DIR}/data/logcat")
  ryx_add_test(logcat_test LABEL unit SOURCES logcat_test.cpp LIBS synchelper_sim_core)
  target_compile_definitions(logcat_test PRIVATE ${RYX_LOGCAT_DATA})
  ryx_add_test(logcat_roundtrip_test LABEL e2e SOURCES logcat_roundtrip_test.cpp
    LIBS synchelper_sim_run)
  target_compile_definitions(logcat_roundtrip_test PRIVATE
    RYX_SIM_SCENARIOS="${PROJECT_SOURCE_DIR}/tools/scenarios")
  ryx_add_test(sim_formats_test LABEL e2e
    SOURCES report_schema_test.cpp perfetto_format_test.cpp LIBS synchelper_sim_run Android::log)
  target_compile_definitions(sim_formats_test PRIVATE ${RYX_LOGCAT_DATA} ${RYX_SCHEMA_CHECKS})
endif()
# Captures printed by Android's own logcat formatter in every format and modifier, read back.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(logcat_formats_test LABEL e2e SOURCES logcat_formats_test.cpp
    LIBS synchelper_sim_run Android::log)
  target_compile_definitions(logcat_formats_test PRIVATE
    RYX_SIM_SCENARIOS="${PROJECT_SOURCE_DIR}/tools/scenarios")
endif()
# Gaps in a capture: chatty lines, cut lines, a mid-session start, time going back.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(logcat_gaps_test LABEL e2e SOURCES logcat_gaps_test.cpp
    LIBS synchelper_sim_run Android::log)
endif()
# A capture's calendar: dates without their year past 31 December, zoned times past the end of
# summer time.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(logcat_calendar_test LABEL e2e SOURCES logcat_calendar_test.cpp
    LIBS synchelper_sim_run Android::log)
endif()
# The library's catalogue of messages, read back as the tool's readers read the log.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(library_messages_test LABEL unit SOURCES library_messages_test.cpp
    LIBS synchelper_sim_core)
endif()
# A capture's bytes as lines: its encodings, fed in chunks of every size.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(capture_decoder_test LABEL unit SOURCES capture_decoder_test.cpp
    LIBS synchelper_sim_core)
endif()
# The tool stays in small functions, none over 80 lines, and its includes run one way (cli ->
# sources -> model <- sinks): the script names any function or include that does not.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  find_package(Python3 COMPONENTS Interpreter REQUIRED)
  add_test(NAME tool_functions_stay_short
    COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/scripts/function-lengths.py
      ${PROJECT_SOURCE_DIR}/tools/sim)
  set_tests_properties(tool_functions_stay_short PROPERTIES LABELS unit)
endif()
# Bugreports (text, zip) and compressed captures, written by the tests with libarchive.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  find_package(LibArchive 3 REQUIRED)
  ryx_add_test(logcat_bugreport_test LABEL e2e SOURCES logcat_bugreport_test.cpp
    LIBS synchelper_sim_run Android::log LibArchive::LibArchive)
  target_compile_definitions(logcat_bugreport_test PRIVATE ${RYX_LOGCAT_DATA})
endif()
# The diagnosis judged against the truth: random sessions through the real library, their log
# printed and changed as real captures are, every statement of the report checked. Its own label:
# it looks for faults of the log reader, not races, so the thread sanitizer's stage skips it.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(diagnosis_truth_test LABEL truth
    SOURCES diagnosis_truth_test.cpp support/TruthSessions.cpp support/TruthCapture.cpp
      support/TruthJudge.cpp
    LIBS synchelper_sim_run Android::log)
endif()
# The same truth for the library's system-trace points: random sessions traced, the trace read
# back whole, among other processes' events, cut and with lost events.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(trace_truth_test LABEL truth
    SOURCES trace_truth_test.cpp support/TruthSessions.cpp
    LIBS synchelper_sim_run Android::log)
endif()
# The system-trace reader: line forms and hand-made traces.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(system_trace_test LABEL unit SOURCES system_trace_test.cpp LIBS synchelper_sim_core)
endif()
# A capture made into a trace of calls and replayed: the same random sessions, every verdict of
# the replay judged against the run's own, and a what-if whose outcome is known.
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(replay_truth_test LABEL truth
    SOURCES replay_truth_test.cpp support/TruthSessions.cpp
    LIBS synchelper_sim_run Android::log)
endif()
