# Metadata reading helpers of the library.
ryx_add_test(metaread_test LABEL unit SOURCES metaread_test.cpp LIBS synchelper_internal)
# The single-camera path's per-thread record, through the exported interface.
ryx_add_test(facade_single_camera_test LABEL unit SOURCES facade_single_camera_test.cpp
  LIBS ryxcam_synchelper)
