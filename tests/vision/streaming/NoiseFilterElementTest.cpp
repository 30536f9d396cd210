#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/streaming/SnrElement.h"
#include "nordalib/vision/streaming/SprElement.h"
#include "nordalib/vision/streaming/TnrElement.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {
std::unique_ptr<Frame> corrected(short value) {
    DataStorage<std::string> meta;
    meta.setValue(Id::Environment::EmissivityValue, 0.9f);
    return std::make_unique<Frame>(cv::Mat(16, 20, CV_16S, cv::Scalar(value)), std::move(meta));
}
} // namespace

TEST(NoiseFilterElements, TuningKeysAndSharedFrameLimit) {
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    proxy.setValue<unsigned char>(Id::ActiveMeasRange::TnrGain, 9, false);
    TnrElement tnr(&proxy);
    SprElement spr(&proxy);
    SnrElement snr(&proxy);
    // The activity keys: TNR on, SPR and SNR off.
    EXPECT_TRUE(proxy.getValue<bool>("TnrElement.Active"));
    EXPECT_FALSE(proxy.getValue<bool>(Id::SprElement::Active));
    EXPECT_FALSE(proxy.getValue<bool>(Id::SnrElement::Active));

    // TNR reads its tuning at once and follows the active range's keys.
    EXPECT_EQ(tnr.filter().controlGain(), 9);
    EXPECT_EQ(tnr.filter().feedbackFactor(), 1843);
    proxy.setValue<unsigned char>(Id::ActiveMeasRange::TnrGain, 20);
    proxy.setValue<unsigned short>(Id::ActiveMeasRange::TnrAlpha, 1000);
    // SPR and SNR start off and only learn values from changes; the frame limit drives both.
    EXPECT_EQ(spr.filter().frameLimit(), 0);
    EXPECT_EQ(snr.filter().gain(), 0);
    proxy.setValue<short>(Id::SprElement::FrameLimit, 12);
    proxy.setValue<short>(Id::SprElement::Threshold, 30);
    proxy.setValue<short>(Id::SprElement::LineLimit, 25);
    proxy.flush();
    EXPECT_EQ(tnr.filter().controlGain(), 20);
    EXPECT_EQ(tnr.filter().feedbackFactor(), 1000);
    EXPECT_EQ(spr.filter().frameLimit(), 12);
    EXPECT_EQ(spr.filter().threshold(), 30);
    EXPECT_EQ(spr.filter().lineLimit(), 25);
    EXPECT_EQ(snr.filter().gain(), 12);
}

TEST(NoiseFilterElements, FramesAndMetadataMoveAsDeclared) {
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    TnrElement tnr(&proxy);
    SprElement spr(&proxy);
    SnrElement snr(&proxy);
    FrameMap in, out;

    // TNR filters in place and moves the frame itself.
    in[STREAMING_DATATYPE_CORRECTED] = corrected(100);
    Frame* original = in[STREAMING_DATATYPE_CORRECTED].get();
    EXPECT_TRUE(tnr.process(in, out));
    EXPECT_FALSE(in[STREAMING_DATATYPE_CORRECTED]);
    EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED].get(), original);
    in[STREAMING_DATATYPE_CORRECTED] = corrected(104); // within the gain: smoothed towards 100
    EXPECT_TRUE(tnr.process(in, out));
    EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED]->getFrameData().at<int16_t>(3, 3), 100);

    // SPR and SNR build a new frame; the input keeps its pixels but loses its metadata.
    for (StreamingElement* e : {static_cast<StreamingElement*>(&spr), static_cast<StreamingElement*>(&snr)}) {
        out.clear();
        in[STREAMING_DATATYPE_CORRECTED] = corrected(-7);
        EXPECT_TRUE(e->process(in, out));
        ASSERT_TRUE(in[STREAMING_DATATYPE_CORRECTED]);
        EXPECT_TRUE(in[STREAMING_DATATYPE_CORRECTED]->getMetaData().empty());
        EXPECT_NE(out[STREAMING_DATATYPE_CORRECTED].get(), in[STREAMING_DATATYPE_CORRECTED].get());
        EXPECT_TRUE(
            out[STREAMING_DATATYPE_CORRECTED]->getMetaData().contains(Id::Environment::EmissivityValue));
        EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED]->getFrameData().at<int16_t>(5, 5), -7);
    }
}
