#include "nordalib/vision/rix/RixReanalysis.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/imgproc/ColorPaletteConverter.h"
#include "nordalib/vision/imgproc/Palettes.h"
#include "nordalib/vision/radiometry/ObjectParameterKeys.h"
#include "nordalib/vision/rix/RixMeasurements.h"

namespace norda::vision {

using namespace norda::exp;

namespace {

template <typename T> bool generic(const Rix& rix, const std::string& key, T& out) {
    auto v = rix.getGeneric(key);
    if (!v || v->type() != typeid(T))
        return false;
    out = v->value<T>();
    return true;
}

using Temperature = quantity::Temperature<MarkedFloat>;
using Relation = quantity::Relation<MarkedFloat>;

// The image was shown in humidity mode: its results are humidities.
bool humidityMode(const Rix& rix) {
    bool mode = false;
    if (generic(rix, Id::Environment::HumidityModeActive, mode))
        return mode;
    MeasPoint hot;
    return generic(rix, Id::MeasPoints::HotSpot::MeasPoint, hot) && hot.getValue() &&
           hot.getValue()->holds<Relation>();
}

// The preview as the camera would have shown the image's present temperatures: its palette on its
// scale (the image's own extremes when it has none), or the humidity view.
void recolourPreview(Rix& rix) {
    const auto& rad = rix.getRadiometricImage();
    if (rix.getPreviewImageRgb().empty())
        return;
    if (rix.getPreviewImageRgb().size() != rad.size()) {
        rix.setPreviewImageRgb(cv::Mat_<cv::Vec3b>());
        return;
    }
    ColorPaletteConverter converter;
    cv::Mat_<cv::Vec3b> rgb;
    Temperature air;
    Relation humidity;
    if (humidityMode(rix) && generic(rix, Id::Environment::Temperature, air) &&
        generic(rix, Id::Environment::Humidity, humidity)) {
        converter.palletizeHumid(rad, rgb, air, humidity, true, {});
    } else {
        std::string palette;
        if (!generic(rix, Id::Palette::ActivePalette, palette) || !Palettes::exists(palette))
            palette = "iron";
        uint16_t lower = RadiometricTools::getUint16(rix.getScalingMin().celsius());
        uint16_t upper = RadiometricTools::getUint16(rix.getScalingMax().celsius());
        if (lower == upper) {
            lower = rix.getMinMax().min;
            upper = rix.getMinMax().max;
        }
        converter.palletize(rad, rgb, lower, upper, true, Palettes::colors(palette));
    }
    rix.setPreviewImageRgb(rgb);
}

} // namespace

ObjectParameters RixReanalysis::storedParameters(const Rix& rix) {
    ObjectParameters p =
        ObjectParameterKeys::read([&rix](const std::string& key) { return rix.getGeneric(key); });
    p.emissivity = rix.getEmissivityOriginal();
    p.reflectedK = rix.getReflectedTempOriginal().kelvin();
    return p;
}

ObjectParameters RixReanalysis::parametersFor(const Rix& rix, const Changes& changes) {
    ObjectParameters p = storedParameters(rix);
    p.emissivity = changes.emissivity.value_or(p.emissivity);
    p.reflectedK = changes.reflectedK.value_or(p.reflectedK);
    p.airK = changes.airK.value_or(p.airK);
    p.humidityPercent = changes.humidityPercent.value_or(p.humidityPercent);
    p.tauPg = changes.tauPg.value_or(p.tauPg);
    p.emisPg = changes.emisPg.value_or(p.emisPg);
    if (changes.distanceM) {
        if (!(*changes.distanceM > 0.0 && *changes.distanceM <= 10000.0))
            NORDA_THROW("object distance (0, 10000] m " + std::to_string(*changes.distanceM) +
                            " is out of range",
                        "norda::vision::RixReanalysis::parametersFor");
        p.distanceM = *changes.distanceM;
    }
    p.validate();
    return p;
}

PlanckConstants RixReanalysis::planckConstants(const Rix& rix) {
    std::vector<double> c;
    if (!generic(rix, Id::Radiometry::Planck, c) || (c.size() != 5 && c.size() != 6))
        NORDA_THROW("the image carries no Planck constants (" + Id::Radiometry::Planck +
                        " with R1, R2, B, F, O[, T0]); it can not be re-analysed",
                    "norda::vision::RixReanalysis::planckConstants");
    return PlanckConstants::fromVector(c);
}

cv::Mat_<uint16_t> RixReanalysis::temperatures(const Rix& rix, const ObjectParameters& to,
                                               const cv::Mat& emissivity) {
    const Reanalysis model(planckConstants(rix));
    const ObjectParameters from = storedParameters(rix);
    if (emissivity.empty())
        return model.apply(rix.getRadiometricImage(), from, to);
    return model.apply(rix.getRadiometricImage(), from, to, emissivity);
}

Rix RixReanalysis::reanalysed(const Rix& rix, const ObjectParameters& to, const cv::Mat& emissivity,
                              const std::optional<MeasurementResults::Humidity>& air) {
    to.validate();
    Rix out = rix;
    const ObjectParameters from = storedParameters(rix);
    if (!emissivity.empty() || to != from) {
        out.setRadiometricImage(temperatures(rix, to, emissivity));
        float e = static_cast<float>(to.emissivity);
        if (!emissivity.empty()) {
            e = static_cast<float>(cv::mean(emissivity)[0]);
            out.setGeneric(kEmissivityMap, makeVariant(emissivity.clone()));
            out.removeGeneric(Id::Radiometry::Planck);
        }
        out.setEmissivityOriginal(e);
        const Temperature reflected(MarkedFloat(static_cast<float>(to.reflectedK - 273.15)));
        out.setReflectedTempOriginal(reflected);
        if (out.getGeneric(Id::Environment::EmissivityValue))
            out.setGeneric(Id::Environment::EmissivityValue, makeVariant(e));
        if (out.getGeneric(Id::Environment::ReflectedTemperature))
            out.setGeneric(Id::Environment::ReflectedTemperature, makeVariant(reflected));
        ObjectParameters window = to, fromWindow = from;
        window.emissivity = fromWindow.emissivity = 1.0;
        window.reflectedK = fromWindow.reflectedK = 0.0;
        if (window != fromWindow)
            ObjectParameterKeys::writeAirAndWindow(
                to, [&out](const std::string& key, std::shared_ptr<Variant> v) { out.setGeneric(key, v); });
    }
    if (air) {
        out.setGeneric(Id::Environment::Humidity, makeVariant(air->humidity));
        out.setGeneric(Id::Environment::Temperature,
                       makeVariant(air->air.convertTo(quantity::TemperatureUnit::Celsius)));
    }
    RixMeasurements::refresh(out);
    recolourPreview(out);
    return out;
}

} // namespace norda::vision
