#include <NSCam/Properties.h>

#include <gtest/gtest.h>

namespace props = NSCam::Utils::Properties;

namespace {

// What a property's text reads as, the default standing for anything property_get_int32 cannot
// read whole into an int32 (as on a device), and for a property never set or cleared.
TEST(HostPropertiesTest, TextsReadAsTheirIntegerOrTheDefault) {
    struct Case {
        char const* text;  // nullptr: not set
        int32_t want;
    } const cases[] = {{nullptr, 3}, {"0", 0}, {"-12", -12},     {"0x10", 16},
                       {"12abc", 3}, {"", 3},  {"4294967296", 3}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.text != nullptr ? c.text : "(not set)");
        if (c.text != nullptr) {
            props::setHostProperty("vendor.debug.camera.crop_replace", c.text);
        }
        EXPECT_EQ(props::property_get_int32("vendor.debug.camera.crop_replace", 3), c.want);
        props::clearHostProperty("vendor.debug.camera.crop_replace");
        EXPECT_EQ(props::property_get_int32("vendor.debug.camera.crop_replace", 3), 3);
    }
    props::clearHostProperties();
}

}  // namespace
