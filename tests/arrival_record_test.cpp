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

TEST(ArrivalRecord, GoingRoundKeepsTheLatestFramesWithTheirDistinctCamerasOldestFirst) {
    ArrivalRecord<5> record;
    Model model;
    // Frames arrive out of order and cameras repeat; the oldest is dropped whenever it is full.
    int const arrivals[][2] = {{1, 0},  {1, 2}, {2, 1},  {1, 2},  {3, 0},  {2, 0},  {4, 9}, {5, 1},
                               {6, 1},  {2, 5}, {6, 0},  {7, 3},  {7, 3},  {8, 2},  {9, 1}, {10, 0},
                               {11, 4}, {9, 4}, {12, 0}, {13, 0}, {14, 0}, {12, 7}, {15, 2}};
    for (auto const& [frame, camera] : arrivals) {
        if (record.size() >= 5) {
            EXPECT_EQ(record.oldestFrame(), model.front().first);
            record.dropOldest();
            model.pop_front();
        }
        int got = -1;
        for (size_t i = record.size(); i-- > 0;) {
            if (record.at(i).frame == frame) {
                got = record.at(i).addCamera(camera);
                break;
            }
        }
        if (got < 0) {
            got = record.append(frame, camera);
        }
        EXPECT_EQ(got, arriveInModel(model, frame, camera)) << "f" << frame << " cam" << camera;
        ASSERT_EQ(record.snapshot(), model) << "after f" << frame << " cam" << camera;
    }
}

}  // namespace
