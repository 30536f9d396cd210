#pragma once
// What the factory view writers (FactoryViews, WarmUpRuns) share: the view folder and its files
// (PXM recordings, views.json), the measurement ranges' calibrated bands and the lens's
// transmission as its data sheet states it.

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace nordacam::sim::physics {
class PhysicalCamera;
}

namespace nordacam::factory {

// A measurement range and its calibrated band (°C), as the camera's radiometry.json has them.
struct Band {
    unsigned range;
    double bottomC, topC;
};
// The bands of `ranges`, in their order; throws for a range the camera does not have.
std::vector<Band> bandsOf(const std::vector<unsigned>& ranges);

// `folder` created, with a trailing slash to append file names to.
std::string folderOf(const std::string& folder);
// Every frame into one PXM file (a recording, as CalibrationViews::frames reads it).
void writeFrames(const std::string& file, const std::vector<cv::Mat>& frames);
void writeJson(const std::string& file, const nlohmann::json& doc);

// The lens's band transmission, as its data sheet states it (at 30 °C).
double lensTransmission(const sim::physics::PhysicalCamera& camera);

} // namespace nordacam::factory
