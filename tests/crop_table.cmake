# The per-frame crop records: pages of frame numbers (negative ones too), shared crop sets, and
# the counts the inspector reports.
ryx_add_test(frame_crop_table_test LABEL unit SOURCES frame_crop_table_test.cpp
  LIBS synchelper_internal)
