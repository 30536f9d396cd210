// The PXM decoder on arbitrary bytes: every frame it returns is well formed, every failure is a
// norda::Exception.
#include "FuzzSupport.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imageio/ImageDecoderPxM.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto& path = norda::fuzz::writeScratch(data, size);
    norda::vision::ImageDecoderPxM decoder;
    try {
        if (!decoder.open(path))
            return 0;
        cv::Mat frame;
        for (int i = 0; i < 64 && decoder.grab(frame, nullptr); ++i)
            if (frame.empty() || frame.total() * frame.elemSize() > (size_t(1) << 30))
                std::abort();
    } catch (const norda::Exception&) {
    }
    decoder.close();
    return 0;
}
