#pragma once
// nordacam report: an inspection report of saved images, as HTML or as PDF (the HTML printed by
// headless Chromium). A summary page first (each image's maximum temperature, whether it passed the
// alarm threshold, the first line of its note, the files that could not be read with their error),
// then a page per image: the infrared picture with the overlay of its saved JPEG, the visual
// picture, the measurement table (values with their validity and local emissivity), the object
// parameters, date and time, detector and lens, and the thermographer's note.
//
// The note is a text entry of the image (generic entry Image.Note); images without one have none.

#include "nordalib/vision/rix/Rix.h"

#include <opencv2/core.hpp>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace nordacam {

inline const std::string kNoteKey = "Image.Note";

struct ReportOptions {
    std::vector<std::string> images;
    std::string out;             // FILE.pdf or FILE.html
    std::optional<float> alarmC; // threshold; default: each image's upper alarm when it was on
    std::string title = "Thermographic inspection report";
};

// The note stored with an image ("" when it has none).
std::string imageNote(const norda::vision::Rix& rix);
// Stores `note` in `file` (replaced atomically); an empty note removes it.
int rixNote(const std::string& file, const std::string& note, std::ostream& out);

// The infrared picture of an image as its saved JPEG shows it: palette image with the overlay drawn
// from the image's own values (BGR).
cv::Mat reportInfraredPicture(const norda::vision::Rix& rix);

// The report as HTML (pictures inline); `damaged` collects the files that could not be read.
std::string reportHtml(const ReportOptions& options, std::vector<std::string>* damaged = nullptr);
int report(const ReportOptions& options, std::ostream& out);

} // namespace nordacam
