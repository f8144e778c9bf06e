# The four result writers (updaters), exercised on hand-built frames.
ryx_add_test(updaters_test LABEL unit
  SOURCES updaters_timestamp_test.cpp updaters_mastercam_test.cpp updaters_physical_test.cpp
          updaters_death_test.cpp
  LIBS synchelper_internal)
ryx_add_test(updaters_threaded_test LABEL threaded
  SOURCES updaters_threaded_test.cpp
  LIBS synchelper_internal)
