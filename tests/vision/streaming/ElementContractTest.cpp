// The exact failure of each element construction that lacks what it needs: one table for all
// elements.
#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/streaming/BadPixelElement.h"
#include "nordalib/vision/streaming/DistortionElement.h"
#include "nordalib/vision/streaming/FileReaderElement.h"
#include "nordalib/vision/streaming/GainElement.h"
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
    // The location: the element's source, the line (fixed where given, else any), its constructor.
    struct Row {
        std::function<void()> construct;
        std::string message, element;
        int line = 0;
    };
    const Row rows[] = {
        {[] { OffsetElement e(nullptr, "", nullptr); }, noStore, "OffsetElement", 54},
        {[] { TnrElement e(nullptr); }, noStore, "TnrElement"},
        {[] { SprElement e(nullptr); }, noStore, "SprElement"},
        {[] { SnrElement e(nullptr); }, noStore, "SnrElement"},
        {[] { RadiometryElement e(nullptr, "", vision::RadiometricCamTypeA); }, noStore, "RadiometryElement"},
        {[] { DistortionElement e(nullptr, "", vision::RadiometricCamTypeA); }, noStore, "DistortionElement"},
        {[] { BadPixelElement e(nullptr, "BP", STREAMING_DATATYPE_CORRECTED); }, noStore, "BadPixelElement"},
        {[] { GainElement e(nullptr, ""); }, noStore, "GainElement"},
        {[] { ImageBufferElement e(2, STREAMING_DATATYPE_YUV422, nullptr); }, noStore, "ImageBufferElement"},
        // The missing store is reported before a wrong slot.
        {[] { MinMaxExtractionElement e(nullptr, STREAMING_DATATYPE_RGB, true); }, noStore,
         "MinMaxExtractionElement"},
        {[&] { MinMaxExtractionElement e(&proxy, STREAMING_DATATYPE_CORRECTED, true); },
         "Input must be of Type STREAMING_DATATYPE_RAD or STREAMING_DATATYPE_RAD_CONST",
         "MinMaxExtractionElement"},
        {[&] { ImageWriteElement e("", nullptr, &commands, {}, {}, 0, busy, STREAMING_DATATYPE_YUV422); },
         noStore, "ImageWriteElement"},
        {[&] { ImageWriteElement e("", &proxy, nullptr, {}, {}, 0, busy, STREAMING_DATATYPE_YUV422); },
         "Pointer to CommandProxy is mandatory for this element!", "ImageWriteElement"},
        {[&] { FileReaderElement e(missing); }, "File open failed! Filename: " + missing, "FileReaderElement",
         35},
        {[&] { FileReaderElement e(empty); }, "File holds no frame! Filename: " + empty, "FileReaderElement"},
        {[] { ImageGeneratorElement e(STREAMING_DATATYPE_RAW, cv::Size(6, 100)); },
         "ImageGeneratorElement needs a size above 6 x 6, got 6 x 100", "ImageGeneratorElement"},
    };
    for (const auto& r : rows) {
        const auto [message, location] = test::failureOf(r.construct);
        EXPECT_EQ(message, r.message);
        const std::string start = "nordalib/vision/streaming/" + r.element + ": " +
                                  (r.line ? std::to_string(r.line) + ": " : std::string());
        const std::string end = "norda::exp::streaming::" + r.element + "::" + r.element + "(..)";
        EXPECT_EQ(location.rfind(start, 0), 0u) << location;
        EXPECT_EQ(location.substr(location.size() - std::min(location.size(), end.size())), end) << location;
    }
    EXPECT_THROW(ImageGeneratorElement(STREAMING_DATATYPE_RAW, cv::Size(100, 6)), Exception);
}
