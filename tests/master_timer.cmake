# Ten sync groups completing frames at once: the masters' check-timer lines on both channels
# (threaded: also run in the tsan build, which shows whether the timer is race-free).
ryx_add_test(facade_master_timer_test LABEL threaded SOURCES facade_master_timer_test.cpp
  LIBS ryxcam_synchelper)
