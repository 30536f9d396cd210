#include "nordalib/vision/rix/RixMeasurements.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/measurement/MeasurementResults.h"
#include "nordalib/vision/measurement/MeasurementStatistics.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <vector>

namespace norda::vision {

using namespace norda::exp;
using Temperature = quantity::Temperature<MarkedFloat>;
using Relation = quantity::Relation<MarkedFloat>;

namespace {

// The difference of two results the user measurement element publishes; computed from others.
const std::string kDeltaTDifference = "DeltaT.Difference";

template <typename T> const T* generic(const Rix& rix, const std::string& key) {
    auto v = rix.getGeneric(key);
    return v && v->holds<T>() ? &v->value<T>() : nullptr;
}

bool isHumidity(const std::shared_ptr<Variant>& value) {
    return value && value->holds<Relation>();
}

} // namespace

MeasRangeBorders RixMeasurements::borders(const Rix& rix) {
    MeasRangeBorders b;
    const std::pair<const std::string*, MarkedFloat*> items[] = {
        {&Id::ActiveMeasRange::ToleranceTop, &b.toleranceTop},
        {&Id::ActiveMeasRange::ToleranceBottom, &b.toleranceBottom},
        {&Id::ActiveMeasRange::DisplayTop, &b.displayTop},
        {&Id::ActiveMeasRange::DisplayBottom, &b.displayBottom}};
    for (const auto& [key, border] : items) {
        const Temperature* t = generic<Temperature>(rix, *key);
        if (!t)
            return {MarkedFloat(0.0f, MarkedFloat::OutOfTolerance),
                    MarkedFloat(0.0f, MarkedFloat::OutOfTolerance),
                    MarkedFloat(0.0f, MarkedFloat::OutOfTolerance),
                    MarkedFloat(0.0f, MarkedFloat::OutOfTolerance)};
        *border = t->convertTo(quantity::TemperatureUnit::Celsius).getValue();
    }
    return b;
}

void RixMeasurements::refresh(Rix& rix) {
    const cv::Mat_<uint16_t>& img = rix.getRadiometricImage();
    if (img.empty())
        return;
    rix.extractMinMax(img);
    rix.setFileUuid(img);

    const MeasRangeBorders b = borders(rix);
    const bool known = b.allValid();
    MeasurementStatistics statistics;
    const auto extremes =
        statistics.scanImage(img, known ? RadiometricTools::getUint16(b.toleranceBottom.toFloat()) : 0,
                             known ? RadiometricTools::getUint16(b.toleranceTop.toFloat()) : 65535);
    const Temperature* air = generic<Temperature>(rix, Id::Environment::Temperature);
    const Relation* humidity = generic<Relation>(rix, Id::Environment::Humidity);
    MeasurementResults::Humidity climateValue;
    if (air && humidity)
        climateValue = {*humidity, *air};
    const MeasurementResults::Humidity* climate = air && humidity ? &climateValue : nullptr;

    std::vector<std::string> keys;
    for (const auto& [key, value] : rix.getGenerics())
        keys.push_back(key);
    for (const auto& key : keys) {
        const auto value = rix.getGeneric(key);
        const std::string prefix = key.substr(0, key.rfind('.') + 1);
        const bool* local = generic<bool>(rix, prefix + "LocalParameters");
        const bool result = value->holds<MeasPoint>() || value->holds<MeasArea>();
        const bool humid =
            result && isHumidity(value->holds<MeasPoint>() ? value->value<MeasPoint>().getValue()
                                                           : value->value<MeasArea>().getMeanValue());
        // Results shaped by their own parameters, derived from other results, or humidities of an
        // image that does not say in which air it was taken.
        if ((result && ((local && *local) || (humid && !climate))) || key == kDeltaTDifference) {
            rix.removeGeneric(key);
        } else if (value->holds<MeasPoint>()) {
            const MeasPoint& old = value->value<MeasPoint>();
            cv::Point_<unsigned short> p(old.getX(), old.getY());
            if (key == Id::MeasPoints::HotSpot::MeasPoint)
                p = extremes.hot;
            else if (key == Id::MeasPoints::ColdSpot::MeasPoint)
                p = extremes.cold;
            if (p.x >= img.cols || p.y >= img.rows) {
                rix.removeGeneric(key); // not a position of this image
                continue;
            }
            rix.setGeneric(key, makeVariant(MeasurementResults::point(p.x, p.y, img(p.y, p.x), b,
                                                                      humid ? climate : nullptr)));
        } else if (value->holds<MeasArea>()) {
            const MeasArea& old = value->value<MeasArea>();
            const cv::Rect rect = old.getAreaRect();
            if (rect.empty() || (rect & cv::Rect(0, 0, img.cols, img.rows)) != rect) {
                rix.removeGeneric(key);
                continue;
            }
            rix.setGeneric(key,
                           makeVariant(MeasurementResults::area(img, rect, b, humid ? climate : nullptr)));
        }
    }
    const std::pair<const std::string*, unsigned short> statisticsItems[] = {
        {&Id::IrImage::Min, extremes.minRaw},
        {&Id::IrImage::Max, extremes.maxRaw},
        {&Id::IrImage::Med, extremes.mean}};
    for (const auto& [key, raw] : statisticsItems)
        if (rix.getGeneric(*key))
            rix.setGeneric(*key, makeVariant(MeasurementStatistics::markValidity(raw, b)));
}

} // namespace norda::vision
