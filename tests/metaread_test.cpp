// The in-place readers answer exactly what copying the entry answers, in every case a pipeline can
// produce: absent, stored empty, stored as the expected type, stored as another type, mixed.

#include <gtest/gtest.h>

#include <vector>

#include "MetaBuilder.h"
#include "MetaRead.h"

namespace {

using NSCam::IMetadata;
using NSCam::camsys::camcoordinator::appendItems;
using NSCam::camsys::camcoordinator::hasItems;

constexpr IMetadata::Tag_t kTag = 0xc0080001;

struct Stored {
    IMetadata absent, empty, ints, bytes, floats, mixed;
    Stored() {
        empty.update(kTag, IMetadata::IEntry(kTag));
        ryxtest::setInts(ints, kTag, {0, 2, -7});
        ryxtest::setOne<uint8_t>(bytes, kTag, 7);
        ryxtest::setOne<float>(floats, kTag, 1.5f);
        IMetadata::IEntry entry(kTag);
        entry.push_back<int32_t>(4);
        entry.push_back<float>(2.5f);
        entry.push_back<int32_t>(9);
        mixed.update(kTag, entry);
    }
    std::vector<std::pair<char const*, IMetadata const*>> all() const {
        return {{"absent", &absent},    {"empty", &empty},       {"int32 items", &ints},
                {"uint8 item", &bytes}, {"float item", &floats}, {"mixed", &mixed}};
    }
};

// The items as a copy of the entry reads them.
std::vector<int> copiedInts(IMetadata const& meta) {
    IMetadata::IEntry const entry = meta.entryFor(kTag);
    std::vector<int> items;
    for (size_t i = 0; i < entry.count(); ++i) {
        items.push_back(entry.itemAt<int>(i));
    }
    return items;
}

TEST(MetaRead, HasItemsAgreesWithTheCopiedEntryWhateverIsStored) {
    Stored const stored;
    for (auto const& [what, meta] : stored.all()) {
        EXPECT_EQ(hasItems<int>(meta, kTag), !meta->entryFor(kTag).isEmpty()) << what;
    }
    EXPECT_TRUE(hasItems<int>(&stored.mixed, kTag));
    EXPECT_FALSE(hasItems<int>(&stored.empty, kTag));
    EXPECT_FALSE(hasItems<int>(nullptr, kTag));
}

TEST(MetaRead, AppendItemsAppendsWhatTheCopiedEntryHoldsAfterWhatTheListHeld) {
    Stored const stored;
    for (auto const& [what, meta] : stored.all()) {
        std::vector<int> list{42};
        appendItems<int>(meta, kTag, list);
        std::vector<int> expected{42};
        for (int const item : copiedInts(*meta)) {
            expected.push_back(item);
        }
        EXPECT_EQ(list, expected) << what;
    }
    std::vector<int> mixed;
    appendItems<int>(&stored.mixed, kTag, mixed);
    EXPECT_EQ(mixed, (std::vector<int>{4, 0, 9})) << "an item of another type reads as 0";
    std::vector<int> none{1};
    appendItems<int>(nullptr, kTag, none);
    EXPECT_EQ(none, std::vector<int>{1});
}

}  // namespace
