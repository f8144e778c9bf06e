// The single-camera path keeps one record per thread from call to call: each call must still
// write into its own frame's results only, whichever camera the thread served before.

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "facade_session.h"

namespace facadetest {
namespace {

TEST(SingleCameraPath, EachCallWritesItsOwnFrameOnlyWhateverCameraCameBefore) {
    auto helper = ISyncHelper::createInstance(0x5c, true, infoFor({0, 1}));
    std::vector<std::unique_ptr<CamFrame>> frames;
    // Camera 0 twice, then camera 1, then camera 0 again, all on this thread, each its own master.
    for (int sensor : {0, 0, 1, 0}) {
        int const frameNo = static_cast<int>(frames.size()) + 1;
        frames.push_back(std::make_unique<CamFrame>(sensor, frameNo, frameNo * kFrameNs,
                                                    frameNo * kFrameNs + kMs, Request{{}, sensor}));
        CamFrame& f = *frames.back();
        size_t const before = frames.size() > 1 ? frames[frames.size() - 2]->written() : 0;
        ASSERT_TRUE(helper->syncResultCheck(f.in, &f.out)) << "frame " << frameNo;
        EXPECT_EQ(f.halMaster(), sensor) << "frame " << frameNo;
        EXPECT_EQ(f.appMaster(), sensor) << "frame " << frameNo;
        EXPECT_TRUE(f.out.bMasterCam) << "frame " << frameNo;
        EXPECT_EQ(f.activeArray(), infoOf(sensor).activeArrayRegion) << "frame " << frameNo;
        EXPECT_FALSE(f.syncResult().has_value()) << "frame " << frameNo;
        if (frames.size() > 1) {
            EXPECT_EQ(frames[frames.size() - 2]->written(), before)
                << "frame " << frameNo << " wrote into the frame before";
        }
    }
}

}  // namespace
}  // namespace facadetest
