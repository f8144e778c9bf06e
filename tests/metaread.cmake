# Metadata reading helpers of the library.
ryx_add_test(metaread_test LABEL unit SOURCES metaread_test.cpp LIBS synchelper_internal)
