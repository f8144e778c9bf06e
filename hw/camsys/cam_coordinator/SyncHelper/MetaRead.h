#pragma once
// Reading metadata without copying an entry just to look at it.

#include <NSCam/IMetadata.h>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

// True when `tag` is present in `metadata` (not null) with at least one item, exactly as
// !metadata->entryFor(tag).isEmpty(). The usual case, item 0 stored as T, is answered by a typed
// read that copies nothing; anything else (absent, empty, another type) by the entry itself.
template <typename T>
bool hasItems(NSCam::IMetadata const* metadata, NSCam::IMetadata::Tag_t tag) {
    T value{};
    return NSCam::IMetadata::getEntry<T>(metadata, tag, value) ||
           !metadata->entryFor(tag).isEmpty();
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
