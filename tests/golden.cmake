# The golden-log session: every log line, verdict and written value of a fixed session compared
# with tests/golden/session.log (through the exported interface, real threads ordered by
# readiness).
ryx_add_test(golden_log_test LABEL e2e SOURCES golden_log_test.cpp LIBS synchelper_internal)
target_compile_definitions(golden_log_test PRIVATE
  RYX_GOLDEN_FILE="${CMAKE_CURRENT_SOURCE_DIR}/golden/session.log")
