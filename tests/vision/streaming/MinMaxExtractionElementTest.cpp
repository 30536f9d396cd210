#include "nordalib/vision/streaming/MinMaxExtractionElement.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/climate/AutoSpanHint.h"
#include "nordalib/vision/climate/DewPoint.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

using namespace norda::exp;
using namespace norda::exp::streaming;
using norda::logging::LogLevel;
using norda::test::LogCapture;
using norda::vision::RadiometricTools;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

namespace {

unsigned short px(float celsius) {
    return RadiometricTools::getUint16(celsius);
}
Temp celsius(float t, uint8_t mark = 0) {
    return Temp(MarkedFloat::withMark(t, mark));
}

class MinMaxTest : public ::testing::Test {
protected:
    void SetUp() override { setDefaultParameters(proxy); }

    // One cycle with `img` in slot 3; returns the frame that arrived in slot 4.
    std::unique_ptr<Frame> run(MinMaxExtractionElement& element, const cv::Mat& img,
                               DataStorage<std::string> meta = rangeMeta(1)) {
        FrameMap in, out;
        in[STREAMING_DATATYPE_RAD] = std::make_unique<Frame>(img, std::move(meta));
        EXPECT_TRUE(element.process(in, out));
        EXPECT_EQ(in[STREAMING_DATATYPE_RAD], nullptr);
        return std::move(out[STREAMING_DATATYPE_RAD_CONST]);
    }
    static DataStorage<std::string> rangeMeta(unsigned char range) {
        DataStorage<std::string> meta;
        meta.setValue<unsigned char>(Id::ActiveMeasRange::Name, range);
        return meta;
    }
    static cv::Mat uniform(int rows, int cols, float t) {
        return cv::Mat(rows, cols, CV_16UC1, cv::Scalar(px(t)));
    }
    MeasPoint storedPoint(const std::string& key) { return proxy.getValue<MeasPoint>(key); }
    // The display limits in the store, as pixel values and as encoded temperatures.
    std::pair<int, int> limits() {
        return {proxy.getValue<unsigned short>(Id::Scaling::Min),
                proxy.getValue<unsigned short>(Id::Scaling::Max)};
    }
    std::pair<int, int> limitTemps() {
        return {px(proxy.getValue<Temp>(Id::Scaling::TempMin).celsius()),
                px(proxy.getValue<Temp>(Id::Scaling::TempMax).celsius())};
    }
    static cv::Point hotPos(const std::unique_ptr<Frame>& f) {
        return f->getMetaData().get<cv::Point_<int>>(Id::MeasPoints::HotSpot::Position);
    }
    static float valueOf(const MeasPoint& p) { return p.getValue()->value<Temp>().celsius(); }
    static uint8_t markOf(const MeasPoint& p) { return p.getValue()->value<Temp>().getValue().getMark(); }

    DataProxy<std::string> proxy;
};

// References from OpenCV: minMaxLoc finds the first extreme in row order; the image mean counts the
// pixels strictly inside the tolerance band (or, with none, lies halfway between the extremes); the
// centre area is the middle half, its mean rounded half up.
void referenceExtract(const cv::Mat& img, unsigned short lower, unsigned short upper, cv::Point& cold,
                      cv::Point& hot, unsigned short& med) {
    double mn, mx;
    cv::minMaxLoc(img, &mn, &mx, &cold, &hot);
    const cv::Mat band = (img > lower) & (img < upper);
    med = cv::countNonZero(band) ? static_cast<unsigned short>(cv::mean(img, band)[0])
                                 : static_cast<unsigned short>((mx + mn) / 2);
}

void referenceArea(const cv::Mat& img, cv::Rect& rect, cv::Point& cold, cv::Point& hot,
                   unsigned short& mean) {
    const int w = static_cast<int>(std::lround(img.cols * 0.5)),
              h = static_cast<int>(std::lround(img.rows * 0.5));
    rect = {(img.cols - w) / 2, (img.rows - h) / 2, w, h};
    cv::minMaxLoc(img(rect), nullptr, nullptr, &cold, &hot);
    cold += rect.tl();
    hot += rect.tl();
    mean = static_cast<unsigned short>(static_cast<float>(cv::sum(img(rect))[0]) / static_cast<float>(w * h) +
                                       0.5f);
}

} // namespace

TEST_F(MinMaxTest, AutoRangeSetupFromPool) {
    LogCapture log;
    // Keys are range numbers as text; the high range is the second smallest.
    DataStorage<std::string> pool;
    pool.setValue("3", makeMeasRange(3, 200, 1200, 150, 1500));
    pool.setValue("1", makeMeasRange(1, -20, 120, -40, 150));
    pool.setValue("2", makeMeasRange(2, 0, 350, -10, 380));
    proxy.setValue(Id::MeasRangePool, pool, false);
    proxy.setValue(Id::MeasRangeSettings::EnableAutoRange, true, false);
    {
        MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, true);
        EXPECT_TRUE(log.has(LogLevel::info, "AutoRange activated! HR 2"));

        // The observer follows the key; too few ranges switch the automatic off.
        DataStorage<std::string> one;
        one.setValue("1", makeMeasRange(1, -20, 120, -40, 150));
        proxy.setValue(Id::MeasRangePool, one, false);
        proxy.setValue(Id::MeasRangeSettings::EnableAutoRange, false, true);
        proxy.setValue(Id::MeasRangeSettings::EnableAutoRange, true, true);
        proxy.flush();
        EXPECT_TRUE(log.has(LogLevel::info, "AutoRange disabled"));
        EXPECT_TRUE(log.has(LogLevel::info, "AutoRange disabled there are not enough ranges defined"));
    }
}

TEST_F(MinMaxTest, WholeImageAndCentreAreaMatchThePlainReference) {
    proxy.setValue(Id::Gallery::ForceUpdate, true, false); // refresh every cycle
    MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, true);
    std::mt19937 rng(7);
    const unsigned short upper = px(proxy.getValue<Temp>(Id::ActiveMeasRange::ToleranceTop).celsius());
    const unsigned short lower = px(proxy.getValue<Temp>(Id::ActiveMeasRange::ToleranceBottom).celsius());
    // Tiny and odd sizes; few distinct values (many ties for the first-occurrence rule) or many
    // (rows crossing the tolerance limits, pixels exactly on them); images wholly above the band
    // (mean of min and max).
    const cv::Size sizes[] = {{1, 1}, {2, 1}, {1, 3}, {5, 3}, {7, 9}, {1023, 767}};
    for (const auto& size : sizes)
        for (int levels : {3, 4000})
            for (unsigned short base : {px(10), px(130)}) {
                cv::Mat img(size, CV_16UC1);
                std::uniform_int_distribution<int> d(0, levels - 1);
                for (int y = 0; y < img.rows; ++y)
                    for (int x = 0; x < img.cols; ++x)
                        img.at<unsigned short>(y, x) = static_cast<unsigned short>(base + d(rng) * 5);
                auto out = run(e, img, DataStorage<std::string>());

                cv::Point cold, hot;
                unsigned short med = 0;
                referenceExtract(img, lower, upper, cold, hot, med);
                const auto& meta = out->getMetaData();
                SCOPED_TRACE(testing::Message() << size << " levels " << levels << " base " << base);
                EXPECT_EQ(meta.get<cv::Point_<int>>(Id::MeasPoints::HotSpot::Position), hot);
                EXPECT_EQ(meta.get<cv::Point_<int>>(Id::MeasPoints::ColdSpot::Position), cold);
                EXPECT_EQ(px(meta.get<Temp>(Id::IrImage::Med).celsius()), med);

                cv::Rect rect;
                cv::Point aCold, aHot;
                unsigned short mean = 0;
                referenceArea(img, rect, aCold, aHot, mean);
                const auto area = meta.get<MeasArea>(Id::MeasAreas::CenterArea::MeasArea);
                EXPECT_EQ(area.getAreaRect(), rect);
                EXPECT_EQ(area.getHotSpot().getPos(), aHot);
                EXPECT_EQ(area.getColdSpot().getPos(), aCold);
                EXPECT_EQ(px(area.getMeanValue()->value<Temp>().celsius()), mean);
            }
    // Pixels exactly on the tolerance limits are outside the band of the mean.
    cv::Mat limits = uniform(2, 4, 20);
    limits.at<unsigned short>(0, 1) = upper;
    limits.at<unsigned short>(1, 2) = lower;
    EXPECT_EQ(px(run(e, limits)->getMetaData().get<Temp>(Id::IrImage::Med).celsius()), px(20));
}

TEST_F(MinMaxTest, ValidityMarksAgainstTheActiveRange) {
    // Borders exactly representable as pixel values, so "equal" is really equal.
    const float tolTop = RadiometricTools::getFloat(px(120)), tolBottom = RadiometricTools::getFloat(px(-20));
    const float dispTop = RadiometricTools::getFloat(px(150)),
                dispBottom = RadiometricTools::getFloat(px(-40));
    proxy.setValue(Id::ActiveMeasRange::ToleranceTop, celsius(tolTop), false);
    proxy.setValue(Id::ActiveMeasRange::ToleranceBottom, celsius(tolBottom), false);
    proxy.setValue(Id::ActiveMeasRange::DisplayTop, celsius(dispTop), false);
    proxy.setValue(Id::ActiveMeasRange::DisplayBottom, celsius(dispBottom), false);
    proxy.setValue(Id::Gallery::ForceUpdate, true, false);
    MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, true);

    // The extreme pixel at (1, 1) gives the hot spot, at (2, 2) the cold spot.
    auto mark = [&](bool hot, unsigned short pixel) {
        cv::Mat img = uniform(4, 4, 20);
        img.at<unsigned short>(hot ? 1 : 2, hot ? 1 : 2) = pixel;
        run(e, img);
        return markOf(
            storedPoint(hot ? Id::MeasPoints::HotSpot::MeasPoint : Id::MeasPoints::ColdSpot::MeasPoint));
    };
    // Equal to the tolerance border: inside; equal to the display border: out of tolerance only.
    const struct {
        bool hot;
        unsigned short pixel;
        uint8_t mark;
    } cases[] = {{true, px(120), MarkedFloat::Valid},
                 {true, uint16_t(px(120) + 1), MarkedFloat::OutOfTolerance},
                 {true, px(150), MarkedFloat::OutOfTolerance},
                 {true, uint16_t(px(150) + 1), MarkedFloat::OverRange},
                 {false, px(-20), MarkedFloat::Valid},
                 {false, uint16_t(px(-20) - 1), MarkedFloat::OutOfTolerance},
                 {false, px(-40), MarkedFloat::OutOfTolerance},
                 {false, uint16_t(px(-40) - 1), MarkedFloat::UnderRange}};
    for (const auto& c : cases)
        EXPECT_EQ(mark(c.hot, c.pixel), c.mark) << c.hot << " " << c.pixel;

    // A marked border: results keep the mark the radiometry gave them (none), even far outside.
    proxy.setValue(Id::ActiveMeasRange::DisplayBottom, celsius(dispBottom, MarkedFloat::OutOfTolerance),
                   false);
    EXPECT_EQ(mark(true, px(300)), MarkedFloat::Valid);
    EXPECT_EQ(mark(false, px(-100)), MarkedFloat::Valid);
}

TEST_F(MinMaxTest, UserPointsClampingActivityAndMetadataRules) {
    LogCapture log;
    proxy.setValue(Id::MeasPoints::MeasPoint1::Visible, true, false);
    proxy.setValue(Id::MeasPoints::MeasPoint1::Position, cv::Point_<int>(16, 12), false);
    proxy.setValue(Id::MeasPoints::MeasPoint2::Visible, true, false);
    proxy.setValue(Id::MeasPoints::MeasPoint2::Position, cv::Point_<int>(3, 2), false);
    proxy.setValue(Id::MeasPoints::CenterSpot::Position, cv::Point_<int>(8, 6), false);
    proxy.setValue(Id::DeltaT::Active, true, false);
    proxy.setValue(Id::DeltaT::Mode, Id::DeltaT::PointReference, false);
    proxy.setValue(Id::MeasPoints::DeltaT1::Position, cv::Point_<int>(1, 1), false);
    proxy.setValue(Id::MeasPoints::DeltaT2::Position, cv::Point_<int>(2, 2), false);
    const MeasPoint untouched = storedPoint(Id::MeasPoints::DeltaT2::MeasPoint);

    cv::Mat img = uniform(12, 16, 20);
    img.at<unsigned short>(11, 15) = px(42);
    img.at<unsigned short>(2, 3) = px(33);
    img.at<unsigned short>(1, 1) = px(25);
    {
        MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, true);
        run(e, img);
        EXPECT_FLOAT_EQ(valueOf(storedPoint(Id::MeasPoints::CenterSpot::MeasPoint)), 20.0f);

        // (cols, rows) is evaluated at (cols - 1, rows - 1) with two debug lines; the stored
        // position is left as the user set it.
        const MeasPoint p1 = storedPoint(Id::MeasPoints::MeasPoint1::MeasPoint);
        EXPECT_EQ(p1.getPos(), cv::Point(15, 11));
        EXPECT_FLOAT_EQ(valueOf(p1), 42.0f);
        EXPECT_TRUE(log.has(LogLevel::debug,
                            "MP MeasPoints.MeasPoint1.MeasPoint, X out of range: 16 (corrected to 15)"));
        EXPECT_EQ(proxy.getValue<cv::Point_<int>>(Id::MeasPoints::MeasPoint1::Position), cv::Point(16, 12));
        EXPECT_FLOAT_EQ(valueOf(storedPoint(Id::MeasPoints::MeasPoint2::MeasPoint)), 33.0f);

        // Delta-T: the first point with DeltaT.Active, the second only in point-point mode.
        EXPECT_FLOAT_EQ(valueOf(storedPoint(Id::MeasPoints::DeltaT1::MeasPoint)), 25.0f);
        EXPECT_EQ(storedPoint(Id::MeasPoints::DeltaT2::MeasPoint), untouched);
        proxy.setValue(Id::DeltaT::Mode, Id::DeltaT::PointPoint, false);
        proxy.setValue(Id::Gallery::ForceUpdate, true, false);
        run(e, img);
        EXPECT_EQ(storedPoint(Id::MeasPoints::DeltaT2::MeasPoint).getPos(), cv::Point(2, 2));
    }

    // Hidden hot spot: the store is not written, the frame still carries it.
    MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, false);
    const MeasPoint sentinel(1, 2, celsius(-99));
    proxy.setValue(Id::MeasPoints::HotSpot::Visible, false, false);
    proxy.setValue(Id::MeasPoints::HotSpot::MeasPoint, sentinel, false);
    auto out = run(e, img);
    EXPECT_EQ(storedPoint(Id::MeasPoints::HotSpot::MeasPoint), sentinel);
    EXPECT_FLOAT_EQ(valueOf(out->getMetaData().get<MeasPoint>(Id::MeasPoints::HotSpot::MeasPoint)), 42.0f);
}

TEST_F(MinMaxTest, RefreshRhythmWrapsWithTheEightBitCounter) {
    proxy.setValue(Id::MeasRangeSettings::EnableAutoRange, false, false);
    for (bool fast : {true, false}) {
        proxy.setValue(Id::DeviceFeatures::FastFrameAvailable, fast, false);
        MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, true);
        std::vector<int> refreshed;
        for (int i = 0; i < 300; ++i) {
            // The hot pixel moves every frame: the frame's hot spot shows whether it was refreshed.
            cv::Mat img = uniform(4, 300, 20);
            img.at<unsigned short>(1, i) = px(60);
            const int x = hotPos(run(e, img)).x;
            if (x == i)
                refreshed.push_back(i);
            else // throttled frames re-publish the last refresh
                EXPECT_EQ(x, refreshed.back());
        }
        std::vector<int> expected;
        const int period = fast ? 20 : 6;
        for (int i = 0; i < 300; ++i)
            if ((i % 256) % period == 0)
                expected.push_back(i);
        EXPECT_EQ(refreshed, expected) << "period " << period;
    }
}

TEST_F(MinMaxTest, EmptyMissingAndWrongInput) {
    MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, true);
    FrameMap in, out;
    in[STREAMING_DATATYPE_RAD] = std::make_unique<Frame>(cv::Mat(0, 5, CV_16UC1), rangeMeta(1));
    Frame* empty = in[STREAMING_DATATYPE_RAD].get();
    out[STREAMING_DATATYPE_RAD_CONST] = std::make_unique<Frame>(uniform(2, 2, 1));
    EXPECT_TRUE(e.process(in, out));
    EXPECT_EQ(out[STREAMING_DATATYPE_RAD_CONST].get(), empty);
    EXPECT_FALSE(empty->isMetaDateAvailable(Id::IrImage::Min));

    FrameMap none, out2;
    EXPECT_TRUE(e.process(none, out2));
    EXPECT_EQ(out2.count(STREAMING_DATATYPE_RAD_CONST), 1u);
    EXPECT_EQ(out2[STREAMING_DATATYPE_RAD_CONST], nullptr);

    // Empty cycles do not advance the rhythm: the next real frame is still a refresh.
    cv::Mat img = uniform(3, 3, 20);
    img.at<unsigned short>(2, 2) = px(40);
    EXPECT_EQ(hotPos(run(e, img)), cv::Point(2, 2));

    FrameMap bad, out3;
    bad[STREAMING_DATATYPE_RAD] = std::make_unique<Frame>(cv::Mat(3, 3, CV_16SC1, cv::Scalar(0)));
    EXPECT_THROW(e.process(bad, out3), norda::Exception);
}

TEST_F(MinMaxTest, HumidityModeGivesSurfaceMoistureAndDewPointScale) {
    proxy.setValue(Id::Environment::HumidityModeActive, true, false);
    proxy.setValue(Id::MeasPoints::MeasPoint1::Visible, true, false);
    proxy.setValue(Id::MeasPoints::MeasPoint1::Position, cv::Point_<int>(0, 0), false);
    MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, true);
    cv::Mat img = uniform(6, 6, 20);
    img.at<unsigned short>(0, 0) = px(9.26f); // about the dew point of 20 °C / 50 %
    auto out = run(e, img);
    const auto& meta = out->getMetaData();
    for (const auto& key : {Id::MeasPoints::HotSpot::MeasPoint, Id::MeasPoints::ColdSpot::MeasPoint,
                            Id::MeasPoints::CenterSpot::MeasPoint, Id::MeasPoints::MeasPoint1::MeasPoint})
        EXPECT_TRUE(proxy.getValue<MeasPoint>(key).getValue()->holds<Rel>()) << key;
    EXPECT_NEAR(storedPoint(Id::MeasPoints::MeasPoint1::MeasPoint).getValue()->value<Rel>().percent(), 100.0f,
                0.5f);
    EXPECT_NEAR(storedPoint(Id::MeasPoints::HotSpot::MeasPoint).getValue()->value<Rel>().percent(), 50.0f,
                0.1f);
    const auto area = meta.get<MeasArea>(Id::MeasAreas::CenterArea::MeasArea);
    EXPECT_TRUE(area.getMeanValue()->holds<Rel>());
    EXPECT_TRUE(area.getHotSpot().getValue()->holds<Rel>());
    for (const auto& key : {Id::IrImage::Min, Id::IrImage::Max, Id::IrImage::Med})
        EXPECT_NO_THROW(meta.get<Temp>(key)) << key;

    const Temp dew = norda::vision::DewPoint::calcDewPoint(celsius(20), Rel(MarkedFloat(0.5f)));
    EXPECT_NEAR(proxy.getValue<Temp>(Id::Scaling::TempMin).celsius(), dew.celsius(), 1e-4);
    EXPECT_TRUE(proxy.getValue<Temp>(Id::Scaling::TempMin).getValue().isValid());
    EXPECT_EQ(proxy.getValue<Temp>(Id::Scaling::TempMax).celsius(), 55.0f);
    EXPECT_EQ(limits(), (std::pair<int, int>(px(dew.celsius()), px(55.0f))));
}

TEST_F(MinMaxTest, RangeSwitchSequencesAndHysteresis) {
    LogCapture log;
    proxy.setValue(Id::DeviceFeatures::FastFrameAvailable, false, false); // tests every 6th frame
    MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, true);
    // The store's range as written by the element; the host would activate it.
    unsigned char active = 1;
    auto name = [&] { return proxy.getValue<unsigned char>(Id::ActiveMeasRange::Name); };
    // Runs one evaluation period; returns the range name in the store afterwards.
    auto period = [&](const cv::Mat& img) {
        for (int i = 0; i < 6; ++i)
            run(e, img, rangeMeta(active));
        active = name();
        return active;
    };
    cv::Mat cool = uniform(10, 10, 25);
    cv::Mat hot = cool.clone();
    hot.at<unsigned short>(4, 4) = px(101);
    hot.at<unsigned short>(3, 3) = hot.at<unsigned short>(3, 5) = px(99);

    // Up needs two qualifying tests (2, 4 >= 4).
    EXPECT_EQ(period(hot), 1);
    EXPECT_TRUE(log.has(LogLevel::debug, "Detect range switch condition up! Tspot = 101 count: 2"));
    EXPECT_EQ(period(hot), 2);
    EXPECT_TRUE(log.has(LogLevel::info, "AutoSwitch measurement range to 2"));
    // Right after a switch the threshold is 12 and decays by one per test: down takes three tests
    // (4 < 11, 8 < 10, 12 >= 9).
    EXPECT_EQ(period(cool), 2);
    EXPECT_TRUE(log.has(LogLevel::debug, "Detect range switch condition down! count: 4"));
    EXPECT_EQ(period(cool), 2);
    EXPECT_EQ(period(cool), 1);
    EXPECT_TRUE(log.has(LogLevel::info, "AutoSwitch measurement range to 1"));
    // Hot in the high range, or cool in the low range, resets the count.
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(period(cool), 1);
    EXPECT_EQ(period(hot), 1);  // threshold back at 4, count 2
    EXPECT_EQ(period(cool), 1); // count reset
    EXPECT_EQ(period(hot), 1);  // 2 again, not 4
    EXPECT_EQ(period(hot), 2);

    // The high range's thresholds are 80 / 75 °C; after 3 tests the threshold is 9, so a single
    // non-hot test (4) does not switch down, and a hot one resets the count.
    cv::Mat warm = uniform(10, 10, 25);
    warm.at<unsigned short>(4, 4) = px(81);
    warm.at<unsigned short>(3, 3) = warm.at<unsigned short>(3, 5) = px(76);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(period(warm), 2);
    EXPECT_EQ(period(cool), 1); // threshold 4 again: one test is enough

    // Frames without a range (0), stored images and forced updates are never tested.
    log.clear();
    DataStorage<std::string> stored = rangeMeta(1);
    stored.setValue(Id::Gallery::ActiveFilename, std::string("IR000001.RIX"));
    for (int i = 0; i < 30; ++i) {
        run(e, hot, rangeMeta(0));
        run(e, hot, stored);
    }
    EXPECT_EQ(log.countPrefix("Detect range switch"), 0);
}

TEST_F(MinMaxTest, HotTestNeedsThreeInteriorPixels) {
    proxy.setValue(Id::DeviceFeatures::FastFrameAvailable, false, false);
    auto switchesUp = [&](const cv::Mat& img) {
        MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, true);
        proxy.setValue<unsigned char>(Id::ActiveMeasRange::Name, 1, false);
        for (int i = 0; i < 60; ++i)
            run(e, img, rangeMeta(1));
        return proxy.getValue<unsigned char>(Id::ActiveMeasRange::Name) == 2;
    };
    // An 8 x 8 image at 30 °C with the given pixels set.
    using Pixels = std::vector<std::tuple<int, int, unsigned short>>;
    auto image = [&](const Pixels& pixels) {
        cv::Mat img = uniform(8, 8, 30);
        for (auto [row, col, value] : pixels)
            img.at<unsigned short>(row, col) = value;
        return img;
    };
    const Pixels oneNeighbour = {{4, 4, px(300)}, {3, 3, px(99)}};
    EXPECT_FALSE(switchesUp(image({{4, 4, px(300)}})));
    EXPECT_FALSE(switchesUp(image(oneNeighbour)));
    Pixels below = oneNeighbour; // lower neighbours do not count
    below.insert(below.end(), {{5, 3, px(99)}, {5, 5, px(99)}});
    EXPECT_FALSE(switchesUp(image(below)));
    // Neighbours must be above 98, the pixel above 100: equal is not enough.
    EXPECT_FALSE(switchesUp(image({{4, 4, px(100)}, {3, 3, px(99)}, {3, 5, px(99)}})));
    const cv::Mat edge =
        image({{4, 4, static_cast<unsigned short>(px(100) + 1)}, {3, 3, px(99)}, {3, 5, px(99)}});
    EXPECT_TRUE(switchesUp(edge));
    // Manual scaling ending at exactly 100 °C keeps the low range; above it the range switches.
    proxy.setValue(Id::Scaling::Mode, Id::Scaling::Manual, false);
    proxy.setValue(Id::Scaling::TempMax, celsius(100.0f), false);
    EXPECT_FALSE(switchesUp(edge));
    proxy.setValue(Id::Scaling::TempMax, celsius(100.5f), false);
    EXPECT_TRUE(switchesUp(edge));
    // Humidity mode never counts an image as hot.
    proxy.setValue(Id::Environment::HumidityModeActive, true, false);
    EXPECT_FALSE(switchesUp(edge));
}

TEST_F(MinMaxTest, WarmUpFollowsTheUptime) {
    LogCapture log;
    MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, true);
    auto withUptime = [](unsigned long long ms) {
        DataStorage<std::string> meta = rangeMeta(1);
        meta.setValue<unsigned long long>(Id::DeviceInfo::Uptime, ms);
        return meta;
    };
    const cv::Mat img = uniform(4, 4, 20);
    run(e, img, withUptime(1000));
    EXPECT_TRUE(proxy.getValue<bool>(Id::Streaming::WarmUp));
    run(e, img, withUptime(120000)); // exactly two minutes: still warming up
    EXPECT_TRUE(proxy.getValue<bool>(Id::Streaming::WarmUp));
    EXPECT_EQ(log.count("WARMUP PHASE END"), 0);
    run(e, img, withUptime(120001));
    EXPECT_FALSE(proxy.getValue<bool>(Id::Streaming::WarmUp));
    EXPECT_TRUE(log.has(LogLevel::debug, "WARMUP PHASE END"));
    run(e, img, withUptime(130000));
    EXPECT_EQ(log.count("WARMUP PHASE END"), 1);

    // A frame without uptime ends a running warm-up, also when the frame is empty.
    run(e, img, withUptime(5));
    EXPECT_TRUE(proxy.getValue<bool>(Id::Streaming::WarmUp));
    FrameMap in, out;
    EXPECT_TRUE(e.process(in, out));
    EXPECT_FALSE(proxy.getValue<bool>(Id::Streaming::WarmUp));
}

TEST_F(MinMaxTest, ScalingModes) {
    LogCapture log;
    MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_RAD, true);
    // Automatic: a span under 5 degrees is widened about its middle.
    cv::Mat img = uniform(6, 6, 20);
    img.at<unsigned short>(1, 1) = px(21);
    auto out = run(e, img);
    const int mid = (px(20) + px(21)) / 2;
    EXPECT_EQ(limits(), std::make_pair(mid - 250, mid + 250));
    EXPECT_EQ(limitTemps(), std::make_pair(mid - 250, mid + 250));
    // Wide images keep their extremes; limits carry validity marks.
    cv::Mat wide = uniform(6, 6, 20);
    wide.at<unsigned short>(2, 2) = px(200);
    run(e, wide);
    EXPECT_EQ(proxy.getValue<unsigned short>(Id::Scaling::Max), px(200));
    EXPECT_EQ(proxy.getValue<Temp>(Id::Scaling::TempMax).getValue().getMark(), MarkedFloat::OverRange);

    // Limits that moved by 0.5 degrees or less against the last one and the frame's are not
    // republished.
    run(e, img);
    const Temp sentinel = celsius(-1);
    proxy.setValue(Id::Scaling::TempMin, sentinel, false);
    DataStorage<std::string> meta = rangeMeta(1);
    meta.setValue(Id::Scaling::TempMin, celsius(RadiometricTools::getFloat(mid - 250) + 0.4f));
    cv::Mat shifted = img.clone();
    shifted += 30; // 0.3 degrees
    run(e, shifted, std::move(meta));
    EXPECT_EQ(proxy.getValue<Temp>(Id::Scaling::TempMin), sentinel);
    EXPECT_EQ(proxy.getValue<unsigned short>(Id::Scaling::Min), mid - 250 + 30);

    // Manual: the temperatures become pixel limits and are written back marked valid.
    proxy.setValue(Id::Scaling::Mode, Id::Scaling::Manual, false);
    proxy.setValue(Id::Scaling::TempMin, celsius(10, MarkedFloat::OutOfTolerance), false);
    proxy.setValue(Id::Scaling::TempMax, celsius(35, MarkedFloat::OverRange), false);
    run(e, img);
    EXPECT_EQ(limits(), (std::pair<int, int>(px(10), px(35))));
    EXPECT_TRUE(proxy.getValue<Temp>(Id::Scaling::TempMin).getValue().isValid());
    EXPECT_FLOAT_EQ(proxy.getValue<Temp>(Id::Scaling::TempMax).celsius(), 35.0f);
    EXPECT_TRUE(proxy.getValue<Temp>(Id::Scaling::TempMax).getValue().isValid());

    // Span hint: the climate library's limits from inside/outside temperature and the image mean.
    proxy.setValue(Id::Scaling::Mode, Id::Scaling::AutoSpanHint, false);
    proxy.setValue(Id::Scaling::TempIn, celsius(21), false);
    proxy.setValue(Id::Scaling::TempOut, celsius(-5), false);
    out = run(e, img);
    const unsigned short med = px(out->getMetaData().get<Temp>(Id::IrImage::Med).celsius());
    unsigned short lo = 0, hi = 0;
    ASSERT_TRUE(norda::vision::AutoSpanHint::calculateAutoSpanHint(
        lo, hi, celsius(21), celsius(-5), celsius(RadiometricTools::getFloat(med)), 0.7f, 0.3f, 0.7f));
    EXPECT_EQ(limits(), (std::pair<int, int>(lo, hi)));
    EXPECT_EQ(limitTemps().first, lo);
    EXPECT_TRUE(proxy.getValue<Temp>(Id::Scaling::TempMax).getValue().isValid());

    // Anything else is reported every cycle and leaves the limits alone.
    proxy.setValue(Id::Scaling::Mode, std::string("Fancy"), false);
    run(e, wide);
    run(e, wide);
    EXPECT_EQ(log.count("ScalingMode Fancy not supported! (Use Auto, Manual or AutoSpanHint)"), 2);
    EXPECT_EQ(proxy.getValue<unsigned short>(Id::Scaling::Min), lo);
}
