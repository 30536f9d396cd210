#include "nordalib/vision/streaming/UserMeasurementElement.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/ObjectSignal.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::vision::RadiometricTools;
using Temp = quantity::Temperature<MarkedFloat>;

namespace {

struct Fixture {
    DataProxy<std::string> store;
    UserMeasurementElement element{&store};
    norda::vision::PlanckConstants planck =
        norda::vision::RadiometricCalibration::makeDefault().ranges.at(1).planck;
    Fixture() { setDefaultParameters(store); }

    // A 64 x 48 frame at 30 °C with a 10 x 10 block at 60 °C from (40, 20), taken with emissivity 0.95.
    std::unique_ptr<Frame> frame(bool withPlanck = true) {
        cv::Mat img(48, 64, CV_16UC1, cv::Scalar(RadiometricTools::getUint16(30.0f)));
        img(cv::Rect(40, 20, 10, 10)).setTo(RadiometricTools::getUint16(60.0f));
        auto meta = norda::test::radiometricMeta(0.95f, 20.0f);
        if (withPlanck)
            meta.setValue(Id::Radiometry::Planck,
                          std::vector<double>{planck.R1, planck.R2, planck.B, planck.F, planck.O});
        return std::make_unique<Frame>(img, std::move(meta));
    }
    std::unique_ptr<Frame> run(std::unique_ptr<Frame> f) {
        FrameMap in, out;
        in[STREAMING_DATATYPE_RAD_CONST] = std::move(f);
        EXPECT_TRUE(element.process(in, out));
        store.flush();
        return std::move(out[STREAMING_DATATYPE_RAD_CONST]);
    }
    MarkedFloat point(const std::string& key) {
        return store.getValue<MeasPoint>(key).getValue()->value<Temp>().getValue();
    }
};

// A pixel taken with emissivity 0.95 and 20 °C reflected, measured with `emissivity` instead: the
// object signal on the Planck curve S(T) = R1 / (R2 (exp(B / T) - F)) - O, written out here.
double converted(const norda::vision::PlanckConstants& c, float celsius, double emissivity) {
    auto S = [&](double k) { return c.R1 / (c.R2 * (std::exp(c.B / k) - c.F)) - c.O; };
    const double reflected = S(293.15);
    const double seen = 0.95 * S(celsius + 273.15) + 0.05 * reflected;
    const double object = (seen - (1 - emissivity) * reflected) / emissivity;
    return c.B / std::log(c.R1 / (c.R2 * (object + c.O)) + c.F) - 273.15;
}

} // namespace

// Points and areas, each with and without local parameters, against the plain conversion; the
// settings travel with the frame; delta-T compares a point with an area.
TEST(UserMeasurementElement, LocalParametersChangeOnlyTheirResult) {
    Fixture f;
    namespace MP = Id::MeasPoints;
    namespace MA = Id::MeasAreas;
    f.store.setValue(MP::MeasPoint1::Visible, true);
    f.store.setValue(MP::MeasPoint1::Position, cv::Point_<int>(45, 25));
    f.store.setValue(MP::MeasPoint2::Visible, true);
    f.store.setValue(MP::MeasPoint2::Position, cv::Point_<int>(500, -3)); // measured at the edge (63, 0)
    f.store.setValue(MP::MeasPoint2::LocalParameters, true);
    f.store.setValue(MP::MeasPoint2::Emissivity, 0.7f);
    f.store.setValue(MA::UserArea1::Visible, true);
    f.store.setValue(MA::UserArea1::Rect, cv::Rect_<int>(35, 15, 20, 20)); // a quarter of it hot
    f.store.setValue(MA::UserArea1::LocalParameters, true);
    f.store.setValue(MA::UserArea1::Emissivity, 0.6f);
    f.store.setValue(Id::DeltaT::Active, true);
    f.store.setValue(Id::DeltaT::First, std::string("MeasPoint1"));
    f.store.setValue(Id::DeltaT::Second, std::string("UserArea1"));
    auto out = f.run(f.frame());

    EXPECT_NEAR(f.point(MP::MeasPoint1::MeasPoint).toFloat(), 60.0f, 0.01f);
    EXPECT_NEAR(f.point(MP::MeasPoint2::MeasPoint).toFloat(), converted(f.planck, 30.0f, 0.7), 0.02);
    EXPECT_EQ(f.store.getValue<MeasPoint>(MP::MeasPoint2::MeasPoint).getX(), 63);

    const auto area = f.store.getValue<MeasArea>(MA::UserArea1::MeasArea);
    const double hot = converted(f.planck, 60.0f, 0.6), cold = converted(f.planck, 30.0f, 0.6);
    EXPECT_NEAR(area.getHotSpot().getValue()->value<Temp>().celsius(), hot, 0.02);
    EXPECT_NEAR(area.getColdSpot().getValue()->value<Temp>().celsius(), cold, 0.02);
    EXPECT_NEAR(area.getMeanValue()->value<Temp>().celsius(), (hot + 3 * cold) / 4, 0.02);
    EXPECT_NEAR(f.store.getValue<float>(Id::DeltaT::Difference),
                60.0 - area.getMeanValue()->value<Temp>().celsius(), 1e-3);

    ASSERT_TRUE(out);
    EXPECT_TRUE(out->getMetaData().get<bool>(MA::UserArea1::LocalParameters));
    EXPECT_FLOAT_EQ(out->getMetaData().get<float>(MP::MeasPoint2::Emissivity), 0.7f);
    EXPECT_TRUE(out->getMetaData().getVariant(MA::UserArea1::MeasArea));
}

// Without the frame's Planck constants local parameters can not be applied: the value is the
// global one, marked, and the lack is logged once; an area outside the image is skipped.
TEST(UserMeasurementElement, UnapplicableSettingsAreMarkedAndLoggedOnce) {
    Fixture f;
    norda::test::LogCapture log;
    f.store.setValue(Id::MeasPoints::MeasPoint1::Visible, true);
    f.store.setValue(Id::MeasPoints::MeasPoint1::LocalParameters, true);
    f.store.setValue(Id::MeasAreas::UserArea2::Visible, true);
    f.store.setValue(Id::MeasAreas::UserArea2::Rect, cv::Rect_<int>(100, 100, 10, 10));
    f.run(f.frame(false));
    f.run(f.frame(false));
    const auto v = f.point(Id::MeasPoints::MeasPoint1::MeasPoint);
    EXPECT_NEAR(v.toFloat(), 30.0f, 0.01f);
    EXPECT_EQ(v.getMark(), MarkedFloat::OutOfTolerance);
    EXPECT_EQ(log.countPrefix("local parameters of MeasPoint1 can not be applied"), 1);
    EXPECT_EQ(log.countPrefix("UserArea2 lies outside the image"), 1);
}

// A mark's own distance: through the frame's air when the frame was corrected for air (the Planck
// inversion written out here, the transmission the model's, checked against published data in
// ObjectSignalTest); ignored when it was not.
TEST(UserMeasurementElement, LocalDistanceUsesTheFramesAir) {
    Fixture f;
    namespace MP = Id::MeasPoints;
    f.store.setValue(MP::MeasPoint3::Visible, true);
    f.store.setValue(MP::MeasPoint3::Position, cv::Point_<int>(45, 25)); // 60 °C
    f.store.setValue(MP::MeasPoint3::LocalParameters, true);
    f.store.setValue(MP::MeasPoint3::Emissivity, 0.95f);
    f.store.setValue(MP::MeasPoint3::Distance, 30.0f);
    auto frame = f.frame();
    f.run(std::move(frame));
    EXPECT_NEAR(f.point(MP::MeasPoint3::MeasPoint).toFloat(), 60.0f, 0.01f) << "no air correction: no path";

    frame = f.frame();
    auto& meta = frame->getMetaData();
    meta.setValue(Id::Environment::AirCorrection, true);
    meta.setValue(Id::Environment::Distance, 10.0f);
    meta.setValue(Id::Environment::Temperature, Temp(MarkedFloat(30.0f)));
    meta.setValue(Id::Environment::Humidity, quantity::Relation<MarkedFloat>(MarkedFloat(0.8f)));
    f.run(std::move(frame));
    norda::vision::ObjectParameters air;
    air.airK = 303.15;
    air.humidityPercent = 80.0;
    air.distanceM = 10.0;
    const double tau10 = norda::vision::ObjectSignal::airTransmission(air);
    air.distanceM = 30.0;
    const double tau30 = norda::vision::ObjectSignal::airTransmission(air);
    const auto& c = f.planck;
    auto S = [&](double k) { return c.R1 / (c.R2 * (std::exp(c.B / k) - c.F)) - c.O; };
    const double front = tau10 * (0.95 * S(333.15) + 0.05 * S(293.15)) + (1 - tau10) * S(303.15);
    const double object = ((front - (1 - tau30) * S(303.15)) / tau30 - 0.05 * S(293.15)) / 0.95;
    const double expected = c.B / std::log(c.R1 / (c.R2 * (object + c.O)) + c.F) - 273.15;
    EXPECT_GT(expected, 60.1);
    EXPECT_NEAR(f.point(MP::MeasPoint3::MeasPoint).toFloat(), expected, 0.02);
}
