#pragma once
// The per-frame crop records of a session: for each frame number, the crop set its first
// synchronised caller took a snapshot of, and the number of the frame's sync group still to
// consume it (the users-left count). SyncHelper::getSensorCropRegion decides when a snapshot is
// taken, consumed or taken afresh and what the count says; this table only stores the answers,
// compactly, because a record stays for every frame served (hours of frames in a session).
//
// Storage: frame numbers are dense and rising, so records sit in pages of consecutive frame
// numbers (8 bytes a frame: a set reference and a count), and a page is freed once none of its
// frames holds a record. A snapshot refers to an immutable copy of the crop set it was taken
// from; a set is copied once, when its first snapshot is taken, and freed when no snapshot
// refers to it and a newer set has replaced it.
//
// Not thread-safe: the owner guards it (SyncHelper's crop lock).

#include <NSCam/MRect.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

class FrameCropTable {
  public:
    using CropMap = std::unordered_map<int, NSCam::MRect>;
    // A snapshot's crop set: by sensor id, ascending.
    using CropSet = std::vector<std::pair<int, NSCam::MRect>>;

    FrameCropTable();

    // The set the frame's snapshot refers to, or nullptr when the frame holds none.
    CropSet const* snapshot(int frame) const;
    // Takes a snapshot of `latest` for the frame (which holds none). The set is copied once per
    // latest set: call latestChanged() whenever `latest` is replaced.
    void takeSnapshot(int frame, CropMap const& latest);
    // Erases the frame's snapshot.
    void dropSnapshot(int frame);
    // Sets the frame's users-left count (count >= 1), making or overwriting it.
    void setUsersLeft(int frame, int32_t count);
    // Counts one user of the frame down, when the frame has a count; the count goes at 0.
    void countDownUser(int frame);
    // The frame's users-left count, or -1 when it has none.
    int32_t usersLeft(int frame) const;
    // The latest set was replaced: the next snapshot copies the new one.
    void latestChanged();

    size_t snapshotCount() const { return mSnapshots; }
    size_t usersLeftCount() const { return mCounts; }
    size_t pageCount() const { return mPages.size(); }  // pages of frames holding a record

  private:
    struct Record {
        uint32_t set = 0;   // index + 1 into mSets; 0: no snapshot
        int32_t users = 0;  // 0: no count (a count is erased when it falls to 0)
    };
    static constexpr int kPageShift = 10;
    static constexpr int kPageFrames = 1 << kPageShift;
    struct Page {
        Record records[kPageFrames];
        uint32_t live = 0;  // records holding a snapshot or a count
    };
    struct SharedSet {
        CropSet rects;
        uint32_t refs = 0;
    };

    Record const* find(int frame) const;
    Record& make(int frame);
    // After a record changed from `before`: keeps the counts and frees an emptied page.
    void changed(int frame, Record const& before, Record const& after);
    void release(uint32_t set);

    std::unordered_map<int32_t, std::unique_ptr<Page>> mPages;
    mutable int32_t mLastPageKey = 0;
    mutable Page* mLastPage = nullptr;  // the page of the last lookup, or nullptr
    std::vector<SharedSet> mSets;
    std::vector<uint32_t> mFreeSets;  // indexes of mSets free for reuse
    uint32_t mLatestSet = 0;          // index + 1 of the latest set's copy, 0 when not made
    size_t mSnapshots = 0;
    size_t mCounts = 0;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
