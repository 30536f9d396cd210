#pragma once
// OffsetElement: raw detector frames (slot 0, CV_16U) -> offset-corrected frames (slot 2, CV_16S).
//
// While the shutter is closed (state Id::Shutter::StateCaptureOffsetFrame) it averages four frames
// into the offset frame, publishes it (Id::Shutter::OffsetFrame) and moves the shutter sequence on
// (Id::Shutter::State = StateOpening). While the shutter is idle it subtracts the offset from each
// frame, wrapping in 16 bits. It also owns the sensor's bad-pixel list (Id::IrSensor::BadPixelList):
// the factory list from calibration path + "badpixel.pxm", extended by the dead, stuck and
// outlying pixels found in every captured offset.
//
// Keys: Id::Streaming::DisableOffset (written false, observed), Id::Streaming::UpdateValues
// (observed: reloads the bad-pixel file), Id::Shutter::State (frame metadata; written),
// Id::Shutter::OffsetFrame and Id::IrSensor::BadPixelList (written).

#include "nordalib/core/datatypes/CuratorStorage.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/imgproc/BadPixel.h"
#include "nordalib/vision/imgproc/BadPixelDetector.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <atomic>
#include <mutex>
#include <string>

namespace norda::exp::streaming {

// Preallocated frame memory of some hosts; this element cannot work with one.
class BufferPool;

class OffsetElement : public StreamingElement {
public:
    static constexpr uint32_t m_u32OffsetCaptureCount = 4;
    static constexpr uint32_t m_u32OffsetCaptureShift = 2;
    static_assert((1u << m_u32OffsetCaptureShift) == m_u32OffsetCaptureCount);

    // The calibration path is a directory prefix ending with a separator.
    OffsetElement(DataProxy<std::string>* dataProxy, const std::string& calibrationPath,
                  BufferPool* bufferPool);
    ~OffsetElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

    // The bad-pixel list (factory and detected), as published.
    vision::BadPixelList badPixels() const;

private:
    void setDisableOffset(bool disable);
    bool captureOffset(const std::unique_ptr<Frame>& frame);
    void calcualteMeanOffset();
    void detectBadPixel(const std::unique_ptr<Frame>& frame);
    void loadBadBixel(bool load);
    void publishBadPixels();
    vision::BadPixelList badPixelsLocked() const;

    mutable std::mutex m_mutex;
    DataProxy<std::string>* m_dataProxy;
    uint32_t m_captureCounter = 0;
    cv::Mat m_offset;
    cv::Mat m_accumulator;
    BufferPool* m_bufferPool;
    std::atomic<bool> m_disableOffset{false}; // written by the store's observer thread
    CuratorStorage m_badPixelFiles;
    std::string m_calibrationPath;

    std::shared_ptr<logging::Logger> m_log;
    vision::BadPixelDetector m_detector;
    vision::BadPixelList m_factoryPixels;
    vision::BadPixelList m_detectedPixels;

    // Last: detached first, so no callback reaches a half-destroyed element.
    Subscription m_disableObserver;
    Subscription m_updateObserver;
};

} // namespace norda::exp::streaming
