#include "nordalib/vision/calibration/RadiometryFit.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/calibration/CalibrationFile.h"
#include "nordalib/vision/calibration/LevenbergMarquardt.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace norda::vision {

namespace {
constexpr const char* kFit = "norda::vision::RadiometryFit::fit";
constexpr double kCelsius = 273.15;

// Parameter vector: R1, B, F, boardDriftGain, then responsivityExponent, boardSlopeGain and
// slowFrameGain when fitted.
struct Layout {
    bool responsivity = false;
    bool slope = false;
    bool slow = false;
    size_t size() const { return 4 + responsivity + slope + slow; }
    size_t responsivityIndex() const { return 4; }
    size_t slopeIndex() const { return 4 + responsivity; }
    size_t slowIndex() const { return 4 + responsivity + slope; }
};

RangeCalibration constantsOf(const std::vector<double>& p, const Layout& l, const RangeCalibration& fixed) {
    RangeCalibration c = fixed;
    c.planck.R1 = p[0];
    c.planck.R2 = 1.0;
    c.planck.B = p[1];
    c.planck.F = p[2];
    c.boardDriftGain = p[3];
    if (l.responsivity)
        c.responsivityExponent = p[l.responsivityIndex()];
    if (l.slope)
        c.boardSlopeGain = p[l.slopeIndex()];
    if (l.slow)
        c.slowFrameGain = p[l.slowIndex()];
    return c;
}

RadiometricConditions conditionsOf(const BlackbodyView& v, const RangeCalibration& c) {
    RadiometricConditions cond = v.conditions;
    cond.gain = v.slowFrame ? c.slowFrameGain : 1.0;
    return cond;
}

double spread(const std::vector<double>& v) {
    const auto [lo, hi] = std::minmax_element(v.begin(), v.end());
    return *hi - *lo;
}
} // namespace

RadiometryFit::Measured RadiometryFit::measure(const BlackbodyView& view) const {
    if (!(view.blackbodyK > 0.0) || !std::isfinite(view.blackbodyK))
        NORDA_THROW("view " + view.name + ": blackbody temperature " + std::to_string(view.blackbodyK) +
                        " K is not a temperature",
                    kFit);
    Measured m{&view, view.signal, view.noise};
    if (!view.frames.empty()) {
        const FrameStack stack(view.frames, view.name, view.region, m_settings.frames);
        m.signal = stack.regionMean();
        m.noise = stack.regionNoise();
        if (view.frames.front().type() == CV_16UC1) {
            if (view.shutter.type() != CV_16UC1 || view.shutter.size() != view.frames.front().size())
                NORDA_THROW("view " + view.name + ": raw frames need the raw shutter frame of their size",
                            kFit);
            const FrameStack shutter({view.shutter}, view.name + " (shutter frame)", view.region,
                                     m_settings.frames);
            m.signal -= shutter.regionMean();
            // One shutter frame carries the temporal noise of one frame: n times that of the mean.
            m.noise *= std::sqrt(1.0 + double(view.frames.size()));
        }
    } else if (!std::isfinite(view.signal)) {
        NORDA_THROW("view " + view.name + " has neither frames nor a signal", kFit);
    }
    if (!std::isfinite(m.noise) || m.noise < m_settings.noiseFloorCounts)
        m.noise = m_settings.noiseFloorCounts;
    return m;
}

std::map<unsigned, RangeFit> RadiometryFit::fit(const std::vector<BlackbodyView>& views) const {
    std::map<unsigned, std::vector<Measured>> byRange;
    for (const auto& v : views)
        byRange[v.range].push_back(measure(v));
    if (byRange.empty())
        NORDA_THROW("no blackbody views", kFit);
    std::map<unsigned, RangeFit> fits;
    for (const auto& [range, measured] : byRange) {
        fits[range] = fitRange(range, measured);
        if (m_settings.progress) {
            const auto& f = fits[range];
            m_settings.progress(
                fmt::format("range {}: {} views, {} iterations, residual rms {:.3f} K, max {:.3f} K", range,
                            f.views.size(), f.iterations, f.rmsK, f.maxK));
        }
    }
    return fits;
}

RangeFit RadiometryFit::fitRange(unsigned range, const std::vector<Measured>& views) const {
    std::set<long> temperatures, boards;
    std::vector<double> warming, slope, blackbody;
    size_t slow = 0;
    for (const auto& m : views) {
        temperatures.insert(std::lround(m.view->blackbodyK * 2.0));
        boards.insert(std::lround(m.view->conditions.boardCurrentK * 2.0));
        warming.push_back(m.view->conditions.boardCurrentK - m.view->conditions.boardShutteringK);
        slope.push_back(m.view->conditions.boardSlope);
        blackbody.push_back(m.view->blackbodyK);
        slow += m.view->slowFrame;
    }
    if (temperatures.size() < m_settings.minTemperatures)
        NORDA_THROW(fmt::format("range {}: views at {} blackbody temperatures, at least {} needed", range,
                                temperatures.size(), m_settings.minTemperatures),
                    kFit);
    if (boards.size() < m_settings.minBoardTemperatures)
        NORDA_THROW(fmt::format("range {}: views at {} board temperatures, at least {} needed", range,
                                boards.size(), m_settings.minBoardTemperatures),
                    kFit);
    if (spread(warming) < m_settings.minBoardWarmingSpreadK)
        NORDA_THROW(
            fmt::format("range {}: the board warmed by the same amount since the shutter closed in every "
                        "view (spread {:.2f} K); the drift gain needs views at several warmings",
                        range, spread(warming)),
            kFit);
    if (slow == views.size())
        NORDA_THROW(fmt::format("range {}: every view is in slow-frame mode; the constants are those of the "
                                "normal mode",
                                range),
                    kFit);

    RangeCalibration fixed;
    fixed.planck.O = m_settings.offsetO;
    fixed.responsivityReferenceK = m_settings.responsivityReferenceK;
    const double spanLow = *std::min_element(blackbody.begin(), blackbody.end());
    const double spanHigh = *std::max_element(blackbody.begin(), blackbody.end());
    fixed.bandBottomK = spanLow;
    fixed.bandTopK = spanHigh;
    if (auto b = m_settings.bands.find(range); b != m_settings.bands.end()) {
        constexpr double kReach = 5.0; // kelvin the curve may be extrapolated beyond the views
        if (b->second.first < spanLow - kReach || b->second.second > spanHigh + kReach)
            NORDA_THROW(
                fmt::format("range {}: the views span {:.1f}..{:.1f} °C, the band {:.1f}..{:.1f} °C; the "
                            "curve would be extrapolated beyond the views",
                            range, spanLow - kCelsius, spanHigh - kCelsius, b->second.first - kCelsius,
                            b->second.second - kCelsius),
                kFit);
        fixed.bandBottomK = b->second.first;
        fixed.bandTopK = b->second.second;
    }

    Layout layout;
    layout.responsivity = m_settings.fitResponsivity;
    layout.slope = spread(slope) > 1e-3;
    layout.slow = slow > 0;
    auto residuals = [&](const std::vector<double>& p, std::vector<double>& r) {
        const RangeCalibration c = constantsOf(p, layout, fixed);
        r.resize(views.size());
        for (size_t i = 0; i < views.size(); ++i) {
            const auto& m = views[i];
            const double s =
                RadiometricTools::correctedSignal(c, conditionsOf(*m.view, c), m.view->blackbodyK);
            r[i] = (s - m.signal) / m.noise;
        }
    };

    // Start: B and F from the settings; R1 and the gains, in which the model is linear once B and
    // F are fixed, by linear least squares.
    std::vector<double> p(layout.size(), 0.0);
    p[1] = m_settings.initialB;
    p[2] = m_settings.initialF;
    if (layout.slow)
        p[layout.slowIndex()] = 1.0;
    {
        std::vector<size_t> linear = {0, 3};
        if (layout.slope)
            linear.push_back(layout.slopeIndex());
        std::vector<double> base;
        residuals(p, base);
        cv::Mat A(static_cast<int>(views.size()), static_cast<int>(linear.size()), CV_64F),
            b(A.rows, 1, CV_64F);
        for (size_t k = 0; k < linear.size(); ++k) {
            auto q = p;
            q[linear[k]] = 1.0;
            std::vector<double> r;
            residuals(q, r);
            for (int i = 0; i < A.rows; ++i)
                A.at<double>(i, int(k)) = r[size_t(i)] - base[size_t(i)];
        }
        for (int i = 0; i < A.rows; ++i)
            b.at<double>(i) = -base[size_t(i)];
        cv::Mat x;
        cv::solve(A, b, x, cv::DECOMP_SVD);
        for (size_t k = 0; k < linear.size(); ++k)
            p[linear[k]] = x.at<double>(int(k));
    }
    std::vector<double> typical = {std::max(std::abs(p[0]), 1.0), m_settings.initialB, 1.0,
                                   std::max(std::abs(p[3]), 1.0)};
    typical.resize(layout.size(), 1.0);

    const auto solved = LevenbergMarquardt().minimize(residuals, p, typical);
    if (!solved.converged)
        NORDA_THROW(
            fmt::format("range {}: the fit did not converge in {} iterations", range, solved.iterations),
            kFit);
    RangeFit fit;
    fit.constants = constantsOf(p, layout, fixed);
    fit.iterations = solved.iterations;
    fit.responsivityFitted = layout.responsivity;
    fit.slopeGainFitted = layout.slope;
    fit.slowFrameGainFitted = layout.slow;
    RadiometricCalibration::check(fit.constants, "fit", fmt::format("range {}", range));

    double worst = 0, sum = 0;
    const ViewResidual* worstView = nullptr;
    double worstLimit = 0;
    fit.views.reserve(views.size());
    for (const auto& m : views) {
        const auto cond = conditionsOf(*m.view, fit.constants);
        ViewResidual v;
        v.name = m.view->name;
        v.blackbodyK = m.view->blackbodyK;
        v.signal = m.signal;
        v.residualK = RadiometricTools::objectTemperature(fit.constants, cond, m.signal) - v.blackbodyK;
        v.noiseK = m.noise * std::abs(RadiometricTools::temperatureStep(fit.constants, cond, v.blackbodyK));
        fit.views.push_back(v);
        const double limit = std::max(m_settings.residualSigmas * v.noiseK, m_settings.minResidualLimitK);
        const double ratio = std::isfinite(v.residualK) ? std::abs(v.residualK) / limit : HUGE_VAL;
        if (ratio > worst) {
            worst = ratio;
            worstView = &fit.views.back();
            worstLimit = limit;
        }
        sum += v.residualK * v.residualK;
        fit.maxK = std::max(fit.maxK, std::abs(v.residualK));
    }
    fit.rmsK = std::sqrt(sum / double(views.size()));
    if (worst > 1.0)
        NORDA_THROW(
            fmt::format("range {}: view {} ({:.2f} °C) is {:.3f} K off the fitted curve, more than the "
                        "{:.3f} K its noise allows; the views do not fit one camera model (a wrong "
                        "temperature or range, a blackbody not settled?)",
                        range, worstView->name, worstView->blackbodyK - kCelsius, worstView->residualK,
                        worstLimit),
            kFit);
    return fit;
}

RadiometricCalibration RadiometryFit::calibration(const std::map<unsigned, RangeFit>& fits,
                                                  const std::map<unsigned, LensCalibration>& lenses) {
    RadiometricCalibration c;
    for (const auto& [range, f] : fits)
        c.ranges[range] = f.constants;
    c.lenses = lenses;
    return c;
}

void RadiometryFit::write(const RadiometricCalibration& calibration, const std::string& file) {
    CalibrationFile::replace(
        file, [&](const std::string& temp) { calibration.save(temp); },
        [](const std::string& temp) { (void)RadiometricCalibration::load(temp); });
}

} // namespace norda::vision
