// The one-pass edges against a hand-worked step and against cv::Canny on a drawn scene.
#include "nordalib/vision/imgproc/GradientEdges.h"

#include "nordalib/core/exception/Exception.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

using norda::vision::GradientEdges;

TEST(GradientEdges, StepGivesOneLineAndSceneMatchesCanny) {
    // A vertical step 0 -> 100 smoothed over two pixels (columns 9, 10 at 25, 75): Sobel |gx| is
    // 4 x the difference across, 100, 300, 300, 100 on columns 8 to 11 and 0 elsewhere; the tie
    // goes to the right-hand column, so one line at x = 10.
    cv::Mat step(20, 20, CV_8UC1, cv::Scalar(0)), edges;
    step.col(9).setTo(25);
    step.col(10).setTo(75);
    step.colRange(11, 20).setTo(100);
    GradientEdges::detect(step, edges, 100);
    EXPECT_EQ(cv::countNonZero(edges), 18); // rows 1..18; the border rows have no gradient
    EXPECT_EQ(cv::countNonZero(edges.col(10)), 18);
    GradientEdges::detect(step.t(), edges, 100); // the same across rows
    EXPECT_EQ(cv::countNonZero(edges.row(10)), 18);
    GradientEdges::detect(step, edges, 301);
    EXPECT_EQ(cv::countNonZero(edges), 0);

    // A scene of smooth shapes: nearly every edge lies within a pixel of one of Canny's, and the
    // other way round.
    cv::Mat scene(240, 320, CV_8UC1, cv::Scalar(60)), canny;
    cv::circle(scene, {100, 120}, 50, cv::Scalar(200), cv::FILLED, cv::LINE_AA);
    cv::rectangle(scene, cv::Rect(180, 40, 100, 70), cv::Scalar(10), cv::FILLED);
    cv::line(scene, {170, 200}, {300, 150}, cv::Scalar(250), 5, cv::LINE_AA);
    cv::GaussianBlur(scene, scene, {5, 5}, 1.0);
    GradientEdges::detect(scene, edges, 120);
    cv::Canny(scene, canny, 60, 150);
    auto near = [](const cv::Mat& a, const cv::Mat& b) { // share of a's pixels within 1 px of b's
        cv::Mat grown;
        cv::dilate(b, grown, cv::Mat::ones(3, 3, CV_8U));
        return cv::countNonZero(a & grown) / double(cv::countNonZero(a));
    };
    ASSERT_GT(cv::countNonZero(canny), 500);
    EXPECT_GT(near(edges, canny), 0.95);
    EXPECT_GT(near(canny, edges), 0.9);
    EXPECT_THROW(GradientEdges::detect(cv::Mat(4, 4, CV_16UC1), edges, 1), norda::Exception);
}
