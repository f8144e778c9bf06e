# The sync queue: rendezvous on real threads, its containers, and its fatal flows.
ryx_add_test(queue_test LABEL threaded
  SOURCES queue_rendezvous_test.cpp queue_state_test.cpp
  LIBS synchelper_internal)
ryx_add_test(queue_death_test LABEL unit
  SOURCES queue_death_test.cpp
  LIBS synchelper_internal)
