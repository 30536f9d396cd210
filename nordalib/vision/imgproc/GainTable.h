#pragma once
// GainTable: a detector's per-pixel relative responsivity (its gain, 1 for a typical pixel) and the
// correction of offset-corrected frames by it. After the shutter's offset is subtracted a pixel
// reads g * (scene - shutter); dividing by g leaves a uniform scene uniform however far it lies
// from the shutter's temperature (two-point non-uniformity correction).
//
// File ("gain.pxm"): a PXM image of the sensor's size, CV_32FC1, the gains (mean 1; bad pixels 1).
// Gains must lie within [kMinGain, kMaxGain]: a pixel further off is a bad pixel, not a gain.
//
// Correction: out = saturate(in + round(in * d / 32768)) with d = round((1 / g - 1) * 32768), the
// correction's fixed-point form. It runs through a vector kernel of the widest vectors the processor
// has (see VectorDispatch.h) with the plain loop as its reference; both give identical values,
// within one count of in / g at full scale.

#include <opencv2/core.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace norda::vision {

class GainTable {
public:
    static constexpr float kMinGain = 0.75f, kMaxGain = 1.5f;

    GainTable() = default;
    // `gain`: CV_32FC1, every value finite within [kMinGain, kMaxGain]; else a norda::Exception
    // naming `source` and the first pixel out of bounds.
    explicit GainTable(const cv::Mat& gain, const std::string& source = "gain table");

    // Throws a norda::Exception naming the file when it is missing, damaged or holds no gain table.
    static GainTable load(const std::string& file);
    void save(const std::string& file) const;

    bool empty() const { return m_gain.empty(); }
    cv::Size size() const { return m_gain.size(); }
    const cv::Mat& gain() const { return m_gain; }

    // Divides a CV_16SC1 frame of the table's size by the gains, in place; another frame throws.
    void apply(cv::Mat& frame) const;

private:
    cv::Mat m_gain;
    std::vector<int16_t> m_correction; // d per pixel, row-major
};

} // namespace norda::vision
