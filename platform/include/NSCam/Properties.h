#pragma once
// System property reader of the camera stack.
//
// On Android builds property_get_int32 is libcutils' reader. On the host it reads an in-process
// table that tests and tools fill with setHostProperty; an absent or unparsable property gives
// the default. The host table is thread-safe.

#include <cstdint>
#include <string>

namespace NSCam {
namespace Utils {
namespace Properties {

int32_t property_get_int32(const char* key, int32_t defaultValue);

#if !defined(__ANDROID__)
// Host only: sets `key` to `value` (the text a device property would hold).
void setHostProperty(const std::string& key, const std::string& value);
// Host only: removes `key`, so that readers see their default again.
void clearHostProperty(const std::string& key);
// Host only: removes every property.
void clearHostProperties();
#endif

}  // namespace Properties
}  // namespace Utils
}  // namespace NSCam
