#include "FrameCropTable.h"

#include <algorithm>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

namespace {

// Frames below zero fall into pages below zero: floor division, not truncation.
int32_t pageKeyOf(int frame, int shift) {
    return frame >= 0 ? frame >> shift : -((-(frame + 1)) >> shift) - 1;
}

}  // namespace

FrameCropTable::FrameCropTable() {
    mPages.max_load_factor(1.0f);
}

FrameCropTable::Record const* FrameCropTable::find(int frame) const {
    int32_t key = pageKeyOf(frame, kPageShift);
    if (mLastPage == nullptr || mLastPageKey != key) {
        auto it = mPages.find(key);
        if (it == mPages.end()) {
            return nullptr;
        }
        mLastPageKey = key;
        mLastPage = it->second.get();
    }
    return &mLastPage->records[frame & (kPageFrames - 1)];
}

FrameCropTable::Record& FrameCropTable::make(int frame) {
    if (find(frame) == nullptr) {
        int32_t key = pageKeyOf(frame, kPageShift);
        mLastPage = mPages.emplace(key, std::make_unique<Page>()).first->second.get();
        mLastPageKey = key;
    }
    return mLastPage->records[frame & (kPageFrames - 1)];
}

void FrameCropTable::changed(int frame, Record const& before, Record const& after) {
    mSnapshots += (after.set != 0) - (before.set != 0);
    mCounts += (after.users != 0) - (before.users != 0);
    bool wasLive = before.set != 0 || before.users != 0;
    bool isLive = after.set != 0 || after.users != 0;
    if (wasLive == isLive) {
        return;
    }
    Page* page = mLastPage;  // the record's page: looked up just before
    page->live += isLive ? 1 : -1;
    if (page->live == 0) {
        mPages.erase(pageKeyOf(frame, kPageShift));
        mLastPage = nullptr;
    }
}

FrameCropTable::CropSet const* FrameCropTable::snapshot(int frame) const {
    Record const* r = find(frame);
    return r == nullptr || r->set == 0 ? nullptr : &mSets[r->set - 1].rects;
}

void FrameCropTable::takeSnapshot(int frame, CropMap const& latest) {
    if (mLatestSet == 0) {
        uint32_t index = static_cast<uint32_t>(mSets.size());
        if (!mFreeSets.empty()) {
            index = mFreeSets.back();
            mFreeSets.pop_back();
        } else {
            mSets.emplace_back();
        }
        CropSet& rects = mSets[index].rects;
        rects.assign(latest.begin(), latest.end());
        std::sort(rects.begin(), rects.end(),
                  [](auto const& a, auto const& b) { return a.first < b.first; });
        mLatestSet = index + 1;
    }
    Record& r = make(frame);
    Record before = r;
    r.set = mLatestSet;
    ++mSets[mLatestSet - 1].refs;
    changed(frame, before, r);
}

void FrameCropTable::release(uint32_t set) {
    SharedSet& s = mSets[set - 1];
    if (--s.refs == 0 && set != mLatestSet) {
        s.rects = CropSet();
        mFreeSets.push_back(set - 1);
    }
}

void FrameCropTable::dropSnapshot(int frame) {
    Record const* found = find(frame);
    if (found == nullptr || found->set == 0) {
        return;
    }
    Record& r = make(frame);
    Record before = r;
    release(r.set);
    r.set = 0;
    changed(frame, before, r);
}

void FrameCropTable::setUsersLeft(int frame, int32_t count) {
    Record& r = make(frame);
    Record before = r;
    r.users = count;
    changed(frame, before, r);
}

void FrameCropTable::countDownUser(int frame) {
    Record const* found = find(frame);
    if (found == nullptr || found->users == 0) {
        return;
    }
    Record& r = make(frame);
    Record before = r;
    r.users = r.users - 1 <= 0 ? 0 : r.users - 1;
    changed(frame, before, r);
}

int32_t FrameCropTable::usersLeft(int frame) const {
    Record const* r = find(frame);
    return r == nullptr || r->users == 0 ? -1 : r->users;
}

void FrameCropTable::latestChanged() {
    if (mLatestSet != 0) {
        uint32_t old = mLatestSet;
        mLatestSet = 0;
        if (mSets[old - 1].refs == 0) {
            mSets[old - 1].rects = CropSet();
            mFreeSets.push_back(old - 1);
        }
    }
}

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
