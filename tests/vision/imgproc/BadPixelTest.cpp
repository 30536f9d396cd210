#include "nordalib/core/datatypes/Variant.h"
#include "nordalib/core/datatypes/VariantRegistry.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/imgproc/BadPixelCorrector.h"
#include "nordalib/vision/imgproc/BadPixelDetector.h"
#include "nordalib/vision/streaming/BadPixelElement.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <random>

using namespace norda;
using namespace norda::vision;
using namespace norda::exp;

TEST(BadPixel, SerialisationRoundTrips) {
    const BadPixelList list = {{1, 2, BadPixelOrigin::Factory}, {639, 479, BadPixelOrigin::Outlier}};
    auto v = makeVariant(list);
    EXPECT_EQ(v->typeTag(), "vec<BadPixel>");
    EXPECT_EQ(v->toString(), "1:2:0,639:479:3");
    auto back = VariantRegistry::instance().fromText(v->typeTag(), v->toString());
    EXPECT_EQ(back->value<BadPixelList>(), list);
    MemoryBinary m;
    writeVariant(m, *v);
    EXPECT_EQ(readVariant(m)->value<BadPixelList>(), list);
    EXPECT_NE(test::messageOf([] { Serializer<BadPixel>::fromText("1:2:9"); }).find("origin 9"),
              std::string::npos);
    EXPECT_NE(test::messageOf([] { Serializer<BadPixel>::fromText("12"); }).find("x:y:origin"),
              std::string::npos);
}

TEST(BadPixel, DetectorFindsDeadStuckAndOutliersOnly) {
    // A dark frame with a gradient, detector fixed-pattern noise and a few defects.
    std::mt19937 rng(7);
    std::normal_distribution<double> fpn(0.0, 6.0);
    cv::Mat frame(120, 160, CV_16U);
    for (int y = 0; y < frame.rows; ++y)
        for (int x = 0; x < frame.cols; ++x)
            frame.at<uint16_t>(y, x) = static_cast<uint16_t>(8000 + 10 * x + 5 * y + fpn(rng));
    frame.at<uint16_t>(10, 10) = 0;
    frame.at<uint16_t>(20, 30) = 65535;
    frame.at<uint16_t>(50, 60) += 400;
    frame.at<uint16_t>(70, 80) -= 300;
    BadPixelDetector detector;
    const auto found = detector.detect(frame, {{10, 10, BadPixelOrigin::Factory}});
    const BadPixelList expected = {{30, 20, BadPixelOrigin::Stuck},
                                   {60, 50, BadPixelOrigin::Outlier},
                                   {80, 70, BadPixelOrigin::Outlier}};
    EXPECT_EQ(found, expected);
    EXPECT_NEAR(detector.lastSigma(), 6.0 * 1.2, 3.0); // deviation from a 5x5 median has a bit more spread
    EXPECT_NE(test::messageOf([&] { detector.detect(cv::Mat(4, 4, CV_16S)); }).find("CV_16UC1"),
              std::string::npos);
}

TEST(BadPixel, CorrectorFillsPixelsAndClustersFromGoodNeighbours) {
    // A plane: interpolation from symmetric neighbours restores it exactly.
    cv::Mat plane(20, 30, CV_16S);
    for (int y = 0; y < plane.rows; ++y)
        for (int x = 0; x < plane.cols; ++x)
            plane.at<int16_t>(y, x) = static_cast<int16_t>(-500 + 7 * x + 3 * y);
    BadPixelList list = {{5, 5, BadPixelOrigin::Dead}, {0, 0, BadPixelOrigin::Stuck}};
    for (int y = 10; y < 13; ++y) // 3x3 cluster
        for (int x = 15; x < 18; ++x)
            list.push_back({static_cast<uint16_t>(x), static_cast<uint16_t>(y), BadPixelOrigin::Factory});
    list.push_back({100, 100, BadPixelOrigin::Factory}); // outside: ignored
    cv::Mat damaged = plane.clone();
    for (const auto& p : list)
        if (p.x < 30 && p.y < 20)
            damaged.at<int16_t>(p.y, p.x) = 32000;
    BadPixelCorrector corrector(list, damaged.size());
    EXPECT_EQ(corrector.replaced(), 11u);
    corrector.apply(damaged);
    EXPECT_EQ(damaged.at<int16_t>(5, 5), plane.at<int16_t>(5, 5));
    EXPECT_EQ(damaged.at<int16_t>(11, 16), plane.at<int16_t>(11, 16)); // cluster centre
    // Border and cluster-rim pixels see good neighbours on one side only: off by at most one
    // pixel's step of the plane (7 + 3).
    for (const auto& p : list) {
        if (p.x < 30 && p.y < 20) {
            EXPECT_NEAR(damaged.at<int16_t>(p.y, p.x), plane.at<int16_t>(p.y, p.x), 10) << p.x << "," << p.y;
        }
    }
    // Good pixels are never touched.
    cv::Mat changed = damaged != plane;
    changed.at<uint8_t>(0, 0) = 0;
    changed(cv::Rect(15, 10, 3, 3)).setTo(0);
    EXPECT_EQ(cv::countNonZero(changed), 0);
    cv::Mat u16(20, 30, CV_16U, cv::Scalar(100));
    u16.at<uint16_t>(5, 5) = 0;
    corrector.apply(u16);
    EXPECT_EQ(u16.at<uint16_t>(5, 5), 100);
    // Neighbours weigh by inverse squared distance, and the result is rounded:
    // (4 * 100 + 4 * 201 / 2) / (4 + 4 / 2) = 133.67.
    cv::Mat ring(20, 30, CV_16U, cv::Scalar(100));
    ring(cv::Rect(4, 4, 3, 3)).setTo(201);
    ring.at<uint16_t>(4, 5) = ring.at<uint16_t>(6, 5) = ring.at<uint16_t>(5, 4) = ring.at<uint16_t>(5, 6) =
        100;
    corrector.apply(ring);
    EXPECT_EQ(ring.at<uint16_t>(5, 5), 134);
    cv::Mat wrongSize(10, 10, CV_16U);
    EXPECT_NE(test::messageOf([&] { corrector.apply(wrongSize); }).find("does not match"), std::string::npos);
}

TEST(BadPixel, ElementFollowsTheListInTheStore) {
    using namespace norda::exp::streaming;
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    proxy.setValue(Id::IrSensor::BadPixelList, BadPixelList{{2, 1, BadPixelOrigin::Dead}}, false);
    BadPixelElement e(&proxy, "BadPixelCorrected", STREAMING_DATATYPE_CORRECTED);
    FrameMap in, out;
    auto run = [&] {
        cv::Mat f(4, 6, CV_16S, cv::Scalar(50));
        f.at<int16_t>(1, 2) = -9999;
        f.at<int16_t>(3, 5) = 9999;
        in[STREAMING_DATATYPE_CORRECTED] = std::make_unique<Frame>(f);
        EXPECT_TRUE(e.process(in, out));
        EXPECT_FALSE(in[STREAMING_DATATYPE_CORRECTED]);
        return out[STREAMING_DATATYPE_CORRECTED]->getFrameData();
    };
    cv::Mat r = run();
    EXPECT_EQ(r.at<int16_t>(1, 2), 50);
    EXPECT_EQ(r.at<int16_t>(3, 5), 9999);
    proxy.setValue(Id::IrSensor::BadPixelList, BadPixelList{{5, 3, BadPixelOrigin::Outlier}});
    proxy.flush();
    r = run();
    EXPECT_EQ(r.at<int16_t>(1, 2), -9999);
    EXPECT_EQ(r.at<int16_t>(3, 5), 50);
    in[STREAMING_DATATYPE_CORRECTED] = std::make_unique<Frame>(cv::Mat(4, 6, CV_8U));
    EXPECT_NE(test::messageOf([&] { e.process(in, out); }).find("CV_16UC1 or CV_16SC1"), std::string::npos);
}
