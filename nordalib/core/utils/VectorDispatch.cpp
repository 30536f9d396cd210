#include "nordalib/core/utils/VectorDispatch.h"

#include "nordalib/core/exception/Exception.h"

#include <hwy/highway.h>
#include <hwy/targets.h>

#include <algorithm>
#include <mutex>

namespace norda::utils {

std::atomic<bool> VectorDispatch::s_plain{false};

namespace {
struct Registry {
    std::mutex mutex;
    std::vector<std::pair<std::string, const char* (*)()>> kernels;
};

Registry& registry() {
    static Registry r;
    return r;
}

// Target bits compiled in (this file is built with the kernels' target set) and supported here,
// best first. Read once, before any forcing narrows what the processor reports.
const std::vector<int64_t>& availableBits() {
    static const std::vector<int64_t> bits = [] {
        std::vector<int64_t> b; // lower bits are better targets; the baseline comes last
        for (int64_t t = hwy::SupportedTargets() & HWY_TARGETS; t != 0; t &= t - 1)
            b.push_back(t & -t);
        return b;
    }();
    return bits;
}
} // namespace

std::vector<std::string> VectorDispatch::availableTargets() {
    std::vector<std::string> names;
    for (int64_t bit : availableBits())
        names.emplace_back(hwy::TargetName(bit));
    return names;
}

std::vector<VectorDispatch::KernelTarget> VectorDispatch::kernelTargets() {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    std::vector<KernelTarget> out;
    for (const auto& [kernel, target] : r.kernels)
        out.push_back({kernel, plain() ? "plain" : target()});
    std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.kernel < b.kernel; });
    return out;
}

std::string VectorDispatch::summary() {
    std::string s;
    for (const KernelTarget& k : kernelTargets())
        s += (s.empty() ? "" : ", ") + k.kernel + " " + k.target;
    return s;
}

void VectorDispatch::force(const std::string& target) {
    const std::vector<int64_t>& bits = availableBits();
    if (target.empty() || target == "plain") {
        hwy::SetSupportedTargetsForTest(0);
        s_plain.store(!target.empty(), std::memory_order_relaxed);
        return;
    }
    for (int64_t bit : bits)
        if (target == hwy::TargetName(bit)) {
            hwy::SetSupportedTargetsForTest(bit);
            s_plain.store(false, std::memory_order_relaxed);
            return;
        }
    std::string names;
    for (const std::string& n : availableTargets())
        names += n + ", ";
    NORDA_THROW("unknown vector target \"" + target + "\": this processor runs " + names + "plain",
                "norda::utils::VectorDispatch::force");
}

bool VectorDispatch::registerKernel(const char* kernel, const char* (*target)()) {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.kernels.emplace_back(kernel, target);
    return true;
}

} // namespace norda::utils
