#pragma once
// The factory's view folder and its files (PXM recordings, views.json), as FactoryViews and
// WarmUpRuns write them.

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace nordacam::factory {

// `folder` created, with a trailing slash to append file names to.
std::string folderOf(const std::string& folder);
// Every frame into one PXM file (a recording, as CalibrationViews::frames reads it).
void writeFrames(const std::string& file, const std::vector<cv::Mat>& frames);
void writeJson(const std::string& file, const nlohmann::json& doc);

} // namespace nordacam::factory
