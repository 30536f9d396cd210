#pragma once
// LevenbergMarquardt: minimises the sum of squared residuals r(p) of a few parameters (non-linear
// least squares). The Jacobian is taken by central differences with a step relative to each
// parameter's typical size; the damped normal equations (JtJ + lambda diag(JtJ)) dp = -Jt r are
// solved with cv::solve (Cholesky, SVD when singular), so parameters of very different sizes need no
// rescaling by the caller.
//
// Convergence: a nearly undamped step that changes every parameter by less than `stepTolerance` relative to
// its size, or a relative decrease of the cost below `costTolerance`. Not converging within `maxIterations`
// is reported, not thrown: the caller knows what its parameters mean.

#include <functional>
#include <vector>

namespace norda::vision {

struct LevenbergMarquardtSettings {
    unsigned maxIterations = 500;
    double stepTolerance = 1e-9;
    double costTolerance = 1e-12;
};

class LevenbergMarquardt {
public:
    // Fills the residual vector for the parameters (always the same length).
    using Residuals = std::function<void(const std::vector<double>& p, std::vector<double>& r)>;

    struct Result {
        unsigned iterations = 0;
        bool converged = false;
        double cost = 0; // sum of squared residuals at the solution
    };

    explicit LevenbergMarquardt(LevenbergMarquardtSettings settings = {}) : m_settings(settings) {}

    // `p` holds the start on entry and the solution on return; `typical` the size of each parameter
    // (for the difference steps and the convergence test).
    Result minimize(const Residuals& residuals, std::vector<double>& p,
                    const std::vector<double>& typical) const;

private:
    LevenbergMarquardtSettings m_settings;
};

} // namespace norda::vision
