#include "nordalib/vision/radiometry/RadiometricCalibration.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/FileUtils.h"

#include <cmath>
#include <fstream>
#include <optional>
#include <sstream>

#ifdef NORDA_HAVE_JSON
#include <nlohmann/json.hpp>
#endif

namespace norda::vision {

namespace {
constexpr const char* kLoad = "norda::vision::RadiometricCalibration::load";

[[noreturn]] void badKey(const std::string& file, const std::string& key, const std::string& why) {
    NORDA_THROW("radiometric calibration " + file + ": " + key + " " + why, kLoad);
}
} // namespace

void RadiometricCalibration::check(const RangeCalibration& r, const std::string& source,
                                   const std::string& key) {
    const auto& p = r.planck;
    auto finite = [&](double v, const char* name) {
        if (!std::isfinite(v))
            badKey(source, key + "." + name, "is not a finite number");
    };
    finite(p.R1, "R1");
    finite(p.R2, "R2");
    finite(p.B, "B");
    finite(p.F, "F");
    finite(p.O, "O");
    finite(p.T0, "T0");
    finite(r.boardDriftGain, "boardDriftGain");
    finite(r.boardSlopeGain, "boardSlopeGain");
    finite(r.slowFrameGain, "slowFrameGain");
    finite(r.responsivityExponent, "responsivityExponent");
    finite(r.boardLagGain, "boardLagGain");
    if (!(r.boardLagTimeConstantS > 0.0) || !std::isfinite(r.boardLagTimeConstantS))
        badKey(source, key + ".boardLagTimeConstant", "must be a positive number of seconds");
    finite(r.boardLagShare, "boardLagShare");
    finite(r.boardEmissionGain, "boardEmissionGain");
    if (p.R2 == 0.0 || !(p.R1 / p.R2 > 0.0))
        badKey(source, key + ".R1",
               "and R2 must be non-zero with the same sign (the signal must rise with temperature)");
    if (!(p.B > 0.0))
        badKey(source, key + ".B", "must be positive");
    if (!(r.bandBottomK + p.T0 > 0.0))
        badKey(source, key + ".T0", "moves the band's bottom below absolute zero (T + T0 <= 0)");
    if (!(r.slowFrameGain > 0.0))
        badKey(source, key + ".slowFrameGain", "must be positive");
    if (!(r.responsivityReferenceK > 0.0) || !std::isfinite(r.responsivityReferenceK))
        badKey(source, key + ".responsivityReference", "must lie above absolute zero");
    if (!(r.bandBottomK > 0.0) || !(r.bandTopK > r.bandBottomK))
        badKey(source, key + ".bandTop", "must lie above bandBottom, and bandBottom above absolute zero");
    // The curve must be defined (exp(B/T) > F) over the whole band, including its hot end.
    if (!(std::exp(p.B / (r.bandTopK + p.T0)) > p.F))
        badKey(source, key + ".F",
               "makes the Planck curve undefined inside the band (exp(B / (T + T0)) <= F)");
}

#ifdef NORDA_HAVE_JSON
namespace {
double number(const nlohmann::json& obj, const char* name, const std::string& file, const std::string& key,
              std::optional<double> fallback = std::nullopt) {
    auto it = obj.find(name);
    if (it == obj.end()) {
        if (fallback)
            return *fallback;
        badKey(file, key + "." + name, "is missing");
    }
    if (!it->is_number())
        badKey(file, key + "." + name, "is not a number");
    return it->get<double>();
}
unsigned index(const nlohmann::json& obj, const char* name, const std::string& file, const std::string& key) {
    auto it = obj.find(name);
    if (it == obj.end())
        badKey(file, key + "." + name, "is missing");
    if (!it->is_number_unsigned() || it->get<unsigned long long>() > 255)
        badKey(file, key + "." + name, "must be an integer 0..255");
    return it->get<unsigned>();
}
} // namespace

RadiometricCalibration RadiometricCalibration::load(const std::string& file) {
    if (!utils::existsFile(file))
        NORDA_THROW("radiometric calibration file " + file + " is missing", kLoad);
    std::ifstream in(file);
    nlohmann::json doc;
    try {
        doc = nlohmann::json::parse(in);
    } catch (const std::exception& e) {
        NORDA_THROW("radiometric calibration " + file + " is not valid JSON: " + e.what(), kLoad);
    }
    if (!doc.is_object())
        badKey(file, "(top level)", "must be an object");
    auto ranges = doc.find("ranges");
    if (ranges == doc.end() || !ranges->is_array() || ranges->empty())
        badKey(file, "ranges", "must be a non-empty array");

    RadiometricCalibration cal;
    for (size_t i = 0; i < ranges->size(); ++i) {
        const auto& r = (*ranges)[i];
        const std::string key = "ranges[" + std::to_string(i) + "]";
        if (!r.is_object())
            badKey(file, key, "must be an object");
        RangeCalibration rc;
        const unsigned number_ = index(r, "range", file, key);
        rc.planck.R1 = number(r, "R1", file, key);
        rc.planck.R2 = number(r, "R2", file, key);
        rc.planck.B = number(r, "B", file, key);
        rc.planck.F = number(r, "F", file, key);
        rc.planck.O = number(r, "O", file, key);
        rc.planck.T0 = number(r, "T0", file, key, 0.0);
        rc.boardDriftGain = number(r, "boardDriftGain", file, key, 0.0);
        rc.boardSlopeGain = number(r, "boardSlopeGain", file, key, 0.0);
        rc.slowFrameGain = number(r, "slowFrameGain", file, key, 1.0);
        rc.responsivityExponent = number(r, "responsivityExponent", file, key, 0.0);
        rc.boardLagGain = number(r, "boardLagGain", file, key, 0.0);
        rc.boardLagTimeConstantS = number(r, "boardLagTimeConstant", file, key, 100.0);
        rc.boardLagShare = number(r, "boardLagShare", file, key, 1.0);
        rc.boardEmissionGain = number(r, "boardEmissionGain", file, key, 0.0);
        rc.responsivityReferenceK = number(r, "responsivityReference", file, key, 30.0) + 273.15;
        rc.bandBottomK = number(r, "bandBottom", file, key) + 273.15;
        rc.bandTopK = number(r, "bandTop", file, key) + 273.15;
        check(rc, file, key);
        if (!cal.ranges.emplace(number_, rc).second)
            badKey(file, key + ".range", "repeats range " + std::to_string(number_));
    }
    if (auto lenses = doc.find("lenses"); lenses != doc.end()) {
        if (!lenses->is_array())
            badKey(file, "lenses", "must be an array");
        for (size_t i = 0; i < lenses->size(); ++i) {
            const auto& l = (*lenses)[i];
            const std::string key = "lenses[" + std::to_string(i) + "]";
            if (!l.is_object())
                badKey(file, key, "must be an object");
            LensCalibration lc;
            const unsigned idx = index(l, "index", file, key);
            if (auto s = l.find("serial"); s != l.end()) {
                if (!s->is_string())
                    badKey(file, key + ".serial", "must be a string");
                lc.serial = s->get<std::string>();
            }
            lc.transmission = number(l, "transmission", file, key);
            if (!(lc.transmission > 0.0 && lc.transmission <= 1.0))
                badKey(file, key + ".transmission", "must lie in (0, 1]");
            if (!cal.lenses.emplace(idx, lc).second)
                badKey(file, key + ".index", "repeats lens " + std::to_string(idx));
        }
    }
    return cal;
}

void RadiometricCalibration::save(const std::string& file) const {
    nlohmann::ordered_json doc;
    doc["version"] = 1;
    doc["ranges"] = nlohmann::ordered_json::array();
    for (const auto& [n, r] : ranges) {
        nlohmann::ordered_json j;
        j["range"] = n;
        j["R1"] = r.planck.R1;
        j["R2"] = r.planck.R2;
        j["B"] = r.planck.B;
        j["F"] = r.planck.F;
        j["O"] = r.planck.O;
        if (r.planck.T0 != 0.0) // files without it keep their old form
            j["T0"] = r.planck.T0;
        j["boardDriftGain"] = r.boardDriftGain;
        j["boardSlopeGain"] = r.boardSlopeGain;
        j["slowFrameGain"] = r.slowFrameGain;
        if (r.boardEmissionGain != 0.0)
            j["boardEmissionGain"] = r.boardEmissionGain;
        if (r.boardLagGain != 0.0) { // files without it keep their old form
            j["boardLagGain"] = r.boardLagGain;
            j["boardLagTimeConstant"] = r.boardLagTimeConstantS;
            j["boardLagShare"] = r.boardLagShare;
        }
        if (r.responsivityExponent != 0.0) { // files without it keep their old form
            j["responsivityExponent"] = r.responsivityExponent;
            j["responsivityReference"] = r.responsivityReferenceK - 273.15;
        }
        j["bandBottom"] = std::round((r.bandBottomK - 273.15) * 100.0) / 100.0;
        j["bandTop"] = std::round((r.bandTopK - 273.15) * 100.0) / 100.0;
        doc["ranges"].push_back(j);
    }
    doc["lenses"] = nlohmann::ordered_json::array();
    for (const auto& [n, l] : lenses)
        doc["lenses"].push_back({{"index", n}, {"serial", l.serial}, {"transmission", l.transmission}});
    std::ofstream out(file);
    out << doc.dump(2) << '\n';
    if (!out)
        NORDA_THROW("could not write radiometric calibration " + file,
                    "norda::vision::RadiometricCalibration::save");
}
#else
RadiometricCalibration RadiometricCalibration::load(const std::string& file) {
    NORDA_THROW("radiometric calibration " + file + " can not be read: library built without JSON support",
                kLoad);
}
void RadiometricCalibration::save(const std::string& file) const {
    NORDA_THROW("radiometric calibration " + file + " can not be written: library built without JSON support",
                "norda::vision::RadiometricCalibration::save");
}
#endif

RadiometricCalibration RadiometricCalibration::makeDefault() {
    // Constants of an uncooled 8-14 µm detector: B = c2 / 10 µm; the low range integrates about five
    // times longer than the high range, giving roughly 24 counts/K at -20 °C and 75 counts/K at
    // 150 °C (low range), 6 counts/K at 0 °C (high range).
    RadiometricCalibration cal;
    RangeCalibration low;
    low.planck = {300000.0, 1.0, 1428.0, 1.0, -40.0};
    low.boardDriftGain = 14.0;
    low.boardSlopeGain = 2.5;
    low.slowFrameGain = 1.0;
    low.bandBottomK = 273.15 - 20.0;
    low.bandTopK = 273.15 + 150.0;
    RangeCalibration high;
    high.planck = {60000.0, 1.0, 1428.0, 1.0, -10.0};
    high.boardDriftGain = 3.0;
    high.boardSlopeGain = 0.5;
    high.slowFrameGain = 1.0;
    high.bandBottomK = 273.15;
    high.bandTopK = 273.15 + 350.0;
    cal.ranges = {{1, low}, {2, high}};
    cal.lenses = {{1, {"L25-000001", 0.97}}, {2, {"L12-000001", 0.95}}, {3, {"L45-000001", 0.93}}};
    return cal;
}

} // namespace norda::vision
