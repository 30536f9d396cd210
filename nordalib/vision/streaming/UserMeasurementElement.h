#pragma once
// UserMeasurementElement: the user's own measurements of a temperature frame: the five user
// points, the three user areas and the delta-T between two results, each point or area optionally
// with its own emissivity, reflected temperature and distance (local parameters) while the rest of the image
// keeps the frame's.
//
// Runs after the min/max extraction on STREAMING_DATATYPE_RAD_CONST (in place). Values carry the
// validity mark of the pixel they come from against the active measurement range; in humidity
// mode they are the surface moisture, as the min/max extraction's are. A point outside the image
// is measured at the nearest edge pixel for this frame; an area is cut to the image, and one
// wholly outside it is not measured. Local parameters need the frame's Planck constants
// (Radiometry.Planck): without them the value is computed with the frame's parameters, marked
// outside tolerance, and the lack is logged once.
//
// Keys read (store): Id::MeasPoints::MeasPoint1..5::{Visible,Position,LocalParameters,Emissivity,
// ReflectedTemperature}, Id::MeasAreas::UserArea1..3::{Visible,Rect,LocalParameters,Emissivity,
// ReflectedTemperature}, Id::DeltaT::{Active,First,Second}, Id::ActiveMeasRange::{Tolerance,Display}
// {Top,Bottom}, Id::Environment::{HumidityModeActive,Humidity,Temperature}; the frame's object
// parameters and Planck constants from its metadata. Written (store and frame metadata): the
// points' MeasPoint, the areas' MeasArea, Id::DeltaT::Difference; the settings above are copied
// into the frame's metadata so that a saved image keeps them.

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/MeasRangeBorders.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/measurement/LocalParameterConversion.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace norda::exp::streaming {

class UserMeasurementElement : public StreamingElement {
public:
    using Temperature = quantity::Temperature<MarkedFloat>;
    using Relation = quantity::Relation<MarkedFloat>;

    // Throws "Pointer to DataProxy is mandatory for this element!" for a null store.
    explicit UserMeasurementElement(DataProxy<std::string>* proxy,
                                    STREAMING_DATATYPE slot = STREAMING_DATATYPE_RAD_CONST);

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    struct Context;
    // A result's local parameters: none asked, applied, or asked but not applicable (degraded).
    struct Local {
        std::optional<vision::ObjectParameters> params;
        bool degraded = false;
    };
    MeasPoint measurePoint(Context& c, const std::string& name, cv::Point at, unsigned short raw,
                           const Local& local);
    Local localParameters(Context& c, const std::string& name, const std::string& onKey,
                          const std::string& emissivityKey, const std::string& reflectedKey,
                          const std::string& distanceKey);
    void measurePoints(Context& c);
    void measureAreas(Context& c);
    void measureDeltaT(Context& c);
    void warnOnce(const std::string& what, const std::string& message);
    void clearWarning(const std::string& what);

    DataProxy<std::string>* m_pDataProxy;
    STREAMING_DATATYPE m_slot;
    std::shared_ptr<logging::Logger> m_log;
    vision::LocalParameterConversion m_conversion;
    std::set<std::string> m_warned;        // troubles already logged, by result
    std::map<std::string, float> m_values; // this frame's values (°C) by result name, for delta-T
};

} // namespace norda::exp::streaming
