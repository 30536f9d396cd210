#pragma once
// Multi-frame super-resolution of radiometric images.
//
// A hand-held camera never holds still: consecutive frames of a static scene are shifted by
// fractions of a pixel against each other, so together they sample the scene more densely than
// one frame. The calculation
//   1. registers every frame to the first with sub-pixel accuracy (phase correlation, refined by
//      a few Gauss-Newton steps on the intensity difference), and rejects the set when a
//      registration is unreliable (weak correlation peak, large residual: the scene moved or
//      changed) or the motion exceeds what hand tremor produces;
//   2. fuses the frames onto a grid of twice the resolution: shift-and-add of the enlarged,
//      registered frames as a start, then iterative back-projection, which inverts the pixel
//      integration (a 2 x 2 box on the fine grid) and so acts as a light deconvolution.
// The result keeps the 16-bit temperature encoding of its input frames.

#include <opencv2/core.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace norda::vision {

class SuperResolution {
public:
    struct Settings {
        // Smallest accepted phase-correlation peak (0..1); unrelated images stay far below.
        double minResponse = 0.08;
        // Largest accepted shift of a frame against the first, in sensor pixels.
        double maxShift = 6.0;
        // Largest accepted residual after registration, relative to the scene's contrast (both
        // on slightly smoothed frames, so that noise does not count); a moving object or a
        // changed scene exceeds it.
        double maxResidual = 0.5;
        int iterations = 4; // back-projection steps: more sharpen edges into ringing
        double step = 1.0;  // back-projection gain
    };

    struct Registration {
        cv::Point2d shift;   // content of the frame = content of the first frame moved by `shift`
        double response = 0; // phase-correlation peak
        double residual = 0; // RMS difference after alignment / contrast of the first frame
    };

    struct Result {
        cv::Mat_<uint16_t> image;                // twice the size of the frames; empty on failure
        float quality = 0;                       // > 0: mean registration response; 0: rejected
        std::string failure;                     // why the set was rejected (empty on success)
        std::vector<Registration> registrations; // one per frame, the first is (0, 0)
    };

    // At least two frames of one size, CV_16UC1, each at least 16 x 16; otherwise throws
    // norda::Exception. A rejected set is not an error: quality 0 and `failure` say why.
    static Result compute(const std::vector<cv::Mat_<uint16_t>>& frames, const Settings& settings);
    static Result compute(const std::vector<cv::Mat_<uint16_t>>& frames) {
        return compute(frames, Settings{});
    }

    // Shift of `moving` against `reference` (both CV_32F of one size).
    static Registration registerFrame(const cv::Mat& reference, const cv::Mat& moving);
};

} // namespace norda::vision
