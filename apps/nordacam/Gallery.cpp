#include "apps/nordacam/Gallery.h"

#include "apps/nordacam/OutputFolder.h"
#include "apps/nordacam/Overlay.h"
#include "apps/nordacam/StreamPublisher.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/radiometry/ObjectParameterKeys.h"
#include "nordalib/vision/rix/Rix.h"
#include "nordalib/vision/rix/RixReanalysis.h"
#include "nordalib/vision/streaming/ImageReadElement.h"
#include "nordalib/vision/streaming/ImageWriteElement.h"

#include <fmt/format.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <filesystem>
#include <thread>

namespace nordacam {

using namespace norda::exp;
using json = nlohmann::json;
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;
namespace fs = std::filesystem;

namespace {

bool isImageFile(const std::string& name) {
    if (name.size() < 5)
        return false;
    std::string ext = name.substr(name.size() - 4);
    std::transform(ext.begin(), ext.end(), ext.begin(), ::toupper);
    return ext == ".RIX";
}

// The user's measurement set-up saved with an image (see savedKeys in ChainBuilder.cpp).
std::vector<std::string> setupKeys() {
    std::vector<std::string> k;
    for (const auto& m : userMarks())
        for (const std::string* key : {&m.visible, m.area ? &m.rect : &m.position, &m.localParameters,
                                       &m.emissivity, &m.reflectedTemperature, &m.distance, &m.material})
            k.push_back(*key);
    for (const auto* key : {&Id::DeltaT::Active, &Id::DeltaT::First, &Id::DeltaT::Second})
        k.push_back(*key);
    return k;
}

norda::vision::Rix load(const std::string& path, const std::string& name) {
    if (!norda::utils::existsFile(path))
        throw GalleryError(404, "no saved image " + name);
    norda::vision::Rix rix;
    try {
        rix.load(path);
    } catch (const std::exception& e) {
        throw GalleryError(422, name + " can not be read: " + e.what());
    }
    if (rix.getRadiometricImage().empty())
        throw GalleryError(422, name + " holds no radiometric image");
    return rix;
}

} // namespace

std::string Gallery::path(const std::string& name) const {
    if (!isImageFile(name))
        throw GalleryError(400, "\"" + name + "\" is not a saved image (.RIX)");
    return fileInFolder(m_camera.options().outputDir, name);
}

json Gallery::list() const {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(m_camera.options().outputDir, ec))
        if (e.is_regular_file() && isImageFile(e.path().filename().string()))
            names.push_back(e.path().filename().string());
    std::sort(names.rbegin(), names.rend());
    json out = json::array();
    for (const auto& name : names) {
        json entry = {{"name", name},
                      {"size", fs::file_size(fs::path(m_camera.options().outputDir) / name, ec)}};
        try {
            const auto rix = load(path(name), name);
            entry["emissivity"] = rix.getEmissivityOriginal();
            if (auto material = rix.getGeneric(Id::Environment::Material);
                material && material->holds<std::string>() && !material->value<std::string>().empty())
                entry["material"] = material->value<std::string>();
            entry["reflected"] = rix.getReflectedTempOriginal().celsius();
            entry["taken"] = overlayDateTime(rix.getFileDateTime());
            entry["reanalysable"] = static_cast<bool>(rix.getGeneric(Id::Radiometry::Planck));
        } catch (const std::exception& e) {
            entry["error"] = e.what();
        }
        out.push_back(entry);
    }
    return out;
}

std::string Gallery::thumbnail(const std::string& name) const {
    const auto rix = load(path(name), name);
    cv::Mat rgb = rix.getPreviewImageRgb();
    if (rgb.empty())
        throw GalleryError(422, name + " holds no preview image");
    cv::Mat small;
    cv::resize(rgb, small, cv::Size(160, 120), 0, 0, cv::INTER_AREA);
    return StreamPublisher::encodeJpeg(small, 85);
}

void Gallery::open(const std::string& name) {
    const auto rix = load(path(name), name);
    std::lock_guard<std::mutex> lock(m_mutex);
    auto& store = m_camera.store();
    // Its measurement set-up becomes the current one, where the saved values fit the keys.
    for (const auto& key : setupKeys()) {
        auto v = rix.getGeneric(key);
        if (v && store.contains(key) && store.get(key)->type() == v->type())
            store.set(key, v, true);
    }
    store.setValue(Id::Gallery::Reanalysis::Active, false, true);
    store.setValue(Id::Gallery::Reanalysis::Emissivity, rix.getEmissivityOriginal(), true);
    store.setValue(Id::Gallery::Reanalysis::ReflectedTemperature, rix.getReflectedTempOriginal(), true);
    // The air it was taken in, where a re-analysis starts from.
    const auto taken = norda::vision::RixReanalysis::storedParameters(rix);
    store.setValue(Id::Gallery::Reanalysis::Distance, static_cast<float>(taken.distanceM), true);
    store.setValue(Id::Gallery::Reanalysis::AirGiven, false, true);
    store.setValue(Id::Gallery::Reanalysis::AirTemperature,
                   Temp(MarkedFloat(static_cast<float>(taken.airK - 273.15))), true);
    store.setValue(Id::Gallery::Reanalysis::Humidity,
                   Rel(MarkedFloat(static_cast<float>(taken.humidityPercent / 100.0))), true);
    store.setValue(Id::Gallery::ActiveFilename, name, true);
    m_shown = name;
}

void Gallery::close() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_camera.store().setValue(Id::Gallery::Reanalysis::Active, false, true);
    m_camera.store().setValue(Id::Gallery::ActiveFilename, std::string(), true);
    m_shown.clear();
}

void Gallery::reanalyse(float emissivity, float reflectedC, float distanceM,
                        std::optional<std::pair<float, float>> air) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_shown.empty())
        throw GalleryError(409, "no saved image is shown");
    const auto rix = load(path(m_shown), m_shown);
    try {
        (void)norda::vision::RixReanalysis::planckConstants(rix);
    } catch (const std::exception& e) {
        throw GalleryError(422, m_shown + ": " + e.what());
    }
    try {
        norda::vision::RixReanalysis::Changes changes;
        changes.emissivity = emissivity;
        changes.reflectedK = reflectedC + 273.15;
        if (distanceM != 0.0f)
            changes.distanceM = distanceM;
        if (air) {
            changes.airK = air->first + 273.15;
            changes.humidityPercent = air->second;
        }
        (void)norda::vision::RixReanalysis::parametersFor(rix, changes);
    } catch (const std::exception& e) {
        throw SettingsError(std::string("re-analysis: ") + e.what());
    }
    auto& store = m_camera.store();
    store.setValue(Id::Gallery::Reanalysis::Emissivity, emissivity, true);
    store.setValue(Id::Gallery::Reanalysis::ReflectedTemperature, Temp(MarkedFloat(reflectedC)), true);
    store.setValue(Id::Gallery::Reanalysis::Distance, distanceM, true);
    store.setValue(Id::Gallery::Reanalysis::AirGiven, air.has_value(), true);
    if (air) {
        store.setValue(Id::Gallery::Reanalysis::AirTemperature, Temp(MarkedFloat(air->first)), true);
        store.setValue(Id::Gallery::Reanalysis::Humidity, Rel(MarkedFloat(air->second / 100.0f)), true);
    }
    store.setValue(Id::Gallery::Reanalysis::Active, true, true);
}

json Gallery::state() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto& store = m_camera.store();
    return {{"shown", m_shown},
            {"reanalysed", store.getValue<bool>(Id::Gallery::Reanalysis::Active)},
            {"emissivity", store.getValue<float>(Id::Gallery::Reanalysis::Emissivity)},
            {"reflected", store.getValue<Temp>(Id::Gallery::Reanalysis::ReflectedTemperature).celsius()},
            {"distance", store.getValue<float>(Id::Gallery::Reanalysis::Distance)},
            {"air", store.getValue<Temp>(Id::Gallery::Reanalysis::AirTemperature).celsius()},
            {"humidity", store.getValue<Rel>(Id::Gallery::Reanalysis::Humidity).percent()}};
}

std::string Gallery::saveAs(const std::string& requested, bool overwrite) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_shown.empty())
        throw GalleryError(409, "no saved image is shown");
    auto& store = m_camera.store();
    using norda::exp::streaming::ImageWriteElement;
    const unsigned counter = store.getValue<unsigned int>(Id::Miscellaneous::ImageCounter);
    const std::string name = requested.empty()
                                 ? fmt::format("IR{}.RIX", ImageWriteElement::getFormatedFileNumber(counter))
                                 : requested;
    const std::string target = path(name);
    if (norda::utils::existsFile(target) && !overwrite)
        throw GalleryError(409, name + " exists; saving over it must be asked for (overwrite)");

    auto rix = load(path(m_shown), m_shown);
    if (store.getValue<bool>(Id::Gallery::Reanalysis::Active)) {
        const auto to = norda::vision::RixReanalysis::parametersFor(
            rix, norda::exp::streaming::ImageReadElement::requestedChanges(store));
        const Temp reflected(MarkedFloat(static_cast<float>(to.reflectedK - 273.15)));
        rix.setRadiometricImage(norda::vision::RixReanalysis::temperatures(rix, to));
        rix.setEmissivityOriginal(static_cast<float>(to.emissivity));
        rix.setReflectedTempOriginal(reflected);
        norda::vision::ObjectParameterKeys::writeAirAndWindow(
            to, [&rix](const std::string& key, std::shared_ptr<Variant> v) { rix.setGeneric(key, v); });
        rix.extractMinMax(rix.getRadiometricImage());
    }
    // The display image and the results of the shown image, when the chain has measured it.
    const auto snap = m_camera.snapshot();
    auto shownName = snap.meta.getVariant(Id::Gallery::ActiveFilename);
    const bool measured =
        shownName && shownName->holds<std::string>() && shownName->value<std::string>() == m_shown;
    if (measured && !snap.rgb.empty()) {
        rix.setPreviewImageRgb(snap.rgb);
        // The span that display image was drawn with.
        for (const auto& [key, set] : {std::pair{&Id::Scaling::TempMin, &norda::vision::Rix::setScalingMin},
                                       std::pair{&Id::Scaling::TempMax, &norda::vision::Rix::setScalingMax}})
            if (auto v = snap.meta.getVariant(*key); v && v->holds<Temp>())
                (rix.*set)(v->value<Temp>());
    }
    auto keys = setupKeys();
    for (const auto& m : userMarks())
        keys.push_back(m.result);
    keys.push_back(Id::DeltaT::Difference);
    for (const auto& key : keys)
        if (auto v = measured ? snap.meta.getVariant(key) : nullptr)
            rix.setGeneric(key, v);
        else if (store.contains(key))
            rix.setGeneric(key, store.get(key));
    try {
        rix.save(target, false);
    } catch (const std::exception& e) {
        throw GalleryError(500, name + " not written: " + e.what());
    }

    // Its picture, with the overlay drawn from what the new file holds, as a live save draws it.
    const std::string number = name.size() > 6 ? name.substr(2, name.size() - 6) : name;
    const cv::Mat overlay =
        norda::vision::frameOverlay(norda::vision::savedFrameMetadata(rix), rix.getRadiometricImage().size());
    const auto picture = ImageWriteElement::composeJpegImage(rix.getPreviewImageRgb(), overlay);
    if (!picture.empty() && name.rfind("IR", 0) == 0) {
        std::vector<uchar> jpeg;
        cv::imencode(".jpg", picture, jpeg);
        norda::utils::writeFileAtomically(fileInFolder(m_camera.options().outputDir, "TR" + number + ".JPG"),
                                          jpeg.data(), jpeg.size());
    }
    if (requested.empty())
        store.setValue<unsigned int>(Id::Miscellaneous::ImageCounter, counter + 1, true);
    return name;
}

} // namespace nordacam
