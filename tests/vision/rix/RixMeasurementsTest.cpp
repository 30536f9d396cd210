#include "nordalib/vision/rix/RixMeasurements.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imgproc/ColorPaletteConverter.h"
#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/measurement/MeasurementStatistics.h"
#include "nordalib/vision/rix/RixReanalysis.h"
#include "tests/support/Messages.h"

#include <gtest/gtest.h>

using namespace norda;
using namespace norda::vision;
using namespace norda::exp;
using Temperature = quantity::Temperature<MarkedFloat>;
using Relation = quantity::Relation<MarkedFloat>;

namespace {

Temperature celsius(float t) {
    return Temperature(MarkedFloat(t));
}

// An image taken at emissivity 0.95, 20 °C reflected, in air of 20 °C at 50 %, with the results a
// camera stores: stale ones (they must be replaced) and ones shaped by other parameters.
Rix takenImage() {
    Rix rix;
    cv::Mat_<uint16_t> rad(6, 8);
    for (int y = 0; y < rad.rows; ++y)
        for (int x = 0; x < rad.cols; ++x)
            rad(y, x) = uint16_t(29315 + 150 * x + 40 * y); // 20 .. 36.5 °C
    rad(4, 1) = 41315;                                      // 140 °C: outside the tolerance band
    rix.setRadiometricImage(rad);
    rix.setPreviewImageRgb(cv::Mat_<cv::Vec3b>(rad.size(), cv::Vec3b(1, 2, 3)));
    rix.setScalingMin(celsius(15.0f));
    rix.setScalingMax(celsius(45.0f));
    rix.setEmissivityOriginal(0.95f);
    rix.setReflectedTempOriginal(celsius(20.0f));
    rix.setGeneric(Id::Radiometry::Planck,
                   makeVariant(std::vector<double>{300000.0, 1.0, 1428.0, 1.0, -40.0}));
    rix.setGeneric(Id::Palette::ActivePalette, makeVariant(std::string("rainbow")));
    rix.setGeneric(Id::Environment::Temperature, makeVariant(celsius(20.0f)));
    rix.setGeneric(Id::Environment::Humidity, makeVariant(Relation(MarkedFloat(0.5f))));
    for (const auto& [key, t] : {std::pair{&Id::ActiveMeasRange::ToleranceTop, 120.0f},
                                 {&Id::ActiveMeasRange::ToleranceBottom, -20.0f},
                                 {&Id::ActiveMeasRange::DisplayTop, 150.0f},
                                 {&Id::ActiveMeasRange::DisplayBottom, -40.0f}})
        rix.setGeneric(*key, makeVariant(celsius(t)));
    rix.setGeneric(Id::MeasPoints::HotSpot::MeasPoint, makeVariant(MeasPoint(0, 0, celsius(99.0f))));
    rix.setGeneric(Id::MeasPoints::CenterSpot::MeasPoint, makeVariant(MeasPoint(3, 2, celsius(99.0f))));
    rix.setGeneric(Id::MeasPoints::DeltaT1::MeasPoint,
                   makeVariant(MeasPoint(5, 5, Relation(MarkedFloat(0.1f)))));
    rix.setGeneric(Id::MeasPoints::MeasPoint1::MeasPoint, makeVariant(MeasPoint(1, 1, celsius(99.0f))));
    rix.setGeneric("MeasPoints.MeasPoint1.LocalParameters", makeVariant(true));
    rix.setGeneric(Id::MeasAreas::CenterArea::MeasArea, makeVariant(MeasArea(2, 1, 4, 3)));
    rix.setGeneric("DeltaT.Difference", makeVariant(1.5f));
    rix.setGeneric(Id::IrImage::Max, makeVariant(celsius(99.0f)));
    return rix;
}

template <typename T> T stored(const Rix& rix, const std::string& key) {
    return rix.getGeneric(key)->value<T>();
}

} // namespace

TEST(RixMeasurements, ReanalysedImageCarriesTheResultsOfItsOwnTemperatures) {
    const Rix taken = takenImage();
    const ObjectParameters to{0.7, 300.15, 1.0, 0.0};
    const MeasurementResults::Humidity air{Relation(MarkedFloat(0.8f)), celsius(22.0f)};
    const Rix rix = RixReanalysis::reanalysed(taken, to, cv::Mat(), air);

    const cv::Mat_<uint16_t>& img = rix.getRadiometricImage();
    EXPECT_EQ(cv::countNonZero(img != RixReanalysis::temperatures(taken, to)), 0);
    const MeasRangeBorders b = RixMeasurements::borders(taken);
    ASSERT_TRUE(b.allValid());
    EXPECT_EQ(stored<MeasPoint>(rix, Id::MeasPoints::HotSpot::MeasPoint),
              MeasurementResults::point(1, 4, img(4, 1), b, nullptr)); // moved to the new hottest pixel
    EXPECT_EQ(stored<MeasPoint>(rix, Id::MeasPoints::HotSpot::MeasPoint)
                  .getValue()
                  ->value<Temperature>()
                  .getValue()
                  .getMark(),
              MarkedFloat::OverRange); // 140 °C at emissivity 0.95 is beyond 150 °C at 0.7
    EXPECT_EQ(stored<MeasPoint>(rix, Id::MeasPoints::CenterSpot::MeasPoint),
              MeasurementResults::point(3, 2, img(2, 3), b, nullptr));
    EXPECT_EQ(stored<MeasPoint>(rix, Id::MeasPoints::DeltaT1::MeasPoint),
              MeasurementResults::point(5, 5, img(5, 5), b, &air)); // a humidity, in the new air
    EXPECT_EQ(stored<MeasArea>(rix, Id::MeasAreas::CenterArea::MeasArea),
              MeasurementResults::area(img, cv::Rect(2, 1, 4, 3), b, nullptr));
    EXPECT_EQ(stored<Temperature>(rix, Id::IrImage::Max), MeasurementStatistics::markValidity(img(4, 1), b));
    EXPECT_FALSE(rix.getGeneric(Id::MeasPoints::MeasPoint1::MeasPoint)); // its own parameters
    EXPECT_FALSE(rix.getGeneric("DeltaT.Difference"));

    EXPECT_FLOAT_EQ(rix.getEmissivityOriginal(), 0.7f);
    EXPECT_NEAR(rix.getReflectedTempOriginal().kelvin(), 300.15, 1e-3);
    EXPECT_EQ(stored<Relation>(rix, Id::Environment::Humidity), air.humidity);
    EXPECT_EQ(rix.getMinMax().maxPosition, cv::Point(1, 4));
    EXPECT_EQ(rix.getFileUuid(), Rix::uuidFromPixels(img));
    cv::Mat_<cv::Vec3b> preview;
    ColorPaletteConverter().palletize(img, preview, 28815, 31815, true, Palettes::colors("rainbow"));
    EXPECT_EQ(cv::norm(rix.getPreviewImageRgb(), preview, cv::NORM_INF), 0.0);

    // Only the air: no Planck constants needed, temperatures untouched.
    Rix noPlanck = taken;
    noPlanck.removeGeneric(Id::Radiometry::Planck);
    const Rix humid =
        RixReanalysis::reanalysed(noPlanck, RixReanalysis::storedParameters(noPlanck), cv::Mat(), air);
    EXPECT_EQ(cv::countNonZero(humid.getRadiometricImage() != taken.getRadiometricImage()), 0);
    EXPECT_THROW(RixReanalysis::reanalysed(noPlanck, to), Exception);
}

TEST(RixMeasurements, PerPixelEmissivityAndImagesWithoutBorders) {
    Rix taken = takenImage();
    cv::Mat_<float> map(taken.getRadiometricImage().size(), 0.95f);
    map(0, 0) = 0.55f;
    const Rix rix = RixReanalysis::reanalysed(taken, RixReanalysis::storedParameters(taken), map);
    EXPECT_EQ(
        cv::countNonZero(rix.getRadiometricImage() !=
                         RixReanalysis::temperatures(taken, RixReanalysis::storedParameters(taken), map)),
        0);
    EXPECT_FALSE(rix.getGeneric(Id::Radiometry::Planck)); // one emissivity can not describe it any more
    EXPECT_EQ(cv::norm(stored<cv::Mat>(rix, RixReanalysis::kEmissivityMap), map, cv::NORM_INF), 0.0);
    EXPECT_NEAR(rix.getEmissivityOriginal(), cv::mean(map)[0], 1e-6);

    taken.removeGeneric(Id::ActiveMeasRange::DisplayTop);
    EXPECT_FALSE(RixMeasurements::borders(taken).allValid());
    RixMeasurements::refresh(taken);
    EXPECT_TRUE(stored<MeasPoint>(taken, Id::MeasPoints::HotSpot::MeasPoint)
                    .getValue()
                    ->value<Temperature>()
                    .getValue()
                    .isValid()); // unknown borders: unmarked
}
