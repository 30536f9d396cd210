#include "nordalib/vision/measurement/RangeAutomatics.h"

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

#include <algorithm>
#include <cstdlib>

namespace norda::vision {

using logging::LogLevel;
using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;

RangeAutomatics::RangeAutomatics(exp::DataProxy<std::string>* proxy, std::shared_ptr<logging::Logger> log)
    : m_pDataProxy(proxy), m_log(std::move(log)) {}

void RangeAutomatics::setAutoRange(bool enable) {
    if (!enable) {
        m_log->log(LogLevel::info, "AutoRange disabled");
        m_bAutoRange = false;
        return;
    }
    const auto pool = m_pDataProxy->getValue<exp::DataStorage<std::string>>(exp::Id::MeasRangePool);
    std::vector<unsigned char> ranges;
    for (const auto& entry : pool)
        ranges.push_back(static_cast<unsigned char>(std::atoi(entry.first.c_str())));
    std::sort(ranges.begin(), ranges.end());
    if (ranges.size() < 2) {
        m_log->log(LogLevel::info, "AutoRange disabled there are not enough ranges defined");
        m_bAutoRange = false;
        return;
    }
    m_u8HighRange = ranges[1];
    m_log->log(LogLevel::info, "AutoRange activated! HR {}", static_cast<unsigned>(ranges[1]));
    m_bAutoRange = true;
}

void RangeAutomatics::checkRangeSwitch(const cv::Mat& img, const std::vector<unsigned short>& rowMaxima,
                                       unsigned char activeRange, const std::string& scalingMode,
                                       bool humidityMode) {
    const bool low = activeRange <= 1;
    const unsigned short hi = RadiometricTools::getUint16(low ? 100.0f : 80.0f);
    const unsigned short lo = RadiometricTools::getUint16(low ? 98.0f : 75.0f);

    // A pixel counts only with both upper diagonal neighbours warm too, so single hot (or
    // defective) pixels never switch the range. Rows whose maximum is not above `hi` are skipped.
    bool hot = false;
    unsigned short spot = 0;
    for (int y = 1; y < img.rows - 1 && !hot; ++y) {
        if (static_cast<size_t>(y) < rowMaxima.size() && rowMaxima[y] <= hi)
            continue;
        const unsigned short* above = img.ptr<unsigned short>(y - 1);
        const unsigned short* row = img.ptr<unsigned short>(y);
        for (int x = 1; x < img.cols - 1; ++x) {
            if (row[x] > hi && above[x - 1] > lo && above[x + 1] > lo) {
                hot = true;
                spot = row[x];
                break;
            }
        }
    }

    const bool manual = scalingMode == exp::Id::Scaling::Manual;
    float manualTop = 0.0f;
    if (manual)
        manualTop = m_pDataProxy->getValue<Temperature>(exp::Id::Scaling::TempMax).celsius();
    if (humidityMode)
        hot = false;

    if (!hot && activeRange != kLowTempRange) {
        m_u64SwitchCount += 4;
        m_u8TargetRange = kLowTempRange;
        m_log->log(LogLevel::debug, "Detect range switch condition down! count: {}", m_u64SwitchCount);
    } else if (!hot) {
        m_u64SwitchCount = 0;
    } else if (activeRange == kLowTempRange) {
        // A manual scale that ends at or below 100 °C says the user looks at the low range on purpose.
        if (!manual || manualTop > 100.0f) {
            m_u64SwitchCount += 2;
            m_u8TargetRange = m_u8HighRange;
            m_log->log(LogLevel::debug, "Detect range switch condition up! Tspot = {} count: {}",
                       RadiometricTools::getFloat(spot), m_u64SwitchCount);
        }
    } else {
        m_u64SwitchCount = 0;
    }

    if (m_u64SwitchThreshold > 4)
        --m_u64SwitchThreshold;
    if (m_u64SwitchCount >= m_u64SwitchThreshold) {
        m_log->log(LogLevel::info, "AutoSwitch measurement range to {}",
                   static_cast<unsigned>(m_u8TargetRange));
        m_pDataProxy->setValue<unsigned char>(exp::Id::ActiveMeasRange::Name, m_u8TargetRange, true);
        m_u64SwitchCount = 0;
        m_u64SwitchThreshold = 12;
    }
}

} // namespace norda::vision
