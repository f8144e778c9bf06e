#pragma once
// ArrivalRecord: the queue's record of which cameras have arrived for its latest frames.
//
// A fixed ring of Capacity frames, oldest first, each with the sorted list of the distinct
// cameras that arrived for it. The slots and their lists are kept from frame to frame, so that
// nothing is allocated once every slot has held a frame with as many cameras as the session has.
// Not locked: the owning SyncQueue guards it with its mQueueLock.

#include <algorithm>
#include <array>
#include <cstddef>
#include <deque>
#include <set>
#include <utility>
#include <vector>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

template <size_t Capacity>
class ArrivalRecord {
  public:
    struct Slot {
        int frame = 0;
        std::vector<int> cameras;  // sorted, distinct

        // Adds `camera` unless it is there; returns the number of distinct cameras.
        int addCamera(int camera) {
            auto const pos = std::lower_bound(cameras.begin(), cameras.end(), camera);
            if (pos == cameras.end() || *pos != camera) {
                cameras.insert(pos, camera);
            }
            return static_cast<int>(cameras.size());
        }
    };

    size_t size() const { return mSize; }
    // The slot of `frame`, newest first; nullptr when the record does not hold it. A frame above
    // every frame held is known to be absent without a scan: the usual first arrival of a frame.
    Slot* find(int frame) {
        if (mSize == 0) {
            return nullptr;
        }
        if (!mMaxKnown) {
            mMaxFrame = mSlots[mHead].frame;
            for (size_t i = 1; i < mSize; ++i) {
                mMaxFrame = std::max(mMaxFrame, at(i).frame);
            }
            mMaxKnown = true;
        }
        if (frame > mMaxFrame) {
            return nullptr;
        }
        for (size_t i = mSize; i-- > 0;) {
            Slot& slot = at(i);
            if (slot.frame == frame) {
                return &slot;
            }
        }
        return nullptr;
    }
    // Index 0 is the oldest frame; requires index < size().
    Slot& at(size_t index) { return mSlots[(mHead + index) % Capacity]; }
    // Requires size() > 0.
    int oldestFrame() const { return mSlots[mHead].frame; }
    void dropOldest() {
        if (mSlots[mHead].frame == mMaxFrame) {
            mMaxKnown = false;  // worked out again by the next find()
        }
        mHead = (mHead + 1) % Capacity;
        --mSize;
    }
    // Records `frame` as the newest with `camera` alone; returns 1. The owner drops the oldest
    // first when the record is full; if it did not, the oldest is overwritten.
    int append(int frame, int camera) {
        if (mSize == Capacity) {
            dropOldest();
        }
        Slot& slot = mSlots[(mHead + mSize) % Capacity];
        if (mSize == 0) {
            mMaxFrame = frame;
            mMaxKnown = true;
        } else {
            mMaxFrame = std::max(mMaxFrame, frame);
        }
        ++mSize;
        slot.frame = frame;
        slot.cameras.clear();
        slot.cameras.push_back(camera);
        return 1;
    }

    // The record in the form inspection tools read: (frame, cameras) oldest first.
    std::deque<std::pair<int, std::set<int>>> snapshot() const {
        std::deque<std::pair<int, std::set<int>>> out;
        for (size_t i = 0; i < mSize; ++i) {
            Slot const& slot = mSlots[(mHead + i) % Capacity];
            out.emplace_back(slot.frame, std::set<int>(slot.cameras.begin(), slot.cameras.end()));
        }
        return out;
    }

  private:
    std::array<Slot, Capacity> mSlots;
    size_t mHead = 0;
    size_t mSize = 0;
    // The highest frame held, while mMaxKnown (a drop of that frame makes it unknown).
    int mMaxFrame = 0;
    bool mMaxKnown = false;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
