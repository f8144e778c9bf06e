// The logging convention: routing by mode word, gates, framing, the error suffix, the unified
// logger's 1024-byte buffer and the fatal path.

#define LOG_TAG "RyxCam/LogProbe"
#define LOG_SOURCE "hw/camsys/cam_coordinator/SyncHelper/LogProbe"
#include "SyncLog.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "LogCapture.h"

using NSCam::Utils::ULog::ULogger;
using ryxtest::LogCapture;

namespace {

// Each probe logs one statement of one severity and returns that statement's line number.
int probeDebug(int v) {
    // clang-format off
    RYX_LOGD("debug(%d)", v); return __LINE__;
    // clang-format on
}
int probeInfo(int v) {
    // clang-format off
    RYX_LOGI("info(%d)", v); return __LINE__;
    // clang-format on
}
int probeWarn(int v) {
    // clang-format off
    RYX_LOGW("warn(%d)", v); return __LINE__;
    // clang-format on
}
int probeError(int v) {
    // clang-format off
    RYX_LOGE("error(%d)", v); return __LINE__;
    // clang-format on
}
void probeLong(const std::string& s) {
    RYX_LOGW("%s", s.c_str());
}
void probeFatal() {
    RYX_LOGF("Invalid operation.");
}
void probeFatalArgs(int f, int c) {
    RYX_LOGF("(input) Duplicate insert! frameno(%d) input cam(%d)", f, c);
}

std::string frame(int line, const char* func, const std::string& msg) {
    char buf[64];
    std::snprintf(buf, sizeof(buf), "(%4d) [%s] ", line, func);
    return buf + msg;
}

TEST(SyncLogRoutingTest, ModeOneSendsToAndroidOnlyWithErrorSuffix) {
    LogCapture cap(1, 5);
    int line = probeError(7);
    ASSERT_EQ(cap.android().size(), 1u);
    auto const l = cap.android()[0];
    EXPECT_EQ(l.priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(l.tag, "RyxCam/LogProbe");
    EXPECT_EQ(l.text, frame(line, "probeError", "error(7)") + " (probeError){#" +
                          std::to_string(line) + ":hw/camsys/cam_coordinator/SyncHelper/LogProbe}");
    EXPECT_TRUE(cap.ulog().empty());
}

TEST(SyncLogRoutingTest, ModeTwoOrEightSendsToUnifiedLoggerOnlyWithoutSuffix) {
    for (uint32_t mode : {2u, 8u}) {
        LogCapture cap(mode, 5);
        int line = probeError(3);
        int dline = probeDebug(4);
        EXPECT_TRUE(cap.android().empty()) << "mode " << mode;
        auto lines = cap.ulog();
        ASSERT_EQ(lines.size(), 2u) << "mode " << mode;
        EXPECT_EQ(lines[0].moduleId, 0x801006u);
        EXPECT_EQ(lines[0].tag, "RyxCam/LogProbe");
        EXPECT_EQ(lines[0].level, 1u);
        EXPECT_EQ(lines[0].text, frame(line, "probeError", "error(3)"));
        EXPECT_EQ(lines[0].length, static_cast<int>(lines[0].text.size()));
        EXPECT_EQ(lines[1].level, 5u);
        EXPECT_EQ(lines[1].text, frame(dline, "probeDebug", "debug(4)"));
    }
}

TEST(SyncLogRoutingTest, SeveritiesMapToPrioritiesAndLevels) {
    LogCapture cap(0x9, 5);
    probeDebug(0);
    probeInfo(0);
    probeWarn(0);
    probeError(0);
    auto a = cap.android();
    auto u = cap.ulog();
    ASSERT_EQ(a.size(), 4u);
    ASSERT_EQ(u.size(), 4u);
    int prios[] = {ANDROID_LOG_DEBUG, ANDROID_LOG_INFO, ANDROID_LOG_WARN, ANDROID_LOG_ERROR};
    uint32_t levels[] = {5, 3, 2, 1};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(a[i].priority, prios[i]);
        EXPECT_EQ(u[i].level, levels[i]);
    }
}

// Which severities reach Android's log for a mode word, a details level and a module mask:
// mode 0 prints nothing, the level hides what is above it, and a mask without either of the
// module's bits hides info and debug but never warnings or errors.
TEST(SyncLogGateTest, EachSeverityShowsAsTheModeLevelAndMaskAllow) {
    uint32_t const all = 0xFFFFFFFFu;
    struct Case {
        uint32_t mode, level, mask;
        char const* shown;  // of "DIWE"
    } const cases[] = {
        {0, 5, all, ""},          {1, 5, all, "DIWE"},          {1, 4, all, "IWE"},
        {1, 1, all, "E"},         {1, 5, all & ~0x1000u, "WE"}, {1, 5, all & ~0x800000u, "WE"},
        {1, 5, 0x801000u, "DIWE"}};
    for (Case const& c : cases) {
        LogCapture cap(c.mode, c.level, c.mask);
        probeDebug(1);
        probeInfo(2);
        probeWarn(3);
        probeError(4);
        std::string shown;
        for (auto [letter, text] : {std::pair{'D', "debug(1)"}, std::pair{'I', "info(2)"},
                                    std::pair{'W', "warn(3)"}, std::pair{'E', "error(4)"}}) {
            if (cap.androidHas(text)) {
                shown += letter;
            }
        }
        EXPECT_EQ(shown, c.shown) << "mode " << c.mode << " level " << c.level << " mask "
                                  << std::hex << c.mask;
        if (c.mode == 0) {
            EXPECT_TRUE(cap.ulog().empty());
        }
    }
}

TEST(SyncLogBufferTest, LongMessageIsCutTo1023WithFullLengthPassed) {
    LogCapture cap(8, 5);
    std::string text(2000, 'x');
    probeLong(text);
    auto lines = cap.ulog();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text.size(), 1023u);
    int framed = static_cast<int>(frame(0, "probeLong", "").size() + text.size());
    EXPECT_EQ(lines[0].length, framed);
}

TEST(SyncLogBufferTest, NoUnifiedLoggerInstalledIsHarmless) {
    LogCapture cap(8, 5);
    ULogger* saved = ULogger::install(nullptr);
    probeError(1);
    ULogger::install(saved);
    EXPECT_TRUE(cap.ulog().empty());
}

// A logger that reports what it receives on stderr, so a death test can see the order.
class StderrULogger : public ULogger {
  public:
    void output(uint32_t, const char*, uint32_t level, const char* text, int length) override {
        std::fprintf(stderr, "ULOG level=%u len=%d text=<%s>\n", level, length, text);
    }
    void flush(int reason) override { std::fprintf(stderr, "FLUSH %d\n", reason); }
};

using SyncLogFatalDeathTest = ::testing::Test;

TEST_F(SyncLogFatalDeathTest, ModeZeroStillAbortsWithSuffixedText) {
    EXPECT_DEATH(
        {
            ULogger::sMode = 0;
            probeFatal();
        },
        "Invalid operation\\. \\(probeFatal\\)\\{#[0-9]+:hw/camsys/cam_coordinator/SyncHelper/"
        "LogProbe\\}");
}

TEST_F(SyncLogFatalDeathTest, AndroidOnlyAbortsWithFormattedArguments) {
    EXPECT_DEATH(
        {
            ULogger::sMode = 1;
            probeFatalArgs(12, 3);
        },
        "\\(input\\) Duplicate insert! frameno\\(12\\) input cam\\(3\\) "
        "\\(probeFatalArgs\\)\\{#[0-9]+:hw/camsys/cam_coordinator/SyncHelper/LogProbe\\}");
}

TEST_F(SyncLogFatalDeathTest, UnifiedModeSendsBareTextThenFlushesThenAsserts) {
    EXPECT_DEATH(
        {
            static StderrULogger logger;
            ULogger::install(&logger);
            ULogger::sMode = 8;
            probeFatal();
        },
        "ULOG level=1 len=18 text=<Invalid operation\\.>\nFLUSH 1\n(.|\n)*Invalid operation\\. "
        "\\(probeFatal\\)\\{#");
}

}  // namespace
