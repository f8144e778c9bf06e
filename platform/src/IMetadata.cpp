#include <NSCam/IMetadata.h>

#include <utility>

namespace NSCam {

IMetadata::IEntry IMetadata::entryFor(Tag_t tag) const {
    auto it = mEntries.find(tag);
    if (it == mEntries.end()) {
        return IEntry(tag);
    }
    return it->second;
}

int IMetadata::update(Tag_t tag, IEntry const& entry) {
    auto it = mEntries.find(tag);
    if (it == mEntries.end()) {
        mEntries.emplace(tag, entry);
    } else {
        it->second = entry;
    }
    return 0;
}

int IMetadata::update(Tag_t tag, IEntry&& entry) {
    auto it = mEntries.find(tag);
    if (it == mEntries.end()) {
        mEntries.emplace(tag, std::move(entry));
    } else {
        it->second = std::move(entry);
    }
    return 0;
}

int IMetadata::remove(Tag_t tag) {
    return mEntries.erase(tag) > 0 ? 0 : -1;
}

}  // namespace NSCam
