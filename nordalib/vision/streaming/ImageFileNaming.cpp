#include "nordalib/vision/streaming/ImageFileNaming.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"

#include <fmt/format.h>

#include <filesystem>

namespace norda::exp::streaming {

using logging::LogLevel;

ImageFileNaming::ImageFileNaming(std::string imageFolder, DataProxy<std::string>* proxy,
                                 std::shared_ptr<logging::Logger> logger)
    : m_strImageFolder(std::move(imageFolder)), m_pDataProxy(proxy), m_logger(std::move(logger)) {}

// Files of an earlier image with the same number (a counter that was reset) are superseded by
// the one about to be written: every file of the image folder whose name, before its extension,
// ends in the number goes, whatever its prefix.
void ImageFileNaming::deleteSupersededFiles(unsigned int counter) {
    namespace fs = std::filesystem;
    const std::string number = getFormatedFileNumber(counter);
    std::error_code ec;
    fs::directory_iterator it(m_strImageFolder, ec), end;
    for (; !ec && it != end; it.increment(ec)) {
        std::error_code fileError;
        if (!it->is_regular_file(fileError))
            continue;
        const std::string name = it->path().filename().string();
        const auto dot = name.rfind('.');
        if (dot == std::string::npos || dot < number.size() ||
            name.compare(dot - number.size(), number.size(), number) != 0)
            continue;
        if (fs::remove(it->path(), fileError))
            m_logger->log(LogLevel::debug, "deleted superseded image file {}", it->path().string());
        else if (fileError)
            m_logger->log(LogLevel::warning, "could not delete superseded image file {}: {}",
                          it->path().string(), fileError.message());
    }
}

std::string ImageFileNaming::getFormatedFileNumber(unsigned int number) {
    return fmt::format("{:06d}", number);
}

std::string ImageFileNaming::getFilename(unsigned int number, const std::string& prefix,
                                         const std::string& extension) {
    std::string folder;
    if (m_pDataProxy->getValue<bool>(Id::PlaceTag::SiteInUse)) {
        const auto place = m_pDataProxy->getValue<std::string>(Id::PlaceTag::MeasSiteFolder);
        if (!place.empty()) {
            folder = place.front() != '/' ? m_strImageFolder + "/" + place : m_strImageFolder + place;
            if (!utils::existsDirectory(folder)) {
                m_logger->log(LogLevel::info, "Site image folder {} does not exsists ... create it!", folder);
                std::error_code ec;
                std::filesystem::create_directories(folder, ec);
                if (ec || !utils::existsDirectory(folder)) {
                    m_logger->log(LogLevel::error, "Could not create place tag image folder: {}!", folder);
                    folder.clear();
                }
            }
        }
    }
    std::string path;
    if (!folder.empty()) {
        path = folder;
        if (path.back() != '/')
            path += '/';
    } else {
        path = m_strImageFolder + "/";
    }
    return path + prefix + getFormatedFileNumber(number) + "." + extension;
}

} // namespace norda::exp::streaming
