# Stress: 3 and 4 sensor threads through many frames with drops, flushes, a sensor leaving and
# rejoining, crop updates and master switches (tests/stress/). Label "stress": long, so quick runs
# leave it out with `ctest -LE stress`; bound it with RYX_STRESS_FRAMES (default 100000 frames per
# configuration). Meant for the asan and tsan builds too.
add_executable(synchelper_stress stress/synchelper_stress.cpp)
target_link_libraries(synchelper_stress PRIVATE ryxcam_synchelper ryx_test_support GTest::gtest
  Threads::Threads)
add_test(NAME synchelper_stress COMMAND synchelper_stress)
set_tests_properties(synchelper_stress PROPERTIES LABELS stress TIMEOUT 3600)
