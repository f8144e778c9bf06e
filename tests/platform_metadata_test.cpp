#include <NSCam/IMetadata.h>

#include <gtest/gtest.h>

using NSCam::IMetadata;
using NSCam::MRect;

namespace {

constexpr uint32_t kTag = 0xc0080000;
constexpr uint32_t kOther = 0x10028;

// An absent tag reads as an empty entry carrying the tag; update replaces the whole entry,
// remove says whether the tag was there, and entryFor hands out a copy.
TEST(IMetadataTest, EntriesAreReplacedWholeRemovedOnceAndReadAsCopies) {
    IMetadata meta;
    EXPECT_TRUE(meta.entryFor(kTag).isEmpty());
    EXPECT_EQ(meta.entryFor(kTag).tag(), kTag);
    IMetadata::IEntry first(kTag);
    first.push_back<int32_t>(1);
    first.push_back<int32_t>(2);
    meta.update(kTag, first);
    IMetadata::IEntry second(kTag);
    second.push_back<int32_t>(7);
    meta.update(kTag, second);
    IMetadata::IEntry got = meta.entryFor(kTag);
    ASSERT_EQ(got.count(), 1u);
    EXPECT_EQ(got.itemAt<int>(0), 7);
    got.push_back<int32_t>(8);
    EXPECT_EQ(meta.entryFor(kTag).count(), 1u);
    EXPECT_EQ(meta.remove(kTag), 0);
    EXPECT_EQ(meta.remove(kTag), -1);
    EXPECT_EQ(meta.count(), 0u);
}

// Reads outside the entry or of another type are defined: zero value, or false untouched.
TEST(IMetadataTest, WrongTypeOrPastTheEndReadsZeroAndFalse) {
    IMetadata::IEntry entry(kTag);
    entry.push_back<int64_t>(9);
    EXPECT_EQ(entry.itemAt<int>(0), 0);   // stored as int64, read as int32
    EXPECT_EQ(entry.itemAt<long>(1), 0);  // past the end
    EXPECT_EQ(entry.itemAt<MRect>(0), MRect());
    int value = 42;
    EXPECT_FALSE(entry.tryItemAt(0, value));
    EXPECT_EQ(value, 42);
    EXPECT_FALSE(IMetadata::IEntry(kTag).tryItemAt(0, value));
}

TEST(IMetadataTest, GetEntryLeavesValueUntouchedWhenAbsentOrMistyped) {
    IMetadata meta;
    long result = 1;
    EXPECT_FALSE(IMetadata::getEntry<long>(&meta, kTag, result));
    EXPECT_EQ(result, 1);
    IMetadata::setEntry<int>(&meta, kTag, 2);
    EXPECT_FALSE(IMetadata::getEntry<long>(&meta, kTag, result));
    EXPECT_EQ(result, 1);
    EXPECT_FALSE(IMetadata::getEntry<long>(nullptr, kTag, result));
    meta.update(kOther, IMetadata::IEntry(kOther));
    int fromEmpty = 5;
    EXPECT_FALSE(IMetadata::getEntry<int>(&meta, kOther, fromEmpty));
    EXPECT_EQ(fromEmpty, 5);
}

TEST(IMetadataTest, SetEntryReplacesWithOneItem) {
    IMetadata meta;
    IMetadata::IEntry many(kTag);
    many.push_back<int64_t>(1);
    many.push_back<int64_t>(2);
    meta.update(kTag, many);
    EXPECT_TRUE(IMetadata::setEntry<long>(&meta, kTag, 5L));
    EXPECT_EQ(meta.entryFor(kTag).count(), 1u);
    long v = 0;
    EXPECT_TRUE(IMetadata::getEntry<long>(&meta, kTag, v));
    EXPECT_EQ(v, 5);
    EXPECT_FALSE(IMetadata::setEntry<long>(nullptr, kTag, 5L));

    // Refilled in place whatever it held: one item of the new type, carrying the tag.
    IMetadata::IEntry mixed(kOther);
    mixed.push_back<float>(1.5f);
    mixed.push_back(MRect(1, 2, 3, 4));
    meta.update(kTag, mixed);
    EXPECT_TRUE(IMetadata::setEntry<MRect>(&meta, kTag, MRect(5, 6, 7, 8)));
    IMetadata::IEntry const got = meta.entryFor(kTag);
    ASSERT_EQ(got.count(), 1u);
    EXPECT_EQ(got.tag(), kTag);
    EXPECT_EQ(got.itemAt<MRect>(0), MRect(5, 6, 7, 8));
    EXPECT_FLOAT_EQ(got.itemAt<float>(0), 0.0f);
    EXPECT_EQ(meta.count(), 1u);
}

}  // namespace
