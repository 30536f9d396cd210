#pragma once
// MeasurementMarks: the marks of measurement results on an overlay canvas: spot markers (hot,
// cold, centre, laser, user and delta-T points) with their values, measurement areas with their
// hot/cold/mean values, and the delta-T line. Positions are canvas pixels; labels keep inside the
// canvas, clear of its right eighth (the colour scale), on the side of the marker that has room
// and, given the boxes already taken (`taken`, extended by each call), off other labels and marks.
// Each returns the box its label covers.

#include "nordalib/vision/overlay/OverlayText.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace norda::vision {

enum class SpotKind { Hot, Cold, Centre, Laser, User, DeltaT };

class MeasurementMarks {
public:
    // The marker's colour (canvas order B, G, R, A).
    static cv::Scalar colourOf(SpotKind kind);
    // A marker at `at`; the label ("1", "HS"; may be empty) and the value, and beneath them `note`
    // (local parameters, for instance) when not empty.
    static cv::Rect drawSpot(cv::Mat& canvas, cv::Point at, SpotKind kind, const std::string& label,
                             const OverlayValue& value, const std::string& note, double textScale,
                             std::vector<cv::Rect>* taken = nullptr);
    // An area's frame with its label and mean and the hot and cold marks inside it.
    static cv::Rect drawArea(cv::Mat& canvas, const cv::Rect& rect, const std::string& label,
                             const OverlayValue& mean, cv::Point hot, const OverlayValue& hotValue,
                             cv::Point cold, const OverlayValue& coldValue, const std::string& note,
                             double textScale, std::vector<cv::Rect>* taken = nullptr);
    // A dashed line between two points with the difference at its middle.
    static cv::Rect drawDeltaT(cv::Mat& canvas, cv::Point from, cv::Point to, const std::string& text,
                               double textScale, std::vector<cv::Rect>* taken = nullptr);
};

} // namespace norda::vision
