#pragma once
// The microbolometer array and its read-out. Each pixel's signal is proportional to the net
// in-band radiance it absorbs (what reaches it through the lens's cone and from the housing around
// it, less what it radiates itself at the focal-plane temperature), with a responsivity that
// falls as the focal plane warms, a per-pixel gain spread and a mild compressive non-linearity,
// on top of a dark level that has a per-pixel spread, column stripes and drifts with the focal
// plane's and the board's temperatures; then temporal noise, a 14-bit converter, dead pixels (no
// response: the dark level) and stuck pixels (a fixed value).
//
//   s   = g_px * G_range * R0 (T_ref / T_fpa)^n * Phi
//   raw = O_px + o_px (T_fpa - T_ref) + o_b (T_board - T_ref) + c_col + d_col (T_board - T_ref)
//         + s (1 + nl s / 10^4) + noise

#include "apps/nordacam/sim/physics/CameraThermal.h"
#include "apps/nordacam/sim/physics/Parameters.h"

#include <opencv2/core.hpp>

#include <vector>

namespace nordacam::sim::physics {

class Microbolometer {
public:
    explicit Microbolometer(const DetectorParameters& p = {});

    // Raw frame (CV_16UC1) for net absorbed radiance Phi = a * radiance + b at each pixel
    // (radiance CV_32F of the sensor's size; empty: Phi = b everywhere).
    cv::Mat read(const cv::Mat& radiance, double a, double b, const CameraTemperatures& t, int range);
    // Counts per W m^-2 sr^-1 of net radiance for the mean pixel (before the non-linearity).
    double responsivity(double fpaC, int range) const;

    const std::vector<cv::Point>& deadPixels() const { return m_dead; }
    const std::vector<cv::Point>& stuckPixels() const { return m_stuck; }
    // Each pixel's responsivity relative to the mean pixel's (the truth a gain table is fitted to).
    const cv::Mat_<float>& gains() const { return m_gain; }
    const DetectorParameters& parameters() const { return m_p; }
    static constexpr int kAdcMax = 16383;

private:
    void buildPatterns();

    DetectorParameters m_p;
    cv::Mat_<float> m_offset, m_offsetPerFpa, m_gain;
    std::vector<float> m_column, m_columnDrift;
    std::vector<cv::Point> m_dead, m_stuck;
    std::vector<float> m_noiseBank; // independent samples read from a random start each frame
    cv::RNG m_rng;
};

} // namespace nordacam::sim::physics
