#include "nordalib/core/keys/DefaultParameters.h"

#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/keys/Keys.h"

#include <opencv2/core.hpp>

#include <mutex>
#include <vector>

namespace norda::exp {

namespace {
using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;
Temp celsius(float t) {
    return Temp(MarkedFloat(t));
}

struct Providers {
    std::mutex mutex;
    std::vector<std::function<void(DataProxy<std::string>&)>> list;
};
Providers& providers() {
    static Providers p;
    return p;
}

const char* kRangeItems[] = {"Name", "ToleranceTop", "ToleranceBottom", "DisplayTop", "DisplayBottom",
                             "Top",  "Bottom",       "TnrGain",         "TnrAlpha"};
} // namespace

DataStorage<std::string> makeMeasRange(unsigned char number, float toleranceBottom, float toleranceTop,
                                       float displayBottom, float displayTop) {
    DataStorage<std::string> r;
    r.setValue<unsigned char>("Name", number);
    r.setValue("ToleranceTop", celsius(toleranceTop));
    r.setValue("ToleranceBottom", celsius(toleranceBottom));
    r.setValue("DisplayTop", celsius(displayTop));
    r.setValue("DisplayBottom", celsius(displayBottom));
    r.setValue("Top", celsius(displayTop));
    r.setValue("Bottom", celsius(displayBottom));
    r.setValue<unsigned char>("TnrGain", 16);
    r.setValue<unsigned short>("TnrAlpha", 1843);
    return r;
}

void activateMeasRange(DataProxy<std::string>& proxy, unsigned char number) {
    const auto& pool = proxy.get(Id::MeasRangePool)->value<DataStorage<std::string>>();
    auto entry = pool.getVariant(std::to_string(number));
    if (!entry || !entry->holds<DataStorage<std::string>>())
        NORDA_THROW("measurement range " + std::to_string(number) + " is not in " + Id::MeasRangePool,
                    "norda::exp::activateMeasRange");
    const auto& range = entry->value<DataStorage<std::string>>();
    for (const char* item : kRangeItems) {
        if (std::string(item) == "Name")
            continue;
        if (auto v = range.getVariant(item))
            proxy.set("ActiveMeasRange." + std::string(item), v, true);
    }
    // Announce the range only when it changes: a host that calls this from an observer of the
    // range name must not be called again by its own write.
    if (!proxy.contains(Id::ActiveMeasRange::Name) ||
        proxy.getValue<unsigned char>(Id::ActiveMeasRange::Name) != number)
        proxy.setValue<unsigned char>(Id::ActiveMeasRange::Name, number, true);
}

void setDefaultParameters(DataProxy<std::string>& p) {
    const bool n = false; // defaults are written silently

    p.setValue(Id::Shutter::State, Id::Shutter::StateIdle, n);
    p.setValue(Id::Shutter::Closed, false, n);
    p.setValue(Id::Shutter::OffsetFrame, cv::Mat(), n);
    p.setValue(Id::Streaming::DisableOffset, false, n);
    p.setValue(Id::Streaming::UpdateValues, false, n);
    p.setValue(Id::Streaming::WarmUp, false, n);

    p.setValue<unsigned short>(Id::IrImage::Cols, 640, n);
    p.setValue<unsigned short>(Id::IrImage::Rows, 480, n);
    p.setValue(Id::IrImage::Min, celsius(20), n);
    p.setValue(Id::IrImage::Max, celsius(20), n);
    p.setValue(Id::IrImage::Med, celsius(20), n);

    // Measurement ranges: 1 low, 2 high; range 1 active.
    DataStorage<std::string> pool;
    pool.setValue("1", makeMeasRange(1, -20.0f, 120.0f, -40.0f, 150.0f));
    pool.setValue("2", makeMeasRange(2, 0.0f, 350.0f, -10.0f, 380.0f));
    p.setValue(Id::MeasRangePool, pool, n);
    const auto low = makeMeasRange(1, -20.0f, 120.0f, -40.0f, 150.0f);
    for (const auto& [item, value] : low)
        p.set("ActiveMeasRange." + item, value, n);
    p.setValue(Id::MeasRangeSettings::EnableAutoRange, true, n);

    p.setValue(Id::SprElement::Active, false, n);
    p.setValue<short>(Id::SprElement::Threshold, 40, n);
    p.setValue<short>(Id::SprElement::LineLimit, 20, n);
    p.setValue<short>(Id::SprElement::FrameLimit, 32, n);
    p.setValue(Id::SnrElement::Active, false, n);

    p.setValue(Id::DeviceFeatures::FastFrameAvailable, true, n);
    p.setValue<unsigned long long>(Id::DeviceInfo::Uptime, 0, n);

    p.setValue(Id::Environment::EmissivityValue, 0.95f, n);
    p.setValue(Id::Environment::ReflectedTemperature, celsius(20), n);
    p.setValue(Id::Environment::Humidity, Rel(MarkedFloat(0.5f)), n);
    p.setValue(Id::Environment::HumidityModeActive, false, n);
    p.setValue(Id::Environment::Temperature, celsius(20), n);

    p.setValue(Id::Temperatures::Current::TBoardSens50, celsius(30), n);
    p.setValue(Id::Temperatures::Current::TBoardSlope, 0.0f, n);
    p.setValue(Id::Temperatures::Current::TLens, celsius(25), n);
    p.setValue(Id::Temperatures::Shuttering::TBoardSens50, celsius(30), n);
    p.setValue(Id::Temperatures::Shuttering::TShutter, celsius(25), n);
    p.setValue(Id::Temperatures::Validity, true, n);

    p.setValue(Id::ActiveLens::Attached, true, n);
    p.setValue<unsigned char>(Id::ActiveLens::Index, 1, n);
    p.setValue(Id::ActiveLens::Serial, std::string("L25-000001"), n);

    p.setValue(Id::ProtectiveGlass::Attached, false, n);
    p.setValue(Id::ProtectiveGlass::Transmission, 0.92f, n);
    p.setValue(Id::ProtectiveGlass::Emissivity, 0.05f, n);

    p.setValue(Id::Gallery::ForceUpdate, false, n);
    p.setValue(Id::Gallery::ActiveFilename, std::string(), n);
    p.setValue(Id::Gallery::Reanalysis::Active, false, n);
    p.setValue(Id::Gallery::Reanalysis::Emissivity, 0.95f, n);
    p.setValue(Id::Gallery::Reanalysis::ReflectedTemperature, celsius(20), n);

    struct Point {
        const std::string& visible;
        const std::string& position;
        const std::string& measPoint;
        bool on;
        cv::Point_<int> at;
    };
    const Point points[] = {
        {Id::MeasPoints::HotSpot::Visible,
         Id::MeasPoints::HotSpot::Position,
         Id::MeasPoints::HotSpot::MeasPoint,
         true,
         {0, 0}},
        {Id::MeasPoints::ColdSpot::Visible,
         Id::MeasPoints::ColdSpot::Position,
         Id::MeasPoints::ColdSpot::MeasPoint,
         true,
         {0, 0}},
        {Id::MeasPoints::CenterSpot::Visible,
         Id::MeasPoints::CenterSpot::Position,
         Id::MeasPoints::CenterSpot::MeasPoint,
         true,
         {320, 240}},
        {Id::MeasPoints::LaserSpot::Visible,
         Id::MeasPoints::LaserSpot::Position,
         Id::MeasPoints::LaserSpot::MeasPoint,
         false,
         {320, 240}},
        {Id::MeasPoints::MeasPoint1::Visible,
         Id::MeasPoints::MeasPoint1::Position,
         Id::MeasPoints::MeasPoint1::MeasPoint,
         false,
         {160, 120}},
        {Id::MeasPoints::MeasPoint2::Visible,
         Id::MeasPoints::MeasPoint2::Position,
         Id::MeasPoints::MeasPoint2::MeasPoint,
         false,
         {480, 120}},
        {Id::MeasPoints::MeasPoint3::Visible,
         Id::MeasPoints::MeasPoint3::Position,
         Id::MeasPoints::MeasPoint3::MeasPoint,
         false,
         {160, 360}},
        {Id::MeasPoints::MeasPoint4::Visible,
         Id::MeasPoints::MeasPoint4::Position,
         Id::MeasPoints::MeasPoint4::MeasPoint,
         false,
         {480, 360}},
        {Id::MeasPoints::MeasPoint5::Visible,
         Id::MeasPoints::MeasPoint5::Position,
         Id::MeasPoints::MeasPoint5::MeasPoint,
         false,
         {320, 120}},
        {Id::MeasPoints::DeltaT1::Visible,
         Id::MeasPoints::DeltaT1::Position,
         Id::MeasPoints::DeltaT1::MeasPoint,
         false,
         {200, 240}},
        {Id::MeasPoints::DeltaT2::Visible,
         Id::MeasPoints::DeltaT2::Position,
         Id::MeasPoints::DeltaT2::MeasPoint,
         false,
         {440, 240}},
    };
    for (const auto& pt : points) {
        p.setValue(pt.visible, pt.on, n);
        p.setValue(pt.position, pt.at, n);
        p.setValue(pt.measPoint,
                   MeasPoint(static_cast<unsigned short>(pt.at.x), static_cast<unsigned short>(pt.at.y),
                             celsius(20)),
                   n);
    }
    struct Local {
        const std::string &on, &emissivity, &reflected;
    };
    namespace MP = Id::MeasPoints;
    namespace MA = Id::MeasAreas;
    const Local locals[] = {
        {MP::MeasPoint1::LocalParameters, MP::MeasPoint1::Emissivity, MP::MeasPoint1::ReflectedTemperature},
        {MP::MeasPoint2::LocalParameters, MP::MeasPoint2::Emissivity, MP::MeasPoint2::ReflectedTemperature},
        {MP::MeasPoint3::LocalParameters, MP::MeasPoint3::Emissivity, MP::MeasPoint3::ReflectedTemperature},
        {MP::MeasPoint4::LocalParameters, MP::MeasPoint4::Emissivity, MP::MeasPoint4::ReflectedTemperature},
        {MP::MeasPoint5::LocalParameters, MP::MeasPoint5::Emissivity, MP::MeasPoint5::ReflectedTemperature},
        {MA::UserArea1::LocalParameters, MA::UserArea1::Emissivity, MA::UserArea1::ReflectedTemperature},
        {MA::UserArea2::LocalParameters, MA::UserArea2::Emissivity, MA::UserArea2::ReflectedTemperature},
        {MA::UserArea3::LocalParameters, MA::UserArea3::Emissivity, MA::UserArea3::ReflectedTemperature},
    };
    for (const auto& l : locals) {
        p.setValue(l.on, false, n);
        p.setValue(l.emissivity, 0.95f, n);
        p.setValue(l.reflected, celsius(20), n);
    }
    struct Area {
        const std::string &visible, &rect, &measArea;
        cv::Rect_<int> at;
    };
    const Area areas[] = {
        {MA::UserArea1::Visible, MA::UserArea1::Rect, MA::UserArea1::MeasArea, {80, 60, 160, 120}},
        {MA::UserArea2::Visible, MA::UserArea2::Rect, MA::UserArea2::MeasArea, {400, 60, 160, 120}},
        {MA::UserArea3::Visible, MA::UserArea3::Rect, MA::UserArea3::MeasArea, {240, 300, 160, 120}},
    };
    for (const auto& a : areas) {
        p.setValue(a.visible, false, n);
        p.setValue(a.rect, a.at, n);
        p.setValue(a.measArea,
                   MeasArea(static_cast<unsigned short>(a.at.x), static_cast<unsigned short>(a.at.y),
                            static_cast<unsigned short>(a.at.width),
                            static_cast<unsigned short>(a.at.height)),
                   n);
    }

    p.setValue(Id::DeltaT::Active, false, n);
    p.setValue(Id::DeltaT::Mode, Id::DeltaT::PointPoint, n);
    p.setValue(Id::DeltaT::First, std::string("DeltaT1"), n);
    p.setValue(Id::DeltaT::Second, std::string("DeltaT2"), n);
    p.setValue(Id::DeltaT::Difference, 0.0f, n);

    p.setValue(Id::MeasAreas::CenterArea::Visible, true, n);
    p.setValue(Id::MeasAreas::CenterArea::MeasArea, MeasArea(160, 120, 320, 240), n);
    p.setValue(Id::MeasAreas::CenterArea::Rect, cv::Rect_<int>(160, 120, 320, 240), n);

    p.setValue(Id::Scaling::Mode, Id::Scaling::Auto, n);
    p.setValue(Id::Scaling::TempMin, celsius(15), n);
    p.setValue(Id::Scaling::TempMax, celsius(40), n);
    p.setValue<unsigned short>(Id::Scaling::Min, 28815, n); // 15 °C
    p.setValue<unsigned short>(Id::Scaling::Max, 31315, n); // 40 °C
    p.setValue(Id::Scaling::TempIn, celsius(20), n);
    p.setValue(Id::Scaling::TempOut, celsius(0), n);

    p.setValue(Id::Alarm::AlarmBottomActive, false, n);
    p.setValue(Id::Alarm::AlarmTopActive, false, n);
    p.setValue<unsigned int>(Id::Alarm::AlarmTopColor, 0x00FF0000u, n);
    p.setValue<unsigned int>(Id::Alarm::AlarmBottomColor, 0x000000FFu, n);
    p.setValue(Id::Alarm::AlarmBottomValue, celsius(0), n);
    p.setValue(Id::Alarm::AlarmTopValue, celsius(60), n);

    p.setValue(Id::Isotherme::IsothermeActive, false, n);
    p.setValue<unsigned int>(Id::Isotherme::IsothermeColor, 0x0000FF00u, n);
    p.setValue(Id::Isotherme::IsothermeTopValue, celsius(40), n);
    p.setValue(Id::Isotherme::IsothermeBottomValue, celsius(35), n);

    p.setValue<unsigned int>(Id::Miscellaneous::ImageCounter, 1, n);
    p.setValue(Id::Miscellaneous::LastImageFileName, std::string(), n);
    p.setValue(Id::Miscellaneous::SaveImageMode, false, n);
    p.setValue(Id::Miscellaneous::SpinnerVisible, false, n);
    p.setValue(Id::Miscellaneous::SuperResolution, false, n);
    p.setValue<int>(Id::Miscellaneous::SuperResolutionCount, 0, n);
    p.setValue(Id::Miscellaneous::SuperResolutionDeleteRequest, std::vector<std::string>(), n);
    p.setValue(Id::Miscellaneous::WarnSrMovementDetected, false, n);
    p.setValue(Id::Miscellaneous::ErrorImageSaving, false, n);
    p.setValue(Id::Miscellaneous::ImageRealSave, false, n);
    p.setValue(Id::Miscellaneous::SaveJpeg, true, n);

    p.setValue(Id::PlaceTag::SiteInUse, false, n);
    p.setValue(Id::PlaceTag::MeasSiteFolder, std::string(), n);

    p.setValue(Id::Images::GuiJpeg, cv::Mat(240, 320, CV_8UC4, cv::Scalar::all(0)), n);

    p.setValue(Id::Viscam::CurrentImageResolution, Id::Viscam::Resolution::Qvga, n);
    p.setValue(Id::Viscam::MaximumImageLatency, 120.0f, n);
    p.setValue(Id::Viscam::CaptureTime, 40.0f, n);

    p.setValue(Id::Registration::CalibrationFile, std::string(), n);
    p.setValue(Id::Registration::Distance, 3.0f, n);
    p.setValue(Id::Registration::UseLaserDistance, true, n);
    p.setValue(Id::Laser::Distance, 0.0f, n);
    p.setValue(Id::Laser::VisualPosition, cv::Point_<int>(0, 0), n);
    p.setValue(Id::Laser::InfraredPosition, std::vector<double>{0.0, 0.0}, n);
    p.setValue(Id::Laser::Status, std::string("NoFrame"), n);
    const auto unknown = MarkedFloat::MarkedFloatValidity(1);
    p.setValue(Id::EmissionMarker::Emissivity, Rel(MarkedFloat(0.95f, unknown)), n);
    p.setValue(Id::EmissionMarker::Status, std::string("NoFrame"), n);
    p.setValue(Id::EmissionMarker::SurfaceTemperature, Temp(MarkedFloat(20.0f, unknown)), n);
    p.setValue(Id::EmissionMarker::Rect, cv::Rect_<int>(0, 0, 0, 0), n);
    p.setValue(Id::EmissionMarker::MarkerEmissivity, 0.95f, n);
    p.setValue(Id::EmissionMarker::Size, 0.05f, n);
    p.setValue(Id::EmissionMarker::SearchPoint, cv::Point_<int>(320, 240), n);
    p.setValue(Id::EmissionMarker::Apply, false, n);
    p.setValue(Id::Fusion::Mode, Id::Fusion::Off, n);
    p.setValue(Id::Fusion::Alpha, 0.5f, n);
    p.setValue(Id::Fusion::InJpeg, false, n);
    p.setValue(Id::Fusion::InfraredPlacement, std::vector<double>(), n);

    std::vector<std::function<void(DataProxy<std::string>&)>> more;
    {
        std::lock_guard<std::mutex> lock(providers().mutex);
        more = providers().list;
    }
    for (const auto& provider : more)
        provider(p);
}

void addDefaultParameters(std::function<void(DataProxy<std::string>&)> provider) {
    std::lock_guard<std::mutex> lock(providers().mutex);
    providers().list.push_back(std::move(provider));
}

} // namespace norda::exp
