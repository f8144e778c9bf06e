#include <NSCam/IGenericContainer.h>

#include <gtest/gtest.h>

using NSCam::IGenericContainer;
using NSCam::IGenericContainerManager;
using Data = std::shared_ptr<NSCam::v3::Customer_FOVA_Streaming_Data>;
using Container = IGenericContainer<Data>;

namespace {

TEST(GenericContainerTest, UsersOfOneKeyShareOneContainer) {
    auto reader = Container::makeUser<Container::Reader>("reader", 77, 1);
    auto writer = Container::makeUser<Container::Writer>("writer", 77, 1);
    ASSERT_TRUE(reader && writer);
    EXPECT_EQ(&reader->container(), &writer->container());
    EXPECT_EQ(reader->container().readers(), 1);
    EXPECT_EQ(reader->container().writers(), 1);
    EXPECT_EQ(reader->container().type(), 1);

    auto data = std::make_shared<NSCam::v3::Customer_FOVA_Streaming_Data>();
    data->frameNo = 12;
    writer->push(data);
    Data got;
    ASSERT_TRUE(reader->latest(got));
    EXPECT_EQ(got->frameNo, 12);
}

TEST(GenericContainerTest, OtherKeyGetsOtherContainerAndReleaseUnregisters) {
    auto before = IGenericContainerManager::get()->liveContainers();
    {
        auto a = Container::makeUser<Container::Reader>("a", 1001, 1);
        auto b = Container::makeUser<Container::Reader>("b", 1002, 1);
        EXPECT_NE(&a->container(), &b->container());
        EXPECT_EQ(IGenericContainerManager::get()->liveContainers(), before + 2);
    }
    EXPECT_EQ(IGenericContainerManager::get()->liveContainers(), before);
}

TEST(GenericContainerTest, UnavailableRegistryGivesEmptyHandle) {
    IGenericContainerManager::setAvailable(false);
    auto reader = Container::makeUser<Container::Reader>("r", 5, 1);
    IGenericContainerManager::setAvailable(true);
    EXPECT_EQ(reader, nullptr);
}

}  // namespace
