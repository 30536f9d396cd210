// Quality of the noise filters on synthetic sequences with known noise.
#include "nordalib/vision/imgproc/SpatialNoiseRemover.h"
#include "nordalib/vision/imgproc/StaticPatternRemover.h"
#include "nordalib/vision/imgproc/TemporalNoiseReduction.h"
#include "tests/vision/TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>

using namespace norda;
using namespace norda::vision;

namespace {
// A thermal-looking scene: smooth gradient plus, where asked, a vertical edge.
cv::Mat scene(int rows, int cols, int edgeAt = -1, int edgeHeight = 0) {
    cv::Mat s(rows, cols, CV_16S);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
            s.at<int16_t>(y, x) =
                static_cast<int16_t>(1000 + x + y / 2 + (edgeAt >= 0 && x >= edgeAt ? edgeHeight : 0));
    return s;
}

cv::Mat noisy(const cv::Mat& clean, double sigma, std::mt19937& rng) {
    std::normal_distribution<double> g(0.0, sigma);
    cv::Mat out(clean.size(), CV_16S);
    for (int y = 0; y < clean.rows; ++y)
        for (int x = 0; x < clean.cols; ++x)
            out.at<int16_t>(y, x) = static_cast<int16_t>(std::lround(clean.at<int16_t>(y, x) + g(rng)));
    return out;
}

double rmsDifference(const cv::Mat& a, const cv::Mat& b, cv::Rect roi) {
    cv::Mat d;
    cv::subtract(a(roi), b(roi), d, cv::noArray(), CV_64F);
    return std::sqrt(cv::mean(d.mul(d))[0]);
}

// RMS over columns of the column means of (frame - truth), after removing their common mean.
double columnPatternRms(const cv::Mat& frame, const cv::Mat& truth) {
    cv::Mat d, means;
    cv::subtract(frame, truth, d, cv::noArray(), CV_64F);
    cv::reduce(d, means, 0, cv::REDUCE_AVG, CV_64F);
    means -= cv::mean(means)[0];
    return std::sqrt(cv::mean(means.mul(means))[0]);
}

// Columns between the 10 % and 90 % points of a rising edge along the mean row profile.
double edgeWidth(const cv::Mat& frame, int from, int to) {
    cv::Mat profile;
    cv::reduce(frame, profile, 0, cv::REDUCE_AVG, CV_64F);
    const double lo = profile.at<double>(0, from), hi = profile.at<double>(0, to);
    double x10 = -1, x90 = -1;
    for (int x = from; x < to; ++x) {
        const double a = profile.at<double>(0, x), b = profile.at<double>(0, x + 1);
        for (auto [level, pos] :
             {std::pair{lo + 0.1 * (hi - lo), &x10}, std::pair{lo + 0.9 * (hi - lo), &x90}})
            if (*pos < 0 && a < level && b >= level)
                *pos = x + (level - a) / (b - a);
    }
    return x90 - x10;
}
} // namespace

TEST(TemporalNoiseReduction, LowersNoiseAndFollowsSteps) {
    std::mt19937 rng(1);
    const cv::Mat clean = scene(64, 80);
    TemporalNoiseReduction<short> tnr(16, 1843);
    const cv::Rect all(0, 0, 80, 64);
    double inNoise = 0, outNoise = 0;
    for (int i = 0; i < 40; ++i) {
        cv::Mat f = noisy(clean, 4.0, rng);
        const double before = rmsDifference(f, clean, all);
        tnr.process(f);
        if (i >= 20) {
            inNoise += before / 20;
            outNoise += rmsDifference(f, clean, all) / 20;
        }
    }
    EXPECT_GE(inNoise / outNoise, 2.0);
    // A step of 40 counts (beyond twice the gain) in the right half is followed at once, not smeared
    // over frames.
    cv::Mat stepped = clean.clone(), d;
    stepped(cv::Rect(40, 0, 40, 64)) += 40;
    cv::Mat f = noisy(stepped, 4.0, rng);
    tnr.process(f);
    cv::subtract(f(cv::Rect(40, 0, 40, 64)), clean(cv::Rect(40, 0, 40, 64)), d, cv::noArray(), CV_64F);
    EXPECT_GE(cv::mean(d)[0], 0.85 * 40.0);

    // Gain 0 passes frames unchanged; a feedback beyond 1 is limited and stays stable.
    tnr.setControlGain(0);
    f = noisy(clean, 4.0, rng);
    cv::Mat copy = f.clone();
    tnr.process(f);
    EXPECT_EQ(cv::norm(f, copy, cv::NORM_INF), 0.0);
    TemporalNoiseReduction<unsigned short> wild(255, 65535);
    for (int i = 0; i < 50; ++i) {
        cv::Mat g(8, 8, CV_16U, cv::Scalar(40000 + (i % 2 ? 100 : -100)));
        wild.process(g);
        EXPECT_NEAR(g.at<uint16_t>(0, 0), 40000, 100);
    }
}

TEST(StaticPatternRemover, RemovesStripesAndKeepsEdges) {
    std::mt19937 rng(2);
    const int rows = 240, cols = 320, frameLimit = 16;
    const cv::Mat clean = scene(rows, cols, 160, 200);
    std::normal_distribution<double> colPattern(0.0, 8.0), rowPattern(0.0, 4.0);
    cv::Mat pattern(rows, cols, CV_16S);
    std::vector<double> colOffset(cols), rowOffset(rows);
    for (auto& c : colOffset)
        c = std::clamp(colPattern(rng), -25.0, 25.0);
    for (auto& r : rowOffset)
        r = std::clamp(rowPattern(rng), -12.0, 12.0);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < cols; ++x)
            pattern.at<int16_t>(y, x) = static_cast<int16_t>(std::lround(colOffset[x] + rowOffset[y]));
    cv::Mat striped = clean + pattern;

    StaticPatternRemover spr(40, 50, frameLimit);
    cv::Mat out, in;
    for (int i = 0; i < frameLimit; ++i) {
        in = noisy(striped, 3.0, rng);
        spr.process(in, out);
    }
    const double before = columnPatternRms(in, clean);
    const double after = columnPatternRms(out, clean);
    cv::Mat inT, outT, cleanT;
    cv::transpose(in, inT);
    cv::transpose(out, outT);
    cv::transpose(clean, cleanT);
    EXPECT_GE(before / after, 5.0);
    EXPECT_GE(columnPatternRms(inT, cleanT) / columnPatternRms(outT, cleanT), 3.0);
    EXPECT_LE(edgeWidth(out, 150, 170), edgeWidth(clean, 150, 170) + 0.5); // the edge stays sharp

    // No stripes, only a warm block whose edges the lens blurs with a faint wide scatter (5 % of the
    // light over sigma 8 px): its shading is level enough to pass the threshold, yet it is no stripe.
    // After ten seconds of frames an area on the block is not shifted by more than 2 counts (0.05 K).
    cv::Mat step(rows, cols, CV_32F, cv::Scalar(1000)), core, wing, in32;
    step(cv::Rect(100, 60, 60, 90)).setTo(2300);
    cv::GaussianBlur(step, core, cv::Size(), 0.7);
    cv::GaussianBlur(step, wing, cv::Size(), 8.0);
    cv::addWeighted(core, 0.95, wing, 0.05, 0.0, in32);
    cv::Mat blurred;
    in32.convertTo(blurred, CV_16S);
    StaticPatternRemover shaded(40, 20, 32);
    for (int i = 0; i < 300; ++i)
        shaded.process(noisy(blurred, 2.0, rng), out);
    const auto columns = shaded.columnPattern(), lines = shaded.rowPattern();
    EXPECT_LE(std::abs(std::accumulate(columns.begin() + 100, columns.begin() + 160, 0.0) / 60), 2.0);
    EXPECT_LE(std::abs(std::accumulate(lines.begin() + 60, lines.begin() + 150, 0.0) / 90), 2.0);

    // The line limit bounds every correction; zero settings pass the frame through and forget.
    StaticPatternRemover limited(40, 2, 4);
    for (int i = 0; i < 8; ++i)
        limited.process(striped, out);
    for (float c : limited.columnPattern())
        EXPECT_LE(std::abs(c), 2.0f);
    // One frame moves the estimate by 6 / frameLimit of a column's offset.
    StaticPatternRemover learner(40, 50, 16);
    cv::Mat flat(64, 64, CV_16S, cv::Scalar(1000)), learnt;
    flat.col(30) += 20;
    learner.process(flat, learnt);
    EXPECT_NEAR(learner.columnPattern()[30], 20.0f * 6 / 16, 1.0f);
    spr.setFrameLimit(0);
    spr.process(striped, out);
    EXPECT_EQ(out.data, striped.data); // passed through without a copy
    EXPECT_TRUE(spr.columnPattern().empty());
    // Switched on again with `out` still sharing the input: a fresh output, the input untouched.
    const cv::Mat original = striped.clone();
    spr.setFrameLimit(4);
    spr.process(striped, out);
    EXPECT_EQ(cv::norm(original, striped, cv::NORM_INF), 0.0);
}

TEST(SpatialNoiseRemover, SmoothsNoiseNotEdges) {
    std::mt19937 rng(3);
    const cv::Mat clean = scene(120, 160, 80, 300);
    const cv::Mat in = noisy(clean, 5.0, rng);
    SpatialNoiseRemover snr(16);
    cv::Mat out;
    snr.process(in, out);
    const cv::Rect flat(10, 10, 60, 100);
    const double before = rmsDifference(in, clean, flat), after = rmsDifference(out, clean, flat);
    EXPECT_GE(before / after, 1.5);
    EXPECT_LE(edgeWidth(out, 70, 90), edgeWidth(in, 70, 90) + 1.0);
    EXPECT_NEAR(rmsDifference(out, clean, cv::Rect(75, 10, 10, 100)), 0.0, 5.0); // no overshoot at the edge

    // Against a plain floating-point reference of the same weights.
    cv::Mat small = noisy(scene(12, 14, 7, 60), 8.0, rng);
    cv::Mat fast;
    snr.process(small, fast);
    for (int y = 0; y < small.rows; ++y)
        for (int x = 0; x < small.cols; ++x) {
            const double c = small.at<int16_t>(y, x);
            double total = 1.0, acc = 0.0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) {
                    if (!dy && !dx)
                        continue;
                    const double d =
                        small.at<int16_t>(std::clamp(y + dy, 0, 11), std::clamp(x + dx, 0, 13)) - c;
                    const double a = std::abs(d);
                    const double w = std::min(std::max(32.0 - a, 0.0), 16.0) / 16.0;
                    total += w;
                    acc += w * d;
                }
            EXPECT_NEAR(fast.at<int16_t>(y, x), c + acc / total, 0.51) << x << "," << y;
        }

    snr.setGain(0);
    snr.process(in, out);
    EXPECT_EQ(cv::norm(out, in, cv::NORM_INF), 0.0);
}
