#include "nordalib/vision/imgproc/ConnectedComponent.h"

#include "tests/support/Messages.h"

#include <gtest/gtest.h>
#include <map>
#include <opencv2/imgproc.hpp>

using norda::vision::ConnectedComponent;

namespace {

// Masks of several kinds: smooth blobs, noise, a sparse mask with a few dots, stripes that join
// only diagonally.
std::vector<cv::Mat> masks() {
    cv::RNG rng(7);
    std::vector<cv::Mat> out;
    cv::Mat noise(97, 131, CV_8UC1);
    rng.fill(noise, cv::RNG::UNIFORM, 0, 2);
    out.push_back(noise * 200);
    cv::Mat smooth(120, 160, CV_32FC1);
    rng.fill(smooth, cv::RNG::NORMAL, 0, 1);
    cv::GaussianBlur(smooth, smooth, {0, 0}, 3);
    out.push_back(smooth > 0.1);
    cv::Mat sparse = cv::Mat::zeros(80, 203, CV_8UC1);
    for (int i = 0; i < 12; ++i)
        cv::circle(sparse, {rng.uniform(0, 203), rng.uniform(0, 80)}, rng.uniform(0, 4), cv::Scalar(255), -1);
    out.push_back(sparse);
    cv::Mat diagonal = cv::Mat::zeros(16, 16, CV_8UC1);
    for (int i = 0; i < 16; ++i)
        diagonal.at<uchar>(i, i) = diagonal.at<uchar>(i, 15 - i) = 9;
    out.push_back(diagonal);
    return out;
}

} // namespace

TEST(ConnectedComponent, MatchesOpenCvAndMeasuresValues) {
    for (int connectivity : {8, 4}) {
        int mask = 0;
        for (const cv::Mat& m : masks()) {
            SCOPED_TRACE("connectivity " + std::to_string(connectivity) + ", mask " + std::to_string(mask++));
            cv::Mat cvLabels, stats, centroids;
            const int n =
                cv::connectedComponentsWithStats(m, cvLabels, stats, centroids, connectivity, CV_32S);
            // The values carry a strength: weight each pixel by its column.
            cv::Mat values(m.size(), CV_16UC1);
            for (int y = 0; y < m.rows; ++y)
                for (int x = 0; x < m.cols; ++x)
                    values.at<uint16_t>(y, x) = m.at<uchar>(y, x) ? uint16_t(x + 1) : 0;
            ConnectedComponent<uint16_t> cc(connectivity);
            cv::Mat labels;
            const auto& comps = cc.compute(values, &labels);
            ASSERT_EQ(int(comps.size()), n - 1);
            // The same partition (OpenCV numbers in the order of its two-row blocks, this in raster
            // order): each label corresponds to exactly one of OpenCV's.
            std::map<int, int> toCv;
            for (int y = 0; y < m.rows; ++y)
                for (int x = 0; x < m.cols; ++x)
                    if (int a = labels.at<int>(y, x); a) {
                        const int b = cvLabels.at<int>(y, x);
                        ASSERT_EQ(toCv.emplace(a, b).first->second, b);
                    } else {
                        ASSERT_EQ(cvLabels.at<int>(y, x), 0);
                    }
            ASSERT_EQ(int(toCv.size()), n - 1);
            for (const auto& c : comps) {
                const int l = toCv.at(c.label);
                EXPECT_EQ(c.area, stats.at<int>(l, cv::CC_STAT_AREA));
                EXPECT_EQ(c.box, cv::Rect(stats.at<int>(l, 0), stats.at<int>(l, 1), stats.at<int>(l, 2),
                                          stats.at<int>(l, 3)));
                EXPECT_NEAR(c.centroid.x, centroids.at<double>(l, 0), 1e-9);
                EXPECT_NEAR(c.centroid.y, centroids.at<double>(l, 1), 1e-9);
                // Plain reference for the value statistics.
                double sum = 0, sx = 0, mn = 1e9, mx = -1;
                for (int y = 0; y < m.rows; ++y)
                    for (int x = 0; x < m.cols; ++x)
                        if (labels.at<int>(y, x) == c.label) {
                            const double v = values.at<uint16_t>(y, x);
                            sum += v, sx += v * x, mn = std::min(mn, v), mx = std::max(mx, v);
                        }
                EXPECT_DOUBLE_EQ(c.sum, sum);
                EXPECT_DOUBLE_EQ(c.min, mn);
                EXPECT_DOUBLE_EQ(c.max, mx);
                EXPECT_NEAR(c.weightedCentroid.x, sx / sum, 1e-9);
            }
        }
    }
    // A threshold: only values above it are foreground.
    cv::Mat ramp(1, 10, CV_8UC1);
    for (int x = 0; x < 10; ++x)
        ramp.at<uchar>(0, x) = uchar(x);
    ConnectedComponent<uint8_t> above5(8, 5);
    ASSERT_EQ(above5.compute(ramp).size(), 1u);
    EXPECT_EQ(above5.components()[0].box, cv::Rect(6, 0, 4, 1));
    EXPECT_EQ(norda::test::messageOf([] { ConnectedComponent<float> bad(6); }),
              "connectivity must be 4 or 8, not 6");
    EXPECT_EQ(norda::test::messageOf([&] { above5.compute(cv::Mat(2, 2, CV_16UC1)); }),
              "image of type CV_16UC1, expected CV_8UC1");
}
