#pragma once
// MinMaxExtractionElement: every measurement result of a temperature frame.
//
// From the radiometric frame it derives the hot spot, cold spot and mean of the image, the centre
// area (its hot spot, cold spot and mean), the centre spot, the laser spot, the delta-T points and
// the five user points, each marked with its validity against the active measurement range, and
// publishes them in the parameter store and in the frame's metadata. Beside that it runs the
// warm-up flag, the automatic switch between the low and the high measurement range and the
// display scaling limits (automatic with a minimum span, manual, span hint, humidity mode); the
// statistics, the range automatics and the scaling are the classes of nordalib/vision/measurement/.
//
// Slots: input STREAMING_DATATYPE_RAD or STREAMING_DATATYPE_RAD_CONST (CV_16UC1, RadiometricTools
// encoding); the frame always moves on to STREAMING_DATATYPE_RAD_CONST, unchanged.
//
// Throttling: the whole-image extremes, scaling and range test are evaluated every frame, the
// points and the centre area only every 20th frame on devices with fast frames (6th otherwise) or
// at once when a stored image is forced to update; in between the last results are re-published
// in each frame's metadata. The cycle counter is 8 bits wide, so the rhythm has one short gap at
// every wrap from 255 to 0.
//
// Keys read: Id::ActiveMeasRange::*, Id::Environment::{Humidity,HumidityModeActive,Temperature},
// Id::Gallery::ForceUpdate, Id::MeasPoints::<Point>::{Visible,Position}, Id::DeltaT::*,
// Id::MeasAreas::CenterArea::Visible, Id::DeviceFeatures::FastFrameAvailable,
// Id::MeasRangeSettings::EnableAutoRange (observed), Id::MeasRangePool, Id::Scaling::*.
// Keys written: Id::MeasPoints::<Point>::MeasPoint, hot/cold Position, Id::MeasAreas::CenterArea::
// {MeasArea,Rect}, Id::IrImage::{Min,Max,Med}, Id::Streaming::WarmUp, Id::ActiveMeasRange::Name
// (range switch), Id::Scaling::{TempMin,TempMax,Min,Max}.
// Frame metadata read: Id::DeviceInfo::Uptime, Id::ActiveMeasRange::Name, Id::Gallery::ActiveFilename,
// Id::Scaling::{TempMin,TempMax}; written: centre area, hot/cold spot and position, user points,
// image statistics.
//
// Missing store keys make the store's typed read throw out of process (the host's cycle handling
// decides); a missing or empty frame still moves on to STREAMING_DATATYPE_RAD_CONST.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/MeasRangeBorders.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/measurement/DisplayScaling.h"
#include "nordalib/vision/measurement/MeasurementStatistics.h"
#include "nordalib/vision/measurement/RangeAutomatics.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace norda::exp::streaming {

class MinMaxExtractionElement : public StreamingElement {
public:
    using Temperature = quantity::Temperature<MarkedFloat>;
    using Relation = quantity::Relation<MarkedFloat>;

    // Number of the low-temperature measurement range.
    static constexpr unsigned char m_u8LowTempRange = 1;

    // Throws "Pointer to DataProxy is mandatory for this element!" for a null store and
    // "Input must be of Type STREAMING_DATATYPE_RAD or STREAMING_DATATYPE_RAD_CONST" for any other
    // input slot; lets the store's error escape when a key it reads is missing.
    MinMaxExtractionElement(DataProxy<std::string>* proxy, STREAMING_DATATYPE input, bool measPointsEnabled);
    ~MinMaxExtractionElement() override;

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    MeasPoint calculateMeaspoint(unsigned short x, unsigned short y, unsigned short raw,
                                 MeasRangeBorders borders, bool humidityMode, Relation humidity,
                                 Temperature airTemperature) const;
    void calculateArea(const cv::Mat& img, MeasRangeBorders borders, bool humidityMode, Relation humidity,
                       Temperature airTemperature, bool publish);
    void handleMeasPoint(const std::string& visibleKey, const std::string& measPointKey,
                         const std::string& positionKey, std::unique_ptr<Frame>& frame,
                         MeasRangeBorders borders, bool humidityMode, Relation humidity,
                         Temperature airTemperature);
    void handleMeasPoint(const std::string& measPointKey, const std::string& positionKey,
                         std::unique_ptr<Frame>& frame, MeasRangeBorders borders, bool humidityMode,
                         Relation humidity, Temperature airTemperature);
    void handleMeasPointBool(const std::string& measPointKey, const std::string& positionKey, bool active,
                             std::unique_ptr<Frame>& frame, MeasRangeBorders borders, bool humidityMode,
                             Relation humidity, Temperature airTemperature);
    void publishMetaData(Frame& frame);
    void updateWarmUp(const Frame* frame);

    MeasRangeBorders readBorders() const;

    DataProxy<std::string>* m_pDataProxy;
    std::shared_ptr<logging::Logger> m_log;
    STREAMING_DATATYPE m_eInput;

    MeasRangeBorders m_borders;
    MeasArea m_centerArea;
    MeasPoint m_hotSpot;
    MeasPoint m_coldSpot;
    Temperature m_imageMin;
    Temperature m_imageMax;
    Temperature m_imageMed;

    bool m_bWarmUp = false;
    bool m_bMeasPointsEnabled;
    uint8_t m_u8Cycle = 0;
    uint8_t m_u8EvalPeriod = 6;

    vision::MeasurementStatistics m_statistics; // keeps its row buffers between frames
    vision::RangeAutomatics m_rangeAutomatics;
    vision::DisplayScaling m_scaling;

    Subscription m_autoRangeSubscription; // last: dropped first
};

} // namespace norda::exp::streaming
