#include "apps/nordacam/ChainBuilder.h"

#include "apps/nordacam/OverlayFrameTap.h"
#include "apps/nordacam/PlaybackMetadataElement.h"
#include "apps/nordacam/RtspStreams.h"
#include "apps/nordacam/Settings.h"
#include "apps/nordacam/TeeElement.h"
#include "apps/nordacam/VisualStillElement.h"

#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"

// The elements of the chain.
#include "nordalib/vision/streaming/BadPixelElement.h"
#include "nordalib/vision/streaming/CaptureElement.h"
#include "nordalib/vision/streaming/CoordinateValueElement.h"
#include "nordalib/vision/streaming/DetectLaserPositionElement.h"
#include "nordalib/vision/streaming/DistortionElement.h"
#include "nordalib/vision/streaming/EmissionMarkerElement.h"
#include "nordalib/vision/streaming/FileReaderElement.h"
#include "nordalib/vision/streaming/FusionElement.h"
#include "nordalib/vision/streaming/GainElement.h"
#include "nordalib/vision/streaming/ImageBufferElement.h"
#include "nordalib/vision/streaming/ImageReadElement.h"
#include "nordalib/vision/streaming/ImageWriteElement.h"
#include "nordalib/vision/streaming/MinMaxExtractionElement.h"
#include "nordalib/vision/streaming/OffsetElement.h"
#include "nordalib/vision/streaming/PaletteElement.h"
#include "nordalib/vision/streaming/PxmRecorderElement.h"
#include "nordalib/vision/streaming/RadiometryElement.h"
#include "nordalib/vision/streaming/SnrElement.h"
#include "nordalib/vision/streaming/SocketServerElement.h"
#include "nordalib/vision/streaming/SprElement.h"
#include "nordalib/vision/streaming/StoreStampElement.h"
#include "nordalib/vision/streaming/TnrElement.h"
#include "nordalib/vision/streaming/UserMeasurementElement.h"

#include <algorithm>

namespace nordacam {

using namespace norda::exp;
using namespace norda::exp::streaming;

namespace {

// The values the display and image-saving elements take from the frame rather than the store.
// (Built per camera, not kept in function-local statics: the process's exit handlers destroy those.)
std::vector<std::string> displayKeys() {
    std::vector<std::string> k = PaletteElement::metadataKeys();
    k.insert(k.end(), {Id::Scaling::TempMin, Id::Scaling::TempMax, Id::MeasPoints::CenterSpot::MeasPoint});
    // What the overlay of a saved image shows besides the results the measurement stamps.
    k.insert(k.end(), {Id::MeasPoints::HotSpot::Visible, Id::MeasPoints::ColdSpot::Visible,
                       Id::MeasPoints::CenterSpot::Visible, Id::MeasPoints::LaserSpot::Visible,
                       Id::MeasPoints::LaserSpot::MeasPoint, Id::MeasPoints::DeltaT1::MeasPoint,
                       Id::MeasPoints::DeltaT2::MeasPoint, Id::DeltaT::Mode});
    return k;
}

// Metadata saved into every image as generic entries.
std::vector<std::string> savedKeys() {
    std::vector<std::string> k = {Id::ActiveMeasRange::Name,
                                  Id::Temperatures::Current::TBoardSens50,
                                  Id::ActiveLens::Serial,
                                  Id::DeviceInfo::Uptime,
                                  Id::MeasPoints::HotSpot::MeasPoint,
                                  Id::MeasPoints::ColdSpot::MeasPoint,
                                  Id::MeasPoints::CenterSpot::MeasPoint,
                                  Id::MeasAreas::CenterArea::MeasArea,
                                  Id::Palette::ActivePalette,
                                  Id::Radiometry::Planck};
    // What re-analysing the image later needs: every object parameter (the image keeps the
    // emissivity and reflected temperature in fields of its own).
    for (const auto& keySpec : keySchema())
        if (keySpec.group == KeyGroup::ObjectParameters && keySpec.name != Id::Environment::EmissivityValue &&
            keySpec.name != Id::Environment::ReflectedTemperature)
            k.push_back(keySpec.name);
    // The user's measurement set-up with its results and local parameters, and what the
    // overlay of the image shows, so that a re-analysed copy looks like the original.
    for (const auto& m : userMarks())
        for (const std::string* key :
             {&m.visible, m.area ? &m.rect : &m.position, &m.result, &m.localParameters, &m.emissivity,
              &m.reflectedTemperature, &m.distance, &m.material})
            k.push_back(*key);
    for (const auto* key :
         {&Id::DeltaT::Active, &Id::DeltaT::First, &Id::DeltaT::Second, &Id::DeltaT::Difference})
        k.push_back(*key);
    for (const auto& key : displayKeys())
        if (key != Id::Palette::Colors && std::find(k.begin(), k.end(), key) == k.end())
            k.push_back(key);
    return k;
}

// The measurement range's borders besides `keys`: stamped into the frames and saved with every
// image, for the validity marks of a later re-analysis.
std::vector<std::string> withRangeBorders(std::vector<std::string> keys) {
    keys.insert(keys.end(), {Id::ActiveMeasRange::ToleranceTop, Id::ActiveMeasRange::ToleranceBottom,
                             Id::ActiveMeasRange::DisplayTop, Id::ActiveMeasRange::DisplayBottom});
    return keys;
}

} // namespace

ChainBuilder::ChainBuilder(Parts parts, Pipeline& pipeline)
    : m_options(parts.options), m_overlay(parts.overlay), m_store(parts.store), m_commands(parts.commands),
      m_sim(parts.simulator), m_visual(parts.visual), m_streams(parts.streams), m_pipeline(pipeline) {}

void ChainBuilder::recordingStarted(unsigned long long frames) {
    m_recording = true;
    m_recordRemaining = frames;
}

void ChainBuilder::addStage(const std::string& type, std::unique_ptr<StreamingElement> element,
                            const std::string& role, std::vector<STREAMING_DATATYPE> optional,
                            Pipeline::RunCondition condition) {
    m_stages.push_back({type, element->getName(), role});
    m_pipeline.add(std::move(element), std::move(optional), std::move(condition));
}

std::unique_ptr<Frame> ChainBuilder::nextVisual() {
    auto frame = m_visual->nextLive();
    if (frame) {
        m_cyclesWithoutVisual = 0;
        m_lastVisual = frame->getFrameData();
        m_lastVisualMeta = frame->getMetaData();
        return frame;
    }
    // A frame the camera did not deliver: the last one again (its time stamp tells the elements
    // that it is old), so that the image buffer stays in step; after half a second, nothing.
    if (++m_cyclesWithoutVisual <= 15 && !m_lastVisual.empty())
        return std::make_unique<Frame>(m_lastVisual, DataStorage<std::string>(m_lastVisualMeta));
    return nullptr;
}

void ChainBuilder::addVisualSources() {
    auto live = std::make_unique<CaptureElement>(STREAMING_DATATYPE_YUV422, [this] { return nextVisual(); });
    live->setName("VisualCapture");
    addStage("CaptureElement", std::move(live), "frame source: simulated visual camera (live)");
    auto still = std::make_unique<CaptureElement>(STREAMING_DATATYPE_YUV422_HIRES,
                                                  [this] { return m_visual->nextStill(); });
    still->setName("StillCapture");
    addStage("CaptureElement", std::move(still), "frame source: simulated visual camera (stills)");
}

void ChainBuilder::addImageWriter() {
    std::string folder = m_options.outputDir.empty() ? std::string(".") : m_options.outputDir;
    if (folder.size() > 1 && folder.back() == '/')
        folder.pop_back();
    const auto slot =
        m_options.highResolutionStills ? STREAMING_DATATYPE_YUV422_HIRES : STREAMING_DATATYPE_YUV422;
    if (m_visual && m_options.highResolutionStills)
        addStage("VisualStillElement", std::make_unique<VisualStillElement>(),
                 "still instead of the live frame");
    // While the visual camera delivers, an image waits for a cycle with a visual frame (the image
    // buffer refills for a few cycles after the camera changed its resolution); without one, images
    // are saved without.
    Pipeline::RunCondition condition;
    if (m_visual)
        condition = [this](const FrameMap& frames) {
            auto has = [&](STREAMING_DATATYPE s) {
                auto it = frames.find(s);
                return it != frames.end() && it->second;
            };
            return m_cyclesWithoutVisual > 15 || has(STREAMING_DATATYPE_YUV422) ||
                   has(STREAMING_DATATYPE_YUV422_HIRES);
        };
    addStage("ImageWriteElement",
             std::make_unique<ImageWriteElement>(
                 folder, &m_store, &m_commands, withRangeBorders(savedKeys()),
                 [](DataStorage<std::string>) {}, 0, m_srFlag, slot),
             "image saving", {slot}, std::move(condition));
}

bool ChainBuilder::has(const std::string& element) const {
    for (const auto& s : m_stages)
        if (s.type == element)
            return true;
    return false;
}

void ChainBuilder::build() {
    const std::string& calib = m_options.calibrationDir;
    // Interchangeable lenses: per-lens transmission and distortion tables.
    const auto camType = norda::vision::RadiometricCamTypeB;

    // Source.
    if (m_sim) {
        addStage(
            "CaptureElement",
            std::make_unique<CaptureElement>(STREAMING_DATATYPE_RAW, [this] { return m_sim->nextFrame(); }),
            "frame source: simulated detector");
        if (m_visual)
            addVisualSources();
    } else if (m_options.frameSource) {
        addStage("CaptureElement",
                 std::make_unique<CaptureElement>(STREAMING_DATATYPE_RAW, m_options.frameSource),
                 "frame source: the host's frames");
    } else {
        if (!norda::utils::existsFile(m_options.inputFile))
            throw SettingsError("input file " + m_options.inputFile + " does not exist");
        auto recorded = PlaybackMetadataElement::readRecording(m_options.inputFile);
        if (recorded.empty())
            throw SettingsError("input file " + m_options.inputFile + " holds no frame");
        addStage("FileReaderElement", std::make_unique<FileReaderElement>(m_options.inputFile),
                 "frame source: recording");
        addStage("PlaybackMetadataElement",
                 std::make_unique<PlaybackMetadataElement>(m_store, std::move(recorded)),
                 "recorded metadata of the played frames");
    }

    // Taps on the raw frames, before the offset element takes their metadata.
    // The recorder takes a copy in the otherwise unused slot 1 (see TeeElement).
    const auto recordSlot = static_cast<STREAMING_DATATYPE>(1);
    if (!m_options.measurementOnly) {
        addStage("TeeElement", std::make_unique<TeeElement>(STREAMING_DATATYPE_RAW, recordSlot, "RawCopy"),
                 "raw frame copy");
        addStage("PxmRecorderElement",
                 std::make_unique<PxmRecorderElement>(
                     recordSlot, kRecorderName, m_commands, [this](bool on) { m_recording = on; },
                     [this](unsigned long long remaining) { m_recordRemaining = remaining; }),
                 "raw recording");
    }
    {
        auto element = std::make_unique<CoordinateValueElement>();
        auto* raw = element.get();
        m_rawLookup = [raw](unsigned short x, unsigned short y) { return raw->valuefromCoordinate(x, y); };
        addStage("CoordinateValueElement", std::move(element), "raw value lookup");
    }

    // Sensor correction.
    addStage("OffsetElement", std::make_unique<OffsetElement>(&m_store, calib, nullptr), "offset correction");
    addStage("GainElement", std::make_unique<GainElement>(&m_store, calib), "pixel gain correction");
    addStage("BadPixelElement",
             std::make_unique<BadPixelElement>(&m_store, "BadPixelElement", STREAMING_DATATYPE_CORRECTED),
             "bad-pixel replacement");
    addStage("TnrElement", std::make_unique<TnrElement>(&m_store), "temporal noise reduction");
    addStage("SprElement", std::make_unique<SprElement>(&m_store), "static pattern removal");
    addStage("SnrElement", std::make_unique<SnrElement>(&m_store), "spatial noise removal");
    // The two filters take their settings only when a key is written: writing the store's values
    // again makes them run what the store shows.
    for (const std::string& key :
         {Id::SprElement::Threshold, Id::SprElement::LineLimit, Id::SprElement::FrameLimit})
        m_store.set(key, m_store.get(key), true);
    m_store.flush();
    addStage("RadiometryElement", std::make_unique<RadiometryElement>(&m_store, calib, camType),
             "radiometry");
    addStage("DistortionElement", std::make_unique<DistortionElement>(&m_store, calib, camType),
             "lens distortion");
    if (m_visual)
        addStage("ImageBufferElement",
                 std::make_unique<ImageBufferElement>(8, STREAMING_DATATYPE_YUV422, &m_store),
                 "visual frames delayed to the infrared frames' moment");
    // A saved image opened in the gallery takes the live frame's place from here on.
    addStage("ImageReadElement",
             std::make_unique<ImageReadElement>(&m_store,
                                                m_options.outputDir.empty() ? "." : m_options.outputDir,
                                                std::vector<std::string>{}, 0, STREAMING_DATATYPE_YUV422),
             "saved image from the gallery");
    if (m_visual)
        addStage("DetectLaserPositionElement",
                 std::make_unique<DetectLaserPositionElement>(&m_store, STREAMING_DATATYPE_YUV422),
                 "laser spot into the infrared image", {STREAMING_DATATYPE_YUV422, STREAMING_DATATYPE_RAD});

    // Measurement and display.
    addStage("MinMaxExtractionElement",
             std::make_unique<MinMaxExtractionElement>(&m_store, STREAMING_DATATYPE_RAD, false),
             "measurement, range automatics, scaling");
    addStage("UserMeasurementElement", std::make_unique<UserMeasurementElement>(&m_store),
             "user points, areas, delta-T, local parameters");
    addStage("StoreStampElement",
             std::make_unique<StoreStampElement>(m_store, STREAMING_DATATYPE_RAD_CONST,
                                                 withRangeBorders(displayKeys()), "DisplaySettings"),
             "display settings into the frame");
    if (m_visual)
        addStage("EmissionMarkerElement",
                 std::make_unique<EmissionMarkerElement>(&m_store, 8, 10, STREAMING_DATATYPE_YUV422),
                 "emissivity from a reference label", {STREAMING_DATATYPE_YUV422});
    // The radiometric stream sends the frame before the palette moves its metadata on.
    if (m_streams)
        addStage("SocketServerElement",
                 std::make_unique<SocketServerElement>(
                     STREAMING_DATATYPE_RAD_CONST,
                     [this](Frame& f, unsigned long long, bool) { m_streams->publishRadiometric(f); },
                     m_commands, kPxmStreamName, 0),
                 "radiometric stream");
    if (!m_options.measurementOnly) {
        addStage("PaletteElement", std::make_unique<PaletteElement>(false), "palette");
        addStage("OverlayFrameTap", std::make_unique<OverlayFrameTap>(m_overlay),
                 "the frame an image is saved from, for its overlay");
    }
    addImageWriter();
    if (m_visual && m_options.rtsp)
        addStage(
            "TeeElement",
            std::make_unique<TeeElement>(STREAMING_DATATYPE_RGB, RtspStreams::kInfraredSlot, "InfraredTee"),
            "the infrared picture for RTSP");
    if (m_visual)
        addStage("FusionElement", std::make_unique<FusionElement>(&m_store, STREAMING_DATATYPE_YUV422),
                 "visual image into the display (Fusion.Mode)");

    // Sinks.
    if (m_streams) {
        addStage("SocketServerElement",
                 std::make_unique<SocketServerElement>(
                     STREAMING_DATATYPE_RGB,
                     [this](Frame& f, unsigned long long, bool) { m_streams->publishDisplay(f); }, m_commands,
                     kMjpegStreamName, 0),
                 "display stream");
        // A stream runs while someone watches it.
        m_streams->startOnDemand();
    }
}

unsigned short ChainBuilder::rawAt(int x, int y) const {
    return m_rawLookup(static_cast<unsigned short>(std::max(0, x)),
                       static_cast<unsigned short>(std::max(0, y)));
}

} // namespace nordacam
