#pragma once
// The chart nordacam analyze writes as NAME.png: each tool's temperature over time, a line a tool,
// samples outside the measurement range crossed; round axis steps and a legend beside the plot.

#include "apps/nordacam/Analyze.h"

#include <opencv2/core.hpp>

namespace nordacam {

cv::Mat drawTrendPlot(const TrendSeries& series); // CV_8UC3 (BGR)

} // namespace nordacam
