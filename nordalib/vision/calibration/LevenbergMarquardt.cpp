#include "nordalib/vision/calibration/LevenbergMarquardt.h"

#include <opencv2/core.hpp>

#include <cmath>

namespace norda::vision {

namespace {
double sumOfSquares(const std::vector<double>& r) {
    double s = 0;
    for (double v : r)
        s += v * v;
    return s;
}
} // namespace

LevenbergMarquardt::Result LevenbergMarquardt::minimize(const Residuals& residuals, std::vector<double>& p,
                                                        const std::vector<double>& typical) const {
    const int n = static_cast<int>(p.size());
    std::vector<double> r, rPlus, rMinus, trial(p.size());
    residuals(p, r);
    const int m = static_cast<int>(r.size());
    Result result;
    result.cost = sumOfSquares(r);
    double lambda = 1e-3;
    cv::Mat J(m, n, CV_64F);
    while (result.iterations < m_settings.maxIterations) {
        ++result.iterations;
        for (int j = 0; j < n; ++j) {
            const double h = 1e-6 * std::max(std::abs(p[size_t(j)]), typical[size_t(j)]);
            auto q = p;
            q[size_t(j)] = p[size_t(j)] + h;
            residuals(q, rPlus);
            q[size_t(j)] = p[size_t(j)] - h;
            residuals(q, rMinus);
            for (int i = 0; i < m; ++i)
                J.at<double>(i, j) = (rPlus[size_t(i)] - rMinus[size_t(i)]) / (2.0 * h);
        }
        const cv::Mat rv(m, 1, CV_64F, r.data());
        const cv::Mat A = J.t() * J;
        const cv::Mat g = J.t() * rv;
        bool improved = false;
        while (!improved && lambda < 1e16) {
            cv::Mat damped = A.clone();
            for (int j = 0; j < n; ++j)
                damped.at<double>(j, j) += lambda * std::max(A.at<double>(j, j), 1e-300);
            cv::Mat step;
            if (!cv::solve(damped, -g, step, cv::DECOMP_CHOLESKY))
                cv::solve(damped, -g, step, cv::DECOMP_SVD);
            for (int j = 0; j < n; ++j)
                trial[size_t(j)] = p[size_t(j)] + step.at<double>(j);
            residuals(trial, rPlus);
            const double cost = sumOfSquares(rPlus);
            if (std::isfinite(cost) && cost < result.cost) {
                improved = true;
                bool small = true;
                for (int j = 0; j < n; ++j)
                    small = small && std::abs(step.at<double>(j)) <=
                                         m_settings.stepTolerance *
                                             std::max(std::abs(p[size_t(j)]), typical[size_t(j)]);
                const bool flat = result.cost - cost <= m_settings.costTolerance * result.cost;
                // A heavily damped step is short whatever the distance to the minimum: only a nearly
                // Gauss-Newton step tells that the parameters have settled.
                const bool settled = (small || flat) && lambda <= 1e-2;
                p = trial;
                r = rPlus;
                result.cost = cost;
                lambda = std::max(lambda / 10.0, 1e-12);
                if (settled) {
                    result.converged = true;
                    return result;
                }
            } else {
                lambda *= 10.0;
            }
        }
        if (!improved) { // no step downhill at any damping: p is the minimum to working precision
            result.converged = true;
            return result;
        }
    }
    return result;
}

} // namespace norda::vision
