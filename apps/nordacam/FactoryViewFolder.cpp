#include "apps/nordacam/FactoryViewFolder.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imageio/PxmEncoder.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>

namespace nordacam::factory {

namespace {
constexpr const char* kWhere = "nordacam::FactoryViews";
} // namespace

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

} // namespace nordacam::factory
