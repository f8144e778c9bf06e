# Stress: 3 and 4 sensor threads through many frames with drops, flushes, a sensor leaving and
# rejoining, crop updates and master switches (tests/stress/). Label "stress": long, so quick runs
# leave it out with `ctest -LE stress`; bound it with RYX_STRESS_FRAMES (default 100000 frames per
# configuration). Meant for the asan and tsan builds too.
add_executable(synchelper_stress stress/synchelper_stress.cpp stress/session_churn.cpp)
target_link_libraries(synchelper_stress PRIVATE ryxcam_synchelper ryx_test_support GTest::gtest
  Threads::Threads)
add_test(NAME synchelper_stress COMMAND synchelper_stress)
set_tests_properties(synchelper_stress PROPERTIES LABELS stress TIMEOUT 3600)

# The soak: the same driver, 3 sensors x 10000 frames, in every quick run (label e2e).
add_test(NAME facade_soak COMMAND synchelper_stress --frames=10000
  --gtest_filter=SyncHelperStress.ThreeSensors)
set_tests_properties(facade_soak PROPERTIES LABELS e2e TIMEOUT 900)
