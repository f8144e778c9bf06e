# synchelper-sim's log reader (unit, on hand-made captures in tests/data/logcat) and the round
# trip of a simulated run through its own log (e2e).
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(logcat_test LABEL unit SOURCES logcat_test.cpp LIBS synchelper_sim_core)
  target_compile_definitions(logcat_test PRIVATE
    RYX_LOGCAT_DATA="${CMAKE_CURRENT_SOURCE_DIR}/data/logcat")
endif()
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(logcat_roundtrip_test LABEL e2e SOURCES logcat_roundtrip_test.cpp
    LIBS synchelper_sim_run)
  target_compile_definitions(logcat_roundtrip_test PRIVATE
    RYX_SIM_SCENARIOS="${PROJECT_SOURCE_DIR}/tools/scenarios")
endif()
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(report_schema_test LABEL e2e SOURCES report_schema_test.cpp
    LIBS synchelper_sim_run)
  target_compile_definitions(report_schema_test PRIVATE
    RYX_REPORT_SCHEMA="${PROJECT_SOURCE_DIR}/tools/report.schema.json"
    RYX_LOGCAT_DATA="${CMAKE_CURRENT_SOURCE_DIR}/data/logcat")
endif()
if(RYX_BUILD_TOOLS AND EXISTS ${PROJECT_SOURCE_DIR}/tools/CMakeLists.txt)
  ryx_add_test(perfetto_format_test LABEL e2e SOURCES perfetto_format_test.cpp
    LIBS synchelper_sim_run)
  target_compile_definitions(perfetto_format_test PRIVATE
    RYX_LOGCAT_DATA="${CMAKE_CURRENT_SOURCE_DIR}/data/logcat")
endif()
