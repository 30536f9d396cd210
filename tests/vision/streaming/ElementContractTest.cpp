// What every element declares to the host (type name, input and output slots, blocking), and the
// exact failure of each construction that lacks what it needs: one table for all elements.
#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/vision/imageio/PxmImage.h"
#include "nordalib/vision/streaming/BadPixelElement.h"
#include "nordalib/vision/streaming/CaptureElement.h"
#include "nordalib/vision/streaming/CoordinateValueElement.h"
#include "nordalib/vision/streaming/DistortionElement.h"
#include "nordalib/vision/streaming/FileReaderElement.h"
#include "nordalib/vision/streaming/ImageBufferElement.h"
#include "nordalib/vision/streaming/ImageGeneratorElement.h"
#include "nordalib/vision/streaming/ImageReadElement.h"
#include "nordalib/vision/streaming/ImageWriteElement.h"
#include "nordalib/vision/streaming/MinMaxExtractionElement.h"
#include "nordalib/vision/streaming/OffsetElement.h"
#include "nordalib/vision/streaming/PaletteElement.h"
#include "nordalib/vision/streaming/PxmRecorderElement.h"
#include "nordalib/vision/streaming/RadiometryElement.h"
#include "nordalib/vision/streaming/ResizeElement.h"
#include "nordalib/vision/streaming/SnrElement.h"
#include "nordalib/vision/streaming/SocketServerElement.h"
#include "nordalib/vision/streaming/SprElement.h"
#include "nordalib/vision/streaming/TnrElement.h"
#include "nordalib/vision/streaming/WindowingElement.h"
#include "nordalib/vision/streaming/Yuv422ToRgb888Element.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <fstream>

using namespace norda;
using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {
using Slots = std::vector<STREAMING_DATATYPE>;
constexpr auto RAW = STREAMING_DATATYPE_RAW, COR = STREAMING_DATATYPE_CORRECTED, RAD = STREAMING_DATATYPE_RAD,
               CONST = STREAMING_DATATYPE_RAD_CONST, RGB = STREAMING_DATATYPE_RGB,
               YUV = STREAMING_DATATYPE_YUV422, HIRES = STREAMING_DATATYPE_YUV422_HIRES;
} // namespace

TEST(ElementContract, NamesSlotsAndBlocking) {
    test::TempDir dir;
    DataProxy<std::string> proxy;
    setDefaultParameters(proxy);
    cmd::CommandProxy commands, more;
    std::atomic<bool> busy{false};
    vision::writePxmImage(dir.file("one.pxm"), cv::Mat(2, 2, CV_16UC1, cv::Scalar(1)));
    const std::string calib = test::slashed(dir);
    struct Row {
        std::unique_ptr<StreamingElement> element;
        std::string name;
        Slots in, out;
        bool blocking;
    };
    Row rows[] = {
        {std::make_unique<OffsetElement>(&proxy, calib, nullptr), "OffsetElement", {RAW}, {COR}, true},
        {std::make_unique<BadPixelElement>(&proxy, "BP", COR), "BP", {COR}, {COR}, false},
        {std::make_unique<TnrElement>(&proxy), "TnrElement", {COR}, {COR}, false},
        {std::make_unique<SprElement>(&proxy), "SprElement", {COR}, {COR}, false},
        {std::make_unique<SnrElement>(&proxy), "SnrElement", {COR}, {COR}, false},
        {std::make_unique<RadiometryElement>(&proxy, calib, vision::RadiometricCamTypeA),
         "RadiometryElement",
         {COR},
         {RAD},
         false},
        {std::make_unique<DistortionElement>(&proxy, calib, vision::RadiometricCamTypeA),
         "Distortion",
         {RAD},
         {RAD},
         false},
        {std::make_unique<MinMaxExtractionElement>(&proxy, CONST, true),
         "MinMaxExtractionElement",
         {CONST},
         {CONST},
         false},
        {std::make_unique<PaletteElement>(false), "PaletteElement", {CONST}, {RGB}, false},
        {std::make_unique<ImageWriteElement>(calib, &proxy, &commands, std::vector<std::string>{}, nullptr, 3,
                                             busy, HIRES),
         "ImageWriteElement",
         {HIRES, RGB, CONST},
         {},
         true},
        {std::make_unique<ImageReadElement>(&proxy, calib, std::vector<std::string>{}, 4, YUV),
         "IrVisImageRead",
         {},
         {RAD, YUV},
         true},
        {std::make_unique<ImageBufferElement>(4, YUV, &proxy), "ImageBufferElement", {YUV}, {YUV}, false},
        {std::make_unique<CaptureElement>(YUV, nullptr), "CaptureElement", {}, {YUV}, true},
        {std::make_unique<FileReaderElement>(dir.file("one.pxm")), "FileReaderElement", {}, {RAW}, true},
        {std::make_unique<ImageGeneratorElement>(COR, cv::Size(7, 7)),
         "ImageGeneratorElement",
         {},
         {COR},
         true},
        {std::make_unique<PxmRecorderElement>(RAD, "Rec", more, nullptr, nullptr),
         "PxmRecorderElement",
         {RAD},
         {},
         true},
        {std::make_unique<SocketServerElement>(RGB, nullptr, more, "Stream", 0), "Stream", {RGB}, {}, true},
        {std::make_unique<CoordinateValueElement>(), "CoordinateValue", {RAW}, {}, false},
        {std::make_unique<WindowingElement>(4, 4, RAW, COR), "WindowingElement", {RAW}, {COR}, false},
        {std::make_unique<ResizeElement>(RGB, cv::Size(4, 4)), "ResizeElement", {RGB}, {RGB}, false},
        {std::make_unique<ColorConversionElement>(), "ColorConversionElement", {YUV}, {RGB}, false},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(r.element->getName(), r.name);
        EXPECT_EQ(r.element->getInputTypes(), r.in) << r.name;
        EXPECT_EQ(r.element->getOutputTypes(), r.out) << r.name;
        EXPECT_EQ(r.element->isBlocking(), r.blocking) << r.name;
    }
    // The two elements that registered commands took a priority: the writer its own, the stream 21.
    EXPECT_EQ(rows[9].element->getPriority(), 3);
    EXPECT_EQ(rows[16].element->getPriority(), 21);
    // The noise filters publish their activity: TNR on, SPR and SNR off.
    EXPECT_TRUE(proxy.getValue<bool>("TnrElement.Active"));
    EXPECT_FALSE(proxy.getValue<bool>(Id::SprElement::Active));
    EXPECT_FALSE(proxy.getValue<bool>(Id::SnrElement::Active));
}

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
