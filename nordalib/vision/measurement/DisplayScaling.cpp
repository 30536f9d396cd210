#include "nordalib/vision/measurement/DisplayScaling.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/climate/AutoSpanHint.h"
#include "nordalib/vision/climate/DewPoint.h"
#include "nordalib/vision/measurement/MeasurementStatistics.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <algorithm>
#include <cmath>

namespace norda::vision {

using exp::MarkedFloat;
using logging::LogLevel;

namespace {

constexpr float kSpanThreshold = 0.5f;     // degrees a scaling limit must move before it is republished
constexpr float kHumidityScaleTop = 55.0f; // °C, upper scaling limit in humidity mode

DisplayScaling::Temperature validCelsius(float celsius) {
    return DisplayScaling::Temperature(MarkedFloat(celsius, MarkedFloat::Valid));
}

} // namespace

DisplayScaling::DisplayScaling(exp::DataProxy<std::string>* proxy, std::shared_ptr<logging::Logger> log)
    : m_pDataProxy(proxy), m_log(std::move(log)),
      m_u16MinSpan(static_cast<unsigned short>(RadiometricTools::getUint16(5.0f) -
                                               RadiometricTools::getUint16(0.0f))) {}

bool DisplayScaling::getSpanDiffMore(float reference, Temperature newValue, Temperature& stored,
                                     float threshold) {
    const float now = newValue.celsius();
    const float before = stored.celsius();
    stored = newValue;
    return std::fabs(now - before) > threshold || std::fabs(now - reference) > threshold;
}

void DisplayScaling::update(const exp::Frame& frame, unsigned short imageMin, unsigned short imageMax,
                            unsigned short med, const exp::MeasRangeBorders& borders, bool humidityMode,
                            const Relation& humidity, const Temperature& airTemperature) {
    namespace S = exp::Id::Scaling;
    if (humidityMode) {
        Temperature dewPoint = DewPoint::calcDewPoint(airTemperature, humidity);
        MarkedFloat bottom = dewPoint.getValue();
        bottom.setValid();
        m_pDataProxy->setValue(S::TempMin, Temperature(bottom), true);
        m_pDataProxy->setValue(S::TempMax, validCelsius(kHumidityScaleTop), true);
        m_pDataProxy->setValue<unsigned short>(S::Min, RadiometricTools::getUint16(bottom.toFloat()), true);
        m_pDataProxy->setValue<unsigned short>(S::Max, RadiometricTools::getUint16(kHumidityScaleTop), true);
        return;
    }

    const std::string mode = m_pDataProxy->getValue<std::string>(S::Mode);
    if (mode == S::Auto) {
        int lo = imageMin, hi = imageMax;
        if (hi - lo < m_u16MinSpan) {
            const int mid = (lo + hi) / 2;
            lo = std::max(0, mid - m_u16MinSpan / 2);
            hi = std::min(65535, mid + m_u16MinSpan / 2);
        }
        const Temperature newMin =
            MeasurementStatistics::markValidity(static_cast<unsigned short>(lo), borders);
        const Temperature newMax =
            MeasurementStatistics::markValidity(static_cast<unsigned short>(hi), borders);
        auto reference = [&frame](const std::string& key) {
            std::shared_ptr<exp::Variant> v;
            return frame.getMetaDate(key, v) ? v->value<Temperature>().celsius() : 0.0f;
        };
        if (getSpanDiffMore(reference(S::TempMin), newMin, m_lastScaleMin, kSpanThreshold))
            m_pDataProxy->setValue(S::TempMin, newMin, true);
        if (getSpanDiffMore(reference(S::TempMax), newMax, m_lastScaleMax, kSpanThreshold))
            m_pDataProxy->setValue(S::TempMax, newMax, true);
        m_pDataProxy->setValue<unsigned short>(S::Min, static_cast<unsigned short>(lo), true);
        m_pDataProxy->setValue<unsigned short>(S::Max, static_cast<unsigned short>(hi), true);
    } else if (mode == S::Manual) {
        const auto tempMin = m_pDataProxy->getValue<Temperature>(S::TempMin);
        const auto tempMax = m_pDataProxy->getValue<Temperature>(S::TempMax);
        m_pDataProxy->setValue<unsigned short>(S::Min, RadiometricTools::getUint16(tempMin.celsius()), true);
        m_pDataProxy->setValue<unsigned short>(S::Max, RadiometricTools::getUint16(tempMax.celsius()), true);
        m_pDataProxy->setValue(S::TempMin, validCelsius(tempMin.celsius()), true);
        m_pDataProxy->setValue(S::TempMax, validCelsius(tempMax.celsius()), true);
    } else if (mode == S::AutoSpanHint) {
        const auto tempIn = m_pDataProxy->getValue<Temperature>(S::TempIn);
        const auto tempOut = m_pDataProxy->getValue<Temperature>(S::TempOut);
        const Temperature imageTemperature = validCelsius(RadiometricTools::getFloat(med));
        unsigned short lo = imageMin, hi = imageMax;
        AutoSpanHint::calculateAutoSpanHint(lo, hi, tempIn, tempOut, imageTemperature, 0.7f, 0.3f, 0.7f);
        m_pDataProxy->setValue<unsigned short>(S::Min, lo, true);
        m_pDataProxy->setValue<unsigned short>(S::Max, hi, true);
        MarkedFloat bottom = MeasurementStatistics::markValidity(lo, borders).getValue();
        MarkedFloat top = MeasurementStatistics::markValidity(hi, borders).getValue();
        bottom.setValid();
        top.setValid();
        m_pDataProxy->setValue(S::TempMin, Temperature(bottom), true);
        m_pDataProxy->setValue(S::TempMax, Temperature(top), true);
    } else {
        m_log->log(LogLevel::warning, "ScalingMode {} not supported! (Use {}, {} or {})", mode, S::Auto,
                   S::Manual, S::AutoSpanHint);
    }
}

} // namespace norda::vision
