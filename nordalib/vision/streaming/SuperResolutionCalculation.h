#pragma once
// SuperResolutionCalculation: the background calculation of a super-resolution image for the image
// write element, one detached thread per image.
//
// With exactly five frames: the host's busy flag goes true and Miscellaneous.SuperResolutionCount
// up by one; under `calculationLock` (one lock for all image writers, so calculations run one after
// another) the container fuses the frames ("calculate SuperResolutionImage {}", "Sr: SR2 Calc
// Time: {} ms Sr: SrRef result {}"); a result of 0 or less sets
// Miscellaneous.WarnSrMovementDetected, else the image is saved unless its name is on
// Miscellaneous.SuperResolutionDeleteRequest ("skip save {} since it is one the remove list").
// Then the count goes down; at 0 the busy flag clears and the remove list empties. Failures: "SR
// Image {}  Calculation fail: {}", "SR Image {} Write fail: {}" (and ErrorImageSaving). A missing
// logger is replaced by "SUPER_WRITE". Nothing escapes the thread.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/rix/Rix.h"

#include <opencv2/core.hpp>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace norda::exp::streaming {

class SuperResolutionCalculation {
public:
    static void run(const std::string& fileName, vision::Rix rix, std::vector<cv::Mat_<uint16_t>> frames,
                    DataProxy<std::string>* dataProxy, std::atomic<bool>& srBusy,
                    std::shared_ptr<logging::Logger> logger, std::mutex& calculationLock);
};

} // namespace norda::exp::streaming
