#pragma once
// nordacam analyze: the temperature of chosen spots and areas over time, from a raw recording (run
// through the camera's own chain, unpaced) or from a series of saved images, measured with the
// library's measurement code. Writes NAME.csv (time, each tool's value and validity) and NAME.png
// (temperature over time).

#include <opencv2/core.hpp>

#include <ostream>
#include <string>
#include <vector>

namespace nordacam {

struct AnalyzeOptions {
    std::vector<std::string> inputs; // one raw recording (.pxm), or saved images (.RIX)
    std::vector<cv::Point> points;
    std::vector<cv::Rect> areas;
    std::string out; // NAME: NAME.csv and NAME.png
    std::string calibrationDir;
};

// One column a tool: the image's hot spot, each point, each area's mean and maximum.
struct TrendSeries {
    std::vector<std::string> tools;
    std::vector<double> time;              // seconds since the first sample
    std::vector<std::string> source;       // file name, or frame number in the recording
    std::vector<std::vector<float>> value; // [sample][tool], °C
    std::vector<std::vector<unsigned>> mark;
    std::vector<std::string> error; // a sample that could not be measured (its values NaN)
};

// Throws SettingsError naming the file or argument at bad input (nothing written then); a damaged
// saved image in a series becomes a sample with its error and the rest is measured.
TrendSeries analyzeSeries(const AnalyzeOptions& options);
void writeTrendCsv(const TrendSeries& series, const std::string& file);
int analyze(const AnalyzeOptions& options, std::ostream& out);

// "X,Y" and "X,Y,W,H" of the command line.
cv::Point parsePoint(const std::string& text);
cv::Rect parseArea(const std::string& text);

} // namespace nordacam
