#include "apps/nordacam/sim/physics/Microbolometer.h"

#include "apps/nordacam/sim/physics/Planck.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <cmath>

namespace nordacam::sim::physics {

Microbolometer::Microbolometer(const DetectorParameters& p) : m_p(p), m_rng(p.seed) {
    if (p.width < 16 || p.height < 16 || p.width > 8192 || p.height > 8192)
        NORDA_THROW("detector: width and height must lie in 16..8192",
                    "nordacam::sim::physics::Microbolometer::Microbolometer");
    if (!(p.responsivity > 0.0) || p.deadPixels < 0 || p.stuckPixels < 0 ||
        p.deadPixels + p.stuckPixels > p.width * p.height / 4 || !(p.noise >= 0.0) || !(p.gainSpread >= 0.0))
        NORDA_THROW(
            "detector: responsivity must be positive, noise, spreads and bad-pixel counts not negative",
            "nordacam::sim::physics::Microbolometer::Microbolometer");
    buildPatterns();
}

void Microbolometer::buildPatterns() {
    const int w = m_p.width, h = m_p.height;
    cv::RNG rng(m_p.seed * 7919u + 1);
    m_offset.create(h, w);
    m_offsetPerFpa.create(h, w);
    m_gain.create(h, w);
    m_column.resize(w);
    m_columnDrift.resize(w);
    for (int c = 0; c < w; ++c) {
        m_column[c] = float(rng.gaussian(m_p.columnOffsetSpread));
        m_columnDrift[c] = float(rng.gaussian(m_p.columnDriftSpread));
    }
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c) {
            const double dx = (c - w / 2.0) / w, dy = (r - h / 2.0) / h;
            m_offset(r, c) = float(m_p.darkLevel + m_p.offsetBowl * 4.0 * (dx * dx + dy * dy) +
                                   rng.gaussian(m_p.offsetSpread));
            m_offsetPerFpa(r, c) = float(m_p.offsetPerFpaK + rng.gaussian(m_p.offsetPerFpaKSpread));
            m_gain(r, c) = float(1.0 + rng.gaussian(m_p.gainSpread));
        }
    auto pick = [&](int n, std::vector<cv::Point>& out) {
        while (int(out.size()) < n) {
            const int y = rng.uniform(2, h - 2); // own statement: argument order is unspecified
            const cv::Point p(rng.uniform(2, w - 2), y);
            if (std::find(m_dead.begin(), m_dead.end(), p) == m_dead.end() &&
                std::find(m_stuck.begin(), m_stuck.end(), p) == m_stuck.end())
                out.push_back(p);
        }
    };
    pick(m_p.deadPixels, m_dead);
    pick(m_p.stuckPixels, m_stuck);
    m_noiseBank.resize(size_t(w) * h * 4);
    cv::Mat_<float> bank(1, int(m_noiseBank.size()), m_noiseBank.data());
    rng.fill(bank, cv::RNG::NORMAL, 0.0, m_p.noise);
}

double Microbolometer::responsivity(double fpaC, int range) const {
    if (range < 1 || range >= int(m_p.rangeGain.size()))
        NORDA_THROW("detector: measurement range must be 1 or 2",
                    "nordacam::sim::physics::Microbolometer::responsivity");
    const double ratio = (m_p.referenceFpaC + Planck::kKelvin) / (fpaC + Planck::kKelvin);
    return m_p.rangeGain[size_t(range)] * m_p.responsivity * std::pow(ratio, m_p.responsivityExponent);
}

cv::Mat Microbolometer::read(const cv::Mat& radiance, double a, double b, const CameraTemperatures& t,
                             int range) {
    const int w = m_p.width, h = m_p.height;
    if (!radiance.empty() && (radiance.type() != CV_32FC1 || radiance.size() != cv::Size(w, h)))
        NORDA_THROW("detector: the radiance image must be CV_32FC1 of the sensor's size",
                    "nordacam::sim::physics::Microbolometer::read");
    const float r = float(responsivity(t.fpaC, range));
    const float ra = r * float(a), rb = r * float(b);
    const float nl = float(m_p.nonLinearity * 1e-4);
    const float fpaDelta = float(t.fpaC - m_p.referenceFpaC);
    const float boardDelta = float(t.boardC - m_p.referenceFpaC);
    const float boardOffset = float(m_p.offsetPerBoardK) * boardDelta;
    const size_t pixels = size_t(w) * h;
    const size_t start = size_t(m_rng.uniform(0, int(m_noiseBank.size() - pixels)));
    const float* noise = m_noiseBank.data() + start;
    cv::Mat_<uint16_t> raw(h, w);
    for (int y = 0; y < h; ++y) {
        const float* rad = radiance.empty() ? nullptr : radiance.ptr<float>(y);
        const float* off = m_offset[y];
        const float* offFpa = m_offsetPerFpa[y];
        const float* gain = m_gain[y];
        const float* nz = noise + size_t(y) * w;
        uint16_t* out = raw[y];
        for (int x = 0; x < w; ++x) {
            const float s = gain[x] * (rad ? ra * rad[x] + rb : rb);
            const float v = off[x] + offFpa[x] * fpaDelta + boardOffset + m_column[x] +
                            m_columnDrift[x] * boardDelta + s * (1.0f + nl * s) + nz[x];
            out[x] = uint16_t(std::clamp(v + 0.5f, 0.0f, float(kAdcMax)));
        }
    }
    for (const auto& p : m_dead)
        raw(p) = uint16_t(std::clamp(m_offset(p) + 0.5f, 0.0f, float(kAdcMax)));
    for (const auto& p : m_stuck)
        raw(p) = uint16_t(m_p.stuckValue);
    return raw;
}

} // namespace nordacam::sim::physics
