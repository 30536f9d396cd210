#include "nordalib/vision/calibration/RadiometryFit.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/calibration/CalibrationFile.h"
#include "nordalib/vision/calibration/LevenbergMarquardt.h"
#include "nordalib/vision/radiometry/BoardLag.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace norda::vision {

namespace {
constexpr const char* kFit = "norda::vision::RadiometryFit::fit";
constexpr double kCelsius = 273.15;

// Parameter vector: R1, B, F, boardDriftGain, then T0, responsivityExponent, boardSlopeGain,
// slowFrameGain, boardLagGain and boardEmissionGain when fitted, and the lag's time constant (its
// logarithm) and share, which are searched on a grid before they join the others.
struct Layout {
    bool shift = false;
    bool responsivity = false;
    bool slope = false;
    bool slow = false;
    bool lag = false;
    bool lagDynamics = false; // time constant and share in the vector, else in the fixed constants
    size_t shiftIndex() const { return 4; }
    size_t responsivityIndex() const { return 4 + shift; }
    size_t slopeIndex() const { return responsivityIndex() + responsivity; }
    size_t slowIndex() const { return slopeIndex() + slope; }
    size_t lagIndex() const { return slowIndex() + slow; }
    size_t size() const { return lagIndex() + 2 * lag + 2 * lagDynamics; }
};

RangeCalibration constantsOf(const std::vector<double>& p, const Layout& l, const RangeCalibration& fixed) {
    RangeCalibration c = fixed;
    c.planck.R1 = p[0];
    c.planck.R2 = 1.0;
    c.planck.B = p[1];
    c.planck.F = p[2];
    c.boardDriftGain = p[3];
    if (l.shift)
        c.planck.T0 = p[l.shiftIndex()];
    if (l.responsivity)
        c.responsivityExponent = p[l.responsivityIndex()];
    if (l.slope)
        c.boardSlopeGain = p[l.slopeIndex()];
    if (l.slow)
        c.slowFrameGain = p[l.slowIndex()];
    if (l.lag) {
        c.boardLagGain = p[l.lagIndex()];
        c.boardEmissionGain = p[l.lagIndex() + 1];
        if (l.lagDynamics) {
            c.boardLagTimeConstantS = std::exp(p[l.lagIndex() + 2]);
            c.boardLagShare = p[l.lagIndex() + 3];
        }
    }
    return c;
}

RadiometricConditions conditionsOf(const BlackbodyView& v, const RangeCalibration& c) {
    RadiometricConditions cond = v.conditions;
    cond.gain = v.slowFrame ? c.slowFrameGain : 1.0;
    if (v.boardLog) {
        cond.boardLagK = BoardLag::at(*v.boardLog, c.boardLagTimeConstantS, c.boardLagShare, v.uptimeS);
        cond.boardLagShutteringK =
            BoardLag::at(*v.boardLog, c.boardLagTimeConstantS, c.boardLagShare, v.shutterUptimeS);
    }
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
    std::set<const BoardLog*> logs;
    std::vector<double> warming, slope, blackbody;
    size_t slow = 0;
    for (const auto& m : views) {
        if (m.view->boardLog) {
            logs.insert(m.view->boardLog.get());
            if (m.view->boardLog->empty() || !(m.view->uptimeS >= m.view->shutterUptimeS) ||
                !(m.view->shutterUptimeS >= m.view->boardLog->front().first))
                NORDA_THROW("view " + m.view->name +
                                ": its board log is empty or its uptime lies before the shutter's closing "
                                "or the log's start",
                            kFit);
        }
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

    if (logs.size() == 1)
        NORDA_THROW(fmt::format("range {}: warm-up views of one run only; the board lag needs runs at two or "
                                "more ambient conditions",
                                range),
                    kFit);

    Layout layout;
    layout.shift = m_settings.fitTemperatureShift;
    layout.responsivity = m_settings.fitResponsivity;
    layout.lag = !logs.empty();
    layout.slope = spread(slope) > 1e-3;
    layout.slow = slow > 0;
    // The lag's estimate of each warm-up view, kept while its time constant and share stay.
    struct LagAt {
        double tau = 0, share = 0;
        RadiometricConditions conditions;
    };
    std::vector<LagAt> lagAt(views.size());
    auto residualsOf = [&](const Layout& l, const std::vector<const Measured*>& set) {
        return [&, l, set](const std::vector<double>& p, std::vector<double>& r) {
            const RangeCalibration c = constantsOf(p, l, fixed);
            r.resize(set.size());
            for (size_t i = 0; i < set.size(); ++i) {
                const auto& m = *set[i];
                auto& at = lagAt[size_t(set[i] - views.data())];
                if (at.tau != c.boardLagTimeConstantS || at.share != c.boardLagShare) {
                    at = {c.boardLagTimeConstantS, c.boardLagShare, conditionsOf(*m.view, c)};
                }
                RadiometricConditions cond = at.conditions;
                cond.gain = m.view->slowFrame ? c.slowFrameGain : 1.0;
                const double s = RadiometricTools::correctedSignal(c, cond, m.view->blackbodyK);
                r[i] = (s - m.signal) / m.noise;
            }
        };
    };
    // The gains enter the model linearly once the curve and the lag's dynamics are fixed: they come
    // from linear least squares over the views (the cost is returned).
    auto solveGains = [&](const LevenbergMarquardt::Residuals& residuals, std::vector<double>& p,
                          const std::vector<size_t>& linear) {
        std::vector<double> base;
        residuals(p, base);
        for (size_t k : linear)
            p[k] = 0.0;
        residuals(p, base);
        cv::Mat A(static_cast<int>(base.size()), static_cast<int>(linear.size()), CV_64F),
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
        const cv::Mat r = A * x - b;
        return r.dot(r);
    };
    auto typicalOf = [&](const Layout& l, const std::vector<double>& p) {
        std::vector<double> typical = {std::max(std::abs(p[0]), 1.0), m_settings.initialB, 1.0,
                                       std::max(std::abs(p[3]), 1.0)};
        typical.resize(l.size(), 1.0);
        if (l.shift)
            typical[l.shiftIndex()] = 10.0;
        return typical;
    };

    // Start: B and F from the settings; R1 and the gains by linear least squares. With warm-up views,
    // the curve comes first from the settled views alone; then the lag's time constant and share
    // from a coarse grid, the gains solved at each point.
    Layout settledLayout = layout;
    settledLayout.lag = false;
    std::vector<const Measured*> all, settled;
    for (const auto& m : views) {
        all.push_back(&m);
        if (!m.view->boardLog)
            settled.push_back(&m);
    }
    std::vector<double> p(settledLayout.size(), 0.0);
    p[1] = m_settings.initialB;
    p[2] = m_settings.initialF;
    if (layout.slow)
        p[layout.slowIndex()] = 1.0;
    std::vector<size_t> linear = {0, 3};
    if (layout.slope)
        linear.push_back(layout.slopeIndex());
    if (layout.lag) {
        if (settled.empty())
            NORDA_THROW(fmt::format("range {}: only warm-up views; settled views are needed as well", range),
                        kFit);
        const auto residuals = residualsOf(settledLayout, settled);
        solveGains(residuals, p, linear);
        if (!LevenbergMarquardt().minimize(residuals, p, typicalOf(settledLayout, p)).converged)
            NORDA_THROW(fmt::format("range {}: the fit of the settled views did not converge", range), kFit);
        p.resize(layout.size(), 0.0);
        // R1 stays: the emission and lag terms are Planck signals, so scaled by it as well.
        linear.erase(linear.begin());
        linear.push_back(layout.lagIndex());
        linear.push_back(layout.lagIndex() + 1);
        // Time constant and share: the best of a grid, the gains solved at each point; then a finer
        // grid around it.
        const auto warm = residualsOf(layout, all);
        double best = HUGE_VAL, bestTau = 0, bestShare = 0;
        auto search = [&](double tauLo, double tauHi, double tauStep, double shareLo, double shareHi,
                          double shareStep) {
            for (double tau = tauLo; tau <= tauHi * 1.0001; tau *= tauStep)
                for (double share = shareLo; share <= shareHi + 1e-9; share += shareStep) {
                    fixed.boardLagTimeConstantS = tau;
                    fixed.boardLagShare = share;
                    auto q = p;
                    if (const double cost = solveGains(warm, q, linear); cost < best)
                        best = cost, bestTau = tau, bestShare = share;
                }
        };
        search(10.0, 1000.0, 1.25, 0.3, 1.2, 0.1);
        if (!std::isfinite(best))
            NORDA_THROW(fmt::format("range {}: the warm-up views give no finite fit at any lag", range),
                        kFit);
        search(bestTau / 1.25, bestTau * 1.25, 1.02, bestShare - 0.1, bestShare + 0.1, 0.01);
        search(bestTau / 1.02, bestTau * 1.02, 1.004, bestShare - 0.01, bestShare + 0.01, 0.002);
        fixed.boardLagTimeConstantS = bestTau;
        fixed.boardLagShare = bestShare;
        solveGains(warm, p, linear);
        layout.lagDynamics = true;
        p.push_back(std::log(bestTau));
        p.push_back(bestShare);
    } else {
        solveGains(residualsOf(layout, all), p, linear);
    }
    const auto residuals = residualsOf(layout, all);
    const auto typical = typicalOf(layout, p);

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
    fit.lagFitted = layout.lag;
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
