// The exact failure of each element construction that lacks what it needs: one table for all
// elements.
#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/streaming/BadPixelElement.h"
#include "nordalib/vision/streaming/DistortionElement.h"
#include "nordalib/vision/streaming/FileReaderElement.h"
#include "nordalib/vision/streaming/ImageBufferElement.h"
#include "nordalib/vision/streaming/ImageGeneratorElement.h"
#include "nordalib/vision/streaming/ImageWriteElement.h"
#include "nordalib/vision/streaming/MinMaxExtractionElement.h"
#include "nordalib/vision/streaming/OffsetElement.h"
#include "nordalib/vision/streaming/RadiometryElement.h"
#include "nordalib/vision/streaming/SnrElement.h"
#include "nordalib/vision/streaming/SprElement.h"
#include "nordalib/vision/streaming/TnrElement.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

TEST(ElementContract, ConstructionFailuresNameWhatIsMissing) {
    test::TempDir dir;
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    cmd::CommandProxy commands;
    std::atomic<bool> busy{false};
    const std::string noStore = "Pointer to DataProxy is mandatory for this element!";
    const std::string missing = dir.file("missing.pxm"), empty = dir.file("empty.pxm");
    std::ofstream(empty).close();
    auto ctor = [](const std::string& c) { return "norda::exp::streaming::" + c + "::" + c + "(..)"; };
    struct Row {
        std::function<void()> construct;
        std::string message, locationStart, locationEnd;
    };
    const Row rows[] = {
        {[] { OffsetElement e(nullptr, "", nullptr); }, noStore,
         "nordalib/vision/streaming/OffsetElement: 54: " + ctor("OffsetElement"), ""},
        {[] { TnrElement e(nullptr); }, noStore,
         "nordalib/vision/streaming/TnrElement: ", ctor("TnrElement")},
        {[] { SprElement e(nullptr); }, noStore,
         "nordalib/vision/streaming/SprElement: ", ctor("SprElement")},
        {[] { SnrElement e(nullptr); }, noStore,
         "nordalib/vision/streaming/SnrElement: ", ctor("SnrElement")},
        {[] { RadiometryElement e(nullptr, "", vision::RadiometricCamTypeA); }, noStore,
         "nordalib/vision/streaming/RadiometryElement: ", ctor("RadiometryElement")},
        {[] { DistortionElement e(nullptr, "", vision::RadiometricCamTypeA); }, noStore,
         "nordalib/vision/streaming/DistortionElement: ", ctor("DistortionElement")},
        {[] { BadPixelElement e(nullptr, "BP", STREAMING_DATATYPE_CORRECTED); }, noStore,
         "nordalib/vision/streaming/BadPixelElement: ", ctor("BadPixelElement")},
        {[] { ImageBufferElement e(2, STREAMING_DATATYPE_YUV422, nullptr); }, noStore,
         "nordalib/vision/streaming/ImageBufferElement: ", ctor("ImageBufferElement")},
        // The missing store is reported before a wrong slot.
        {[] { MinMaxExtractionElement e(nullptr, STREAMING_DATATYPE_RGB, true); }, noStore,
         "nordalib/vision/streaming/MinMaxExtractionElement: ", ctor("MinMaxExtractionElement")},
        {[&] { MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_CORRECTED, true); },
         "Input must be of Type STREAMING_DATATYPE_RAD or STREAMING_DATATYPE_RAD_CONST",
         "nordalib/vision/streaming/MinMaxExtractionElement: ", ctor("MinMaxExtractionElement")},
        {[&] { ImageWriteElement e("", nullptr, &commands, {}, {}, 0, busy, STREAMING_DATATYPE_YUV422); },
         noStore, "nordalib/vision/streaming/ImageWriteElement: ", ctor("ImageWriteElement")},
        {[&] { ImageWriteElement e("", &proxy, nullptr, {}, {}, 0, busy, STREAMING_DATATYPE_YUV422); },
         "Pointer to CommandProxy is mandatory for this element!",
         "nordalib/vision/streaming/ImageWriteElement: ", ctor("ImageWriteElement")},
        {[&] { FileReaderElement e(missing); }, "File open failed! Filename: " + missing,
         "nordalib/vision/streaming/FileReaderElement: 35: " + ctor("FileReaderElement"), ""},
        {[&] { FileReaderElement e(empty); }, "File holds no frame! Filename: " + empty,
         "nordalib/vision/streaming/FileReaderElement: ", ctor("FileReaderElement")},
        {[] { ImageGeneratorElement e(STREAMING_DATATYPE_RAW, cv::Size(6, 100)); },
         "ImageGeneratorElement needs a size above 6 x 6, got 6 x 100",
         "nordalib/vision/streaming/ImageGeneratorElement: ", ctor("ImageGeneratorElement")},
    };
    for (const auto& r : rows) {
        const auto [message, location] = test::failureOf(r.construct);
        EXPECT_EQ(message, r.message);
        EXPECT_EQ(location.rfind(r.locationStart, 0), 0u) << location;
        EXPECT_TRUE(location.size() >= r.locationEnd.size() &&
                    location.compare(location.size() - r.locationEnd.size(), r.locationEnd.size(),
                                     r.locationEnd) == 0)
            << location;
    }
    EXPECT_THROW(ImageGeneratorElement(STREAMING_DATATYPE_RAW, cv::Size(100, 6)), Exception);
}
