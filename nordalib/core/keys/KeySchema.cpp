#include "nordalib/core/keys/KeySchema.h"

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/datatypes/TypeName.h"
#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"

#include <fmt/format.h>
#include <opencv2/core.hpp>

#include <cmath>
#include <unordered_map>

namespace norda::vision {
struct BadPixel; // the vision library's; its list is provided with its default there
}

namespace norda::exp {

namespace {

using Temp = quantity::Temperature<MarkedFloat>;
using Rel = quantity::Relation<MarkedFloat>;
using Point = cv::Point_<int>;
using Rect = cv::Rect_<int>;
using G = KeyGroup;
using W = KeyWriter;

Temp celsius(float t) {
    return Temp(MarkedFloat(t));
}
MeasPoint point(int x, int y) {
    return MeasPoint(static_cast<unsigned short>(x), static_cast<unsigned short>(y), celsius(20));
}
MeasArea area(int x, int y, int w, int h) {
    return MeasArea(static_cast<unsigned short>(x), static_cast<unsigned short>(y),
                    static_cast<unsigned short>(w), static_cast<unsigned short>(h));
}
DataStorage<std::string> rangePool() {
    DataStorage<std::string> pool;
    pool.setValue("1", makeMeasRange(1, -20.0f, 120.0f, -40.0f, 150.0f));
    pool.setValue("2", makeMeasRange(2, 0.0f, 350.0f, -10.0f, 380.0f));
    return pool;
}

constexpr KeyRange kEmissivity{0.0, 1.0, true, "an emissivity"};
constexpr KeyRange kReflected{-100.0, 1000.0, false, "a reflected temperature in °C"};
constexpr KeyRange kAir{-45.0, 60.0, false, "the air temperature in °C"};
constexpr KeyRange kHumidity{0.0, 1.0, false, "a relative humidity"};
constexpr KeyRange kTransmission{0.0, 1.0, true, "a transmission"};
constexpr KeyRange kGlassEmissivity{-1e-9, 0.999, true, "the glass emissivity"};
constexpr KeyRange kDistance{0.0, 10000.0, true, "an object distance in m"};
constexpr KeyRange kWindowTemperature{-50.0, 300.0, false, "a window temperature in °C"};
constexpr KeyRange kWindowReflectance{-1e-9, 0.999, true, "a window reflectance"};
constexpr bool Raw = true; // stamped into every raw frame

template <typename T>
KeySpec key(const std::string& name, G group, W writer, T value, std::optional<KeyRange> range = {},
            bool raw = false) {
    return {name,  typeid(T), group, writer, std::make_shared<const Variant_<T>>(std::move(value)),
            range, raw};
}
// A key without a default in the store: frame metadata, or provided by a vision library.
template <typename T> KeySpec bare(const std::string& name, G group, W writer) {
    return {name, typeid(T), group, writer, nullptr, std::nullopt, false};
}

std::vector<KeySpec>* buildSchema() {
    namespace MP = Id::MeasPoints;
    namespace MA = Id::MeasAreas;
    using US = unsigned short;
    using UC = unsigned char;
    using UI = unsigned int;
    using ULL = unsigned long long;
    using Str = std::string;
    using Doubles = std::vector<double>;
    // clang-format off
    return new std::vector<KeySpec>{
        key<Str>(Id::Shutter::State, G::Device, W::Device, Id::Shutter::StateIdle),
        key<bool>(Id::Shutter::Closed, G::Device, W::Device, false),
        key<cv::Mat>(Id::Shutter::OffsetFrame, G::Device, W::Library, cv::Mat()),
        key<bool>(Id::Streaming::DisableOffset, G::Device, W::Library, false),
        key<bool>(Id::Streaming::UpdateValues, G::Device, W::Device, false),
        key<bool>(Id::Streaming::WarmUp, G::Device, W::Library, false),
        bare<std::vector<vision::BadPixel>>(Id::IrSensor::BadPixelList, G::Device, W::Library),
        key<US>(Id::IrImage::Cols, G::Device, W::Device, 640),
        key<US>(Id::IrImage::Rows, G::Device, W::Device, 480),
        key<Temp>(Id::IrImage::Min, G::Measurement, W::Library, celsius(20)),
        key<Temp>(Id::IrImage::Max, G::Measurement, W::Library, celsius(20)),
        key<Temp>(Id::IrImage::Med, G::Measurement, W::Library, celsius(20)),
        key<DataStorage<std::string>>(Id::MeasRangePool, G::MeasurementRange, W::Device, rangePool()),
        key<UC>(Id::ActiveMeasRange::Name, G::MeasurementRange, W::User, 1, {}, Raw),
        key<UC>(Id::ActiveMeasRange::TnrGain, G::MeasurementRange, W::Service, 16),
        key<US>(Id::ActiveMeasRange::TnrAlpha, G::MeasurementRange, W::Service, 1843),
        key<Temp>(Id::ActiveMeasRange::ToleranceTop, G::MeasurementRange, W::Service, celsius(120)),
        key<Temp>(Id::ActiveMeasRange::ToleranceBottom, G::MeasurementRange, W::Service, celsius(-20)),
        key<Temp>(Id::ActiveMeasRange::DisplayTop, G::MeasurementRange, W::Service, celsius(150)),
        key<Temp>(Id::ActiveMeasRange::DisplayBottom, G::MeasurementRange, W::Service, celsius(-40)),
        key<Temp>(Id::ActiveMeasRange::Top, G::MeasurementRange, W::Service, celsius(150)),
        key<Temp>(Id::ActiveMeasRange::Bottom, G::MeasurementRange, W::Service, celsius(-40)),
        key<bool>(Id::MeasRangeSettings::EnableAutoRange, G::MeasurementRange, W::User, true),
        key<bool>(Id::SprElement::Active, G::Filters, W::User, false),
        key<short>(Id::SprElement::Threshold, G::Filters, W::User, 40),
        key<short>(Id::SprElement::LineLimit, G::Filters, W::User, 20),
        key<short>(Id::SprElement::FrameLimit, G::Filters, W::User, 32),
        key<bool>(Id::SnrElement::Active, G::Filters, W::User, false),
        key<bool>(Id::DeviceFeatures::FastFrameAvailable, G::Device, W::Device, true),
        key<ULL>(Id::DeviceInfo::Uptime, G::Device, W::Device, 0, {}, Raw),

        key<float>(Id::Environment::EmissivityValue, G::ObjectParameters, W::User, 0.95f, kEmissivity, Raw),
        key<Temp>(Id::Environment::ReflectedTemperature, G::ObjectParameters, W::User, celsius(20), kReflected, Raw),
        key<Rel>(Id::Environment::Humidity, G::ObjectParameters, W::User, Rel(MarkedFloat(0.5f)), kHumidity, Raw),
        key<bool>(Id::Environment::HumidityModeActive, G::ObjectParameters, W::User, false),
        key<Temp>(Id::Environment::Temperature, G::ObjectParameters, W::User, celsius(20), kAir, Raw),
        key<bool>(Id::ProtectiveGlass::Attached, G::ObjectParameters, W::User, false, {}, Raw),
        key<float>(Id::ProtectiveGlass::Transmission, G::ObjectParameters, W::User, 0.92f, kTransmission, Raw),
        key<float>(Id::ProtectiveGlass::Emissivity, G::ObjectParameters, W::User, 0.05f, kGlassEmissivity, Raw),
        key<float>(Id::ProtectiveGlass::Reflectance, G::ObjectParameters, W::User, 0.0f, kWindowReflectance, Raw),
        key<bool>(Id::ProtectiveGlass::OwnTemperature, G::ObjectParameters, W::User, false, {}, Raw),
        key<Temp>(Id::ProtectiveGlass::Temperature, G::ObjectParameters, W::User, celsius(20), kWindowTemperature, Raw),
        key<bool>(Id::Environment::AirCorrection, G::ObjectParameters, W::User, false, {}, Raw),
        key<float>(Id::Environment::Distance, G::ObjectParameters, W::User, 10.0f, kDistance, Raw),
        key<bool>(Id::Environment::DistanceFromLaser, G::ObjectParameters, W::User, false, {}, Raw),
        key<std::string>(Id::Environment::Material, G::ObjectParameters, W::User, std::string(), {}, Raw),

        key<Temp>(Id::Temperatures::Current::TBoardSens50, G::Device, W::Device, celsius(30), {}, Raw),
        key<float>(Id::Temperatures::Current::TBoardSlope, G::Device, W::Device, 0.0f, {}, Raw),
        key<Temp>(Id::Temperatures::Current::TLens, G::Device, W::Device, celsius(25), {}, Raw),
        key<Temp>(Id::Temperatures::Shuttering::TBoardSens50, G::Device, W::Device, celsius(30), {}, Raw),
        key<Temp>(Id::Temperatures::Shuttering::TShutter, G::Device, W::Device, celsius(25), {}, Raw),
        key<bool>(Id::Temperatures::Validity, G::Device, W::Device, true),
        bare<Doubles>(Id::Radiometry::Planck, G::Device, W::Library),
        key<bool>(Id::ActiveLens::Attached, G::Device, W::Service, true, {}, Raw),
        key<UC>(Id::ActiveLens::Index, G::Device, W::Service, 1, {}, Raw),
        key<Str>(Id::ActiveLens::Serial, G::Device, W::Service, "L25-000001", {}, Raw),

        key<bool>(Id::Gallery::ForceUpdate, G::Gallery, W::Host, false),
        key<Str>(Id::Gallery::ActiveFilename, G::Gallery, W::Host, ""),
        key<bool>(Id::Gallery::Reanalysis::Active, G::Gallery, W::Host, false),
        key<float>(Id::Gallery::Reanalysis::Emissivity, G::Gallery, W::Host, 0.95f, kEmissivity),
        key<Temp>(Id::Gallery::Reanalysis::ReflectedTemperature, G::Gallery, W::Host, celsius(20), kReflected),
        key<float>(Id::Gallery::Reanalysis::Distance, G::Gallery, W::Host, 0.0f, KeyRange{0.0, 10000.0, false, "a distance in m (0: as taken)"}),
        key<bool>(Id::Gallery::Reanalysis::AirGiven, G::Gallery, W::Host, false),
        key<Temp>(Id::Gallery::Reanalysis::AirTemperature, G::Gallery, W::Host, celsius(20), kAir),
        key<Rel>(Id::Gallery::Reanalysis::Humidity, G::Gallery, W::Host, Rel(MarkedFloat(0.5f)), kHumidity),

        key<bool>(MP::HotSpot::Visible, G::Measurement, W::User, true),
        key<Point>(MP::HotSpot::Position, G::Measurement, W::User, Point(0, 0)),
        key<MeasPoint>(MP::HotSpot::MeasPoint, G::Measurement, W::Library, point(0, 0)),
        key<bool>(MP::ColdSpot::Visible, G::Measurement, W::User, true),
        key<Point>(MP::ColdSpot::Position, G::Measurement, W::User, Point(0, 0)),
        key<MeasPoint>(MP::ColdSpot::MeasPoint, G::Measurement, W::Library, point(0, 0)),
        key<bool>(MP::CenterSpot::Visible, G::Measurement, W::User, true),
        key<Point>(MP::CenterSpot::Position, G::Measurement, W::User, Point(320, 240)),
        key<MeasPoint>(MP::CenterSpot::MeasPoint, G::Measurement, W::Library, point(320, 240)),
        key<bool>(MP::LaserSpot::Visible, G::Measurement, W::User, false),
        key<Point>(MP::LaserSpot::Position, G::Measurement, W::User, Point(320, 240)),
        key<MeasPoint>(MP::LaserSpot::MeasPoint, G::Measurement, W::Library, point(320, 240)),
        key<bool>(MA::CenterArea::Visible, G::Measurement, W::User, true),
        key<MeasArea>(MA::CenterArea::MeasArea, G::Measurement, W::Library, area(160, 120, 320, 240)),
        key<Rect>(MA::CenterArea::Rect, G::Measurement, W::Library, Rect(160, 120, 320, 240)),

#define NORDA_USER_POINT(P, X, Y)                                                                            \
    key<bool>(MP::P::Visible, G::UserMarks, W::User, false),                                                 \
        key<Point>(MP::P::Position, G::UserMarks, W::User, Point(X, Y)),                                     \
        key<MeasPoint>(MP::P::MeasPoint, G::UserMarks, W::Library, point(X, Y)),                             \
        key<bool>(MP::P::LocalParameters, G::UserMarks, W::User, false),                                     \
        key<float>(MP::P::Emissivity, G::UserMarks, W::User, 0.95f, kEmissivity),                            \
        key<Temp>(MP::P::ReflectedTemperature, G::UserMarks, W::User, celsius(20), kReflected),                  \
        key<float>(MP::P::Distance, G::UserMarks, W::User, 10.0f, kDistance),                                 \
        key<std::string>(MP::P::Material, G::UserMarks, W::User, std::string())
        NORDA_USER_POINT(MeasPoint1, 160, 120),
        NORDA_USER_POINT(MeasPoint2, 480, 120),
        NORDA_USER_POINT(MeasPoint3, 160, 360),
        NORDA_USER_POINT(MeasPoint4, 480, 360),
        NORDA_USER_POINT(MeasPoint5, 320, 120),
#undef NORDA_USER_POINT
#define NORDA_USER_AREA(A, X, Y, WIDTH, HEIGHT)                                                              \
    key<bool>(MA::A::Visible, G::UserMarks, W::User, false),                                                 \
        key<Rect>(MA::A::Rect, G::UserMarks, W::User, Rect(X, Y, WIDTH, HEIGHT)),                            \
        key<MeasArea>(MA::A::MeasArea, G::UserMarks, W::Library, area(X, Y, WIDTH, HEIGHT)),                 \
        key<bool>(MA::A::LocalParameters, G::UserMarks, W::User, false),                                     \
        key<float>(MA::A::Emissivity, G::UserMarks, W::User, 0.95f, kEmissivity),                            \
        key<Temp>(MA::A::ReflectedTemperature, G::UserMarks, W::User, celsius(20), kReflected),                  \
        key<float>(MA::A::Distance, G::UserMarks, W::User, 10.0f, kDistance),                                 \
        key<std::string>(MA::A::Material, G::UserMarks, W::User, std::string())
        NORDA_USER_AREA(UserArea1, 80, 60, 160, 120),
        NORDA_USER_AREA(UserArea2, 400, 60, 160, 120),
        NORDA_USER_AREA(UserArea3, 240, 300, 160, 120),
#undef NORDA_USER_AREA
        key<bool>(MP::DeltaT1::Visible, G::UserMarks, W::User, false),
        key<Point>(MP::DeltaT1::Position, G::UserMarks, W::User, Point(200, 240)),
        key<MeasPoint>(MP::DeltaT1::MeasPoint, G::UserMarks, W::Library, point(200, 240)),
        key<bool>(MP::DeltaT2::Visible, G::UserMarks, W::User, false),
        key<Point>(MP::DeltaT2::Position, G::UserMarks, W::User, Point(440, 240)),
        key<MeasPoint>(MP::DeltaT2::MeasPoint, G::UserMarks, W::Library, point(440, 240)),
        key<bool>(Id::DeltaT::Active, G::UserMarks, W::User, false),
        key<Str>(Id::DeltaT::Mode, G::UserMarks, W::User, Id::DeltaT::PointPoint),
        key<Str>(Id::DeltaT::First, G::UserMarks, W::User, "DeltaT1"),
        key<Str>(Id::DeltaT::Second, G::UserMarks, W::User, "DeltaT2"),
        key<float>(Id::DeltaT::Difference, G::UserMarks, W::Library, 0.0f),

        key<Str>(Id::Scaling::Mode, G::Display, W::User, Id::Scaling::Auto),
        key<Temp>(Id::Scaling::TempMin, G::Display, W::User, celsius(15)),
        key<Temp>(Id::Scaling::TempMax, G::Display, W::User, celsius(40)),
        key<US>(Id::Scaling::Min, G::Display, W::Library, 28815), // 15 °C
        key<US>(Id::Scaling::Max, G::Display, W::Library, 31315), // 40 °C
        key<Temp>(Id::Scaling::TempIn, G::Display, W::User, celsius(20)),
        key<Temp>(Id::Scaling::TempOut, G::Display, W::User, celsius(0)),
        key<Str>(Id::Palette::ActivePalette, G::Display, W::User, "iron"),
        bare<std::vector<unsigned char>>(Id::Palette::Colors, G::Display, W::Host),
        key<bool>(Id::Alarm::AlarmBottomActive, G::Display, W::User, false),
        key<bool>(Id::Alarm::AlarmTopActive, G::Display, W::User, false),
        key<UI>(Id::Alarm::AlarmTopColor, G::Display, W::User, 0x00FF0000u),
        key<UI>(Id::Alarm::AlarmBottomColor, G::Display, W::User, 0x000000FFu),
        key<Temp>(Id::Alarm::AlarmBottomValue, G::Display, W::User, celsius(0)),
        key<Temp>(Id::Alarm::AlarmTopValue, G::Display, W::User, celsius(60)),
        key<bool>(Id::Isotherme::IsothermeActive, G::Display, W::User, false),
        key<UI>(Id::Isotherme::IsothermeColor, G::Display, W::User, 0x0000FF00u),
        key<Temp>(Id::Isotherme::IsothermeTopValue, G::Display, W::User, celsius(40)),
        key<Temp>(Id::Isotherme::IsothermeBottomValue, G::Display, W::User, celsius(35)),
        key<Str>(Id::Fusion::Mode, G::Display, W::User, Id::Fusion::Off),
        key<float>(Id::Fusion::Alpha, G::Display, W::User, 0.5f),
        key<bool>(Id::Fusion::InJpeg, G::Display, W::User, false),
        key<Doubles>(Id::Fusion::InfraredPlacement, G::Display, W::Library, Doubles()),
        key<cv::Mat>(Id::Images::GuiJpeg, G::Display, W::Host, cv::Mat(240, 320, CV_8UC4, cv::Scalar::all(0))),
        bare<ULL>(Id::Images::DateTime, G::Storage, W::Device),

        key<UI>(Id::Miscellaneous::ImageCounter, G::Storage, W::User, 1),
        key<Str>(Id::Miscellaneous::LastImageFileName, G::Storage, W::Library, ""),
        key<bool>(Id::Miscellaneous::SaveImageMode, G::Storage, W::User, false),
        key<bool>(Id::Miscellaneous::SpinnerVisible, G::Storage, W::Library, false),
        key<bool>(Id::Miscellaneous::SuperResolution, G::Storage, W::User, false),
        key<int>(Id::Miscellaneous::SuperResolutionCount, G::Storage, W::Library, 0),
        key<std::vector<std::string>>(Id::Miscellaneous::SuperResolutionDeleteRequest, G::Storage, W::Library, {}),
        key<bool>(Id::Miscellaneous::WarnSrMovementDetected, G::Storage, W::Library, false),
        key<bool>(Id::Miscellaneous::ErrorImageSaving, G::Storage, W::Library, false),
        key<bool>(Id::Miscellaneous::ImageRealSave, G::Storage, W::Library, false),
        key<bool>(Id::Miscellaneous::SaveJpeg, G::Storage, W::User, true),
        key<bool>(Id::PlaceTag::SiteInUse, G::Storage, W::User, false),
        key<Str>(Id::PlaceTag::MeasSiteFolder, G::Storage, W::User, ""),

        key<Str>(Id::Viscam::CurrentImageResolution, G::Visual, W::Device, Id::Viscam::Resolution::Qvga),
        key<float>(Id::Viscam::MaximumImageLatency, G::Visual, W::Device, 120.0f),
        key<float>(Id::Viscam::CaptureTime, G::Visual, W::Device, 40.0f),
        bare<ULL>(Id::Viscam::Timestamp, G::Visual, W::Device),
        bare<ULL>(Id::Viscam::FrameCounter, G::Visual, W::Device),
        key<Str>(Id::Registration::CalibrationFile, G::Visual, W::Host, ""),
        key<float>(Id::Registration::Distance, G::Visual, W::User, 3.0f),
        key<bool>(Id::Registration::UseLaserDistance, G::Visual, W::User, true),
        key<float>(Id::Laser::Distance, G::Visual, W::Library, 0.0f),
        key<Point>(Id::Laser::VisualPosition, G::Visual, W::Library, Point(0, 0)),
        key<Doubles>(Id::Laser::InfraredPosition, G::Visual, W::Library, Doubles{0.0, 0.0}),
        key<Str>(Id::Laser::Status, G::Visual, W::Library, "NoFrame"),
        key<Rel>(Id::EmissionMarker::Emissivity, G::Visual, W::Library, Rel(MarkedFloat(0.95f, MarkedFloat::MarkedFloatValidity(1)))),
        key<Str>(Id::EmissionMarker::Status, G::Visual, W::Library, "NoFrame"),
        key<Temp>(Id::EmissionMarker::SurfaceTemperature, G::Visual, W::Library, Temp(MarkedFloat(20.0f, MarkedFloat::MarkedFloatValidity(1)))),
        key<Rect>(Id::EmissionMarker::Rect, G::Visual, W::Library, Rect(0, 0, 0, 0)),
        key<float>(Id::EmissionMarker::MarkerEmissivity, G::Visual, W::User, 0.95f),
        key<float>(Id::EmissionMarker::Size, G::Visual, W::User, 0.05f),
        key<Point>(Id::EmissionMarker::SearchPoint, G::Visual, W::User, Point(320, 240)),
        key<bool>(Id::EmissionMarker::Apply, G::Visual, W::Service, false),
    };
    // clang-format on
}

const std::string& noKey() {
    static const std::string& none = persistentKey("");
    return none;
}
UserMark pointMark(int i, const std::string& visible, const std::string& position, const std::string& result,
                   const std::string& local, const std::string& emissivity, const std::string& reflected,
                   const std::string& distance, const std::string& material) {
    return {fmt::format("MeasPoint{}", i),
            fmt::format("P{}", i),
            false,
            visible,
            position,
            noKey(),
            result,
            local,
            emissivity,
            reflected,
            distance,
            material};
}
UserMark areaMark(int i, const std::string& visible, const std::string& rect, const std::string& result,
                  const std::string& local, const std::string& emissivity, const std::string& reflected,
                  const std::string& distance, const std::string& material) {
    return {fmt::format("UserArea{}", i),
            fmt::format("A{}", i),
            true,
            visible,
            noKey(),
            rect,
            result,
            local,
            emissivity,
            reflected,
            distance,
            material};
}

} // namespace

std::string KeySpec::typeName() const {
    return exp::typeName(type);
}

const std::vector<KeySpec>& keySchema() {
    static const std::vector<KeySpec>* schema = buildSchema(); // never destroyed
    return *schema;
}

const KeySpec* findKey(const std::string& name) {
    static const auto* index = [] {
        auto* m = new std::unordered_map<std::string, const KeySpec*>();
        for (const auto& keySpec : keySchema())
            (*m)[keySpec.name] = &keySpec;
        return m;
    }();
    auto it = index->find(name);
    return it == index->end() ? nullptr : it->second;
}

std::string rangeText(const KeySpec& keySpec) {
    if (!keySpec.range)
        return {};
    const KeyRange& r = *keySpec.range;
    if (keySpec.type == typeid(Rel))
        return fmt::format("{} must lie in [{}, {}] %", r.what, r.low * 100, r.high * 100);
    return fmt::format("{} must lie in {}{}, {}]", r.what, r.lowOpen ? "(" : "[", r.low, r.high);
}

std::string rangeProblem(const KeySpec& keySpec, const Variant& value) {
    if (!keySpec.range)
        return {};
    const KeyRange& r = *keySpec.range;
    double x = 0;
    if (value.holds<float>())
        x = value.value<float>();
    else if (value.holds<Temp>())
        x = value.value<Temp>().celsius();
    else if (value.holds<Rel>()) {
        // A relation is shown in percent.
        const double percent = std::round(value.value<Rel>().getValue().toFloat() * 1e5) / 1e3;
        if (percent >= r.low * 100 && percent <= r.high * 100)
            return {};
        return fmt::format("{} (got {} %)", rangeText(keySpec), percent);
    } else
        return {};
    if ((r.lowOpen ? x > r.low : x >= r.low) && x <= r.high)
        return {};
    return fmt::format("{} (got {})", rangeText(keySpec), x);
}

const char* groupName(KeyGroup group) {
    switch (group) {
    case KeyGroup::Device:
        return "device";
    case KeyGroup::MeasurementRange:
        return "measurement range";
    case KeyGroup::Filters:
        return "filters";
    case KeyGroup::ObjectParameters:
        return "object parameters";
    case KeyGroup::Measurement:
        return "measurement";
    case KeyGroup::UserMarks:
        return "user marks";
    case KeyGroup::Display:
        return "display";
    case KeyGroup::Storage:
        return "storage";
    case KeyGroup::Visual:
        return "visual";
    case KeyGroup::Gallery:
        return "gallery";
    }
    return "?";
}

const char* writerName(KeyWriter writer) {
    switch (writer) {
    case KeyWriter::User:
        return "user";
    case KeyWriter::Service:
        return "service";
    case KeyWriter::Host:
        return "host";
    case KeyWriter::Device:
        return "device";
    case KeyWriter::Library:
        return "library";
    }
    return "?";
}

const std::vector<UserMark>& userMarks() {
    namespace MP = Id::MeasPoints;
    namespace MA = Id::MeasAreas;
#define NORDA_POINT(I)                                                                                       \
    pointMark(I, MP::MeasPoint##I::Visible, MP::MeasPoint##I::Position, MP::MeasPoint##I::MeasPoint,         \
              MP::MeasPoint##I::LocalParameters, MP::MeasPoint##I::Emissivity,                               \
              MP::MeasPoint##I::ReflectedTemperature, MP::MeasPoint##I::Distance,                            \
              MP::MeasPoint##I::Material)
#define NORDA_AREA(I)                                                                                        \
    areaMark(I, MA::UserArea##I::Visible, MA::UserArea##I::Rect, MA::UserArea##I::MeasArea,                  \
             MA::UserArea##I::LocalParameters, MA::UserArea##I::Emissivity,                                  \
             MA::UserArea##I::ReflectedTemperature, MA::UserArea##I::Distance, MA::UserArea##I::Material)
    static const auto* marks =
        new std::vector<UserMark>{NORDA_POINT(1), NORDA_POINT(2), NORDA_POINT(3), NORDA_POINT(4),
                                  NORDA_POINT(5), NORDA_AREA(1),  NORDA_AREA(2),  NORDA_AREA(3)};
#undef NORDA_POINT
#undef NORDA_AREA
    return *marks;
}

const std::vector<std::string>& deltaTResultNames() {
    static const auto* names = [] {
        auto* n = new std::vector<std::string>{"HotSpot", "ColdSpot", "CenterSpot"};
        for (const auto& m : userMarks())
            if (!m.area)
                n->push_back(m.name);
        n->insert(n->end(), {"DeltaT1", "DeltaT2"});
        for (const auto& m : userMarks())
            if (m.area)
                n->push_back(m.name);
        return n;
    }();
    return *names;
}

} // namespace norda::exp
