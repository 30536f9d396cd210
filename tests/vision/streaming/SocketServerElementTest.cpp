#include "nordalib/vision/streaming/SocketServerElement.h"
#include "nordalib/core/cmd/CommandProxy.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {
struct Stream {
    cmd::CommandProxy commands;
    std::vector<std::pair<unsigned long long, bool>> sent;
    bool throwNext = false;
    std::unique_ptr<SocketServerElement> element;

    explicit Stream(int drops) {
        element = std::make_unique<SocketServerElement>(
            STREAMING_DATATYPE_RGB,
            [this](Frame& frame, unsigned long long count, bool compression) {
                EXPECT_EQ(frame.getFrameData().cols, 8);
                if (throwNext) {
                    throwNext = false;
                    throw std::runtime_error("x");
                }
                sent.emplace_back(count, compression);
            },
            commands, "Stream", drops);
    }
    bool cycle() {
        FrameMap in, out;
        in[STREAMING_DATATYPE_RGB] = std::make_unique<Frame>(cv::Mat(4, 8, CV_8UC3));
        bool result = element->process(in, out);
        EXPECT_NE(in[STREAMING_DATATYPE_RGB], nullptr); // the frame stays in the input map
        return result;
    }
    std::shared_ptr<Variant> start(unsigned int frames) {
        return commands.call("Stream", "Start", cmd::ParameterPack{makeVariant(frames)});
    }
};
} // namespace

TEST(SocketServerElement, CommandsGateAndCountTheStream) {
    Stream s(0);
    auto descriptions = s.commands.getDescriptions("Stream");
    ASSERT_EQ(descriptions.size(), 2u);
    EXPECT_EQ(descriptions[0].getDescription() + " " + descriptions[0].getParameters().begin()->getName(),
              "Start stream u32NumFrames");
    EXPECT_EQ(descriptions[1].getDescription(), "Stop stream");

    EXPECT_FALSE(s.cycle()); // idle
    EXPECT_TRUE(s.sent.empty());

    auto started = s.start(3);
    ASSERT_NE(started, nullptr);
    EXPECT_TRUE(started->value<bool>());
    for (int i = 0; i < 4; ++i)
        EXPECT_FALSE(s.cycle());
    EXPECT_EQ(s.sent, (std::vector<std::pair<unsigned long long, bool>>{{3, false}, {2, false}, {1, false}}));

    s.sent.clear();
    s.start(0);
    s.element->setCompression(true);
    for (int i = 0; i < 3; ++i)
        s.cycle();
    EXPECT_EQ(s.commands.call("Stream", "Stop", {}), nullptr);
    s.cycle();
    EXPECT_EQ(s.sent, (std::vector<std::pair<unsigned long long, bool>>{{0, true}, {0, true}, {0, true}}));

    // A failing sender prints its text; the frame is not counted.
    s.sent.clear();
    s.start(2);
    s.throwNext = true;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(s.cycle());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "x\n");
    s.cycle();
    s.cycle();
    s.cycle();
    EXPECT_EQ(s.sent, (std::vector<std::pair<unsigned long long, bool>>{{2, true}, {1, true}}));

    s.element.reset();
    EXPECT_FALSE(s.commands.hasCallable("Stream"));
}

TEST(SocketServerElement, FrameDropsPassEveryNthFrame) {
    Stream s(3);
    s.start(0);
    std::vector<int> passed;
    for (int cycle = 1; cycle <= 10; ++cycle) {
        const size_t before = s.sent.size();
        s.cycle();
        if (s.sent.size() > before)
            passed.push_back(cycle);
    }
    EXPECT_EQ(passed, (std::vector<int>{1, 4, 7, 10}));
}

TEST(SocketServerElement, CommandsFromAnotherThreadDuringCycles) {
    cmd::CommandProxy commands;
    std::atomic<int> sent{0};
    SocketServerElement element(
        STREAMING_DATATYPE_RGB, [&](Frame&, unsigned long long, bool) { ++sent; }, commands, "Stream", 1);
    std::atomic<bool> done{false};
    std::thread ui([&] {
        for (unsigned int i = 0; !done; ++i) {
            commands.call("Stream", "Start", cmd::ParameterPack{makeVariant(i % 4)});
            element.setCompression(i % 2 == 0);
            element.setFrameDrops(static_cast<int>(i % 3));
            commands.call("Stream", "Stop", {});
        }
    });
    for (int i = 0; i < 2000; ++i) {
        FrameMap in, out;
        in[STREAMING_DATATYPE_RGB] = std::make_unique<Frame>(cv::Mat(4, 8, CV_8UC3));
        EXPECT_FALSE(element.process(in, out));
    }
    done = true;
    ui.join();
    commands.call("Stream", "Stop", {});
    const int before = sent;
    FrameMap in, out;
    in[STREAMING_DATATYPE_RGB] = std::make_unique<Frame>(cv::Mat(4, 8, CV_8UC3));
    element.process(in, out);
    EXPECT_EQ(sent, before); // stopped is stopped
}
