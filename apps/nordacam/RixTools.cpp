#include "apps/nordacam/RixTools.h"

#include "apps/nordacam/Settings.h"

#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/utils/FileUtils.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"
#include "nordalib/vision/rix/Rix.h"
#include "nordalib/vision/rix/RixReanalysis.h"

#include <fmt/format.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <ctime>
#include <filesystem>

namespace nordacam {

namespace fs = std::filesystem;

std::string utcTime(unsigned long long ms) {
    const std::time_t s = static_cast<std::time_t>(ms / 1000);
    std::tm tm{};
    gmtime_r(&s, &tm);
    char buf[64];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &tm);
    return fmt::format("{}.{:03} UTC", buf, ms % 1000);
}

std::string markText(uint8_t mark) {
    using norda::exp::MarkedFloat;
    switch (mark) {
    case MarkedFloat::Valid:
        return "valid";
    case MarkedFloat::OutOfTolerance:
        return "outside tolerance";
    case MarkedFloat::UnderRange:
        return "under range";
    case MarkedFloat::OverRange:
        return "over range";
    default:
        return fmt::format("mark {}", mark);
    }
}

namespace {

void requireFile(const std::string& file) {
    if (!norda::utils::existsFile(file))
        throw SettingsError("no such file: " + file);
}

// A temperature or relative humidity as the user reads it, with its validity mark.
std::string quantityText(const std::shared_ptr<norda::exp::Variant>& v) {
    using namespace norda::exp;
    if (v && v->holds<quantity::Temperature<MarkedFloat>>()) {
        const auto& t = v->value<quantity::Temperature<MarkedFloat>>();
        return fmt::format("{:.2f} °C, {}", t.celsius(), markText(t.getValue().getMark()));
    }
    if (v && v->holds<quantity::Relation<MarkedFloat>>()) {
        const auto& r = v->value<quantity::Relation<MarkedFloat>>();
        return fmt::format("{:.1f} %, {}", r.percent(), markText(r.getValue().getMark()));
    }
    return v ? toJson(*v).dump() : std::string("none");
}

std::string pointText(const norda::exp::MeasPoint& p) {
    return fmt::format("({}, {}) {}", p.getX(), p.getY(), quantityText(p.getValue()));
}

// Measurement points and areas in positions and temperatures; other values as JSON.
std::string settingText(const std::shared_ptr<norda::exp::Variant>& v) {
    using namespace norda::exp;
    if (v && v->holds<MeasPoint>())
        return pointText(v->value<MeasPoint>());
    if (v && v->holds<MeasArea>()) {
        const auto& a = v->value<MeasArea>();
        const auto r = a.getAreaRect();
        return fmt::format("{} x {} at ({}, {}): hot {}; cold {}; mean {}", r.width, r.height, r.x, r.y,
                           pointText(a.getHotSpot()), pointText(a.getColdSpot()),
                           quantityText(a.getMeanValue()));
    }
    if (v && (v->holds<quantity::Temperature<MarkedFloat>>() || v->holds<quantity::Relation<MarkedFloat>>()))
        return quantityText(v);
    return v ? toJson(*v).dump() : std::string("null");
}

norda::vision::Rix loadRix(const std::string& file) {
    requireFile(file);
    norda::vision::Rix rix;
    rix.load(file);
    return rix;
}
} // namespace

int rixInfo(const std::string& file, std::ostream& out) {
    using norda::vision::RadiometricTools;
    const auto rix = loadRix(file);
    const auto& rad = rix.getRadiometricImage();
    std::error_code ec;
    out << file << "\n";
    out << fmt::format("  file size        {} bytes, format version {}{}\n", fs::file_size(file, ec),
                       rix.getFileVersion().toString(),
                       rix.isSuperResolutionFile() ? ", super-resolution" : "");
    out << "  taken            " << utcTime(rix.getFileDateTime()) << "\n";
    out << "  UUID             " << rix.getFileUuidString() << "\n";
    out << fmt::format("  radiometric      {} x {}, 16 bit (0.01 K per count)\n", rad.cols, rad.rows);
    const auto& mm = rix.getMinMax();
    out << fmt::format("  minimum          {:.2f} °C at ({}, {})\n", RadiometricTools::getFloat(mm.min),
                       mm.minPosition.x, mm.minPosition.y);
    out << fmt::format("  maximum          {:.2f} °C at ({}, {})\n", RadiometricTools::getFloat(mm.max),
                       mm.maxPosition.x, mm.maxPosition.y);
    if (!rad.empty())
        out << fmt::format("  centre           {:.2f} °C at ({}, {})\n",
                           RadiometricTools::getFloat(rad(rad.rows / 2, rad.cols / 2)), rad.cols / 2,
                           rad.rows / 2);
    out << fmt::format("  scaling          {:.2f} .. {:.2f} °C\n", rix.getScalingMin().celsius(),
                       rix.getScalingMax().celsius());
    out << fmt::format("  emissivity       {:.3f}, reflected {:.2f} °C\n", rix.getEmissivityOriginal(),
                       rix.getReflectedTempOriginal().celsius());
    out << "  contents        ";
    out << " radiometric image";
    if (!rix.getPreviewImageRgb().empty())
        out << fmt::format(", preview {}x{}", rix.getPreviewImageRgb().cols, rix.getPreviewImageRgb().rows);
    if (!rix.getVisualImageYuv2().empty())
        out << fmt::format(", visual {}x{}", rix.getVisualImageYuv2().cols, rix.getVisualImageYuv2().rows);
    if (!rix.getSrFrames().empty())
        out << fmt::format(", {} super-resolution frames", rix.getSrFrames().size());
    if (!rix.getSuperResolutionImage().empty())
        out << ", super-resolution image";
    out << "\n  settings (" << rix.getGenerics().size() << ")\n";
    for (const auto& [key, value] : rix.getGenerics())
        out << "    " << key << " = " << settingText(value) << "\n";
    return 0;
}

namespace {
std::string airText(const norda::vision::ObjectParameters& p) {
    return p.distanceM > 0.0 ? fmt::format("{:.1f} m at {:.1f} °C, {:.0f} %", p.distanceM, p.airK - 273.15,
                                           p.humidityPercent)
                             : "no air correction";
}
} // namespace

int rixExport(const std::string& file, ExportFormat format, const std::string& outFile, std::ostream& out,
              const ReanalysisRequest& request) {
    using norda::vision::RadiometricTools;
    const auto rix = loadRix(file);
    cv::Mat_<uint16_t> rad = rix.getRadiometricImage();
    if (!rad.empty() && request.any()) {
        using norda::vision::RixReanalysis;
        const auto from = RixReanalysis::storedParameters(rix);
        auto kelvin = [](std::optional<float> c) {
            return c ? std::optional<double>(*c + 273.15) : std::nullopt;
        };
        norda::vision::ObjectParameters to;
        try {
            to = RixReanalysis::parametersFor(rix, {request.emissivity, kelvin(request.reflectedC),
                                                    request.distanceM, kelvin(request.airC),
                                                    request.humidityPercent, std::nullopt, std::nullopt});
            rad = RixReanalysis::temperatures(rix, to);
        } catch (const norda::Exception& e) {
            throw SettingsError(file + ": " + e.what());
        }
        out << fmt::format(
            "re-analysed for emissivity {:.3f}, reflected {:.2f} °C (taken with {:.3f}, {:.2f} °C)\n",
            to.emissivity, to.reflectedK - 273.15, rix.getEmissivityOriginal(),
            rix.getReflectedTempOriginal().celsius());
        if (to.distanceM > 0.0 || from.distanceM > 0.0)
            out << fmt::format("air: {} (taken with {})\n", airText(to), airText(from));
    }
    if (rad.empty())
        throw SettingsError(file + " holds no radiometric image");
    if (format == ExportFormat::Csv) {
        std::string csv;
        csv.reserve(size_t(rad.total()) * 8);
        for (int y = 0; y < rad.rows; ++y) {
            for (int x = 0; x < rad.cols; ++x)
                csv += fmt::format("{}{:.2f}", x ? ";" : "", RadiometricTools::getFloat(rad(y, x)));
            csv += "\n";
        }
        try {
            norda::utils::writeFileAtomically(outFile, csv.data(), csv.size());
        } catch (const norda::Exception& e) {
            throw SettingsError(e.what());
        }
        out << fmt::format("wrote {} x {} temperatures (°C, ';'-separated) to {}\n", rad.cols, rad.rows,
                           outFile);
        return 0;
    }
    if (!cv::imwrite(outFile, rad))
        throw SettingsError("can not write " + outFile);
    out << fmt::format("wrote the {} x {} radiometric image (16 bit, 0.01 K per count) to {}\n", rad.cols,
                       rad.rows, outFile);
    const auto stem = fs::path(outFile).replace_extension().string();
    if (!rix.getPreviewImageRgb().empty()) {
        cv::Mat bgr;
        cv::cvtColor(rix.getPreviewImageRgb(), bgr, cv::COLOR_RGB2BGR);
        if (cv::imwrite(stem + "-preview.png", bgr))
            out << "wrote the preview image to " << stem << "-preview.png\n";
    }
    if (!rix.getVisualImageYuv2().empty()) {
        cv::Mat bgr;
        cv::cvtColor(rix.getVisualImageYuv2(), bgr, cv::COLOR_YUV2BGR_UYVY);
        if (cv::imwrite(stem + "-visual.png", bgr))
            out << "wrote the visual image to " << stem << "-visual.png\n";
    }
    return 0;
}

} // namespace nordacam
