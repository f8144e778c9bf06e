#include <NSCam/Properties.h>

#if defined(__ANDROID__)
#include <cutils/properties.h>
#else
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <mutex>
#include <unordered_map>
#endif

namespace NSCam {
namespace Utils {
namespace Properties {

#if defined(__ANDROID__)

int32_t property_get_int32(const char* key, int32_t defaultValue) {
    return ::property_get_int32(key, defaultValue);
}

#else

namespace {
struct HostTable {
    std::mutex mutex;
    std::unordered_map<std::string, std::string> values;  // guarded by mutex
};
HostTable& table() {
    static HostTable* instance = new HostTable();  // outlives static destruction
    return *instance;
}
}  // namespace

// Parses like libcutils: base auto-detected, the whole text must be a number within int32.
int32_t property_get_int32(const char* key, int32_t defaultValue) {
    if (key == nullptr) {
        return defaultValue;
    }
    std::string text;
    {
        HostTable& t = table();
        std::lock_guard<std::mutex> lock(t.mutex);
        auto it = t.values.find(key);
        if (it == t.values.end()) {
            return defaultValue;
        }
        text = it->second;
    }
    if (text.empty()) {
        return defaultValue;
    }
    errno = 0;
    char* end = nullptr;
    long long value = std::strtoll(text.c_str(), &end, 0);
    if (errno != 0 || end == text.c_str() || *end != '\0' || value < INT32_MIN ||
        value > INT32_MAX) {
        return defaultValue;
    }
    return static_cast<int32_t>(value);
}

void setHostProperty(const std::string& key, const std::string& value) {
    HostTable& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    t.values[key] = value;
}

void clearHostProperty(const std::string& key) {
    HostTable& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    t.values.erase(key);
}

void clearHostProperties() {
    HostTable& t = table();
    std::lock_guard<std::mutex> lock(t.mutex);
    t.values.clear();
}

#endif

}  // namespace Properties
}  // namespace Utils
}  // namespace NSCam
