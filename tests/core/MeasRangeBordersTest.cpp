#include "nordalib/core/datatypes/MeasRangeBorders.h"
#include "nordalib/core/datatypes/Variant.h"
#include "nordalib/core/datatypes/VariantRegistry.h"

#include <gtest/gtest.h>

using namespace norda::exp;

TEST(MeasRangeBorders, TravelsAsVariantInBinaryAndText) {
    const MeasRangeBorders b{MarkedFloat(120.0f), MarkedFloat(-20.0f),
                             MarkedFloat::withMark(150.0f, MarkedFloat::OutOfTolerance), MarkedFloat(-40.5f)};
    EXPECT_FALSE(b.allValid());
    auto v = makeVariant(b);
    EXPECT_EQ(v->typeTag(), "MeasRangeBorders");
    auto back = VariantRegistry::instance().fromText(v->typeTag(), v->toString());
    EXPECT_EQ(back->value<MeasRangeBorders>(), b);

    for (auto e : {Endianness::no_swap, Endianness::swap}) {
        MemoryBinary m;
        Memory::serializeT(m, b, e);
        EXPECT_EQ(Memory::deserializeT<MeasRangeBorders>(m, e), b);
    }
    EXPECT_THROW(VariantRegistry::instance().fromText("MeasRangeBorders", "1,0,2,0"), norda::Exception);
}
