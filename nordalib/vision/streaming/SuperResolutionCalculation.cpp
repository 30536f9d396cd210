#include "nordalib/vision/streaming/SuperResolutionCalculation.h"

#include "nordalib/core/keys/Keys.h"

#include <algorithm>
#include <chrono>

namespace norda::exp::streaming {

using logging::LogLevel;

namespace {
constexpr size_t kSrFrameCount = 5;

// Guards the read-modify-write of the pending super-resolution count, which threads update
// before they queue on the calculation lock.
std::mutex g_srCountLock;

int addToSrCount(DataProxy<std::string>& proxy, int delta) {
    std::lock_guard<std::mutex> lock(g_srCountLock);
    const int count = proxy.getValue<int>(Id::Miscellaneous::SuperResolutionCount) + delta;
    proxy.setValue<int>(Id::Miscellaneous::SuperResolutionCount, count, true);
    return count;
}
} // namespace

void SuperResolutionCalculation::run(const std::string& fileName, vision::Rix rix,
                                     std::vector<cv::Mat_<uint16_t>> frames,
                                     DataProxy<std::string>* dataProxy, std::atomic<bool>& srBusy,
                                     std::shared_ptr<logging::Logger> logger, std::mutex& calculationLock) {
    if (!logger)
        logger = logging::Logger::createSharedLogger("SUPER_WRITE", true);
    if (frames.size() != kSrFrameCount)
        return;
    // A detached thread must never let an exception escape: it would end the program.
    try {
        srBusy.store(true);
        addToSrCount(*dataProxy, +1);
        {
            std::lock_guard<std::mutex> lock(calculationLock);
            logger->log(LogLevel::debug, "calculate SuperResolutionImage {}", fileName);
            float result = 0.0f;
            bool calculated = false;
            try {
                const auto start = std::chrono::steady_clock::now();
                result = rix.calculateSuperResolutionImage(frames);
                const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                                    std::chrono::steady_clock::now() - start)
                                    .count();
                logger->log(LogLevel::debug, "Sr: SR2 Calc Time: {} ms Sr: SrRef result {}", ms,
                            static_cast<double>(result));
                calculated = true;
            } catch (const std::exception& e) {
                logger->log(LogLevel::error, "SR Image {}  Calculation fail: {}", fileName, e.what());
            }
            frames.clear();
            if (calculated && result <= 0.0f) {
                dataProxy->setValue(Id::Miscellaneous::WarnSrMovementDetected, true, true);
            } else if (calculated) {
                try {
                    const auto removeList = dataProxy->getValue<std::vector<std::string>>(
                        Id::Miscellaneous::SuperResolutionDeleteRequest);
                    if (std::find(removeList.begin(), removeList.end(), fileName) != removeList.end())
                        logger->log(LogLevel::debug, "skip save {} since it is one the remove list",
                                    fileName);
                    else
                        rix.save(fileName, true);
                } catch (const std::exception& e) {
                    logger->log(LogLevel::error, "SR Image {} Write fail: {}", fileName, e.what());
                    dataProxy->setValue(Id::Miscellaneous::ErrorImageSaving, true, true);
                }
            }
            if (addToSrCount(*dataProxy, -1) == 0) {
                srBusy.store(false);
                dataProxy->setValue(Id::Miscellaneous::SuperResolutionDeleteRequest,
                                    std::vector<std::string>(), true);
            }
        }
        logger->log(LogLevel::debug, "Calculate SuperResolutionImage END {}", fileName);
    } catch (const std::exception& e) {
        logger->log(LogLevel::critical, "SR Image {} bookkeeping fail: {}", fileName, e.what());
    }
}

} // namespace norda::exp::streaming
