#pragma once
// ImageWriteElement: turns one pipeline cycle into a stored radiometric image.
//
// On request ("TriggerImageSave", or "CaptureImage" for a transfer to the caller) it waits for a
// cycle that carries the radiometric image (slot 4), the palette preview (slot 5) and, if present,
// the visual image (slot 6, else 7), builds a Rix container from them and the preview's metadata,
// and either writes "IR<number>.RIX" plus the JPEG "TR<number>.JPG" into the image folder, or hands
// the serialised container to the waiting caller. With super-resolution on, five consecutive
// radiometric frames are collected first and fused on a background thread into "SR<number>.RIX".
// Frames that come from a stored gallery image are not saved: their metadata goes to the callback.
// The image's date and time is the preview frame's Images.DateTime when it carries one (so that
// the overlay drawn from that frame shows the same), else the time of the save.
//
// Slots: inputs {visual slot, 5, 4}; no outputs. process always returns false.
// Keys read: Miscellaneous.ImageCounter, SuperResolution, SaveImageMode, SaveJpeg,
//   PlaceTag.SiteInUse/MeasSiteFolder, Viscam.CurrentImageResolution, Images.GuiJpeg,
//   Miscellaneous.SuperResolutionDeleteRequest (super-resolution thread).
// Keys written: Miscellaneous.LastImageFileName, SaveImageMode, SpinnerVisible, ImageCounter,
//   ErrorImageSaving, ImageRealSave, SuperResolutionCount, SuperResolutionDeleteRequest,
//   WarnSrMovementDetected, Viscam.CurrentImageResolution, Images.GuiJpeg.
// Commands of the callable "ImageWrite": "TriggerImageSave"(bool preview), "CaptureImage"() ->
//   std::vector<char>.
// File naming (ImageFileNaming), the JPEG (JpegImageCreator, with the display's fusion when
// Fusion.InJpeg is set) and the super-resolution thread (SuperResolutionCalculation) are classes of
// their own; this file holds the request, frame selection and save flow.

#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/cmd/ICallable.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/rix/Rix.h"
#include "nordalib/vision/streaming/ImageFileNaming.h"
#include "nordalib/vision/streaming/JpegImageCreator.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <opencv2/core.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace norda::exp::streaming {

class ImageWriteElement : public StreamingElement, public cmd::ICallable {
public:
    // `imageFolder`: where files are written ("/"-separated). `metaDataKeys`: preview-frame
    // metadata copied into every image. `metaDataCallback`: receives the metadata of gallery
    // frames. `srBusy`: the host's flag, true while super-resolution images are pending.
    // `visualSlot`: STREAMING_DATATYPE_YUV422 or STREAMING_DATATYPE_YUV422_HIRES.
    ImageWriteElement(const std::string& imageFolder, DataProxy<std::string>* dataProxy,
                      cmd::CommandProxy* commandProxy, const std::vector<std::string>& metaDataKeys,
                      const std::function<void(DataStorage<std::string>)>& metaDataCallback, int priority,
                      std::atomic<bool>& srBusy, STREAMING_DATATYPE visualSlot);
    ~ImageWriteElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

    // Command "TriggerImageSave": `preview` marks a save whose image is shown for confirmation.
    void triggerSave(bool preview);
    // Command "CaptureImage": requests an image and waits (transferTimeout(), 15 s unless set) for
    // its serialised container; empty on time-out, while a transfer is pending, or in preview mode.
    std::vector<char> triggerImageAndTransfer();
    // How long "CaptureImage" waits; shortened by tests, which cannot wait 15 s for a time-out.
    void setTransferTimeout(std::chrono::nanoseconds timeout) { m_transferTimeout = timeout; }
    std::chrono::nanoseconds transferTimeout() const { return m_transferTimeout; }
    // The save flow; takes the frames (visual may be null).
    void saveImage(std::unique_ptr<Frame> ir, std::unique_ptr<Frame> preview, std::unique_ptr<Frame> visual);

    // Runs on a detached thread per image: fuses `frames` into `fileName` unless that name is on
    // the remove list; serialised over all instances by m_mutSrCalcLock.
    static void calculateSuperResolutionImage(const std::string& fileName, vision::Rix rix,
                                              std::vector<cv::Mat_<uint16_t>> frames,
                                              DataProxy<std::string>* dataProxy, std::atomic<bool>& srBusy,
                                              std::shared_ptr<logging::Logger> logger);

    // Writes the JPEG of a saved image: the preview at 640 x 480 under the user interface's overlay.
    void createJpegImage(cv::Mat_<cv::Vec3b> preview, const std::string& fileName);
    // The 640 x 480 picture createJpegImage writes, without its wait for the overlay: empty when
    // the overlay is not 320 x 240.
    static cv::Mat_<cv::Vec4b> composeJpegImage(const cv::Mat_<cv::Vec3b>& preview,
                                                const cv::Mat_<cv::Vec4b>& overlay);
    // Alpha blend of `over` (byte 3 = alpha) onto `under`, integer-only; empty when `over` is
    // empty or the sizes differ. Divides by 256, not 255: an opaque pixel comes out one step darker.
    static cv::Mat_<cv::Vec4b> blendArgb(const cv::Mat_<cv::Vec4b>& over, const cv::Mat_<cv::Vec4b>& under);

    // "000041" for 41; longer numbers in full.
    static std::string getFormatedFileNumber(unsigned int number);
    // Full path of file `prefix` + number + "." + `extension`, in the place-tag folder if one is in use.
    std::string getFilename(unsigned int number, const std::string& prefix, const std::string& extension);
    // Preview factor and high-resolution flag stored with a visual image of `columns` columns.
    static std::pair<float, bool> visualPreviewFactor(int columns);

    // The user interface's time to publish its overlay before a JPEG is composed.
    static constexpr std::chrono::nanoseconds kOverlayWait = JpegImageCreator::kOverlayWait;
    static constexpr std::chrono::nanoseconds kTransferTimeout{15'000'000'000};

private:
    std::string m_strImageFolder;
    DataProxy<std::string>* m_pDataProxy;
    cmd::CommandProxy* m_pCommandProxy;
    std::vector<std::string> m_vecMetaDataKeys;
    std::string m_strPreviousVisualResolution;
    bool m_bResolutionSwitchPending = false;
    bool m_bResolutionRestorePending = false;
    // Set by command threads and read by the pipeline thread.
    std::atomic<bool> m_bSaveRequested{false};
    std::function<void(DataStorage<std::string>)> m_metaDataCallback;
    std::vector<cv::Mat_<uint16_t>> m_vecSrFrames;
    std::condition_variable m_cvTransfer;
    std::chrono::nanoseconds m_transferTimeout{kTransferTimeout};
    std::mutex m_mutTransfer;
    std::vector<char> m_vecTransferBuffer;
    bool m_bImageReady = false; // guarded by m_mutTransfer, as are the two below
    bool m_bClosing = false;    // the element is being destroyed
    int m_iTransferWaiters = 0;
    std::atomic<bool> m_bTransferRequested{false};
    std::atomic<bool>& m_bSrBusy;
    STREAMING_DATATYPE m_visualSlot;
    std::shared_ptr<logging::Logger> m_logger;
    ImageFileNaming m_naming;                // file names, superseded files
    JpegImageCreator m_jpeg;                 // the JPEG picture
    std::vector<std::future<void>> m_srJobs; // super-resolution calculations started here

    static std::mutex m_mutSrCalcLock;
};

} // namespace norda::exp::streaming
