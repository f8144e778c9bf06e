#include <NSCam/Properties.h>

#include <gtest/gtest.h>

namespace props = NSCam::Utils::Properties;

namespace {

class HostPropertiesTest : public ::testing::Test {
  protected:
    void TearDown() override { props::clearHostProperties(); }
};

TEST_F(HostPropertiesTest, AbsentGivesDefault) {
    EXPECT_EQ(props::property_get_int32("vendor.debug.camera.crop_replace", 1), 1);
    EXPECT_EQ(props::property_get_int32("vendor.debug.camera.crop_replace", -7), -7);
}

TEST_F(HostPropertiesTest, ParsesDecimalHexAndSign) {
    props::setHostProperty("a", "0");
    props::setHostProperty("b", "-12");
    props::setHostProperty("c", "0x10");
    EXPECT_EQ(props::property_get_int32("a", 1), 0);
    EXPECT_EQ(props::property_get_int32("b", 1), -12);
    EXPECT_EQ(props::property_get_int32("c", 1), 16);
}

TEST_F(HostPropertiesTest, GarbageEmptyAndOverflowGiveDefault) {
    props::setHostProperty("a", "12abc");
    props::setHostProperty("b", "");
    props::setHostProperty("c", "4294967296");
    EXPECT_EQ(props::property_get_int32("a", 3), 3);
    EXPECT_EQ(props::property_get_int32("b", 3), 3);
    EXPECT_EQ(props::property_get_int32("c", 3), 3);
}

TEST_F(HostPropertiesTest, ClearRestoresDefault) {
    props::setHostProperty("vendor.debug.camera.SyncDataUpdater.log", "2");
    EXPECT_EQ(props::property_get_int32("vendor.debug.camera.SyncDataUpdater.log", 0), 2);
    props::clearHostProperty("vendor.debug.camera.SyncDataUpdater.log");
    EXPECT_EQ(props::property_get_int32("vendor.debug.camera.SyncDataUpdater.log", 0), 0);
}

}  // namespace
