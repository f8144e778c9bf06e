# The queue's arrival record on its own, against a list-of-sets reference.
ryx_add_test(arrival_record_test LABEL unit SOURCES arrival_record_test.cpp LIBS synchelper_internal)
