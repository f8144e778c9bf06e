#pragma once
// The records and metadata of one call, built from its trace row and read back once the call
// returned.

#include "model/Calls.h"

#include <ISyncHelper.h>

namespace ryxsim {

// The records and metadata of one call. The library keeps pointers to them while the call's frame
// is in flight; the sensor thread that made the call owns them (see kKeptRecords).
struct CallRecord {
    NSCam::IMetadata appControl, halControl, halDynamic, appDynamic;
    NSCam::camsys::camcoordinator::SyncResultInputParams input;
    NSCam::camsys::camcoordinator::SyncResultOutputParams output;
};

// The call's metadata and parameters as `row` gives them.
void build(CallRow const& row, CallRecord& rec);
// What the library wrote into the call's metadata and output.
void readBack(CallRecord const& rec, CallOutcome& out);

}  // namespace ryxsim
