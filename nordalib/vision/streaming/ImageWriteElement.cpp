#include "nordalib/vision/streaming/ImageWriteElement.h"

#include "nordalib/vision/streaming/SuperResolutionCalculation.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"

#include <fmt/format.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <thread>

namespace norda::exp::streaming {

using logging::LogLevel;
using Temperature = quantity::Temperature<MarkedFloat>;

std::mutex ImageWriteElement::m_mutSrCalcLock;

namespace {
constexpr size_t kSrFrameCount = 5;
const cv::Size kVisualXga(1024, 768);
const cv::Size kVisualQsxga(2592, 1944);
constexpr int kHighResolutionColumns = 2592;
} // namespace

ImageWriteElement::ImageWriteElement(const std::string& imageFolder, DataProxy<std::string>* dataProxy,
                                     cmd::CommandProxy* commandProxy,
                                     const std::vector<std::string>& metaDataKeys,
                                     const std::function<void(DataStorage<std::string>)>& metaDataCallback,
                                     int priority, std::atomic<bool>& srBusy, STREAMING_DATATYPE visualSlot)
    : StreamingElement({visualSlot, STREAMING_DATATYPE_RGB, STREAMING_DATATYPE_RAD_CONST}, {},
                       "ImageWriteElement", dataProxy, true, priority),
      cmd::ICallable("ImageWrite"), m_strImageFolder(imageFolder), m_pDataProxy(dataProxy),
      m_pCommandProxy(commandProxy), m_vecMetaDataKeys(metaDataKeys),
      m_strPreviousVisualResolution(Id::Viscam::Resolution::Qvga), m_metaDataCallback(metaDataCallback),
      m_bSrBusy(srBusy), m_visualSlot(visualSlot),
      m_logger(logging::Logger::createSharedLogger("IMAGE_WRITE", true)),
      m_naming(imageFolder, dataProxy, m_logger), m_jpeg(dataProxy, m_logger) {
    if (!m_pDataProxy)
        NORDA_THROW("Pointer to DataProxy is mandatory for this element!",
                    "norda::exp::streaming::ImageWriteElement::ImageWriteElement");
    if (!m_pCommandProxy)
        NORDA_THROW("Pointer to CommandProxy is mandatory for this element!",
                    "norda::exp::streaming::ImageWriteElement::ImageWriteElement");

    registerDelegate(new cmd::Delegate<void, bool>([this](bool preview) { triggerSave(preview); }),
                     cmd::DelegateDescription(
                         "TriggerImageSave", typeid(void), "Save image",
                         {cmd::PackParameterDescription(0, typeid(bool), "bool", "Set for preview image")}));
    registerDelegate(new cmd::Delegate<std::vector<char>>([this] { return triggerImageAndTransfer(); }),
                     cmd::DelegateDescription("CaptureImage", typeid(std::vector<char>),
                                              "Capture image and transfer", {}));
    m_pCommandProxy->registerCallable(this, false);
}

// Unregisters by the element's name, not by the callable's: kept so on purpose (the callable's
// registration dies with it anyway).
ImageWriteElement::~ImageWriteElement() {
    m_pCommandProxy->unregisterCallable(getName());
    // A caller still waiting for a capture gets an empty result, and leaves before the members
    // it uses are destroyed.
    std::unique_lock<std::mutex> lock(m_mutTransfer);
    m_bClosing = true;
    m_cvTransfer.notify_all();
    m_cvTransfer.wait(lock, [this] { return m_iTransferWaiters == 0; });
    lock.unlock();
    for (auto& job : m_srJobs)
        job.wait();
}

bool ImageWriteElement::process(FrameMap& inputs, FrameMap& /*outputs*/) {
    auto& ir = inputs[STREAMING_DATATYPE_RAD_CONST];
    if (ir && ir->isMetaDateAvailable(Id::Gallery::ActiveFilename)) {
        // A stored image shown from the gallery: never saved again, its settings go to the host.
        m_metaDataCallback(ir->releaseMetaData());
        return false;
    }
    if (!m_bSaveRequested)
        return false;

    try {
        auto& preview = inputs[STREAMING_DATATYPE_RGB];
        if (ir && preview && inputs[STREAMING_DATATYPE_YUV422])
            saveImage(std::move(ir), std::move(preview), std::move(inputs[STREAMING_DATATYPE_YUV422]));
        else if (ir && preview && inputs[STREAMING_DATATYPE_YUV422_HIRES])
            saveImage(std::move(ir), std::move(preview), std::move(inputs[STREAMING_DATATYPE_YUV422_HIRES]));
        else if (ir && preview)
            saveImage(std::move(ir), std::move(preview), nullptr);
        else
            m_logger->log(LogLevel::error, "Not all required frametypes available!");
    } catch (const std::exception& e) {
        m_logger->log(LogLevel::error, "Erro during process: {}", e.what());
        m_bSaveRequested = false;
        m_vecSrFrames.clear(); // the next request collects fresh frames
        m_pDataProxy->setValue(Id::Miscellaneous::SpinnerVisible, false, true);
    }
    return false;
}

void ImageWriteElement::triggerSave(bool preview) {
    m_pDataProxy->setValue(Id::Miscellaneous::LastImageFileName, std::string(), true);
    m_pDataProxy->setValue(Id::Miscellaneous::SaveImageMode, preview, true);
    m_bSaveRequested = true;
}

std::vector<char> ImageWriteElement::triggerImageAndTransfer() {
    std::unique_lock<std::mutex> lock(m_mutTransfer);
    if (m_bClosing || m_bTransferRequested || m_pDataProxy->getValue<bool>(Id::Miscellaneous::SaveImageMode))
        return {};
    m_bImageReady = false;
    m_bTransferRequested = true;
    m_bSaveRequested = true;
    const auto deadline = std::chrono::steady_clock::now() + m_transferTimeout;
    ++m_iTransferWaiters;
    const bool ready =
        m_cvTransfer.wait_until(lock, deadline, [this] { return m_bImageReady || m_bClosing; });
    --m_iTransferWaiters;
    if (m_bClosing) {
        m_cvTransfer.notify_all();
        return {};
    }
    if (!ready) {
        m_bTransferRequested = false;
        std::cout << "Error: Timeout waiting for image caputure!" << std::endl;
        return {};
    }
    m_bImageReady = false;
    std::vector<char> image = std::move(m_vecTransferBuffer);
    m_vecTransferBuffer.clear();
    return image;
}

std::pair<float, bool> ImageWriteElement::visualPreviewFactor(int columns) {
    if (columns < kHighResolutionColumns)
        return {0.25f, false};
    return {1.0f / 12.0f, true};
}

void ImageWriteElement::saveImage(std::unique_ptr<Frame> ir, std::unique_ptr<Frame> preview,
                                  std::unique_ptr<Frame> visual) {
    // Every exit, deferred or complete, is logged; the frames die with this scope.
    struct Leave {
        logging::Logger& log;
        ~Leave() { log.log(LogLevel::debug, "Leave save function"); }
    } leave{*m_logger};

    // A frame of another type would be converted silently into meaningless temperatures or
    // colours; refuse it (empty images are allowed: they end the request without a file).
    auto expectType = [](const std::unique_ptr<Frame>& frame, int type, const char* what) {
        const cv::Mat& m = frame->getFrameData();
        if (!m.empty() && m.type() != type)
            NORDA_THROW(fmt::format("{} image has type {}, expected {}", what, cv::typeToString(m.type()),
                                    cv::typeToString(type)),
                        "norda::exp::streaming::ImageWriteElement::saveImage");
    };
    expectType(ir, CV_16UC1, "radiometric");
    expectType(preview, CV_8UC3, "preview");
    if (visual)
        expectType(visual, CV_8UC2, "visual");

    m_pDataProxy->setValue(Id::Miscellaneous::SpinnerVisible, true, true);

    // The visual image must come at the full resolution of this instance's camera mode; the
    // camera is switched once and the save waits for the first matching frame.
    if (visual) {
        const bool highResolution = m_visualSlot == STREAMING_DATATYPE_YUV422_HIRES;
        const cv::Size expected = highResolution ? kVisualQsxga : kVisualXga;
        const std::string& resolution =
            highResolution ? Id::Viscam::Resolution::Qsxga : Id::Viscam::Resolution::Xga;
        const cv::Mat& v = visual->getFrameData();
        if (v.cols == expected.width && v.rows == expected.height) {
            m_bResolutionSwitchPending = false;
        } else {
            if (!m_bResolutionSwitchPending) {
                m_strPreviousVisualResolution =
                    m_pDataProxy->getValue<std::string>(Id::Viscam::CurrentImageResolution);
                m_pDataProxy->setValue(Id::Viscam::CurrentImageResolution, resolution, true);
                m_bResolutionSwitchPending = true;
                m_bResolutionRestorePending = true;
            }
            return;
        }
    }

    const bool superResolution = m_pDataProxy->getValue<bool>(Id::Miscellaneous::SuperResolution);
    if (superResolution && m_vecSrFrames.size() < kSrFrameCount)
        m_vecSrFrames.push_back(cv::Mat_<uint16_t>(ir->getFrameData()).clone());
    if (superResolution && m_vecSrFrames.size() != kSrFrameCount)
        return;

    cv::Mat_<cv::Vec2b> visualImage;
    if (visual)
        visualImage = visual->getFrameData();
    if (m_bResolutionRestorePending) {
        m_pDataProxy->setValue(Id::Viscam::CurrentImageResolution, m_strPreviousVisualResolution, true);
        m_bResolutionRestorePending = false;
    }
    const cv::Mat_<uint16_t> radiometric = ir->getFrameData();
    const cv::Mat_<cv::Vec3b> previewImage = preview->getFrameData();
    const DataStorage<std::string> metaData = preview->releaseMetaData();

    if (!radiometric.empty() && !previewImage.empty()) {
        vision::Rix rix;
        rix.setPreviewImageRgb(previewImage);
        const auto [factor, highResolution] = visualPreviewFactor(visualImage.cols);
        rix.setVisualImageYuv2(visualImage, factor, highResolution);
        rix.setRadiometricImage(radiometric);
        for (const auto& key : m_vecMetaDataKeys) {
            if (auto value = metaData.getVariant(key))
                rix.setGeneric(key, value);
            else
                std::cout << "ImageWrite: Id " << key << " not available in metadata!" << std::endl;
        }
        rix.extractMinMax(radiometric);
        rix.setScalingMax(metaData.get<Temperature>(Id::Scaling::TempMax));
        rix.setScalingMin(metaData.get<Temperature>(Id::Scaling::TempMin));
        rix.setEmissivityOriginal(metaData.get<float>(Id::Environment::EmissivityValue));
        rix.setReflectedTempOriginal(metaData.get<Temperature>(Id::Environment::ReflectedTemperature));
        rix.setFileVersion(Version(2, 0, 0));
        rix.setFileUuid(radiometric);
        // The time the frame was taken, which its picture's overlay shows too; now, if unknown.
        const auto taken = metaData.getVariant(Id::Images::DateTime);
        rix.setFileDateTime(taken && taken->holds<unsigned long long>() ? taken->value<unsigned long long>()
                                                                        : utils::getSystemDateTime());

        if (!m_bTransferRequested) {
            std::string fileName;
            try {
                const auto counter = m_pDataProxy->getValue<unsigned int>(Id::Miscellaneous::ImageCounter);
                m_naming.deleteSupersededFiles(counter);
                if (m_pDataProxy->getValue<bool>(Id::Miscellaneous::SuperResolution)) {
                    const std::string srName = getFilename(counter, "SR", "RIX");
                    // Finished calculations are let go; the destructor waits for the others, which
                    // use the host's store and flag.
                    std::erase_if(m_srJobs, [](const std::future<void>& job) {
                        return job.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
                    });
                    m_srJobs.push_back(
                        std::async(std::launch::async, &ImageWriteElement::calculateSuperResolutionImage,
                                   srName, rix, m_vecSrFrames, m_pDataProxy, std::ref(m_bSrBusy), m_logger));
                }
                fileName = getFilename(counter, "IR", "RIX");
                rix.setSuperResolutionActive(false);
                rix.save(fileName, false);
                m_jpeg.createJpegImage(previewImage.clone(), getFilename(counter, "TR", "JPG"), visualImage);
                m_pDataProxy->setValue<unsigned int>(Id::Miscellaneous::ImageCounter, counter + 1, true);
                try {
                    (void)m_pCommandProxy->call(Cmd::ApplicationControlGroup, Cmd::SaveUserSettings,
                                                cmd::ParameterPack{});
                } catch (const std::exception& e) {
                    m_logger->log(LogLevel::error, "Can not save user settings: {}", e.what());
                }
                m_pDataProxy->setValue(Id::Miscellaneous::LastImageFileName, fileName, true);
            } catch (const std::exception& e) {
                m_logger->log(LogLevel::error, "Image {} Write fail:{}", fileName, e.what());
                m_pDataProxy->setValue(Id::Miscellaneous::ErrorImageSaving, true, true);
            }
        } else {
            if (superResolution)
                rix.addSrFrame(m_vecSrFrames);
            std::lock_guard<std::mutex> lock(m_mutTransfer);
            rix.save(m_vecTransferBuffer, false);
            m_bImageReady = true;
            m_bTransferRequested = false;
            m_cvTransfer.notify_all();
        }
    }

    m_pDataProxy->setValue(Id::Miscellaneous::SpinnerVisible, false, true);
    m_vecSrFrames.clear();
    m_bSaveRequested = false;
    if (m_pDataProxy->getValue<bool>(Id::Miscellaneous::SaveImageMode))
        m_pDataProxy->setValue(Id::Miscellaneous::ImageRealSave, true, true);
}

std::string ImageWriteElement::getFormatedFileNumber(unsigned int number) {
    return ImageFileNaming::getFormatedFileNumber(number);
}

std::string ImageWriteElement::getFilename(unsigned int number, const std::string& prefix,
                                           const std::string& extension) {
    return m_naming.getFilename(number, prefix, extension);
}

void ImageWriteElement::calculateSuperResolutionImage(const std::string& fileName, vision::Rix rix,
                                                      std::vector<cv::Mat_<uint16_t>> frames,
                                                      DataProxy<std::string>* dataProxy,
                                                      std::atomic<bool>& srBusy,
                                                      std::shared_ptr<logging::Logger> logger) {
    SuperResolutionCalculation::run(fileName, std::move(rix), std::move(frames), dataProxy, srBusy,
                                    std::move(logger), m_mutSrCalcLock);
}

void ImageWriteElement::createJpegImage(cv::Mat_<cv::Vec3b> preview, const std::string& fileName) {
    m_jpeg.createJpegImage(std::move(preview), fileName);
}

cv::Mat_<cv::Vec4b> ImageWriteElement::composeJpegImage(const cv::Mat_<cv::Vec3b>& preview,
                                                        const cv::Mat_<cv::Vec4b>& overlay) {
    return JpegImageCreator::composeJpegImage(preview, overlay);
}

cv::Mat_<cv::Vec4b> ImageWriteElement::blendArgb(const cv::Mat_<cv::Vec4b>& over,
                                                 const cv::Mat_<cv::Vec4b>& under) {
    return JpegImageCreator::blendArgb(over, under);
}

} // namespace norda::exp::streaming
