#include "nordalib/core/datatypes/CuratorStorage.h"
#include "nordalib/core/datatypes/Frame.h"
#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include "tests/support/Messages.h"

#include <gtest/gtest.h>

#include <limits>

using namespace norda::exp;
using norda::test::messageOf;
using namespace norda::exp::streaming;

namespace {

class Copy : public StreamingElement {
public:
    Copy()
        : StreamingElement({STREAMING_DATATYPE_RAW}, {STREAMING_DATATYPE_CORRECTED}, "Copy", nullptr, false,
                           0) {}
    bool process(FrameMap& in, FrameMap& out) override {
        auto& frame = in[STREAMING_DATATYPE_RAW];
        if (frame->getFrameData().empty()) {
            passThrough(in, STREAMING_DATATYPE_RAW, out, STREAMING_DATATYPE_CORRECTED);
            return true;
        }
        cv::Mat result;
        frame->getFrameData().convertTo(result, CV_16S);
        emit(out, STREAMING_DATATYPE_CORRECTED, std::make_unique<Frame>(result, frame->releaseMetaData()));
        return true;
    }
};
} // namespace

TEST(DataStorage, TypedAccessNestingAndMessages) {
    DataStorage<std::string> s;
    s.setValue("Env.Emis", 0.95);
    EXPECT_EQ(s.get<double>("Env.Emis"), 0.95);
    EXPECT_EQ(messageOf([&] { (void)s.get<float>("Env.Emis"); }), "type does not match: double != float");
    EXPECT_EQ(messageOf([&] { (void)s.get<float>("Missing"); }), "Could not find parameter Missing");

    DataStorage<std::string> inner;
    inner.setValue("Value", 7);
    s.setValue("Group", inner);
    EXPECT_EQ(s.get<int>("Group.Value"), 7);
    s.setValue("Plain", 1);
    EXPECT_EQ(
        messageOf([&] { (void)s.get<int>("Plain.Value"); }),
        "not a valid storage type: Plain\ntype: int\nexpected type: norda::exp::DataStorage<std::string>");
}

TEST(Frame, MetadataMovesAndPassThroughKeepsTheFrame) {
    Copy element;
    FrameMap in, out;
    DataStorage<std::string> meta;
    meta.setValue("Shutter.State", std::string("Idle"));
    in[STREAMING_DATATYPE_RAW] =
        std::make_unique<Frame>(cv::Mat(2, 3, CV_16UC1, cv::Scalar(5)), std::move(meta));
    out[STREAMING_DATATYPE_CORRECTED] = std::make_unique<Frame>(cv::Mat()); // replaced
    ASSERT_TRUE(element.process(in, out));
    EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED]->getMetaData().get<std::string>("Shutter.State"), "Idle");
    EXPECT_TRUE(in[STREAMING_DATATYPE_RAW]->getMetaData().empty());
    EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED]->getFrameData().type(), CV_16SC1);

    // Pass-through moves the very same frame object.
    in[STREAMING_DATATYPE_RAW] = std::make_unique<Frame>(cv::Mat());
    Frame* raw = in[STREAMING_DATATYPE_RAW].get();
    element.process(in, out);
    EXPECT_EQ(out[STREAMING_DATATYPE_CORRECTED].get(), raw);
    EXPECT_EQ(in[STREAMING_DATATYPE_RAW], nullptr);

    // Subscripting a slot the host did not fill inserts an empty entry.
    FrameMap empty;
    (void)empty[STREAMING_DATATYPE_RGB];
    EXPECT_EQ(empty.count(STREAMING_DATATYPE_RGB), 1u);

    Frame f(cv::Mat(1, 1, CV_8UC1));
    f.addMetaDate("K", makeVariant(1));
    testing::internal::CaptureStdout();
    f.addMetaDate("K", makeVariant(2)); // kept, with a warning line
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Warning: MetaData already available: K\n");
    std::shared_ptr<Variant> v;
    EXPECT_TRUE(f.getMetaDate("K", v));
    EXPECT_EQ(v->value<int>(), 1);
    EXPECT_FALSE(f.getMetaDate("Q", v));
}

TEST(CuratorStorage, ValidatorsGeneratorsAndMessages) {
    CuratorStorage c;
    c.addCurator(1, makeVariant(0.9f));
    EXPECT_EQ(messageOf([&] { c.addCurator(1); }), "Try to add already existing Curator! ID =1");
    EXPECT_EQ(messageOf([&] { (void)c.get<double>(1); }),
              "Requested data type does not match (data type:float!= template type:double");
    EXPECT_EQ(messageOf([&] { c.setRangeValidator<int>(1, [](const int&) { return true; }); }),
              "Data type does not match!Validator type:int!= Curator type:float");
    c.setRangeValidator<float>(1, [](const float& e) { return e > 0.0f && e <= 1.0f; });
    EXPECT_THROW(c.set(1, makeVariant(1.5f)), norda::Exception);
    EXPECT_EQ(c.get<float>(1), 0.9f);
    c.addCurator(2);
    c.setGenerator(2, [&] { return makeVariant(c.get<float>(1) * 2); });
    EXPECT_FLOAT_EQ(c.get<float>(2), 1.8f);
}

TEST(MeasTypes, MarksUnitsAndMeanValueRule) {
    MarkedFloat m(21.37f, MarkedFloat::OverRange);
    EXPECT_NEAR(m.toFloat(), 21.37f, 1e-5f);
    EXPECT_EQ(m.getMark(), 5);
    m.setValid();
    EXPECT_TRUE(m.isValid());
    EXPECT_EQ(sizeof(MarkedFloat), 4u);
    EXPECT_GT(MarkedFloat(std::numeric_limits<float>::infinity()).toFloat(), 1e38f); // kept finite, positive

    quantity::Temperature<MarkedFloat> t(MarkedFloat(100.0f, MarkedFloat::OutOfTolerance));
    auto f = t.convertTo(quantity::TemperatureUnit::Fahrenheit);
    EXPECT_NEAR(f.getValue().toFloat(), 212.0f, 1e-3f);
    EXPECT_EQ(f.getValue().getMark(), 1);
    EXPECT_NEAR(f.kelvin(), 373.15f, 1e-3f);

    MeasArea area(0, 0, 1, 1);
    EXPECT_EQ(messageOf([&] { area.setMeanValue(quantity::Temperature<float>(1.0f)); }),
              "Only QuantityBase<MarkedFloat> types are allowed!");
    area.setMeanValue(quantity::Relation<MarkedFloat>(MarkedFloat(0.5f)));
    EXPECT_TRUE(area.getMeanValue()->holds<quantity::Relation<MarkedFloat>>());
}

TEST(Logger, SharedByNameAndListenedTo) {
    using namespace norda::logging;
    auto a = Logger::createSharedLogger("TESTLOG", true);
    EXPECT_EQ(a, Logger::createSharedLogger("TESTLOG", true));
    EXPECT_NE(a, Logger::createSharedLogger("TESTLOG", false));
    std::vector<std::string> records;
    Logger::setListener([&](const std::string& name, LogLevel level, const std::string& text) {
        records.push_back(name + "/" + levelName(level) + "/" + text);
    });
    a->log(LogLevel::debug, "MP {}, X out of range: {} (corrected to {})", "P1", 700, 639);
    a->log(LogLevel::warning, std::string("literal {} stays"));
    Logger::setListener({});
    a->log(LogLevel::error, "not heard");
    EXPECT_EQ(records,
              (std::vector<std::string>{"TESTLOG/debug/MP P1, X out of range: 700 (corrected to 639)",
                                        "TESTLOG/warning/literal {} stays"}));
    EXPECT_EQ(std::string(levelName(LogLevel::critical)), "critical");

    norda::Exception e("msg", NORDA_LOCATION("norda::test::f"));
    EXPECT_EQ(e.location().rfind("tests/core/FrameAndStorageTest", 0),
              std::string::npos); // tests are not under nordalib/
    EXPECT_NE(e.location().find(": norda::test::f(..)"), std::string::npos);
    EXPECT_EQ(norda::formatLocation("nordalib/vision/streaming/OffsetElement", 54,
                                    "norda::exp::streaming::OffsetElement::OffsetElement"),
              "nordalib/vision/streaming/OffsetElement: 54: "
              "norda::exp::streaming::OffsetElement::OffsetElement(..)");
}
