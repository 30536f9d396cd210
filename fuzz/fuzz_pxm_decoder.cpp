// The PXM decoder on arbitrary bytes: every frame it returns is well formed, every failure is a
// norda::Exception, and indexing by skip() finds exactly the frames grab() delivers, each of which
// seek() returns to.
#include "FuzzSupport.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imageio/ImageDecoderPxM.h"

#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto& path = norda::fuzz::writeScratch(data, size);
    norda::vision::ImageDecoderPxM decoder;
    cv::Mat frame;
    size_t grabbed = 0;
    bool grabFailed = false;
    try {
        if (!decoder.open(path))
            return 0;
        for (; grabbed < 64 && decoder.grab(frame, nullptr); ++grabbed)
            if (frame.empty() || frame.total() * frame.elemSize() > (size_t(1) << 30))
                std::abort();
    } catch (const norda::Exception&) {
        grabFailed = true;
    }
    std::vector<uint64_t> offsets;
    try {
        decoder.open(path);
        for (uint64_t start = decoder.position(); offsets.size() < 64 && decoder.skip();
             start = decoder.position())
            offsets.push_back(start);
        if (!grabFailed && offsets.size() != grabbed)
            std::abort();
    } catch (const norda::Exception&) {
        if (!grabFailed || offsets.size() != grabbed)
            std::abort(); // skip() and grab() check the same headers
    }
    try {
        for (size_t i = offsets.size(); i-- > 0;)
            if (!decoder.seek(offsets[i], i) || !decoder.grab(frame, nullptr))
                std::abort();
    } catch (const norda::Exception&) {
        std::abort(); // a frame skip() passed decodes
    }
    decoder.close();
    return 0;
}
