#pragma once
// DisplayScaling: the display scaling limits the palette colours a temperature image with.
//
// Each frame it publishes Id::Scaling::{Min,Max} (pixel values) and Id::Scaling::{TempMin,TempMax}
// (temperatures) for the scaling mode in Id::Scaling::Mode:
//   Auto          the image's extremes, widened to a span of at least 5 °C around their middle; the
//                 temperatures are republished only when they move by more than 0.5 °C, which
//                 keeps the palette steady against noise;
//   Manual        the user's TempMin/TempMax;
//   AutoSpanHint  the extremes shaped by the inside/outside temperatures (climate library);
//   humidity mode (any scaling mode) dew point ... 55 °C.
// An unknown mode is logged at warning level each frame and leaves the keys as they are.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/Frame.h"
#include "nordalib/core/datatypes/MeasRangeBorders.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/logging/Logger.h"

#include <memory>
#include <string>

namespace norda::vision {

class DisplayScaling {
public:
    using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;
    using Relation = exp::quantity::Relation<exp::MarkedFloat>;

    DisplayScaling(exp::DataProxy<std::string>* proxy, std::shared_ptr<logging::Logger> log);

    // `frame` supplies the limits the image was last shown with (Id::Scaling::TempMin/TempMax in
    // its metadata, 0 °C when absent); `med` is the image mean (pixel value).
    void update(const exp::Frame& frame, unsigned short imageMin, unsigned short imageMax, unsigned short med,
                const exp::MeasRangeBorders& borders, bool humidityMode, const Relation& humidity,
                const Temperature& airTemperature);

    // Stores newValue; whether it differs from the stored one, or from `reference`, by more than
    // `threshold` degrees.
    static bool getSpanDiffMore(float reference, Temperature newValue, Temperature& stored, float threshold);

private:
    exp::DataProxy<std::string>* m_pDataProxy;
    std::shared_ptr<logging::Logger> m_log;
    unsigned short m_u16MinSpan;
    Temperature m_lastScaleMin;
    Temperature m_lastScaleMax;
};

} // namespace norda::vision
