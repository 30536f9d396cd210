#include "nordalib/vision/streaming/ImageBufferElement.h"
#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "tests/support/Messages.h"

#include <gtest/gtest.h>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {
struct Buffer {
    DataProxy<std::string> proxy;
    std::unique_ptr<ImageBufferElement> element;
    std::vector<Frame*> pushed;

    Buffer(float latency, uint8_t maxDepth) {
        pushed.reserve(64); // tests compare against elements while cycling
        setDefaultParameters(proxy);
        proxy.setValue(Id::Viscam::MaximumImageLatency, latency);
        element = std::make_unique<ImageBufferElement>(maxDepth, STREAMING_DATATYPE_YUV422, &proxy);
    }
    // Returns the frame that came out (nullptr when the cycle returned false).
    Frame* cycle(float captureTime, cv::Size size = cv::Size(8, 4)) {
        FrameMap in, out;
        DataStorage<std::string> meta;
        meta.setValue(Id::Viscam::CaptureTime, captureTime);
        in[STREAMING_DATATYPE_YUV422] = std::make_unique<Frame>(cv::Mat(size, CV_8UC2), std::move(meta));
        pushed.push_back(in[STREAMING_DATATYPE_YUV422].get());
        if (!element->process(in, out))
            return nullptr;
        released.push_back(std::move(out[STREAMING_DATATYPE_YUV422]));
        return released.back().get();
    }
    std::vector<std::unique_ptr<Frame>> released;
};
} // namespace

TEST(ImageBufferElement, DelaysByLatencyOverCaptureTime) {
    Buffer b(200.0f, 10); // 200 / 40 = 5 frames
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(b.cycle(40.0f), nullptr);
    EXPECT_EQ(b.cycle(40.0f), b.pushed[0]);
    EXPECT_EQ(b.cycle(40.0f), b.pushed[1]);
    EXPECT_EQ(b.element->getQueueSize(), 4u);

    // A size change empties the queue, which refills to the depth last used.
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(b.cycle(40.0f, cv::Size(16, 8)), nullptr);
    EXPECT_EQ(b.cycle(40.0f, cv::Size(16, 8)), b.pushed[6]);

    // A longer capture time shrinks the queue from the front.
    EXPECT_EQ(b.cycle(100.0f, cv::Size(16, 8)), b.pushed[10]);
    EXPECT_EQ(b.element->getQueueSize(), 1u);
}

TEST(ImageBufferElement, DepthIsClippedToOneAndTheMaximum) {
    Buffer fast(30.0f, 10); // latency below the capture time: straight through
    EXPECT_EQ(fast.cycle(40.0f), fast.pushed[0]);
    EXPECT_EQ(fast.cycle(40.0f), fast.pushed[1]);
    EXPECT_EQ(fast.cycle(0.0f), nullptr); // unknown capture time: as deep as allowed

    Buffer deep(1000.0f, 3); // 100 frames wanted, 3 allowed
    EXPECT_EQ(deep.cycle(10.0f), nullptr);
    EXPECT_EQ(deep.cycle(10.0f), nullptr);
    EXPECT_EQ(deep.cycle(10.0f), deep.pushed[0]);

    FrameMap in, out;
    EXPECT_FALSE(deep.element->process(in, out)); // no frame: nothing changes
    EXPECT_EQ(deep.element->getQueueSize(), 2u);
}

TEST(ImageBufferElement, CurrentDepthIsSharedBetweenInstances) {
    Buffer a(200.0f, 10);
    for (int i = 0; i < 5; ++i)
        a.cycle(40.0f); // depth 5
    Buffer b(200.0f, 10);
    EXPECT_EQ(b.cycle(100.0f), nullptr); // b sets the shared depth to 2
    // a's size change makes it fall back on the shared depth, now b's.
    EXPECT_EQ(a.cycle(40.0f, cv::Size(2, 2)), nullptr);
    EXPECT_EQ(a.cycle(40.0f, cv::Size(2, 2)), a.pushed[5]);
}

TEST(ImageBufferElement, ConstructionNeedsANumericLatency) {
    DataProxy<std::string> proxy;
    auto failure = [&] {
        return test::messageOf([&] { ImageBufferElement e(3, STREAMING_DATATYPE_YUV422, &proxy); });
    };
    EXPECT_EQ(failure(), "value: Viscam.MaximumImageLatency could not be found!");
    proxy.setValue(Id::Viscam::MaximumImageLatency, std::string("fast"));
    EXPECT_EQ(failure().rfind("Variant-type (", 0), 0u) << failure();
    proxy.setValue(Id::Viscam::MaximumImageLatency, 120); // an int converts
    EXPECT_NO_THROW(ImageBufferElement(3, STREAMING_DATATYPE_YUV422, &proxy));
}
