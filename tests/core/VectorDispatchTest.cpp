// Every vector kernel against its plain loop, on every instruction set this processor runs.
#include "nordalib/core/utils/VectorDispatch.h"
#include "nordalib/vision/imgproc/ArgbBlend.h"
#include "nordalib/vision/imgproc/ColorConvert.h"
#include "nordalib/vision/imgproc/DistortionCorrection.h"
#include "nordalib/vision/imgproc/GainTable.h"
#include "nordalib/vision/imgproc/LookupTable16.h"
#include "nordalib/vision/imgproc/RemapBlend.h"
#include "nordalib/vision/imgproc/SpatialNoiseRemover.h"
#include "nordalib/vision/imgproc/StaticPatternRemover.h"
#include "nordalib/vision/imgproc/TemporalNoiseReduction.h"
#include "nordalib/vision/measurement/RowStatistics.h"
#include "nordalib/vision/overlay/OverlayBlend.h"
#include "tests/support/Messages.h"

#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <random>
#include <set>

using norda::utils::VectorDispatch;
using namespace norda::vision;

namespace {
using Outputs = std::vector<cv::Mat>;

cv::Mat randomMat(cv::Size size, int type, std::mt19937& rng, double lo, double hi) {
    cv::Mat m(size, type);
    cv::theRNG().state = rng();
    cv::randu(m, lo, hi);
    return m;
}

// Widths that fill whole vectors of every target and leave tails of every length.
const cv::Size kSizes[] = {{640, 24}, {37, 11}, {6, 3}};

Outputs colorConvert(std::mt19937& rng) {
    Outputs out;
    for (cv::Size size : kSizes) {
        const cv::Mat yuv = randomMat({2 * size.width, size.height}, CV_8UC2, rng, 0, 256); // pairs
        for (auto convert : {&ColorConvert::convertUY1VY0ToRGB, &ColorConvert::convertUY1VY0ToBGR,
                             &ColorConvert::convertUYVYToRGB}) {
            cv::Mat_<cv::Vec3b> rgb;
            convert(yuv, rgb);
            out.push_back(rgb);
        }
    }
    return out;
}

// Random tables with offsets across several rows and weights up to the full 65536, over pixels
// spanning the whole 16-bit range.
Outputs distortion(std::mt19937& rng) {
    Outputs out;
    for (cv::Size size : kSizes) {
        const int n = size.area();
        std::vector<DistortionEntry> entries(n);
        for (int i = 0; i < n; ++i) {
            const int sy = std::clamp(i / size.width + int(rng() % 9) - 4, 0, size.height - 2);
            const int sx = std::clamp(i % size.width + int(rng() % 9) - 4, 0, size.width - 2);
            uint32_t w[4], left = 65536;
            for (int k = 0; k < 3; ++k) {
                w[k] = std::min<uint32_t>(rng() % (left + 1), 65535);
                left -= w[k];
            }
            w[3] = std::min<uint32_t>(left, 65535);
            entries[i] = {static_cast<int16_t>(sy * size.width + sx - i), uint16_t(w[0]), uint16_t(w[1]),
                          uint16_t(w[2]), uint16_t(w[3])};
        }
        DistortionCorrection<> dc(DistortionTable(entries, uint16_t(size.height), uint16_t(size.width)));
        for (const cv::Mat& in :
             {randomMat(size, CV_16U, rng, 0, 65536), cv::Mat(size, CV_16U, cv::Scalar(65535))}) {
            cv::Mat o;
            dc.processImpl(in, o);
            out.push_back(o);
        }
    }
    return out;
}

// Frames mostly near the history (filtered) with jumps beyond 2 gain (followed), at both ends of
// each pixel type's range.
Outputs temporalNoise(std::mt19937& rng) {
    Outputs out;
    for (int type : {CV_16S, CV_16U}) {
        TemporalNoiseReduction<short> s16(40, 1843);
        TemporalNoiseReduction<unsigned short> u16(255, 2047);
        const double lo = type == CV_16S ? -32768 : 0, hi = lo + 65536;
        const cv::Mat base = randomMat(kSizes[0], type, rng, lo, hi);
        for (int frame = 0; frame < 4; ++frame) {
            const double jump = frame == 2 ? 3000 : 60;
            cv::Mat f, sum;
            cv::add(base, randomMat(base.size(), CV_32S, rng, -jump, jump), sum, cv::noArray(), CV_32S);
            sum.convertTo(f, type); // saturates at the type's ends
            type == CV_16S ? s16.process(f) : u16.process(f);
            out.push_back(f);
        }
    }
    return out;
}

Outputs spatialNoise(std::mt19937& rng) {
    Outputs out;
    for (int type : {CV_16S, CV_16U})
        for (int gain : {16, 3000})
            for (cv::Size size : kSizes) {
                const double lo = type == CV_16S ? -32768 : 0;
                SpatialNoiseRemover snr(gain);
                cv::Mat o;
                snr.process(randomMat(size, type, rng, lo, lo + 65536), o);
                out.push_back(o);
                snr.process(randomMat(size, type, rng, 1000, 1100), o); // smooth: every weight counts
                out.push_back(o);
            }
    return out;
}

// Stripes under noise, some pixels far off (left out as edges); several frames so the estimate
// feeds back into the correction.
Outputs staticPattern(std::mt19937& rng) {
    Outputs out;
    for (cv::Size size : {cv::Size(160, 120), cv::Size(37, 29)}) {
        StaticPatternRemover spr(40, 50, 8);
        cv::Mat stripes = randomMat({size.width, 1}, CV_16S, rng, -20, 20);
        for (int frame = 0; frame < 3; ++frame) {
            cv::Mat in = randomMat(size, CV_16S, rng, 900, 960) + cv::repeat(stripes, size.height, 1);
            in(cv::Rect(size.width / 3, 0, 3, size.height)) += 500;
            cv::Mat o;
            spr.process(in, o);
            out.push_back(o);
        }
        out.push_back(cv::Mat(spr.columnPattern(), true));
        out.push_back(cv::Mat(spr.rowPattern(), true));
    }
    return out;
}

// Rows around the vector widths and past the 65536-pixel chunks, the band limits inside the values.
Outputs rowStatistics(std::mt19937& rng) {
    cv::Mat_<double> results(0, 6);
    for (int width : {1, 7, 8, 17, 33, 100, 65536 + 37, 140000}) {
        const cv::Mat row = randomMat({width, 1}, CV_16U, rng, 0, 65536);
        const uint16_t* p = row.ptr<uint16_t>();
        uint16_t mn, mx;
        uint64_t sum, bandSum;
        uint32_t count;
        RowStatistics::minMaxSum(p, width, mn, mx, sum);
        RowStatistics::bandSum(p, width, 1000, 60000, bandSum, count);
        results.push_back(cv::Mat_<double>(
            {1, 6}, {double(width), double(mn), double(mx), double(sum), double(bandSum), double(count)}));
    }
    return {results};
}

Outputs argbBlend(std::mt19937& rng) {
    Outputs out;
    for (cv::Size size : kSizes) {
        cv::Mat over = randomMat(size, CV_8UC4, rng, 0, 256), under = randomMat(size, CV_8UC4, rng, 0, 256);
        over.col(0).setTo(cv::Scalar(255, 255, 255, 255)); // the ends of alpha
        over.col(1).setTo(cv::Scalar(0, 0, 0, 0));
        out.push_back(ArgbBlend::blend(over, under));
    }
    return out;
}

// Alpha at both ends and between, clear runs of every length; the canvas left clear or kept.
Outputs overlayBlend(std::mt19937& rng) {
    Outputs out;
    for (cv::Size size : kSizes)
        for (bool clear : {false, true}) {
            cv::Mat over = randomMat(size, CV_8UC4, rng, 0, 256), rgb = randomMat(size, CV_8UC3, rng, 0, 256);
            over.col(0).setTo(cv::Scalar(9, 9, 9, 255));
            for (int x = 1; x < size.width; x += 1 + x % 13)
                over(cv::Rect(x, 0, std::min(x % 37, size.width - x), size.height))
                    .setTo(cv::Scalar(9, 9, 9, 0));
            for (int y = 0; y < size.height; ++y)
                OverlayBlend::row(over.ptr(y), rgb.ptr(y), size.width, clear ? over.ptr(y) : nullptr);
            out.push_back(rgb);
            out.push_back(over);
        }
    return out;
}

// Every entry distinct, the last one read too.
// Gains over their whole range on frames over the whole signed range: the products round both
// ways and saturate at both ends.
Outputs gainTable(std::mt19937& rng) {
    Outputs out;
    for (cv::Size size : kSizes) {
        cv::Mat gain = randomMat(size, CV_32F, rng, GainTable::kMinGain, GainTable::kMaxGain);
        gain.at<float>(0, 0) = GainTable::kMinGain;
        cv::Mat frame = randomMat(size, CV_16S, rng, -32768, 32768);
        frame.at<int16_t>(0, 0) = 32767;
        GainTable(gain).apply(frame);
        out.push_back(frame);
    }
    return out;
}

Outputs lookupTable(std::mt19937& rng) {
    LookupTable16 table;
    for (int i = 0; i < 65536; ++i)
        table[uint16_t(i)] = uint16_t(rng());
    Outputs out;
    for (cv::Size size : kSizes)
        for (int type : {CV_16U, CV_16S}) {
            cv::Mat in =
                randomMat(size, type, rng, type == CV_16U ? 0 : -32768, type == CV_16U ? 65536 : 32768);
            in.at<uint16_t>(0, 0) = 65535;
            cv::Mat o;
            table.apply(in, o);
            out.push_back(o);
        }
    return out;
}

// Maps reaching past every edge, alpha at both ends and between.
Outputs remapBlend(std::mt19937& rng) {
    Outputs out;
    for (cv::Size size : kSizes)
        for (bool insideOnly : {false, true}) {
            const cv::Size source(size.width + 5, size.height + 3);
            const cv::Mat mapX = randomMat(size, CV_32F, rng, -2, source.width + 1);
            const cv::Mat mapY = randomMat(size, CV_32F, rng, -2, source.height + 1);
            RemapBlend blend(mapX, mapY, source, insideOnly);
            const cv::Mat src = randomMat(source, CV_8UC3, rng, 0, 256),
                          base = randomMat(size, CV_8UC3, rng, 0, 256);
            for (float alpha : {0.0f, 0.37f, 1.0f}) {
                cv::Mat o = base.clone();
                blend.apply(src, base, alpha, o);
                out.push_back(o);
            }
            cv::Mat luma;
            RemapBlend(mapX, mapY, source, false, RemapBlend::Source::UyvyLuma)
                .warpLuma(randomMat(source, CV_8UC2, rng, 0, 256), luma);
            out.push_back(luma);
        }
    return out;
}

struct Kernel {
    const char* name;
    std::function<Outputs(std::mt19937&)> run;
};
const Kernel kKernels[] = {{"ArgbBlend", argbBlend},
                           {"ColorConvert", colorConvert},
                           {"DistortionCorrection", distortion},
                           {"GainTable", gainTable},
                           {"LookupTable16", lookupTable},
                           {"OverlayBlend", overlayBlend},
                           {"RemapBlend", remapBlend},
                           {"RowStatistics", rowStatistics},
                           {"SpatialNoiseRemover", spatialNoise},
                           {"StaticPatternRemover", staticPattern},
                           {"TemporalNoiseReduction", temporalNoise}};

// Returns to the best target however a test ends.
struct Restore {
    ~Restore() { VectorDispatch::force(""); }
};
} // namespace

TEST(VectorDispatch, EveryKernelMatchesItsPlainLoopOnEveryTarget) {
    Restore restore;
    for (const Kernel& kernel : kKernels) {
        VectorDispatch::force("plain");
        std::mt19937 rng(7);
        const Outputs expected = kernel.run(rng);
        for (const std::string& target : VectorDispatch::availableTargets()) {
            VectorDispatch::force(target);
            rng.seed(7);
            const Outputs got = kernel.run(rng);
            ASSERT_EQ(got.size(), expected.size());
            for (size_t i = 0; i < got.size(); ++i) {
                SCOPED_TRACE(testing::Message() << kernel.name << " on " << target << ", output " << i);
                ASSERT_EQ(got[i].size(), expected[i].size());
                ASSERT_EQ(got[i].type(), expected[i].type());
                EXPECT_EQ(cv::norm(got[i], expected[i], cv::NORM_INF), 0.0);
            }
        }
    }
}

TEST(VectorDispatch, ReportsTheTargetEachKernelTakes) {
    Restore restore;
    const std::vector<std::string> available = VectorDispatch::availableTargets();
    ASSERT_FALSE(available.empty());
    std::cout << "vector targets: " << VectorDispatch::summary() << std::endl;
    std::set<std::string> names;
    for (const auto& k : VectorDispatch::kernelTargets()) {
        names.insert(k.kernel);
        EXPECT_EQ(k.target, available.front()) << k.kernel;
    }
    std::set<std::string> expected;
    for (const Kernel& k : kKernels)
        expected.insert(k.name);
    EXPECT_EQ(names, expected);

    for (const std::string& target : {available.back(), std::string("plain")}) {
        VectorDispatch::force(target);
        for (const auto& k : VectorDispatch::kernelTargets())
            EXPECT_EQ(k.target, target) << k.kernel;
    }
    EXPECT_EQ(norda::test::messageOf([] {
                  VectorDispatch::force("AVX9");
              }).rfind("unknown vector target \"AVX9\": this processor runs ", 0),
              0u);
}
