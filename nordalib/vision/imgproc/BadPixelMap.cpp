#include "nordalib/vision/imgproc/BadPixelMap.h"

#include "nordalib/core/exception/Exception.h"

#include "nordalib/vision/imageio/PxmImage.h"

namespace norda::vision {

cv::Mat BadPixelMap::toMask(const BadPixelList& list, cv::Size size) {
    cv::Mat mask(size, CV_8UC1, cv::Scalar(0));
    for (const auto& p : list) {
        if (p.x >= size.width || p.y >= size.height)
            NORDA_THROW("bad pixel " + std::to_string(p.x) + "," + std::to_string(p.y) +
                            " lies outside the " + std::to_string(size.width) + "x" +
                            std::to_string(size.height) + " sensor",
                        "norda::vision::BadPixelMap::toMask");
        mask.at<uint8_t>(p.y, p.x) = static_cast<uint8_t>(static_cast<unsigned>(p.origin) + 1);
    }
    return mask;
}

BadPixelList BadPixelMap::fromMask(const cv::Mat& mask) {
    if (mask.type() != CV_8UC1)
        NORDA_THROW("bad pixel mask must be an 8-bit single-channel image",
                    "norda::vision::BadPixelMap::fromMask");
    BadPixelList list;
    for (int y = 0; y < mask.rows; ++y) {
        const auto* m = mask.ptr<uint8_t>(y);
        for (int x = 0; x < mask.cols; ++x) {
            if (!m[x])
                continue;
            const auto origin = m[x] <= 4 ? static_cast<BadPixelOrigin>(m[x] - 1) : BadPixelOrigin::Factory;
            list.push_back({static_cast<uint16_t>(x), static_cast<uint16_t>(y), origin});
        }
    }
    return list;
}

BadPixelList BadPixelMap::read(const std::string& file, cv::Size* size) {
    const cv::Mat mask = readPxmImage(file);
    if (mask.type() != CV_8UC1)
        NORDA_THROW("bad pixel file " + file + " is not an 8-bit mask", "norda::vision::BadPixelMap::read");
    if (size)
        *size = mask.size();
    return fromMask(mask);
}

void BadPixelMap::write(const std::string& file, const BadPixelList& list, cv::Size size) {
    writePxmImage(file, toMask(list, size));
}

} // namespace norda::vision
