#pragma once
// VectorDispatch: which instruction set the vector kernels run on.
//
// Each vector kernel is written once with Highway and compiled for every target of the
// architecture (x86-64: SSE4, AVX2, AVX-512 as "AVX3"; 64-bit ARM: NEON, SVE, SVE2) beside a scalar
// baseline; every call takes the best target the processor has, chosen at run time by a plain
// function-table lookup (no load-time resolver, so thread-checked and fuzzing builds see the same
// code). Each kernel also keeps its plain loop: the reference it is tested against, and what runs
// on the scalar baseline and for the tails of rows (run() joins the two).
//
// Kernels register under their class's name and report the target their own dispatch table
// takes, so a host can show what runs on the processor at hand (`nordacam targets`).

#include <atomic>
#include <string>
#include <vector>

namespace norda::utils {

class VectorDispatch {
public:
    struct KernelTarget {
        std::string kernel; // "ColorConvert", "DistortionCorrection", ...
        std::string target; // "AVX3", "AVX2", "SSE4", "NEON", "SVE2", "SCALAR", or "plain" when forced
    };

    // The targets compiled in that this processor runs, best first, down to the baseline every
    // processor of the architecture runs ("SCALAR" on x86-64, "NEON" on 64-bit ARM).
    static std::vector<std::string> availableTargets();
    // Every registered kernel (sorted by name) with the target its dispatcher takes now.
    static std::vector<KernelTarget> kernelTargets();
    // One line for logs and `nordacam targets`: "ColorConvert AVX2, DistortionCorrection AVX2, ...".
    static std::string summary();

    // Restricts every kernel to `target` (one of availableTargets()), or to the plain reference
    // loops with "plain"; "" returns to the best target. For tests and diagnosis: switching while
    // kernels run on other threads is safe, but which target a running call takes is then open.
    // Throws norda::Exception naming the available targets for any other name.
    static void force(const std::string& target);

    // Asked by the kernels before dispatching: true while the plain loops are forced.
    static bool plain() { return s_plain.load(std::memory_order_relaxed); }

    // One row (or run) of a kernel: `vector()` does a leading part of it on the best target and
    // returns how many elements it did; `rest(first)` does the others from element `first` on with
    // the plain loop. While the plain loops are forced, vector() is not called and rest(0) does all.
    template <typename Vector, typename Rest> static void run(Vector&& vector, Rest&& rest) {
        rest(plain() ? size_t{0} : static_cast<size_t>(vector()));
    }

    // Called once per kernel at load time by a static initialiser in the kernel's source file;
    // `target` reports the target the kernel's dispatch table takes now.
    static bool registerKernel(const char* kernel, const char* (*target)());

private:
    static std::atomic<bool> s_plain;
};

} // namespace norda::utils
