#include "apps/nordacam/Report.h"

#include "apps/nordacam/RixTools.h"
#include "apps/nordacam/Settings.h"

#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/imgproc/ColorConvert.h"
#include "nordalib/vision/overlay/OverlayFromValues.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "nordalib/vision/streaming/JpegImageCreator.h"

#include <fmt/format.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace nordacam {

namespace fs = std::filesystem;
using namespace norda::exp;
using norda::vision::Rix;
using Temperature = quantity::Temperature<MarkedFloat>;
using Relation = quantity::Relation<MarkedFloat>;

namespace {

std::string escape(const std::string& s) {
    std::string out;
    for (char c : s)
        switch (c) {
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '&':
            out += "&amp;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    return out;
}

// Value and validity as `nordacam rix info` prints them.
std::pair<std::string, std::string> valueText(const std::shared_ptr<Variant>& v) {
    if (v && v->holds<Temperature>()) {
        const auto& t = v->value<Temperature>();
        return {fmt::format("{:.2f} °C", t.celsius()), markText(t.getValue().getMark())};
    }
    if (v && v->holds<Relation>()) {
        const auto& r = v->value<Relation>();
        return {fmt::format("{:.1f} %", r.percent()), markText(r.getValue().getMark())};
    }
    return {"–", "not measured"};
}

template <typename T> std::optional<T> generic(const Rix& rix, const std::string& key) {
    auto v = rix.getGeneric(key);
    if (v && v->holds<T>())
        return v->value<T>();
    return std::nullopt;
}

std::string dataUri(const cv::Mat& bgr) {
    std::vector<uchar> jpeg;
    cv::imencode(".jpg", bgr, jpeg, {cv::IMWRITE_JPEG_QUALITY, 90});
    static const char* b64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out = "data:image/jpeg;base64,";
    out.reserve(out.size() + jpeg.size() * 4 / 3 + 4);
    size_t i = 0;
    for (; i + 2 < jpeg.size(); i += 3) {
        const uint32_t n = uint32_t(jpeg[i]) << 16 | uint32_t(jpeg[i + 1]) << 8 | jpeg[i + 2];
        for (int k = 18; k >= 0; k -= 6)
            out += b64[(n >> k) & 63];
    }
    if (i < jpeg.size()) {
        uint32_t n = uint32_t(jpeg[i]) << 16 | (i + 1 < jpeg.size() ? uint32_t(jpeg[i + 1]) << 8 : 0);
        out += b64[(n >> 18) & 63];
        out += b64[(n >> 12) & 63];
        out += i + 1 < jpeg.size() ? b64[(n >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::string firstLine(const std::string& s) {
    return s.substr(0, s.find('\n'));
}

struct Row {
    std::string name, position, value, validity, emissivity, reflected;
};

// An emissivity with the material it was chosen as, when the image names one.
std::string emissivityText(const Rix& rix, float e, const std::string& materialKey, const char* local = "") {
    const auto material = generic<std::string>(rix, materialKey).value_or("");
    const std::string notes = std::string(local) + (*local && !material.empty() ? ", " : "") + material;
    return fmt::format("{:.2f}", e) + (notes.empty() ? "" : " (" + notes + ")");
}

// Spots, areas and delta-T the image shows, each with the object parameters it was measured with.
std::vector<Row> measurementRows(const Rix& rix) {
    const float e = rix.getEmissivityOriginal();
    const std::string tr = fmt::format("{:.2f} °C", rix.getReflectedTempOriginal().celsius());
    auto local = [&](const std::string& prefix, Row& r) {
        r.emissivity = emissivityText(rix, e, Id::Environment::Material);
        r.reflected = tr;
        if (generic<bool>(rix, prefix + ".LocalParameters").value_or(false)) {
            r.emissivity = emissivityText(rix, generic<float>(rix, prefix + ".Emissivity").value_or(e),
                                          prefix + ".Material", "local");
            if (auto t = generic<Temperature>(rix, prefix + ".ReflectedTemperature"))
                r.reflected = fmt::format("{:.2f} °C (local)", t->celsius());
        }
    };
    std::vector<Row> rows;
    static const std::pair<const char*, const char*> spots[] = {
        {"HotSpot", "hot spot"},     {"ColdSpot", "cold spot"}, {"CenterSpot", "centre spot"},
        {"LaserSpot", "laser spot"}, {"MeasPoint1", "spot 1"},  {"MeasPoint2", "spot 2"},
        {"MeasPoint3", "spot 3"},    {"MeasPoint4", "spot 4"},  {"MeasPoint5", "spot 5"}};
    for (const auto& [key, label] : spots) {
        const std::string prefix = std::string("MeasPoints.") + key;
        const auto p = generic<MeasPoint>(rix, prefix + ".MeasPoint");
        if (!p || !generic<bool>(rix, prefix + ".Visible").value_or(false))
            continue;
        Row r;
        r.name = label;
        r.position = fmt::format("({}, {})", p->getX(), p->getY());
        std::tie(r.value, r.validity) = valueText(p->getValue());
        local(prefix, r);
        rows.push_back(r);
    }
    for (int i = 0; i <= 3; ++i) {
        const std::string prefix = i ? fmt::format("MeasAreas.UserArea{}", i) : "MeasAreas.CenterArea";
        const auto a = generic<MeasArea>(rix, prefix + ".MeasArea");
        if (!a || (i && !generic<bool>(rix, prefix + ".Visible").value_or(false)))
            continue;
        const auto rect = a->getAreaRect();
        const std::string label = i ? fmt::format("area {}", i) : "centre area";
        const std::string where = fmt::format("{} x {} at ({}, {})", rect.width, rect.height, rect.x, rect.y);
        for (const auto& [what, v] :
             {std::pair{"mean", a->getMeanValue()}, std::pair{"max", a->getHotSpot().getValue()},
              std::pair{"min", a->getColdSpot().getValue()}}) {
            Row r;
            r.name = label + " " + what;
            r.position = where;
            std::tie(r.value, r.validity) = valueText(v);
            local(prefix, r);
            rows.push_back(r);
        }
    }
    const auto values = norda::vision::metadataLookup(rix.getGenerics());
    if (const auto d = norda::vision::deltaTReading(values))
        rows.push_back({"delta-T", d->first + " – " + d->second,
                        fmt::format("{:+.2f} {}", d->difference, d->unit()), "", "", ""});
    return rows;
}

std::string table(const std::vector<std::pair<std::string, std::string>>& items) {
    std::string html = "<table class=kv>";
    for (const auto& [k, v] : items)
        html += "<tr><th>" + escape(k) + "</th><td>" + escape(v) + "</td></tr>";
    return html + "</table>";
}

struct Summary {
    std::string file, time, max, maxMark, alarm, note;
};

std::string imagePage(const std::string& file, const Rix& rix, const ReportOptions& o, Summary& s) {
    const auto& rad = rix.getRadiometricImage();
    const auto& mm = rix.getMinMax();
    const Temperature top =
        Temperature::fromCelsius(MarkedFloat(norda::vision::RadiometricTools::getFloat(mm.max)));
    s.file = fs::path(file).filename().string();
    s.time = utcTime(rix.getFileDateTime());
    s.max = fmt::format("{:.2f} °C", top.celsius());
    const auto hot = generic<MeasPoint>(rix, "MeasPoints.HotSpot.MeasPoint");
    s.maxMark = hot ? valueText(hot->getValue()).second : "";
    std::optional<float> alarm = o.alarmC;
    if (!alarm && generic<bool>(rix, Id::Alarm::AlarmTopActive).value_or(false))
        if (auto t = generic<Temperature>(rix, Id::Alarm::AlarmTopValue))
            alarm = t->celsius();
    s.alarm = alarm ? fmt::format("{} {:.1f} °C", top.celsius() > *alarm ? "above" : "below", *alarm)
                    : "no threshold";
    const std::string note = imageNote(rix);
    s.note = firstLine(note);

    std::string html = "<section class=page><h2>" + escape(s.file) + "</h2><div class=pics>";
    html += "<figure><img src=\"" + dataUri(reportInfraredPicture(rix)) +
            "\"><figcaption>infrared</figcaption></figure>";
    if (!rix.getVisualImageYuv2().empty()) {
        cv::Mat_<cv::Vec3b> rgb;
        norda::vision::ColorConvert::convertUY1VY0ToRGB(rix.getVisualImageYuv2(), rgb);
        cv::Mat bgr;
        cv::cvtColor(rgb, bgr, cv::COLOR_RGB2BGR);
        html += "<figure><img src=\"" + dataUri(bgr) + "\"><figcaption>visual</figcaption></figure>";
    }
    html += "</div><h3>Measurements</h3><table class=grid><tr><th>tool</th><th>position</th><th>value</th>"
            "<th>validity</th><th>emissivity</th><th>reflected</th></tr>";
    for (const auto& r : measurementRows(rix))
        html += fmt::format("<tr><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td></tr>",
                            escape(r.name), escape(r.position), escape(r.value), escape(r.validity),
                            escape(r.emissivity), escape(r.reflected));
    html += "</table><div class=cols><div><h3>Object parameters</h3>";
    auto tempOr = [&](const std::string& key) {
        auto t = generic<Temperature>(rix, key);
        return t ? fmt::format("{:.2f} °C", t->celsius()) : std::string("–");
    };
    const auto humidity = generic<Relation>(rix, Id::Environment::Humidity);
    const bool glass = generic<bool>(rix, Id::ProtectiveGlass::Attached).value_or(false);
    html +=
        table({{"emissivity", emissivityText(rix, rix.getEmissivityOriginal(), Id::Environment::Material)},
               {"reflected temperature", fmt::format("{:.2f} °C", rix.getReflectedTempOriginal().celsius())},
               {"air temperature", tempOr(Id::Environment::Temperature)},
               {"relative humidity", humidity ? fmt::format("{:.1f} %", humidity->percent()) : "–"},
               {"protective glass",
                glass ? fmt::format("transmission {:.2f}",
                                    generic<float>(rix, Id::ProtectiveGlass::Transmission).value_or(1.0f))
                      : "none"}});
    html += "</div><div><h3>Image</h3>";
    const auto range = generic<unsigned char>(rix, Id::ActiveMeasRange::Name);
    html += table(
        {{"taken", s.time},
         {"maximum", s.max + fmt::format(" at ({}, {})", mm.maxPosition.x, mm.maxPosition.y)},
         {"minimum", fmt::format("{:.2f} °C at ({}, {})", norda::vision::RadiometricTools::getFloat(mm.min),
                                 mm.minPosition.x, mm.minPosition.y)},
         {"detector", fmt::format("{} x {}, measurement range {} ({} … {})", rad.cols, rad.rows,
                                  range ? std::to_string(*range) : "?", tempOr(Id::ActiveMeasRange::Bottom),
                                  tempOr(Id::ActiveMeasRange::Top))},
         {"lens", generic<std::string>(rix, Id::ActiveLens::Serial).value_or("–")},
         {"UUID", rix.getFileUuidString()}});
    html += "</div></div><h3>Note</h3><p class=note>" + (note.empty() ? "<i>no note</i>" : escape(note)) +
            "</p></section>";
    return html;
}

const char* kStyle = R"(<style>
@page { size: A4; margin: 12mm }
body { font-family: "DejaVu Sans", sans-serif; font-size: 10pt; color: #111 }
section.page { page-break-after: always }
section.page:last-child { page-break-after: auto }
h1 { font-size: 18pt } h2 { font-size: 14pt; margin: 0 0 4mm } h3 { font-size: 11pt; margin: 4mm 0 1mm }
.pics { display: flex; gap: 4mm } figure { margin: 0; flex: 1 } img { width: 100% }
figcaption { font-size: 8pt; color: #555 }
table { border-collapse: collapse } .grid td, .grid th { border: 1px solid #bbb; padding: 1mm 2mm; text-align: left }
.kv th { text-align: left; padding-right: 4mm; font-weight: normal; color: #444; white-space: nowrap }
.kv td, .sum td { white-space: nowrap } .sum td:last-child { white-space: normal }
.cols { display: flex; gap: 8mm } .note { white-space: pre-wrap } .bad { color: #a00 }
</style>)";

std::string quoted(const std::string& s) {
    std::string q = "'";
    for (char c : s)
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

std::string chromium() {
    if (const char* env = std::getenv("NORDA_CHROMIUM"))
        return env;
    for (const char* name : {"chromium", "chromium-browser", "google-chrome"}) {
        const char* path = std::getenv("PATH");
        std::string dirs = path ? path : "/usr/bin";
        size_t start = 0;
        while (start <= dirs.size()) {
            const size_t end = dirs.find(':', start);
            const std::string candidate = dirs.substr(start, end - start) + "/" + name;
            if (::access(candidate.c_str(), X_OK) == 0)
                return candidate;
            if (end == std::string::npos)
                break;
            start = end + 1;
        }
    }
    throw SettingsError("no Chromium found to print the PDF (install chromium, or write --out FILE.html)");
}

} // namespace

std::string imageNote(const Rix& rix) {
    return generic<std::string>(rix, kNoteKey).value_or("");
}

int rixNote(const std::string& file, const std::string& note, std::ostream& out) {
    if (!norda::utils::existsFile(file))
        throw SettingsError("no such file: " + file);
    Rix rix;
    rix.load(file);
    if (note.empty())
        rix.removeGeneric(kNoteKey);
    else
        rix.setGeneric(kNoteKey, makeVariant(note));
    rix.save(file, rix.isSuperResolutionFile());
    out << (note.empty() ? "removed the note of " : "stored the note in ") << file << "\n";
    return 0;
}

cv::Mat reportInfraredPicture(const Rix& rix) {
    // Drawn as a live save and the gallery draw it: from what the image itself holds.
    const cv::Mat overlay =
        norda::vision::frameOverlay(norda::vision::savedFrameMetadata(rix), rix.getRadiometricImage().size());
    const cv::Mat picture = streaming::JpegImageCreator::composeJpegImage(rix.getPreviewImageRgb(), overlay);
    cv::Mat bgr;
    if (!picture.empty())
        cv::cvtColor(picture, bgr, cv::COLOR_BGRA2BGR);
    return bgr;
}

std::string reportHtml(const ReportOptions& o, std::vector<std::string>* damagedOut) {
    if (o.images.empty())
        throw SettingsError("no image given for the report");
    std::vector<Summary> summaries;
    std::vector<std::string> damaged;
    std::string pages;
    for (const auto& file : o.images) {
        try {
            if (!norda::utils::existsFile(file))
                throw std::runtime_error(file + ": no such file");
            Rix rix;
            rix.load(file);
            if (rix.getRadiometricImage().empty() || rix.getPreviewImageRgb().empty())
                throw std::runtime_error(file + ": holds no radiometric or palette image");
            Summary s;
            pages += imagePage(file, rix, o, s);
            summaries.push_back(s);
        } catch (const std::exception& e) {
            damaged.push_back(e.what());
        }
    }
    if (damagedOut)
        *damagedOut = damaged;
    std::string html = "<!DOCTYPE html><html><head><meta charset=utf-8><title>" + escape(o.title) +
                       "</title>" + kStyle + "</head><body><section class=page><h1>" + escape(o.title) +
                       "</h1>";
    html += fmt::format("<p>{} images, {} could not be read.</p>", summaries.size(), damaged.size());
    html += "<table class=\"grid "
            "sum\"><tr><th>image</th><th>taken</th><th>maximum</th><th>validity</th><th>alarm</th>"
            "<th>note</th></tr>";
    for (const auto& s : summaries)
        html += fmt::format("<tr><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td>{}</td></tr>",
                            escape(s.file), escape(s.time), escape(s.max), escape(s.maxMark), escape(s.alarm),
                            escape(s.note));
    html += "</table>";
    if (!damaged.empty()) {
        html += "<h3>Files that could not be read</h3><ul class=bad>";
        for (const auto& d : damaged)
            html += "<li>" + escape(d) + "</li>";
        html += "</ul>";
    }
    return html + "</section>" + pages + "</body></html>";
}

int report(const ReportOptions& o, std::ostream& out) {
    std::string ext = fs::path(o.out).extension().string();
    for (auto& c : ext)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    if (ext != ".pdf" && ext != ".html" && ext != ".htm")
        throw SettingsError("--out must end in .pdf or .html: " + o.out);
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::string> damaged;
    const std::string html = reportHtml(o, &damaged);
    for (const auto& d : damaged)
        out << "  skipped: " << d << "\n";
    const size_t pages = o.images.size() - damaged.size();
    if (ext != ".pdf") {
        norda::utils::writeFileAtomically(o.out, html.data(), html.size());
    } else {
        // Printed from a hidden file beside the target, renamed into place once complete.
        const fs::path target = fs::absolute(o.out);
        const std::string stem = (target.parent_path() / ("." + target.filename().string())).string() + "." +
                                 std::to_string(::getpid());
        const std::string htmlFile = stem + ".html", pdfFile = stem + ".pdf";
        norda::utils::writeFileAtomically(htmlFile, html.data(), html.size());
        const std::string profile = stem + ".profile";
        // The browser runs without libraries preloaded into this program (a sanitizer's runtime
        // under test makes it spin).
        const std::string command =
            "env -u LD_PRELOAD timeout 300 " + quoted(chromium()) +
            " --headless --no-sandbox --disable-gpu --no-first-run --no-pdf-header-footer --user-data-dir=" +
            quoted(profile) + " --print-to-pdf=" + quoted(pdfFile) + " " + quoted("file://" + htmlFile) +
            " >/dev/null 2>&1";
        const int rc = std::system(command.c_str());
        std::error_code ec;
        fs::remove(htmlFile, ec);
        fs::remove_all(profile, ec);
        if (rc != 0 || !fs::exists(pdfFile) || fs::file_size(pdfFile, ec) == 0) {
            fs::remove(pdfFile, ec);
            throw SettingsError("Chromium could not print " + o.out + fmt::format(" (exit status {})", rc));
        }
        fs::rename(pdfFile, target, ec);
        if (ec)
            throw SettingsError("can not write " + o.out + ": " + ec.message());
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    out << fmt::format("wrote {} ({} image pages, {} damaged files listed) in {:.1f} s\n", o.out, pages,
                       damaged.size(), seconds);
    return pages == 0 ? 1 : 0;
}

} // namespace nordacam
