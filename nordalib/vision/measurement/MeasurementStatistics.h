#pragma once
// MeasurementStatistics: the extremes and means of a temperature image (RadiometricTools 16-bit
// encoding) that every measurement result is made of.
//
// scanImage finds the coldest and hottest pixel of the whole image (first occurrence in row order)
// and the mean of the pixels strictly inside a band (the tolerance band of the active range, so
// saturated pixels do not pull the mean); it keeps its per-row results, whose row maxima the range
// automatics reuse. scanArea does the same for a rectangle with the plain mean of all its pixels.
// markValidity turns a pixel value into a temperature marked against a range's borders.

#include "nordalib/core/datatypes/MeasRangeBorders.h"
#include "nordalib/core/datatypes/Quantity.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

namespace norda::vision {

class MeasurementStatistics {
public:
    using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;

    struct Extremes {
        cv::Point_<unsigned short> cold{0, 0};
        cv::Point_<unsigned short> hot{0, 0};
        unsigned short minRaw = 0;
        unsigned short maxRaw = 0;
        unsigned short mean = 0;
    };

    // Whole image (CV_16UC1). The mean covers the pixels strictly inside (lower, upper); when none
    // is, it is the middle of the extremes; an empty image gives mean 32767.
    Extremes scanImage(const cv::Mat& img, unsigned short lower, unsigned short upper);
    // The maximum of each row of the last scanImage.
    const std::vector<unsigned short>& rowMaxima() const { return m_rowMax; }

    // A rectangle inside the image; the mean of all its pixels, rounded.
    static Extremes scanArea(const cv::Mat& img, const cv::Rect& rect);

    // The temperature of a pixel value, marked over range (5) above the display top, under range (3)
    // below the display bottom, outside tolerance (1) outside the tolerance band, valid otherwise.
    // With borders that are themselves unknown the temperature comes unmarked.
    static Temperature markValidity(unsigned short raw, const exp::MeasRangeBorders& borders);

private:
    std::vector<unsigned short> m_rowMin, m_rowMax;
    std::vector<uint64_t> m_rowSum;
    std::vector<uint32_t> m_rowCount;
};

} // namespace norda::vision
