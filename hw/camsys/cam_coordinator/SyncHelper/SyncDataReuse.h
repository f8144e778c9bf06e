#pragma once
// Reusing SyncData records without changing what the updaters see.
//
// The updaters iterate a record's hash maps, and that order shows (the timestamp comparison text,
// the order cameras are visited). A map emptied for reuse therefore keeps its buckets only when it
// has exactly the bucket count a new map reaches with its first entries; otherwise it is replaced
// by a new one. Either way it then iterates in the same order as a new map would.

#include "SyncHelperTypes.h"

#include <cstddef>

namespace NSCam {
namespace camsys {
namespace camcoordinator {

template <typename Map>
void clearLikeNew(Map& map) {
    static size_t const kNewBuckets = [] {
        Map fresh;
        fresh.max_load_factor(1.0f);
        fresh.emplace(typename Map::key_type{}, typename Map::mapped_type{});
        return fresh.bucket_count();
    }();
    if (!map.empty()) {  // an emptied map (its nodes extracted) has nothing left to clear
        map.clear();
    }
    if (map.bucket_count() != kNewBuckets || map.max_load_factor() != 1.0f) {
        map = Map();
        map.max_load_factor(1.0f);
    }
}

// One thread's record for the single-camera path, reused call after call. A thread serves one
// camera, so the record usually holds that camera's one entry per map already: it is pointed at
// the new call's records (genSyncData keeps existing entries) instead of being freed and
// allocated again. Anything else is emptied like new. After the call the entries point nowhere.
class SingleCameraScratch {
  public:
    SyncData& begin(SyncResultInputParams const& input, SyncResultOutputParams* output) {
        mData.frameNo = -1;
        mData.requestNo = -1;
        mData.syncTargetList.clear();
        mData.masterSlaveList.clear();
        repoint(mData.inputParams, input.m_id, &input);
        repoint(mData.outputParams, input.m_id, output);
        return mData;
    }
    bool end(bool result) {
        for (auto& entry : mData.inputParams) {
            entry.second = nullptr;
        }
        for (auto& entry : mData.outputParams) {
            entry.second = nullptr;
        }
        return result;
    }

  private:
    template <typename Map>
    static void repoint(Map& map, int32_t cameraId, typename Map::mapped_type value) {
        if (map.size() == 1 && map.begin()->first == cameraId) {
            map.begin()->second = value;
        } else {
            clearLikeNew(map);
        }
    }

    SyncData mData;
};

}  // namespace camcoordinator
}  // namespace camsys
}  // namespace NSCam
