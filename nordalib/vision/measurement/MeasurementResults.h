#pragma once
// MeasurementResults: measurement points and areas of a temperature image (RadiometricTools 16-bit
// encoding) as MinMaxExtractionElement publishes them.
//
// A point's value is its pixel's temperature marked against the range's borders
// (MeasurementStatistics::markValidity) or, in humidity mode, the relative humidity right at that
// surface (DewPoint::calcSurfaceMoisture with the air's temperature and humidity). An area carries
// its first coldest and first hottest pixel (row order) and the rounded mean of all its pixels,
// each a point value in the same mode. The centre area is the middle half of the image in each
// direction.

#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/MeasRangeBorders.h"

#include <opencv2/core.hpp>

namespace norda::vision {

class MeasurementResults {
public:
    using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;
    using Relation = exp::quantity::Relation<exp::MarkedFloat>;

    // Humidity mode: values are the relative humidity at the surface in this air.
    struct Humidity {
        Relation humidity;
        Temperature air;
    };

    // `humidity` null: temperature mode.
    static exp::MeasPoint point(unsigned short x, unsigned short y, unsigned short raw,
                                const exp::MeasRangeBorders& borders, const Humidity* humidity);
    // `rect` must lie inside `img` (CV_16UC1) and not be empty.
    static exp::MeasArea area(const cv::Mat& img, const cv::Rect& rect, const exp::MeasRangeBorders& borders,
                              const Humidity* humidity);
    static cv::Rect centreArea(cv::Size size);
};

} // namespace norda::vision
