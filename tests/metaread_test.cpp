// The typed presence test answers exactly what copying the entry answers, in every case a pipeline
// can produce: absent, stored empty, stored as the expected type, stored as another type, mixed.

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

TEST(MetaRead, HasItemsAgreesWithTheCopiedEntryWhateverIsStored) {
    Stored const stored;
    for (auto const& [what, meta] : stored.all()) {
        EXPECT_EQ(hasItems<int>(meta, kTag), !meta->entryFor(kTag).isEmpty()) << what;
    }
    EXPECT_TRUE(hasItems<int>(&stored.mixed, kTag));
    EXPECT_FALSE(hasItems<int>(&stored.empty, kTag));
    EXPECT_FALSE(hasItems<int>(nullptr, kTag));
}

TEST(MetaRead, AppendItemsKeepsWhatTheListHeldAndReadsOtherTypesAsZero) {
    Stored const stored;
    std::vector<int> mixed{42};
    appendItems<int>(&stored.mixed, kTag, mixed);
    EXPECT_EQ(mixed, (std::vector<int>{42, 4, 0, 9}));
    std::vector<int> none{1};
    appendItems<int>(&stored.absent, kTag, none);
    appendItems<int>(nullptr, kTag, none);
    EXPECT_EQ(none, std::vector<int>{1});
}

}  // namespace
