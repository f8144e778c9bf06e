// hasItems() answers exactly what copying the entry and asking isEmpty() answers, in every case a
// pipeline can produce: absent, stored empty, stored as the expected type, stored as another type.

#include <gtest/gtest.h>

#include "MetaBuilder.h"
#include "MetaRead.h"

namespace {

using NSCam::IMetadata;
using NSCam::camsys::camcoordinator::hasItems;

TEST(MetaRead, HasItemsAgreesWithTheCopiedEntryWhateverIsStored) {
    constexpr IMetadata::Tag_t kTag = 0xc0080001;
    IMetadata absent;
    IMetadata empty;
    empty.update(kTag, IMetadata::IEntry(kTag));
    IMetadata ints;
    ryxtest::setInts(ints, kTag, {0, 2});
    IMetadata bytes;
    ryxtest::setOne<uint8_t>(bytes, kTag, 7);
    IMetadata floats;
    ryxtest::setOne<float>(floats, kTag, 1.5f);

    struct Case {
        char const* what;
        IMetadata const* meta;
        bool expected;
    };
    for (Case const& c : {Case{"absent", &absent, false}, Case{"empty", &empty, false},
                          Case{"int32 items", &ints, true}, Case{"uint8 item", &bytes, true},
                          Case{"float item", &floats, true}}) {
        EXPECT_EQ(!c.meta->entryFor(kTag).isEmpty(), c.expected) << c.what;
        EXPECT_EQ(hasItems<int32_t>(c.meta, kTag), c.expected) << c.what << " read as int32";
        EXPECT_EQ(hasItems<uint8_t>(c.meta, kTag), c.expected) << c.what << " read as uint8";
    }
}

}  // namespace
