#include "apps/nordacam/FactoryViewFolder.h"

#include "apps/nordacam/sim/physics/PhysicalCamera.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imageio/PxmEncoder.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace nordacam::factory {

namespace {
constexpr const char* kWhere = "nordacam::FactoryViews";
constexpr Band kBands[] = {{1, -20.0, 150.0}, {2, 0.0, 350.0}};
} // namespace

std::vector<Band> bandsOf(const std::vector<unsigned>& ranges) {
    std::vector<Band> bands;
    for (unsigned r : ranges) {
        auto b =
            std::find_if(std::begin(kBands), std::end(kBands), [&](const Band& b) { return b.range == r; });
        if (b == std::end(kBands))
            NORDA_THROW("measurement range " + std::to_string(r) + " is not 1 or 2", kWhere);
        bands.push_back(*b);
    }
    return bands;
}

std::string folderOf(const std::string& folder) {
    std::filesystem::create_directories(folder);
    return folder.back() == '/' ? folder : folder + "/";
}

void writeFrames(const std::string& file, const std::vector<cv::Mat>& frames) {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    norda::vision::PxmEncoder encoder;
    for (const auto& f : frames) {
        const auto e = encoder.encode(f, nullptr);
        out << *e.header;
        out.write(reinterpret_cast<const char*>(e.payload), static_cast<std::streamsize>(e.payloadSize));
    }
    if (!out)
        NORDA_THROW("can not write " + file, kWhere);
}

void writeJson(const std::string& file, const nlohmann::json& doc) {
    std::ofstream out(file, std::ios::trunc);
    out << doc.dump(1) << "\n";
    if (!out)
        NORDA_THROW("can not write " + file, kWhere);
}

double lensTransmission(const sim::physics::PhysicalCamera& camera) {
    return camera.lensPathRadiance(30.0) / camera.detectorRadiance(30.0);
}

} // namespace nordacam::factory
