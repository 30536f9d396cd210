#include "nordalib/core/datatypes/Variant.h"
#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/MeasRangeBorders.h"
#include "nordalib/core/datatypes/VariantRegistry.h"
#include "nordalib/core/datatypes/Version.h"

#include "tests/support/Messages.h"

#include <gtest/gtest.h>

using namespace norda::exp;
using norda::test::messageOf;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;

TEST(Variant, ExactTypedReadAndMessages) {
    Variant_<bool> b(true);
    EXPECT_TRUE(b.value<bool>());
    EXPECT_EQ(messageOf([&] { (void)b.value<float>(); }), "Variant-type (bool)!= Template-type (float)");
    EXPECT_EQ(b.convert<float>(), 1.0f);
    EXPECT_TRUE(Variant_<int>(2).convert<bool>());
    EXPECT_FALSE(Variant_<double>(0.0).convert<bool>());
    EXPECT_EQ(Variant_<double>(2.7).convert<int>(), 2);
    EXPECT_EQ(messageOf([] { (void)Variant_<std::string>("x").convert<int>(); }),
              "std::string is not convertible toint");

    // const-held data is readable as its plain type, but neither movable nor addressable.
    Variant_<const std::string> c(std::string("abc"));
    EXPECT_EQ(c.value<std::string>(), "abc");
    EXPECT_EQ(messageOf([&] { (void)c.move(); }), "A variant holding const data can not be moved!");
    EXPECT_EQ(messageOf([&] { (void)c.address(); }), "Can't get void* address pointer from const data!");

    struct Opaque {};
    Variant_<Opaque> o(Opaque{});
    EXPECT_NE(messageOf([&] { (void)(o == o); }).find("no comparison operator available for type:"),
              std::string::npos);
    MemoryBinary m;
    EXPECT_NE(messageOf([&] { o.serialize(m); }).find("' can not be serialized"), std::string::npos);
    EXPECT_NE(messageOf([&] { (void)o.toString(); }).find("' can not be serialized to string"),
              std::string::npos);
    EXPECT_NE(messageOf([] {
                  (void)Variant_<std::string>("s").sizeofT();
              }).find("sizeT not available for this type:"),
              std::string::npos);
    EXPECT_EQ(Variant_<int>(1).sizeofT(), sizeof(int));
}

TEST(Variant, BinaryAndTextRoundTripKeepTheType) {
    MeasArea area(1, 2, 30, 40);
    area.setHotSpot(MeasPoint(5, 6, Temp(MarkedFloat(80.5f, MarkedFloat::OverRange))));
    area.setMeanValue(Rel(MarkedFloat(0.42f)));
    DataStorage<std::string> nested;
    nested.setValue("inner", std::string("a,b\nc"));

    std::vector<std::shared_ptr<Variant>> values = {
        makeVariant(true),
        makeVariant<unsigned long long>(1ull << 40),
        makeVariant(-3.25f),
        makeVariant(std::string("with, comma\tand tab")),
        makeVariant(std::vector<std::string>{"a,1", "", "b"}),
        makeVariant(std::vector<unsigned char>{0, 255, 7}),
        makeVariant(cv::Mat(3, 4, CV_16SC1, cv::Scalar(-7))),
        makeVariant(cv::Point_<int>(-1, 9)),
        makeVariant(cv::Rect_<int>(1, 2, 3, 4)),
        makeVariant(Temp(MarkedFloat(21.5f, MarkedFloat::OutOfTolerance), quantity::TemperatureUnit::Kelvin)),
        makeVariant(area),
        makeVariant(Version(2, 0, 0)),
        makeVariant(MeasRangeBorders{MarkedFloat(120.0f), MarkedFloat(-20.0f),
                                     MarkedFloat::withMark(150.0f, MarkedFloat::OutOfTolerance),
                                     MarkedFloat(-40.5f)}),
        makeVariant(nested),
    };
    for (const auto& v : values) {
        MemoryBinary m;
        writeVariant(m, *v);
        auto back = readVariant(m);
        ASSERT_TRUE(back) << v->typeName();
        EXPECT_EQ(back->type(), v->type());
        EXPECT_TRUE(*back == *v) << v->typeName();

        auto text = v->toString();
        EXPECT_EQ(text.find('\n'), std::string::npos) << v->typeName();
        auto fromText = VariantRegistry::instance().fromText(v->typeTag(), text);
        EXPECT_TRUE(*fromText == *v) << v->typeName() << " " << text;
    }
}

TEST(Variant, DamagedInputIsRejectedCleanly) {
    MemoryBinary m;
    writeVariant(m, *makeVariant(cv::Mat(10, 10, CV_16UC1, cv::Scalar(1))));
    auto bytes = m.data();
    for (size_t cut = 0; cut < bytes.size(); cut += 7) {
        MemoryBinary damaged(std::vector<uint8_t>(bytes.begin(), bytes.begin() + cut));
        EXPECT_THROW(readVariant(damaged), norda::Exception);
    }
    // A Mat header whose dimensions multiply past 64 bits (found by fuzzing).
    MemoryBinary huge(MemoryAcsii::fromBase64("AwAAAG1hdBAAAAABAAAEcDoAbWEDAAAAbWF0"));
    EXPECT_THROW(readVariant(huge), norda::Exception);
    EXPECT_EQ(messageOf([] { (void)VariantRegistry::instance().fromText("i8", "300"); }),
              "number is too big");
    // One byte short is short: nothing is read past the data.
    MemoryBinary three(std::vector<uint8_t>(3, 0));
    EXPECT_THROW(three.readScalar<uint32_t>(), norda::Exception);
    // A matrix header with a negative width; values nested deeper than the reader allows.
    MemoryBinary negative;
    for (int32_t field : {2, -3, CV_16UC1})
        negative.writeScalar<int32_t>(field);
    EXPECT_THROW(Memory::deserializeT<cv::Mat>(negative, Endianness::no_swap), norda::Exception);
    DataStorage<std::string> nested;
    for (int i = 0; i < 40; ++i) {
        DataStorage<std::string> outer;
        outer.setValue("x", nested);
        nested = outer;
    }
    MemoryBinary deep;
    writeVariant(deep, *makeVariant(nested));
    EXPECT_NE(messageOf([&] { readVariant(deep); }).find("nested deeper than 32"), std::string::npos);
    MemoryBinary swapped;
    EXPECT_EQ(messageOf([&] { Memory::serializeT(swapped, cv::Point_<int>(1, 2), Endianness::swap); }),
              "cv::Point only serializable for no_swap endianes");
    EXPECT_EQ(messageOf([&] { Memory::serializeT(swapped, cv::Rect_<int>(), Endianness::swap); }),
              "cv::Rect only serializable for no_swap endianes");
    EXPECT_EQ(messageOf([&] { Memory::serializeT(swapped, cv::Mat(), Endianness::swap); }),
              "Mat only serializable for no_swap endianes");
}
