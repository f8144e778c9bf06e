# Finds Android's liblog: on Debian, package android-liblog-dev installs it under
# /usr/lib/<multiarch>/android with headers in /usr/include/android.
# Defines the imported target Android::log.
find_path(AndroidLog_INCLUDE_DIR android/log.h PATHS /usr/include/android NO_DEFAULT_PATH)
find_path(AndroidLog_INCLUDE_DIR android/log.h)
set(_ryx_android_libdirs)
if(CMAKE_LIBRARY_ARCHITECTURE)
  list(APPEND _ryx_android_libdirs /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)
endif()
find_library(AndroidLog_LIBRARY NAMES log PATHS ${_ryx_android_libdirs} NO_DEFAULT_PATH)
find_library(AndroidLog_LIBRARY NAMES log)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(AndroidLog REQUIRED_VARS AndroidLog_LIBRARY AndroidLog_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "install the Debian package android-liblog-dev")
if(AndroidLog_FOUND AND NOT TARGET Android::log)
  add_library(Android::log SHARED IMPORTED)
  set_target_properties(Android::log PROPERTIES
    IMPORTED_LOCATION ${AndroidLog_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${AndroidLog_INCLUDE_DIR})
endif()
