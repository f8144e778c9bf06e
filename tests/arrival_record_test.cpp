// The queue's arrival record as a ring: after it has gone round several times it still holds the
// latest frames oldest first, each with its distinct cameras, exactly as a list of sets would.

#include <gtest/gtest.h>

#include <deque>
#include <set>
#include <utility>

#include "ArrivalRecord.h"

namespace {

using NSCam::camsys::camcoordinator::ArrivalRecord;
using Model = std::deque<std::pair<int, std::set<int>>>;

// The reference: what the record must answer, as a list of (frame, set of cameras).
int arriveInModel(Model& model, int frame, int camera) {
    for (auto it = model.rbegin(); it != model.rend(); ++it) {
        if (it->first == frame) {
            it->second.insert(camera);
            return static_cast<int>(it->second.size());
        }
    }
    model.emplace_back(frame, std::set<int>{camera});
    return 1;
}

// Replays `arrivals` into a record of 5 frames and the model, dropping the oldest whenever the
// record is full, and compares every answer and the whole record after each arrival.
template <size_t N>
void replay(int const (&arrivals)[N][2]) {
    ArrivalRecord<5> record;
    Model model;
    for (auto const& [frame, camera] : arrivals) {
        if (record.size() >= 5) {
            EXPECT_EQ(record.oldestFrame(), model.front().first);
            record.dropOldest();
            model.pop_front();
        }
        auto* slot = record.find(frame);
        int const got = slot != nullptr ? slot->addCamera(camera) : record.append(frame, camera);
        EXPECT_EQ(got, arriveInModel(model, frame, camera)) << "f" << frame << " cam" << camera;
        ASSERT_EQ(record.snapshot(), model) << "after f" << frame << " cam" << camera;
    }
}

TEST(ArrivalRecord, GoingRoundKeepsTheLatestFramesWithTheirDistinctCamerasOldestFirst) {
    // Frames arrive out of order and cameras repeat.
    int const arrivals[][2] = {{1, 0},  {1, 2}, {2, 1},  {1, 2},  {3, 0},  {2, 0},  {4, 9}, {5, 1},
                               {6, 1},  {2, 5}, {6, 0},  {7, 3},  {7, 3},  {8, 2},  {9, 1}, {10, 0},
                               {11, 4}, {9, 4}, {12, 0}, {13, 0}, {14, 0}, {12, 7}, {15, 2}};
    replay(arrivals);
}

TEST(ArrivalRecord, FramesBelowADroppedHighestAreStillFound) {
    // The highest frame arrives first and is the first dropped: later, lower frames held must
    // still be found, and frames above the new highest appended.
    int const arrivals[][2] = {{50, 0}, {40, 0}, {41, 1}, {42, 2}, {43, 0}, {44, 1}, {41, 2},
                               {43, 2}, {45, 0}, {44, 0}, {60, 1}, {46, 2}, {45, 1}, {60, 2},
                               {47, 0}, {46, 0}, {30, 1}, {30, 2}, {60, 0}, {61, 0}, {61, 1}};
    replay(arrivals);
}

}  // namespace
