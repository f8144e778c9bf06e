#pragma once
// Reading metadata in place: looking at an entry, or taking its items, never copies the entry.

#include <NSCam/IMetadata.h>

#include <cstddef>
#include <vector>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

// True when `metadata` is not null and holds `tag` with at least one item, of whatever type:
// exactly !metadata->entryFor(tag).isEmpty().
inline bool hasItems(NSCam::IMetadata const* metadata, NSCam::IMetadata::Tag_t tag) {
    NSCam::IMetadata::IEntry const* entry =
        metadata != nullptr ? metadata->findEntry(tag) : nullptr;
    return entry != nullptr && !entry->isEmpty();
}

// Appends every item of `tag` to `list` in order, each read as itemAt<T>() reads it (an item of
// another type as a value-initialised T). Nothing is appended when metadata is null or the tag is
// absent. `list` keeps its capacity, so a list filled again and again stops allocating.
template <typename T>
void appendItems(NSCam::IMetadata const* metadata, NSCam::IMetadata::Tag_t tag,
                 std::vector<T>& list) {
    NSCam::IMetadata::IEntry const* entry =
        metadata != nullptr ? metadata->findEntry(tag) : nullptr;
    if (entry == nullptr) {
        return;
    }
    size_t const count = entry->count();
    list.reserve(list.size() + count);
    for (size_t i = 0; i < count; ++i) {
        list.push_back(entry->itemAt<T>(i));
    }
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
