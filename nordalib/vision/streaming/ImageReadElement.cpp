#include "nordalib/vision/streaming/ImageReadElement.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/ObjectParameterKeys.h"
#include "nordalib/vision/rix/Rix.h"
#include "nordalib/vision/rix/RixReanalysis.h"

namespace norda::exp::streaming {

using logging::LogLevel;

ImageReadElement::ImageReadElement(DataProxy<std::string>* dataProxy, const std::string& imageFolder,
                                   const std::vector<std::string>& metaDataKeys, int priority,
                                   STREAMING_DATATYPE visualSlot)
    : StreamingElement({}, {STREAMING_DATATYPE_RAD, visualSlot}, "IrVisImageRead", dataProxy, true, priority),
      m_pDataProxy(dataProxy), m_strImageFolder(imageFolder), m_vecMetaDataKeys(metaDataKeys),
      m_visualSlot(visualSlot), m_logger(logging::Logger::createSharedLogger("READ", true)) {
    if (!m_pDataProxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::ImageReadElement::ImageReadElement");
    if (m_pDataProxy->contains(Id::Gallery::ActiveFilename))
        requestFile(m_pDataProxy->getValue<std::string>(Id::Gallery::ActiveFilename));
    else
        m_pDataProxy->setValue(Id::Gallery::ActiveFilename, std::string(), true);
    if (!m_pDataProxy->contains(Id::Gallery::ForceUpdate))
        m_pDataProxy->setValue(Id::Gallery::ForceUpdate, false, true);

    m_subFilename = m_pDataProxy->subscribeValue<std::string>(
        Id::Gallery::ActiveFilename, [this](const std::string& name) { requestFile(name); });
    m_subForceUpdate =
        m_pDataProxy->subscribeValue<bool>(Id::Gallery::ForceUpdate, [this](const bool& force) {
            if (!force)
                return;
            std::lock_guard<std::mutex> lock(m_mutRequest);
            m_bReloadPending = true;
        });
    // Other re-analysis parameters: the shown image is computed anew.
    auto reanalyse = [this](std::shared_ptr<Variant>) {
        std::lock_guard<std::mutex> lock(m_mutRequest);
        m_bReloadPending = true;
    };
    for (const auto* key : {&Id::Gallery::Reanalysis::Active, &Id::Gallery::Reanalysis::Emissivity,
                            &Id::Gallery::Reanalysis::ReflectedTemperature})
        if (m_pDataProxy->contains(*key))
            m_subReanalysis.push_back(
                m_pDataProxy->subscribe(*key, FunctorFactory::createTransmitter(reanalyse)));
}

ImageReadElement::~ImageReadElement() {
    m_subReanalysis.clear();
    m_subForceUpdate.reset();
    m_subFilename.reset();
}

void ImageReadElement::requestFile(const std::string& name) {
    std::lock_guard<std::mutex> lock(m_mutRequest);
    m_strRequested = name;
    m_bReloadPending = true;
}

bool ImageReadElement::process(FrameMap& /*inputs*/, FrameMap& outputs) {
    std::string name;
    bool reload = false;
    {
        std::lock_guard<std::mutex> lock(m_mutRequest);
        std::swap(reload, m_bReloadPending);
        name = m_strRequested;
    }
    if (reload)
        load(name);
    if (!m_loaded)
        return false;

    // Fresh pixels every cycle: later elements (distortion) work on slot 3 in place.
    auto metaData = m_loaded->metaData;
    emit(outputs, STREAMING_DATATYPE_RAD,
         std::make_unique<Frame>(m_loaded->radiometric.clone(), std::move(metaData)));
    if (!m_loaded->visual.empty()) {
        auto visualMetaData = m_loaded->metaData;
        emit(outputs, m_visualSlot,
             std::make_unique<Frame>(m_loaded->visual.clone(), std::move(visualMetaData)));
    }
    return true;
}

std::string ImageReadElement::resolve(const std::string& name) const {
    if (name.front() == '/' || m_strImageFolder.empty())
        return name;
    return m_strImageFolder + "/" + name;
}

void ImageReadElement::load(const std::string& name) {
    m_loaded.reset();
    if (name.empty())
        return;
    const std::string path = resolve(name);
    vision::Rix rix;
    try {
        rix.load(path);
    } catch (const std::exception& e) {
        m_logger->log(LogLevel::error, "Could not load stored image: {}", e.what());
        return;
    }

    Loaded loaded;
    loaded.name = name;
    loaded.radiometric = rix.isSuperResolutionFile() && !rix.getSuperResolutionImage().empty()
                             ? rix.getSuperResolutionImage()
                             : rix.getRadiometricImage();
    loaded.visual = rix.getVisualImageYuv2();
    const auto& generics = rix.getGenerics();
    if (m_vecMetaDataKeys.empty()) {
        for (const auto& [key, value] : generics)
            loaded.metaData.set(key, value);
    } else {
        for (const auto& key : m_vecMetaDataKeys)
            if (auto value = generics.getVariant(key))
                loaded.metaData.set(key, value);
    }
    // The settings the image was taken with win over whatever the generic entries say.
    loaded.metaData.setValue(Id::Scaling::TempMax, rix.getScalingMax());
    loaded.metaData.setValue(Id::Scaling::TempMin, rix.getScalingMin());
    loaded.metaData.setValue(Id::Environment::EmissivityValue, rix.getEmissivityOriginal());
    loaded.metaData.setValue(Id::Environment::ReflectedTemperature, rix.getReflectedTempOriginal());
    reanalyse(rix, loaded);
    loaded.metaData.setValue(Id::Gallery::ActiveFilename, name);
    m_logger->log(LogLevel::info, "showing stored image {}", path);
    m_loaded = std::move(loaded);
}

vision::RixReanalysis::Changes ImageReadElement::requestedChanges(const DataProxy<std::string>& store) {
    vision::RixReanalysis::Changes changes;
    changes.emissivity = store.getValue<float>(Id::Gallery::Reanalysis::Emissivity);
    changes.reflectedK =
        store.getValue<quantity::Temperature<MarkedFloat>>(Id::Gallery::Reanalysis::ReflectedTemperature)
            .kelvin();
    if (const float d = store.getValue<float>(Id::Gallery::Reanalysis::Distance); d > 0.0f)
        changes.distanceM = d;
    if (store.contains(Id::Gallery::Reanalysis::AirGiven) &&
        store.getValue<bool>(Id::Gallery::Reanalysis::AirGiven)) {
        changes.airK =
            store.getValue<quantity::Temperature<MarkedFloat>>(Id::Gallery::Reanalysis::AirTemperature)
                .kelvin();
        changes.humidityPercent =
            store.getValue<quantity::Relation<MarkedFloat>>(Id::Gallery::Reanalysis::Humidity).percent();
    }
    return changes;
}

// With re-analysis on, the temperatures become those of the other object parameters and the frame
// says so; an image that can not be re-analysed (no Planck constants) is shown as stored.
void ImageReadElement::reanalyse(const vision::Rix& rix, Loaded& loaded) {
    using Temperature = quantity::Temperature<MarkedFloat>;
    if (!m_pDataProxy->contains(Id::Gallery::Reanalysis::Active) ||
        !m_pDataProxy->getValue<bool>(Id::Gallery::Reanalysis::Active) || rix.isSuperResolutionFile())
        return;
    try {
        const auto to = vision::RixReanalysis::parametersFor(rix, requestedChanges(*m_pDataProxy));
        const Temperature reflected(MarkedFloat(static_cast<float>(to.reflectedK - 273.15)));
        loaded.radiometric = vision::RixReanalysis::temperatures(rix, to);
        loaded.metaData.setValue(Id::Environment::EmissivityValue, static_cast<float>(to.emissivity));
        loaded.metaData.setValue(Id::Environment::ReflectedTemperature, reflected);
        vision::ObjectParameterKeys::writeAirAndWindow(
            to,
            [&loaded](const std::string& key, std::shared_ptr<Variant> v) { loaded.metaData.set(key, v); });
    } catch (const std::exception& e) {
        m_logger->log(LogLevel::error, "Could not re-analyse stored image: {}", e.what());
    }
}

} // namespace norda::exp::streaming
