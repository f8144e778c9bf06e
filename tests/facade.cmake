# The façade: SyncHelper reached directly, whole sessions through the exported interface, and the
# library's exported symbols. (The soak is the stress binary's short run: stress.cmake.)
ryx_add_test(facade_unit_test LABEL unit SOURCES facade_unit_test.cpp LIBS synchelper_internal)
ryx_add_test(facade_e2e_test LABEL e2e SOURCES facade_e2e_test.cpp LIBS ryxcam_synchelper)

# The export check, and two runs proving it can fail: on the internal archive every class is
# visible, and the platform library lacks the factory.
find_program(RYX_NM NAMES nm llvm-nm REQUIRED)
set(RYX_EXPORT_CHECK sh ${CMAKE_CURRENT_SOURCE_DIR}/facade_check_exports.sh ${RYX_NM})
add_test(NAME facade_exports COMMAND ${RYX_EXPORT_CHECK} $<TARGET_FILE:ryxcam_synchelper>)
add_test(NAME facade_exports_flags_internal_symbols
  COMMAND ${RYX_EXPORT_CHECK} $<TARGET_FILE:synchelper_internal> -gC --defined-only)
add_test(NAME facade_exports_flags_missing_factory
  COMMAND ${RYX_EXPORT_CHECK} $<TARGET_FILE:ryxcam_platform>)
set_tests_properties(facade_exports PROPERTIES LABELS unit PASS_REGULAR_EXPRESSION "exports ok")
set_tests_properties(facade_exports_flags_internal_symbols PROPERTIES LABELS unit
  PASS_REGULAR_EXPRESSION
  "exported: SyncQueue [(].*exported: SyncQueue_ResultCheck_Cb [(].*exported: TimestampSyncDataUpdater [(].*exported: synclog [(]")
set_tests_properties(facade_exports_flags_missing_factory PROPERTIES LABELS unit
  PASS_REGULAR_EXPRESSION "missing export: NSCam::camsys::camcoordinator::ISyncHelper::createInstance")
