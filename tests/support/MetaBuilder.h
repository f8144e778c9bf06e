#pragma once
// Small builders for test metadata.

#include <NSCam/IMetadata.h>

#include <cstdint>
#include <initializer_list>

namespace ryxtest {

// Sets `tag` to the int32 items given (an empty list stores an empty entry).
inline void setInts(NSCam::IMetadata& meta, uint32_t tag, std::initializer_list<int32_t> items) {
    NSCam::IMetadata::IEntry entry(tag);
    for (int32_t v : items) {
        entry.push_back(v);
    }
    meta.update(tag, entry);
}

template <typename T>
void setOne(NSCam::IMetadata& meta, uint32_t tag, T value) {
    NSCam::IMetadata::setEntry<T>(&meta, tag, value);
}

template <typename T>
bool getOne(NSCam::IMetadata const& meta, uint32_t tag, T& value) {
    return NSCam::IMetadata::getEntry<T>(&meta, tag, value);
}

}  // namespace ryxtest
