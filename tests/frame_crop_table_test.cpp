// The per-frame crop records: what a frame's snapshot and count read back across page edges and
// below frame 0, snapshots sharing one copy of a set until a newer set replaces it, and the
// counts the inspector reports as records and their pages come and go.

#include "FrameCropTable.h"

#include <gtest/gtest.h>

using NSCam::MRect;
using NSCam::camsys::camcoordinator::FrameCropTable;

namespace {

FrameCropTable::CropMap set(int x) {
    return {{0, MRect(x, 0, 100, 100)}, {2, MRect(x + 2, 0, 100, 100)}};
}

int leftOf(FrameCropTable const& t, int frame, int sensor) {
    auto const* s = t.snapshot(frame);
    if (s == nullptr) {
        return -1;
    }
    for (auto const& [id, r] : *s) {
        if (id == sensor) {
            return r.left;
        }
    }
    return -2;
}

}  // namespace

TEST(FrameCropTable, RecordsAcrossPageEdgesAndBelowZeroReadBackAndGoAway) {
    FrameCropTable t;
    std::vector<int> frames{-1025, -1024, -1,      0,         1,        1023,
                            1024,  2047,  1 << 20, INT32_MIN, INT32_MAX};
    for (int f : frames) {
        t.takeSnapshot(f, set(10));
        t.setUsersLeft(f, 3);
    }
    EXPECT_EQ(t.snapshotCount(), frames.size());
    EXPECT_EQ(t.usersLeftCount(), frames.size());
    for (int f : frames) {
        EXPECT_EQ(leftOf(t, f, 2), 12) << f;
        EXPECT_EQ(t.usersLeft(f), 3) << f;
    }
    for (int f : {-1026, -2, 2, 1022, 1025, 2048}) {
        EXPECT_EQ(t.snapshot(f), nullptr) << f;
        EXPECT_EQ(t.usersLeft(f), -1) << f;
    }
    // A snapshot and a count go on their own; a frame holding neither leaves no record.
    for (int f : frames) {
        t.dropSnapshot(f);
        EXPECT_EQ(t.usersLeft(f), 3) << f;
        t.countDownUser(f);
        t.countDownUser(f);
        EXPECT_EQ(t.usersLeft(f), 1) << f;
        t.countDownUser(f);
        EXPECT_EQ(t.usersLeft(f), -1) << f;
        t.countDownUser(f);  // no count: nothing to count down
        EXPECT_EQ(t.usersLeft(f), -1) << f;
    }
    EXPECT_EQ(t.snapshotCount(), 0u);
    EXPECT_EQ(t.usersLeftCount(), 0u);
    EXPECT_EQ(t.pageCount(), 0u);  // a session's memory must not grow with the frames it served
    // Pages freed and made again.
    t.setUsersLeft(1024, 2);
    EXPECT_EQ(t.usersLeft(1024), 2);
    EXPECT_EQ(t.snapshot(1024), nullptr);
    EXPECT_EQ(t.usersLeftCount(), 1u);
    EXPECT_EQ(t.pageCount(), 1u);
}

TEST(FrameCropTable, SnapshotsKeepTheSetTheyWereTakenFrom) {
    FrameCropTable t;
    FrameCropTable::CropMap latest;  // before any set: an empty snapshot, not none
    t.takeSnapshot(5, latest);
    ASSERT_NE(t.snapshot(5), nullptr);
    EXPECT_TRUE(t.snapshot(5)->empty());

    latest = set(10);
    t.latestChanged();
    for (int f = 6; f < 9; ++f) {
        t.takeSnapshot(f, latest);
    }
    latest = set(20);
    t.latestChanged();
    t.takeSnapshot(9, latest);
    EXPECT_EQ(leftOf(t, 6, 0), 10);
    EXPECT_EQ(leftOf(t, 8, 2), 12);
    EXPECT_EQ(leftOf(t, 9, 0), 20);
    EXPECT_EQ(leftOf(t, 9, 1), -2);  // a sensor the set does not have

    // The old set goes with its last snapshot; a set made after it does not take its words.
    for (int f = 6; f < 9; ++f) {
        t.dropSnapshot(f);
    }
    latest = set(30);
    t.latestChanged();
    t.takeSnapshot(10, latest);
    t.dropSnapshot(9);
    latest = set(40);
    t.latestChanged();
    t.takeSnapshot(11, latest);
    EXPECT_EQ(leftOf(t, 10, 0), 30);
    EXPECT_EQ(leftOf(t, 11, 2), 42);
    EXPECT_TRUE(t.snapshot(5)->empty());
    EXPECT_EQ(t.snapshotCount(), 3u);

    // The latest set outlives its last snapshot: the next frame still copies nothing and reads
    // it, and a newer set does not take its place.
    t.dropSnapshot(11);
    t.takeSnapshot(12, latest);
    latest = set(50);
    t.latestChanged();
    t.takeSnapshot(13, latest);
    EXPECT_EQ(leftOf(t, 12, 0), 40);
    EXPECT_EQ(leftOf(t, 13, 0), 50);
}
