#pragma once
// Host implementation of the camera stack's metadata container.
//
// A metadata object maps 32-bit tags to entries; an entry is an ordered list of typed items.
// Supported item types: uint8_t, int32_t, int64_t, float, double and MRect.
//
// Out-of-range and wrong-type reads are defined: itemAt<T>() returns a value-initialised T
// (0, 0.0f or an all-zero MRect) and tryItemAt<T>() returns false. An item is read only as the
// type it was stored with; there is no conversion between item types.
//
// Thread safety: none, like a standard container. One metadata object may be handed from thread
// to thread, but must not be used by two threads at once.

#include <NSCam/MRect.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace NSCam {

class IMetadata {
  public:
    using Tag_t = uint32_t;

    class IEntry {
      public:
        using Item = std::variant<uint8_t, int32_t, int64_t, float, double, MRect>;

        explicit IEntry(Tag_t tag = static_cast<Tag_t>(-1)) : mTag(tag) {}

        Tag_t tag() const { return mTag; }
        size_t count() const { return mItems.size(); }
        bool isEmpty() const { return mItems.empty(); }

        template <typename T>
        void push_back(T const& value) {
            mItems.emplace_back(std::in_place_type<Storage<T>>, static_cast<Storage<T>>(value));
        }

        // Value-initialised T when index is past the end or the item holds another type.
        template <typename T>
        T itemAt(size_t index) const {
            T value{};
            tryItemAt(index, value);
            return value;
        }

        // False, and value untouched, when index is past the end or the item holds another type.
        template <typename T>
        bool tryItemAt(size_t index, T& value) const {
            if (index >= mItems.size()) {
                return false;
            }
            auto const* held = std::get_if<Storage<T>>(&mItems[index]);
            if (held == nullptr) {
                return false;
            }
            value = static_cast<T>(*held);
            return true;
        }

        void clear() { mItems.clear(); }

      private:
        friend class IMetadata;  // setEntry() refills a stored entry in place

        // Maps the platform's integer spellings (int, long, unsigned char) onto the fixed widths.
        template <typename T>
        using Storage = std::conditional_t<
            std::is_same_v<T, MRect> || std::is_floating_point_v<T>, T,
            std::conditional_t<std::is_same_v<T, bool> || sizeof(T) == 1, uint8_t,
                               std::conditional_t<sizeof(T) == 4, int32_t, int64_t>>>;

        Tag_t mTag;
        std::vector<Item> mItems;
    };

    // Number of tags held.
    size_t count() const { return mEntries.size(); }
    bool isEmpty() const { return mEntries.empty(); }

    // A copy of the entry of `tag`; an empty entry carrying `tag` when the tag is absent.
    IEntry entryFor(Tag_t tag) const;

    // Replaces the entry of `tag` (an empty entry is stored as it is). Returns 0.
    int update(Tag_t tag, IEntry const& entry);
    // Same, taking over the items of `entry` instead of copying them; `entry` is left valid but
    // unspecified.
    int update(Tag_t tag, IEntry&& entry);

    // Removes `tag`; returns 0 when it was present, -1 otherwise.
    int remove(Tag_t tag);

    void clear() { mEntries.clear(); }

    // Item 0 of `tag` into `value`. False, value untouched, when metadata is null, the tag is
    // absent or empty, or item 0 holds another type.
    template <typename T>
    static bool getEntry(IMetadata const* metadata, Tag_t tag, T& value) {
        if (metadata == nullptr) {
            return false;
        }
        auto it = metadata->mEntries.find(tag);
        if (it == metadata->mEntries.end()) {
            return false;
        }
        return it->second.tryItemAt(0, value);
    }

    // Replaces `tag` with a one-item entry holding `value`. False when metadata is null.
    // A tag already present is refilled in place: its item storage is kept, nothing allocated.
    template <typename T>
    static bool setEntry(IMetadata* metadata, Tag_t tag, T const& value) {
        if (metadata == nullptr) {
            return false;
        }
        auto it = metadata->mEntries.find(tag);
        if (it == metadata->mEntries.end()) {
            it = metadata->mEntries.emplace(tag, IEntry(tag)).first;
        }
        IEntry& entry = it->second;
        entry.mTag = tag;
        entry.mItems.clear();
        entry.push_back(value);
        return true;
    }

    // Ordered iteration for tools that dump metadata.
    std::map<Tag_t, IEntry> const& entries() const { return mEntries; }

  private:
    std::map<Tag_t, IEntry> mEntries;
};

}  // namespace NSCam
