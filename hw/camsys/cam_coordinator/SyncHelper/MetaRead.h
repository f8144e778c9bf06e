#pragma once
// Reading metadata through the platform's own operations (getEntry, entryFor) at the least cost
// each allows: a presence test answered by a typed read where it can, list items taken in one go.

#include <NSCam/IMetadata.h>

#include <cstddef>
#include <vector>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

// True when `metadata` is not null and holds `tag` with at least one item, of whatever type:
// exactly !metadata->entryFor(tag).isEmpty(). The usual case, item 0 stored as T, is answered by
// a typed read that copies nothing; anything else (absent, empty, another type) by the entry.
template <typename T>
bool hasItems(NSCam::IMetadata const* metadata, NSCam::IMetadata::Tag_t tag) {
    if (metadata == nullptr) {
        return false;
    }
    T value{};
    return NSCam::IMetadata::getEntry<T>(metadata, tag, value) ||
           !metadata->entryFor(tag).isEmpty();
}

// Appends every item of `tag` to `list` in order, each read as itemAt<T>() reads it (an item of
// another type as a value-initialised T). Nothing is appended when metadata is null or the tag is
// absent. `list` keeps its capacity, so a list filled again and again stops allocating.
template <typename T>
void appendItems(NSCam::IMetadata const* metadata, NSCam::IMetadata::Tag_t tag,
                 std::vector<T>& list) {
    if (metadata == nullptr) {
        return;
    }
    NSCam::IMetadata::IEntry const entry = metadata->entryFor(tag);
    size_t const count = entry.count();
    if (count == 0) {
        return;
    }
    list.reserve(list.size() + count);
    for (size_t i = 0; i < count; ++i) {
        list.push_back(entry.itemAt<T>(i));
    }
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
