// The peer: ROS message_filters with an ExactTime synchronizer of 3 inputs, used as a camera
// pipeline must use it: each producer thread adds its frame and then waits until the frame's
// callback has run before it goes on to the next frame (a result may not be delivered before its
// frame is known to be synchronised).

#include <benchmark/benchmark.h>
#include <message_filters/simple_filter.h>
#include <message_filters/sync_policies/exact_time.h>
#include <message_filters/synchronizer.h>
#include <ros/message_traits.h>
#include <ros/time.h>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

namespace ryxbench_ros {

struct FrameMsg {
    ros::Time stamp;
    int32_t sensor = 0;
};
using FrameConstPtr = boost::shared_ptr<FrameMsg const>;

}  // namespace ryxbench_ros

namespace ros {
namespace message_traits {
using ryxbench_ros::FrameMsg;
template <>
struct TimeStamp<FrameMsg> {
    static ros::Time value(FrameMsg const& m) { return m.stamp; }
    static ros::Time* pointer(FrameMsg& m) { return &m.stamp; }
    static ros::Time const* pointer(FrameMsg const& m) { return &m.stamp; }
};
template <>
struct MD5Sum<FrameMsg> {
    static char const* value() { return "0"; }
    static char const* value(FrameMsg const&) { return value(); }
};
template <>
struct DataType<FrameMsg> {
    static char const* value() { return "ryxbench/FrameMsg"; }
    static char const* value(FrameMsg const&) { return value(); }
};
template <>
struct Definition<FrameMsg> {
    static char const* value() { return ""; }
    static char const* value(FrameMsg const&) { return value(); }
};
template <>
struct HasHeader<FrameMsg> : FalseType {};
}  // namespace message_traits
}  // namespace ros

namespace ryxbench_ros {
namespace {

struct Input : message_filters::SimpleFilter<FrameMsg> {
    void add(FrameConstPtr const& m) { signalMessage(m); }
};

using Policy = message_filters::sync_policies::ExactTime<FrameMsg, FrameMsg, FrameMsg>;

// Frame n is stamped n milliseconds after the first second.
ros::Time stampOf(int64_t n) {
    return ros::Time(uint32_t(1 + n / 1000), uint32_t((n % 1000) * 1000000));
}
int64_t frameOf(ros::Time const& t) {
    return (int64_t(t.sec) - 1) * 1000 + t.nsec / 1000000;
}

struct RosSession {
    Input in[3];
    message_filters::Synchronizer<Policy> sync{Policy(10), in[0], in[1], in[2]};
    std::mutex mutex;
    std::condition_variable done;
    int64_t completed = -1;  // guarded by mutex: the latest frame whose callback ran

    RosSession() { sync.registerCallback(&RosSession::onFrame, this); }
    void onFrame(FrameConstPtr const& a, FrameConstPtr const&, FrameConstPtr const&) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            completed = frameOf(a->stamp);
        }
        done.notify_all();
    }
    int64_t completedFrames() {
        std::lock_guard<std::mutex> lock(mutex);
        return completed + 1;
    }
    void waitFor(int64_t frame) {
        std::unique_lock<std::mutex> lock(mutex);
        done.wait(lock, [&] { return completed >= frame; });
    }
};
RosSession* gRos = nullptr;

void setupRos(benchmark::State const&) {
    ros::Time::init();
    gRos = new RosSession;
}
void teardownRos(benchmark::State const&) {
    delete gRos;
    gRos = nullptr;
}

void BM_Rendezvous_MessageFilters(benchmark::State& st) {
    int const t = st.thread_index();
    int64_t n = 0;
    for (auto _ : st) {
        auto m = boost::make_shared<FrameMsg>();
        m->stamp = stampOf(n);
        m->sensor = t;
        gRos->in[t].add(m);
        gRos->waitFor(n);
        ++n;
    }
    if (t == 0 && gRos->completedFrames() != n)
        st.SkipWithError("callbacks do not match frames");
}
BENCHMARK(BM_Rendezvous_MessageFilters)
    ->Setup(setupRos)
    ->Teardown(teardownRos)
    ->Threads(3)
    ->UseRealTime();

}  // namespace
}  // namespace ryxbench_ros
