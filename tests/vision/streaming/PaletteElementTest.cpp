#include "nordalib/vision/streaming/PaletteElement.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::test::celsius;
using norda::vision::ColorPaletteConverter;
using norda::vision::Palettes;
using norda::vision::RadiometricTools;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

namespace {

// Opens the element's converter and limits to the tests.
class ProbedPaletteElement : public PaletteElement {
public:
    using PaletteElement::converter;
    using PaletteElement::lowerLimit;
    using PaletteElement::PaletteElement;
    using PaletteElement::upperLimit;
};

// The metadata a frame carries in a camera with factory settings.
DataStorage<std::string> defaultMeta() {
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    DataStorage<std::string> meta;
    for (const auto& key : proxy.keys())
        meta.set(key, proxy.get(key));
    return meta;
}

uint16_t px(float t) {
    return RadiometricTools::getUint16(t);
}

struct Rig {
    ProbedPaletteElement element{false};
    DataStorage<std::string> meta = defaultMeta();
    cv::Mat_<uint16_t> raw = cv::Mat_<uint16_t>(8, 8, px(20.0f));
    FrameMap inputs, outputs;

    bool cycle() {
        inputs[STREAMING_DATATYPE_RAD_CONST] = std::make_unique<Frame>(raw, DataStorage<std::string>(meta));
        return element.process(inputs, outputs);
    }
    cv::Mat_<cv::Vec3b> image() { return outputs.at(STREAMING_DATATYPE_RGB)->getFrameData(); }
    void request(uint16_t lower, uint16_t upper) {
        meta.setValue<unsigned short>(Id::Scaling::Min, lower);
        meta.setValue<unsigned short>(Id::Scaling::Max, upper);
    }
    uint64_t builds() { return element.converter().tableBuilds(); }
};

// The first `n` pixels of the image's first row.
std::vector<cv::Vec3b> row(const cv::Mat_<cv::Vec3b>& img, int n) {
    return {img.begin(), img.begin() + n};
}

cv::Vec3b ironAt(size_t k) {
    const auto& t = Palettes::colors("iron");
    return {t[3 * k], t[3 * k + 1], t[3 * k + 2]};
}

} // namespace

TEST(PaletteElement, OneCycle) {
    Rig rig;
    // Manual 0..40 °C over the iron palette; a hot column, a cold column, one in the middle.
    rig.meta.setValue(Id::Scaling::Mode, Id::Scaling::Manual);
    rig.request(px(0.0f), px(40.0f));
    rig.raw.col(0).setTo(px(-10.0f));
    rig.raw.col(1).setTo(px(50.0f));
    rig.raw.col(2).setTo(px(20.0f));
    const size_t metaKeys = rig.meta.size();
    ASSERT_TRUE(rig.cycle());
    EXPECT_EQ(rig.outputs.at(STREAMING_DATATYPE_RGB)->getMetaData().size(), metaKeys);
    EXPECT_TRUE(rig.inputs.at(STREAMING_DATATYPE_RAD_CONST)->getMetaData().empty());
    EXPECT_EQ(row(rig.image(), 3), (std::vector<cv::Vec3b>{ironAt(0), ironAt(255), ironAt(128)}));

    // Manual limits in the wrong order still paint: the palette runs backwards.
    rig.request(px(40.0f), px(0.0f));
    ASSERT_TRUE(rig.cycle());
    EXPECT_EQ(row(rig.image(), 2), (std::vector<cv::Vec3b>{ironAt(255), ironAt(0)}));
}

// Automatic scaling: the limits follow the request with a hysteresis band and a step beyond it.
TEST(PaletteElement, AutomaticScalingHysteresis) {
    Rig rig;
    struct Step {
        uint16_t min, max;     // requested
        uint16_t lower, upper; // limits afterwards
        bool rebuilt;          // whether the converter was told of a change
    };
    const std::vector<Step> steps{
        {30000, 31000, 29990, 31010, true},  // first cycle: both limits move (step 10, band 20)
        {30005, 30995, 29990, 31010, false}, // inside both bands (step 9, band 18): nothing moves
        {29990, 31010, 29990, 31010, false}, // exactly on the limits
        {30008, 30992, 29990, 31010, false}, // exactly on the band edges
        {30020, 31000, 30011, 31010, true},  // min left the lower band: lower = min - step
        {30020, 30900, 30011, 30908, true},  // max left the upper band: upper = max + step
        {30100, 30150, 30098, 30152, true},  // span below 200: step 2, band 4
        {30200, 30201, 30140, 30203, true},  // lower edge held 4 values below the upper band
        {0, 65535, 0, 65535, true},          // clamped at both ends (step 655)
        {30000, 29000, 29998, 30010, true},  // inverted request: smallest step, no wrap-around
    };
    for (size_t i = 0; i < steps.size(); ++i) {
        const auto& s = steps[i];
        rig.request(s.min, s.max);
        const auto before = rig.builds();
        ASSERT_TRUE(rig.cycle()) << "step " << i;
        EXPECT_EQ(rig.element.lowerLimit(), s.lower) << "step " << i;
        EXPECT_EQ(rig.element.upperLimit(), s.upper) << "step " << i;
        EXPECT_EQ(rig.builds() > before, s.rebuilt) << "step " << i;
    }
}

TEST(PaletteElement, ColourRegionsFollowTheBands) {
    Rig rig;
    rig.meta.setValue(Id::Scaling::Mode, Id::Scaling::Manual);
    rig.request(px(0.0f), px(100.0f));
    // Columns: 36 °C (isotherm 35..40), 70 °C (above the upper alarm at 60), -5 °C (below the
    // lower alarm at 0), 20 °C (no band), 150 °C (range top: still in the upper alarm), 151 °C.
    const float temps[] = {36.0f, 70.0f, -5.0f, 20.0f, 150.0f, 151.0f, 0.0f, -40.0f};
    for (int x = 0; x < 8; ++x)
        rig.raw.col(x).setTo(px(temps[x]));
    rig.meta.setValue(Id::Isotherme::IsothermeActive, true);
    rig.meta.setValue(Id::Alarm::AlarmTopActive, true);
    rig.meta.setValue(Id::Alarm::AlarmBottomActive, true);
    ASSERT_TRUE(rig.cycle());
    // Isotherm 0x0000FF00, upper alarm 0x00FF0000, lower alarm 0x000000FF; both band ends are
    // inclusive, and -40 °C is the range bottom.
    const cv::Vec3b isotherm(0, 255, 0), upper(255, 0, 0), lower(0, 0, 255);
    EXPECT_EQ(row(rig.image(), 8),
              (std::vector<cv::Vec3b>{isotherm, upper, lower, ironAt(51), upper, ironAt(255), lower, lower}));

    // An inverted upper alarm band (alarm above the range top) fails inside the converter: the
    // failure is swallowed, the cycle succeeds, and the lower alarm is left as it was.
    rig.meta.setValue(Id::Alarm::AlarmBottomActive, false);
    ASSERT_TRUE(rig.cycle());
    EXPECT_FALSE(rig.element.converter().hasColorRegion(3));
    rig.meta.setValue(Id::Alarm::AlarmTopValue, celsius(200.0f));
    rig.meta.setValue(Id::Alarm::AlarmBottomActive, true);
    ASSERT_TRUE(rig.cycle());
    EXPECT_TRUE(rig.element.converter().hasColorRegion(1));
    EXPECT_TRUE(rig.element.converter().hasColorRegion(2)); // the previous band stays
    EXPECT_FALSE(rig.element.converter().hasColorRegion(3));
    EXPECT_EQ(rig.image()(0, 2), ironAt(0));
    rig.meta.setValue(Id::Alarm::AlarmTopValue, celsius(60.0f));
    ASSERT_TRUE(rig.cycle());
    EXPECT_TRUE(rig.element.converter().hasColorRegion(3));

    // All off: every region is deleted, on every cycle.
    rig.meta.setValue(Id::Isotherme::IsothermeActive, false);
    rig.meta.setValue(Id::Alarm::AlarmTopActive, false);
    rig.meta.setValue(Id::Alarm::AlarmBottomActive, false);
    rig.element.converter().createColorRegion(2, 65535, 0, 0x123456);
    ASSERT_TRUE(rig.cycle());
    for (uint32_t r = 1; r <= 3; ++r)
        EXPECT_FALSE(rig.element.converter().hasColorRegion(r));
    EXPECT_EQ(rig.image()(0, 0), ironAt(92));
}

TEST(PaletteElement, BadFramesFailOnceAndEmitNothing) {
    norda::test::LogCapture log;
    auto records = [&] {
        std::vector<norda::test::LogRecord> own;
        for (const auto& r : log.records())
            if (r.logger == "PALETTE")
                own.push_back(r);
        return own;
    };
    Rig rig;
    ASSERT_TRUE(rig.cycle());
    auto* previous = rig.outputs.at(STREAMING_DATATYPE_RGB).get();

    rig.meta.remove(Id::Scaling::Min);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(rig.cycle());
        EXPECT_EQ(rig.outputs.at(STREAMING_DATATYPE_RGB).get(), previous); // left as it was
    }
    ASSERT_EQ(records().size(), 1u);
    EXPECT_EQ(records()[0].level, norda::logging::LogLevel::error);
    EXPECT_EQ(records()[0].message, "no display image: Could not find parameter Scaling.Min");

    rig.request(30000, 31000);
    EXPECT_TRUE(rig.cycle());
    EXPECT_TRUE(rig.cycle());
    ASSERT_EQ(records().size(), 2u);
    EXPECT_EQ(records()[1].level, norda::logging::LogLevel::info);

    // Mistyped keys, a frame of the wrong type, no frame at all: one record for the episode.
    rig.meta.setValue(Id::Alarm::AlarmTopColor, 5); // int instead of unsigned int
    EXPECT_FALSE(rig.cycle());
    rig.meta.setValue<unsigned int>(Id::Alarm::AlarmTopColor, 0x00FF0000u);
    FrameMap in, out;
    in[STREAMING_DATATYPE_RAD_CONST] =
        std::make_unique<Frame>(cv::Mat(4, 4, CV_16UC3), DataStorage<std::string>(rig.meta));
    EXPECT_FALSE(rig.element.process(in, out));
    EXPECT_FALSE(out[STREAMING_DATATYPE_RGB]);
    FrameMap empty;
    EXPECT_FALSE(rig.element.process(empty, out));
    ASSERT_EQ(records().size(), 3u);
    EXPECT_EQ(records()[2].message, "no display image: type does not match: int != unsigned int");
}
