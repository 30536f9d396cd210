#include "apps/nordacam/CalibrationViews.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/imageio/ImageDecoderPxM.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <optional>

#include <fstream>

namespace nordacam {

namespace {
using nlohmann::json;
using namespace norda::vision;
constexpr const char* kRead = "nordacam::CalibrationViews";
constexpr double kCelsius = 273.15;

struct Document {
    std::string folder;
    std::string file;
    json doc;

    explicit Document(const std::string& dir) : folder(dir.empty() || dir.back() == '/' ? dir : dir + "/") {
        file = folder + CalibrationViews::kFileName;
        if (!norda::utils::existsFile(file))
            NORDA_THROW("calibration views " + file + " are missing", kRead);
        std::ifstream in(file);
        try {
            doc = json::parse(in);
        } catch (const std::exception& e) {
            NORDA_THROW("calibration views " + file + " are not valid JSON: " + e.what(), kRead);
        }
        if (!doc.is_object() || !doc.contains("views") || !doc["views"].is_array() || doc["views"].empty())
            bad("views", "must be a non-empty array");
    }
    [[noreturn]] void bad(const std::string& key, const std::string& why) const {
        NORDA_THROW(file + ": " + key + " " + why, kRead);
    }
    const json& views() const { return doc["views"]; }
    static std::string key(size_t i, const char* name) { return "views[" + std::to_string(i) + "]." + name; }

    double number(const json& o, const char* name, const std::string& key,
                  std::optional<double> fallback = {}) const {
        auto it = o.find(name);
        if (it == o.end()) {
            if (fallback)
                return *fallback;
            bad(key, "is missing");
        }
        if (!it->is_number())
            bad(key, "is not a number");
        return it->get<double>();
    }
    std::string text(const json& o, const char* name, const std::string& key) const {
        auto it = o.find(name);
        if (it == o.end() || !it->is_string())
            bad(key, "must be a string");
        return it->get<std::string>();
    }
    std::vector<cv::Mat> frames(const json& o, const char* name, const std::string& key) const {
        const std::string path = folder + text(o, name, key);
        if (!norda::utils::existsFile(path))
            bad(key, "names " + path + ", which is missing");
        return CalibrationViews::frames(path);
    }
    GridTarget target() const {
        GridTarget target;
        auto t = doc.find("target");
        if (t == doc.end() || !t->is_object())
            bad("target", "must describe the grid target");
        const std::string pattern = text(*t, "pattern", "target.pattern");
        if (pattern == "circles")
            target.pattern = GridTarget::Pattern::SymmetricCircles;
        else if (pattern == "asymmetric-circles")
            target.pattern = GridTarget::Pattern::AsymmetricCircles;
        else if (pattern == "chessboard")
            target.pattern = GridTarget::Pattern::Chessboard;
        else
            bad("target.pattern", "must be \"circles\", \"asymmetric-circles\" or \"chessboard\"");
        const double columns = number(*t, "columns", "target.columns"),
                     rows = number(*t, "rows", "target.rows");
        if (columns < 2 || rows < 2 || columns > 100 || rows > 100)
            bad("target.columns", "and rows must be 2..100");
        target.points = {static_cast<int>(columns), static_cast<int>(rows)};
        target.spacing = number(*t, "spacing", "target.spacing");
        if (!(target.spacing > 0))
            bad("target.spacing", "must be positive (metres)");
        if (auto w = t->find("warmDots"); w != t->end()) {
            if (!w->is_boolean())
                bad("target.warmDots", "must be true or false");
            target.warmDots = w->get<bool>();
        }
        return target;
    }
    std::string name(const json& o, size_t i) const {
        return o.contains("name") ? text(o, "name", key(i, "name")) : fmt::format("#{}", i);
    }
};
} // namespace

std::vector<cv::Mat> CalibrationViews::frames(const std::string& file) {
    ImageDecoderPxM decoder;
    if (!decoder.open(file))
        NORDA_THROW("can not open " + file, kRead);
    std::vector<cv::Mat> frames;
    cv::Mat f;
    while (decoder.grab(f, nullptr))
        frames.push_back(f);
    if (frames.empty())
        NORDA_THROW(file + " holds no frame", kRead);
    return frames;
}

std::vector<BlackbodyView> CalibrationViews::blackbody(const std::string& folder,
                                                       RadiometryFitSettings& settings) {
    const Document d(folder);
    std::map<std::string, std::shared_ptr<const BoardLog>> logs;
    if (auto l = d.doc.find("boardLogs"); l != d.doc.end()) {
        if (!l->is_object())
            d.bad("boardLogs", "must map names to [[uptime, board], ...] in s and °C");
        for (const auto& [name, readings] : l->items()) {
            auto log = std::make_shared<BoardLog>();
            const std::string key = "boardLogs." + name;
            if (!readings.is_array() || readings.empty())
                d.bad(key, "must be a non-empty array of [uptime, board]");
            for (const auto& r : readings) {
                if (!r.is_array() || r.size() != 2 || !r[0].is_number() || !r[1].is_number())
                    d.bad(key, "must hold [uptime, board] pairs of numbers");
                if (!log->empty() && !(r[0].get<double>() > log->back().first))
                    d.bad(key, "must be in increasing uptime");
                log->emplace_back(r[0].get<double>(), r[1].get<double>() + kCelsius);
            }
            logs[name] = std::move(log);
        }
    }
    std::vector<BlackbodyView> views;
    for (size_t i = 0; i < d.views().size(); ++i) {
        const json& o = d.views()[i];
        BlackbodyView v;
        if (o.contains("boardLog")) {
            const std::string log = d.text(o, "boardLog", Document::key(i, "boardLog"));
            auto it = logs.find(log);
            if (it == logs.end())
                d.bad(Document::key(i, "boardLog"), "names \"" + log + "\", which boardLogs does not hold");
            v.boardLog = it->second;
            v.uptimeS = d.number(o, "uptime", Document::key(i, "uptime"));
            v.shutterUptimeS = d.number(o, "shutterUptime", Document::key(i, "shutterUptime"));
        }
        v.name = d.name(o, i);
        const double range = d.number(o, "range", Document::key(i, "range"));
        if (range < 0 || range > 255 || range != std::floor(range))
            d.bad(Document::key(i, "range"), "must be an integer 0..255");
        v.range = static_cast<unsigned>(range);
        v.blackbodyK = d.number(o, "blackbody", Document::key(i, "blackbody")) + kCelsius;
        auto& c = v.conditions;
        c.boardCurrentK = d.number(o, "board", Document::key(i, "board")) + kCelsius;
        c.boardShutteringK = d.number(o, "boardAtShutter", Document::key(i, "boardAtShutter")) + kCelsius;
        c.shutterK = d.number(o, "shutter", Document::key(i, "shutter")) + kCelsius;
        c.boardSlope = d.number(o, "slope", Document::key(i, "slope"), 0.0);
        c.emissivity = d.number(o, "emissivity", Document::key(i, "emissivity"), 1.0);
        c.reflectedK = d.number(o, "reflected", Document::key(i, "reflected"), 20.0) + kCelsius;
        c.lensTransmission = d.number(o, "lensTransmission", Document::key(i, "lensTransmission"), 1.0);
        if (!(c.lensTransmission > 0.0 && c.lensTransmission <= 1.0))
            d.bad(Document::key(i, "lensTransmission"), "must lie in (0, 1]");
        c.lensK = d.number(o, "lens", Document::key(i, "lens"), 25.0) + kCelsius;
        if (auto s = o.find("slowFrame"); s != o.end()) {
            if (!s->is_boolean())
                d.bad(Document::key(i, "slowFrame"), "must be true or false");
            v.slowFrame = s->get<bool>();
        }
        if (o.contains("file")) {
            v.frames = d.frames(o, "file", Document::key(i, "file"));
            if (o.contains("shutterFile"))
                v.shutter = d.frames(o, "shutterFile", Document::key(i, "shutterFile")).front();
            if (auto r = o.find("region"); r != o.end()) {
                if (!r->is_array() || r->size() != 4 ||
                    !std::all_of(r->begin(), r->end(), [](const json& n) { return n.is_number_integer(); }))
                    d.bad(Document::key(i, "region"), "must be [x, y, width, height] in pixels");
                v.region = {(*r)[0].get<int>(), (*r)[1].get<int>(), (*r)[2].get<int>(), (*r)[3].get<int>()};
            }
        } else {
            v.signal = d.number(o, "signal", Document::key(i, "signal"));
            v.noise = d.number(o, "noise", Document::key(i, "noise"), std::nan(""));
        }
        views.push_back(std::move(v));
    }
    if (auto bands = d.doc.find("bands"); bands != d.doc.end()) {
        if (!bands->is_object())
            d.bad("bands", "must map ranges to [bottom, top] in °C");
        for (const auto& [range, b] : bands->items()) {
            if (!b.is_array() || b.size() != 2 || !b[0].is_number() || !b[1].is_number())
                d.bad("bands." + range, "must be [bottom, top] in °C");
            unsigned n = 0;
            try {
                n = static_cast<unsigned>(std::stoul(range));
            } catch (const std::exception&) {
                d.bad("bands." + range, "is not a range number");
            }
            settings.bands[n] = {b[0].get<double>() + kCelsius, b[1].get<double>() + kCelsius};
        }
    }
    return views;
}

std::vector<FlatFieldView> CalibrationViews::flatFields(const std::string& folder) {
    const Document d(folder);
    std::vector<FlatFieldView> views;
    for (size_t i = 0; i < d.views().size(); ++i) {
        const json& o = d.views()[i];
        views.push_back({d.name(o, i), d.frames(o, "file", Document::key(i, "file"))});
    }
    return views;
}

std::vector<GridView> CalibrationViews::grid(const std::string& folder, GridTarget& target) {
    const Document d(folder);
    target = d.target();
    std::vector<GridView> views;
    for (size_t i = 0; i < d.views().size(); ++i) {
        const json& o = d.views()[i];
        views.push_back({d.name(o, i), d.frames(o, "file", Document::key(i, "file")).front()});
    }
    return views;
}

std::vector<StereoView> CalibrationViews::stereo(const std::string& folder, GridTarget& target,
                                                 std::vector<LaserSpot>& laser) {
    const Document d(folder);
    target = d.target();
    std::vector<StereoView> views;
    for (size_t i = 0; i < d.views().size(); ++i) {
        const json& o = d.views()[i];
        StereoView v{d.name(o, i), d.frames(o, "infrared", Document::key(i, "infrared")).front(), {}};
        const std::string visual = d.text(o, "visual", Document::key(i, "visual"));
        if (visual.size() > 4 && visual.substr(visual.size() - 4) == ".pxm") {
            v.visual = d.frames(o, "visual", Document::key(i, "visual")).front();
        } else {
            v.visual = cv::imread(d.folder + visual, cv::IMREAD_COLOR);
            if (v.visual.empty())
                d.bad(Document::key(i, "visual"),
                      "names " + d.folder + visual + ", which can not be read as an image");
        }
        views.push_back(std::move(v));
    }
    laser.clear();
    if (auto spots = d.doc.find("laser"); spots != d.doc.end()) {
        if (!spots->is_array())
            d.bad("laser", "must be an array of spots");
        for (size_t i = 0; i < spots->size(); ++i) {
            const json& o = (*spots)[i];
            const std::string key = "laser[" + std::to_string(i) + "].";
            laser.push_back({d.number(o, "distance", key + "distance"),
                             {d.number(o, "x", key + "x"), d.number(o, "y", key + "y")}});
        }
    }
    return views;
}

} // namespace nordacam
