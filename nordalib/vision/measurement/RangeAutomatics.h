#pragma once
// RangeAutomatics: the automatic switch between the low and the high measurement range.
//
// A hot region (a pixel above 100 °C in the low range, 80 °C in the high one, with both upper
// diagonal neighbours above 98 °C / 75 °C) pulls the range up, its absence pulls it down; the
// switch happens when the weighted count of such evaluations reaches a threshold, which starts at
// 4 and is raised to 12 after each switch and then lowered by one per evaluation, so the range
// does not flap. A manual scale ending at or below 100 °C, and the humidity mode, keep the low
// range. The target is written to Id::ActiveMeasRange::Name.
//
// setAutoRange runs on the store's notifier thread (Id::MeasRangeSettings::EnableAutoRange),
// checkRangeSwitch on the pipeline thread.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/logging/Logger.h"

#include <opencv2/core.hpp>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace norda::vision {

class RangeAutomatics {
public:
    static constexpr unsigned char kLowTempRange = 1;

    RangeAutomatics(exp::DataProxy<std::string>* proxy, std::shared_ptr<logging::Logger> log);

    // On: the second-lowest range of Id::MeasRangePool becomes the high range; fewer than two
    // ranges leave the automatics off. Lets the store's error escape when the pool is missing.
    void setAutoRange(bool enable);
    bool enabled() const { return m_bAutoRange.load(); }

    // One evaluation of a frame of `activeRange`; `rowMaxima` (may be empty) lets rows without a
    // hot pixel be skipped.
    void checkRangeSwitch(const cv::Mat& img, const std::vector<unsigned short>& rowMaxima,
                          unsigned char activeRange, const std::string& scalingMode, bool humidityMode);

private:
    exp::DataProxy<std::string>* m_pDataProxy;
    std::shared_ptr<logging::Logger> m_log;
    std::atomic<bool> m_bAutoRange{false};
    std::atomic<uint8_t> m_u8HighRange{0};
    uint8_t m_u8TargetRange = 0;
    uint64_t m_u64SwitchCount = 0;
    uint64_t m_u64SwitchThreshold = 4;
};

} // namespace norda::vision
