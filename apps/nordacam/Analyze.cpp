#include "apps/nordacam/Analyze.h"

#include "apps/nordacam/Camera.h"
#include "apps/nordacam/RixTools.h"
#include "apps/nordacam/Settings.h"
#include "apps/nordacam/TrendPlot.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/imageio/ImageDecoderPxM.h"
#include "nordalib/vision/measurement/MeasurementResults.h"
#include "nordalib/vision/measurement/MeasurementStatistics.h"
#include "nordalib/vision/rix/Rix.h"
#include "nordalib/vision/rix/RixMeasurements.h"

#include <fmt/format.h>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <limits>
#include <regex>

namespace nordacam {

using namespace norda::exp;
using norda::vision::MeasurementResults;
using norda::vision::MeasurementStatistics;
using Temperature = quantity::Temperature<MarkedFloat>;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

bool isRecording(const std::string& file) {
    std::string ext = std::filesystem::path(file).extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(), ::tolower);
    return ext == ".pxm";
}

std::pair<float, unsigned> reading(const std::shared_ptr<Variant>& v) {
    if (v && v->holds<Temperature>()) {
        const auto& t = v->value<Temperature>();
        return {t.celsius(), t.getValue().getMark()};
    }
    return {kNaN, MarkedFloat::OutOfTolerance};
}

// Tool names and the checks of their geometry against an image of `size`.
std::vector<std::string> toolNames(const AnalyzeOptions& o) {
    std::vector<std::string> names{"hot"};
    for (size_t i = 0; i < o.points.size(); ++i)
        names.push_back(fmt::format("P{} ({},{})", i + 1, o.points[i].x, o.points[i].y));
    for (size_t i = 0; i < o.areas.size(); ++i) {
        const auto& a = o.areas[i];
        names.push_back(fmt::format("A{} mean ({},{},{},{})", i + 1, a.x, a.y, a.width, a.height));
        names.push_back(fmt::format("A{} max", i + 1));
    }
    return names;
}

void checkTools(const AnalyzeOptions& o, cv::Size size, const std::string& source) {
    const cv::Rect frame(cv::Point(0, 0), size);
    for (const auto& p : o.points)
        if (!frame.contains(p))
            throw SettingsError(fmt::format("--point {},{} lies outside the {} x {} image of {}", p.x, p.y,
                                            size.width, size.height, source));
    for (const auto& a : o.areas)
        if (a.width <= 0 || a.height <= 0 || (a & frame) != a)
            throw SettingsError(fmt::format("--area {},{},{},{} lies outside the {} x {} image of {}", a.x,
                                            a.y, a.width, a.height, size.width, size.height, source));
}

// Every tool on one radiometric image, with the measurement stage's own code.
void measure(TrendSeries& s, const AnalyzeOptions& o, const cv::Mat_<uint16_t>& rad,
             const MeasRangeBorders& b) {
    std::vector<float> values;
    std::vector<unsigned> marks;
    auto add = [&](std::pair<float, unsigned> r) {
        values.push_back(r.first);
        marks.push_back(r.second);
    };
    double mn = 0, mx = 0;
    cv::minMaxIdx(rad, &mn, &mx);
    const Temperature hot = MeasurementStatistics::markValidity(static_cast<unsigned short>(mx), b);
    add({hot.celsius(), hot.getValue().getMark()});
    for (const auto& p : o.points)
        add(reading(MeasurementResults::point(static_cast<unsigned short>(p.x),
                                              static_cast<unsigned short>(p.y), rad(p.y, p.x), b, nullptr)
                        .getValue()));
    for (const auto& a : o.areas) {
        const MeasArea area = MeasurementResults::area(rad, a, b, nullptr);
        add(reading(area.getMeanValue()));
        add(reading(area.getHotSpot().getValue()));
    }
    s.value.push_back(std::move(values));
    s.mark.push_back(std::move(marks));
    s.error.emplace_back();
}

void failed(TrendSeries& s, const std::string& source, const std::string& error) {
    s.time.push_back(kNaN);
    s.source.push_back(source);
    s.value.emplace_back(s.tools.size(), kNaN);
    s.mark.emplace_back(s.tools.size(), MarkedFloat::OutOfTolerance);
    s.error.push_back(error);
}

void analyzeImages(TrendSeries& s, const AnalyzeOptions& o) {
    std::optional<unsigned long long> first;
    std::optional<cv::Size> size;
    for (const auto& file : o.inputs) {
        const std::string name = std::filesystem::path(file).filename().string();
        norda::vision::Rix rix;
        try {
            if (!norda::utils::existsFile(file))
                throw std::runtime_error("no such file");
            rix.load(file, norda::vision::Rix::Content::Radiometric);
            const auto& rad = rix.getRadiometricImage();
            if (rad.empty())
                throw std::runtime_error("holds no radiometric image");
            if (!size) {
                checkTools(o, rad.size(), file);
                size = rad.size();
            } else if (rad.size() != *size)
                throw std::runtime_error(fmt::format("is {} x {}, the series {} x {}", rad.cols, rad.rows,
                                                     size->width, size->height));
        } catch (const SettingsError&) {
            throw;
        } catch (const std::exception& e) {
            // The library's messages name the file already.
            const std::string what = e.what();
            failed(s, name, what.find(name) == std::string::npos ? name + ": " + what : what);
            continue;
        }
        if (!first)
            first = rix.getFileDateTime();
        s.time.push_back((double(rix.getFileDateTime()) - double(*first)) / 1000.0);
        s.source.push_back(name);
        measure(s, o, rix.getRadiometricImage(), norda::vision::RixMeasurements::borders(rix));
    }
    if (!size)
        throw SettingsError("no readable image among the " + std::to_string(o.inputs.size()) + " given");
}

// The radiometric chain needs what the camera recorded with every frame.
void checkRadiometricMetadata(const DataStorage<std::string>& meta, const std::string& file, size_t index) {
    for (const std::string* key : {&Id::Shutter::State, &Id::Temperatures::Current::TBoardSens50,
                                   &Id::Temperatures::Shuttering::TShutter, &Id::ActiveMeasRange::Name})
        if (!meta.getVariant(*key))
            throw SettingsError(fmt::format("{}: frame {} has no radiometric metadata ({} missing); only "
                                            "recordings of the camera's raw frames can be converted",
                                            file, index, *key));
}

MeasRangeBorders storeBorders(const DataProxy<std::string>& store) {
    auto c = [&](const std::string& key) {
        return store.getValue<Temperature>(key).convertTo(quantity::TemperatureUnit::Celsius).getValue();
    };
    return {c(Id::ActiveMeasRange::ToleranceTop), c(Id::ActiveMeasRange::ToleranceBottom),
            c(Id::ActiveMeasRange::DisplayTop), c(Id::ActiveMeasRange::DisplayBottom)};
}

void analyzeRecording(TrendSeries& s, const AnalyzeOptions& o) {
    const std::string& file = o.inputs.front();
    if (!norda::utils::existsFile(file))
        throw SettingsError("no such file: " + file);
    norda::vision::ImageDecoderPxM decoder;
    if (!decoder.open(file))
        throw SettingsError("can not open " + file);
    // The first frame: its size for the tools' checks and its metadata for the chain.
    cv::Mat first;
    if (!decoder.grab(first, nullptr) || first.empty())
        throw SettingsError(file + " holds no frame");
    if (first.type() != CV_16UC1)
        throw SettingsError(file + " holds no raw detector frames (16-bit single channel)");
    checkRadiometricMetadata(decoder.getMetaData(), file, 0);
    checkTools(o, first.size(), file);
    // Times count from the recording's first frame (the shutter frames at its start give none).
    std::optional<double> firstUptime;
    if (const auto up = decoder.getMetaData().getVariant(Id::DeviceInfo::Uptime);
        up && up->holds<unsigned long long>())
        firstUptime = double(up->value<unsigned long long>());

    size_t index = 0;
    bool ended = false;
    std::string readError;
    cv::Mat pending = first;
    DataStorage<std::string> pendingMeta = decoder.getMetaData();
    CameraOptions co;
    co.calibrationDir = o.calibrationDir;
    co.realTime = false;
    co.visual = false;
    co.measurementOnly = true;
    co.frameSource = [&]() -> std::unique_ptr<Frame> {
        if (ended)
            return nullptr;
        // Numbered here: the samples are told apart by it, whatever the recording counted.
        DataStorage<std::string> meta(pendingMeta);
        meta.remove("FrameCnt");
        auto frame = std::make_unique<Frame>(pending, std::move(meta));
        frame->addMetaDate("FrameCnt", makeVariant<unsigned long long>(index));
        ++index;
        cv::Mat next;
        try {
            if (decoder.grab(next, nullptr)) {
                checkRadiometricMetadata(decoder.getMetaData(), file, index);
                pending = next;
                pendingMeta = decoder.getMetaData();
            } else
                ended = true;
        } catch (const std::exception& e) {
            readError = e.what();
            ended = true;
        }
        return frame;
    };
    Camera camera(co);
    // Frames still inside the chain when the file ends come out within a few cycles.
    std::optional<unsigned long long> lastFrame;
    for (int drain = 0; drain < 8;) {
        if (ended)
            ++drain;
        camera.runCycle();
        const auto snap = camera.snapshot();
        if (snap.rad.empty() || (lastFrame && snap.frame == *lastFrame))
            continue;
        lastFrame = snap.frame;
        const auto uptime = snap.meta.getVariant(Id::DeviceInfo::Uptime);
        double t = double(snap.frame) / 30.0;
        if (uptime && uptime->holds<unsigned long long>()) {
            const double ms = double(uptime->value<unsigned long long>());
            if (!firstUptime)
                firstUptime = ms;
            t = (ms - *firstUptime) / 1000.0;
        }
        s.time.push_back(t);
        s.source.push_back(std::to_string(snap.frame));
        measure(s, o, snap.rad, storeBorders(camera.store()));
    }
    if (!readError.empty())
        failed(s, std::to_string(index), readError);
}

} // namespace

cv::Point parsePoint(const std::string& s) {
    static const std::regex re(R"(^\s*(\d{1,5})\s*,\s*(\d{1,5})\s*$)");
    std::smatch m;
    if (!std::regex_match(s, m, re))
        throw SettingsError("--point \"" + s + "\" is not X,Y (pixels)");
    return {std::stoi(m[1]), std::stoi(m[2])};
}

cv::Rect parseArea(const std::string& s) {
    static const std::regex re(R"(^\s*(\d{1,5})\s*,\s*(\d{1,5})\s*,\s*(\d{1,5})\s*,\s*(\d{1,5})\s*$)");
    std::smatch m;
    if (!std::regex_match(s, m, re))
        throw SettingsError("--area \"" + s + "\" is not X,Y,W,H (pixels)");
    const cv::Rect r(std::stoi(m[1]), std::stoi(m[2]), std::stoi(m[3]), std::stoi(m[4]));
    if (r.width == 0 || r.height == 0)
        throw SettingsError("--area \"" + s + "\" is empty");
    return r;
}

TrendSeries analyzeSeries(const AnalyzeOptions& o) {
    if (o.inputs.empty())
        throw SettingsError("no recording or image given");
    TrendSeries s;
    s.tools = toolNames(o);
    const bool recording = isRecording(o.inputs.front());
    for (const auto& f : o.inputs)
        if (isRecording(f) != recording || (recording && o.inputs.size() > 1))
            throw SettingsError("give one raw recording (.pxm) or saved images (.RIX), not both or two "
                                "recordings (" +
                                f + ")");
    if (recording)
        analyzeRecording(s, o);
    else
        analyzeImages(s, o);
    return s;
}

void writeTrendCsv(const TrendSeries& s, const std::string& file) {
    std::string csv = "time_s,source";
    for (const auto& t : s.tools) // quoted: a point's and an area's names hold commas
        csv += fmt::format(",\"{} °C\",\"{} validity\"", t, t);
    csv += ",error\n";
    for (size_t i = 0; i < s.time.size(); ++i) {
        csv += std::isnan(s.time[i]) ? "," : fmt::format("{:.3f},", s.time[i]);
        csv += s.source[i];
        for (size_t k = 0; k < s.tools.size(); ++k) {
            if (!s.error[i].empty()) {
                csv += ",,";
                continue;
            }
            csv += fmt::format(",{:.2f},{}", s.value[i][k], markText(uint8_t(s.mark[i][k])));
        }
        std::string e = s.error[i];
        std::replace(e.begin(), e.end(), '"', '\'');
        csv += e.empty() ? "\n" : ",\"" + e + "\"\n";
    }
    norda::utils::writeFileAtomically(file, csv.data(), csv.size());
}

int analyze(const AnalyzeOptions& o, std::ostream& out) {
    if (o.out.empty())
        throw SettingsError("--out NAME is required");
    const auto start = std::chrono::steady_clock::now();
    const TrendSeries s = analyzeSeries(o);
    const std::string csv = o.out + ".csv", png = o.out + ".png";
    try {
        writeTrendCsv(s, csv);
    } catch (const std::exception& e) {
        throw SettingsError(e.what());
    }
    const cv::Mat plot = drawTrendPlot(s);
    std::vector<uchar> bytes;
    cv::imencode(".png", plot, bytes);
    try {
        norda::utils::writeFileAtomically(png, bytes.data(), bytes.size());
    } catch (const std::exception& e) {
        throw SettingsError(e.what());
    }
    size_t failures = 0;
    for (const auto& e : s.error)
        if (!e.empty()) {
            ++failures;
            out << "  skipped: " << e << "\n";
        }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    out << fmt::format("analysed {} samples ({} failed) of {} tools in {:.2f} s: {}, {}\n", s.time.size(),
                       failures, s.tools.size(), seconds, csv, png);
    return failures == s.time.size() ? 1 : 0;
}

} // namespace nordacam
