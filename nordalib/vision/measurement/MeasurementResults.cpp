#include "nordalib/vision/measurement/MeasurementResults.h"

#include "nordalib/vision/climate/DewPoint.h"
#include "nordalib/vision/measurement/MeasurementStatistics.h"

#include <cmath>

namespace norda::vision {

exp::MeasPoint MeasurementResults::point(unsigned short x, unsigned short y, unsigned short raw,
                                         const exp::MeasRangeBorders& borders, const Humidity* humidity) {
    const Temperature temperature = MeasurementStatistics::markValidity(raw, borders);
    if (!humidity)
        return exp::MeasPoint(x, y, temperature);
    return exp::MeasPoint(x, y,
                          DewPoint::calcSurfaceMoisture(temperature, humidity->air, humidity->humidity));
}

exp::MeasArea MeasurementResults::area(const cv::Mat& img, const cv::Rect& rect,
                                       const exp::MeasRangeBorders& borders, const Humidity* humidity) {
    const auto extremes = MeasurementStatistics::scanArea(img, rect);
    const auto cold = extremes.cold, hot = extremes.hot;
    exp::MeasArea area(static_cast<unsigned short>(rect.x), static_cast<unsigned short>(rect.y),
                       static_cast<unsigned short>(rect.width), static_cast<unsigned short>(rect.height));
    area.setColdSpot(point(cold.x, cold.y, img.at<unsigned short>(cold.y, cold.x), borders, humidity));
    area.setHotSpot(point(hot.x, hot.y, img.at<unsigned short>(hot.y, hot.x), borders, humidity));
    area.setMeanVariant(point(0, 0, extremes.mean, borders, humidity).getValue());
    return area;
}

cv::Rect MeasurementResults::centreArea(cv::Size size) {
    const int w = static_cast<int>(std::lround(size.width * 0.5));
    const int h = static_cast<int>(std::lround(size.height * 0.5));
    return cv::Rect((size.width - w) / 2, (size.height - h) / 2, w, h);
}

} // namespace norda::vision
