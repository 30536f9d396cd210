#include "nordalib/vision/imageio/PxmImage.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imageio/ImageDecoderPxM.h"
#include "nordalib/vision/imageio/ImageIO.h"

namespace norda::vision {

cv::Mat readPxmImage(const std::string& fileName, exp::DataStorage<std::string>* metaData) {
    ImageDecoderPxM decoder;
    if (!decoder.open(fileName))
        NORDA_THROW("PXM file '" + fileName + "' can not be opened", "norda::vision::readPxmImage");
    cv::Mat image;
    if (!decoder.grab(image, nullptr))
        NORDA_THROW("PXM file '" + fileName + "' holds no complete image", "norda::vision::readPxmImage");
    if (metaData)
        *metaData = decoder.getMetaData();
    return image;
}

void writePxmImage(const std::string& fileName, const cv::Mat& image,
                   const exp::DataStorage<std::string>& metaData) {
    ImageIO writer(0);
    if (!metaData.empty())
        writer.setMetaData(std::make_shared<exp::DataStorage<std::string>>(metaData));
    writer.write(image, fileName);
}

} // namespace norda::vision
