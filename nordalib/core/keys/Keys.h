#pragma once
// Parameter keys of the library: Id::<Group>::<Key> is the text "<Group>.<Key>".
//
// Value types (the elements read them with exactly these types; setDefaultParameters writes them):
//   Temperature = quantity::Temperature<MarkedFloat>, Relation = quantity::Relation<MarkedFloat>.
// Constants marked "value" are not keys but values a key takes (shutter states, scaling modes, ...).

#include <string>

namespace norda::exp {

// The text of a key, never destroyed: an element still running while the process exits (a host
// that leaves without stopping its chain) reads valid strings.
inline const std::string& persistentKey(const char* text) {
    return *new std::string(text);
}

namespace Id {

namespace Shutter {
inline const std::string& State = persistentKey("Shutter.State");   // string: one of the State* values
inline const std::string& Closed = persistentKey("Shutter.Closed"); // bool (frame metadata)
inline const std::string& OffsetFrame = persistentKey("Shutter.OffsetFrame"); // cv::Mat CV_16U
inline const std::string& StateIdle = persistentKey("Idle");                  // value: shutter open
inline const std::string& StateClosing = persistentKey("Closing");            // value
inline const std::string& StateCaptureOffsetFrame =
    persistentKey("CaptureOffsetFrame");                           // value: shutter closed, offset frames
inline const std::string& StateOpening = persistentKey("Opening"); // value: written after a completed capture
} // namespace Shutter

namespace Streaming {
inline const std::string& DisableOffset = persistentKey("Streaming.DisableOffset"); // bool
inline const std::string& UpdateValues =
    persistentKey("Streaming.UpdateValues");                          // bool: reload calibration data
inline const std::string& WarmUp = persistentKey("Streaming.WarmUp"); // bool
} // namespace Streaming

namespace IrSensor {
inline const std::string& BadPixelList =
    persistentKey("IrSensor.BadPixelList"); // std::vector<vision::BadPixel>
} // namespace IrSensor

namespace IrImage {
inline const std::string& Cols = persistentKey("IrImage.Cols"); // unsigned short
inline const std::string& Rows = persistentKey("IrImage.Rows"); // unsigned short
inline const std::string& Min = persistentKey("IrImage.Min");   // Temperature
inline const std::string& Max = persistentKey("IrImage.Max");   // Temperature
inline const std::string& Med = persistentKey("IrImage.Med");   // Temperature
} // namespace IrImage

namespace ActiveMeasRange {
inline const std::string& Name = persistentKey("ActiveMeasRange.Name"); // unsigned char: range number, 0 none
inline const std::string& TnrGain = persistentKey("ActiveMeasRange.TnrGain");   // unsigned char
inline const std::string& TnrAlpha = persistentKey("ActiveMeasRange.TnrAlpha"); // unsigned short (Q11)
inline const std::string& ToleranceTop = persistentKey("ActiveMeasRange.ToleranceTop");       // Temperature
inline const std::string& ToleranceBottom = persistentKey("ActiveMeasRange.ToleranceBottom"); // Temperature
inline const std::string& DisplayTop = persistentKey("ActiveMeasRange.DisplayTop");           // Temperature
inline const std::string& DisplayBottom = persistentKey("ActiveMeasRange.DisplayBottom");     // Temperature
inline const std::string& Top = persistentKey("ActiveMeasRange.Top");                         // Temperature
inline const std::string& Bottom = persistentKey("ActiveMeasRange.Bottom");                   // Temperature
} // namespace ActiveMeasRange

// DataStorage<std::string>: one entry per range, keyed by the range number as decimal text ("1",
// "2"); each entry is a DataStorage holding the ActiveMeasRange keys' item names ("Name",
// "ToleranceTop", ...) with the range's values.
inline const std::string& MeasRangePool = persistentKey("MeasRangePool");

namespace MeasRangeSettings {
inline const std::string& EnableAutoRange = persistentKey("MeasRangeSettings.EnableAutoRange"); // bool
} // namespace MeasRangeSettings

namespace SprElement {
inline const std::string& Active = persistentKey("SprElement.Active");       // bool
inline const std::string& Threshold = persistentKey("SprElement.Threshold"); // short
inline const std::string& LineLimit = persistentKey("SprElement.LineLimit"); // short
inline const std::string& FrameLimit =
    persistentKey("SprElement.FrameLimit"); // short (also the spatial filter's gain)
} // namespace SprElement
namespace SnrElement {
inline const std::string& Active = persistentKey("SnrElement.Active"); // bool
} // namespace SnrElement
inline const std::string& SprElementGroup = persistentKey("SprElement");
inline const std::string& SnrElementGroup = persistentKey("SnrElement");

namespace DeviceFeatures {
inline const std::string& FastFrameAvailable = persistentKey("DeviceFeatures.FastFrameAvailable"); // bool
} // namespace DeviceFeatures

namespace DeviceInfo {
inline const std::string& Uptime = persistentKey("DeviceInfo.Uptime"); // unsigned long long, milliseconds
} // namespace DeviceInfo

namespace Environment {
inline const std::string& EmissivityValue = persistentKey("Environment.EmissivityValue"); // float
inline const std::string& ReflectedTemperature =
    persistentKey("Environment.ReflectedTemperature");                                          // Temperature
inline const std::string& Humidity = persistentKey("Environment.Humidity");                     // Relation
inline const std::string& HumidityModeActive = persistentKey("Environment.HumidityModeActive"); // bool
inline const std::string& Temperature = persistentKey("Environment.Temperature"); // Temperature (air)
// The air between object and camera: with AirCorrection (bool) on, its transmission over Distance
// (float, metres) at Temperature and Humidity enters the temperatures. With DistanceFromLaser
// (bool) on, the laser's measured distance replaces Distance while its spot is found.
inline const std::string& AirCorrection = persistentKey("Environment.AirCorrection");
inline const std::string& Distance = persistentKey("Environment.Distance");
inline const std::string& DistanceFromLaser = persistentKey("Environment.DistanceFromLaser");
// The material whose emissivity EmissivityValue holds (std::string, empty when typed in by hand).
inline const std::string& Material = persistentKey("Environment.Material");
} // namespace Environment

namespace Temperatures {
namespace Current {
inline const std::string& TBoardSens50 = persistentKey("Temperatures.Current.TBoardSens50"); // Temperature
inline const std::string& TBoardSlope =
    persistentKey("Temperatures.Current.TBoardSlope");                         // float, kelvin per minute
inline const std::string& TLens = persistentKey("Temperatures.Current.TLens"); // Temperature
} // namespace Current
namespace Shuttering {
inline const std::string& TBoardSens50 = persistentKey("Temperatures.Shuttering.TBoardSens50"); // Temperature
inline const std::string& TShutter = persistentKey("Temperatures.Shuttering.TShutter");         // Temperature
} // namespace Shuttering
inline const std::string& Validity = persistentKey("Temperatures.Validity"); // bool (frame metadata)
} // namespace Temperatures

namespace Radiometry {
// std::vector<double> {R1, R2, B, F, O[, T0]}: the Planck constants of the range a temperature frame was
// computed in (frame metadata, saved with images so that they can be re-analysed later).
inline const std::string& Planck = persistentKey("Radiometry.Planck");
} // namespace Radiometry

namespace ActiveLens {
inline const std::string& Attached = persistentKey("ActiveLens.Attached"); // bool
inline const std::string& Index = persistentKey("ActiveLens.Index");       // unsigned char, 0 = no valid lens
inline const std::string& Serial = persistentKey("ActiveLens.Serial");     // std::string
} // namespace ActiveLens

namespace ProtectiveGlass {
inline const std::string& Attached = persistentKey("ProtectiveGlass.Attached");         // bool
inline const std::string& Transmission = persistentKey("ProtectiveGlass.Transmission"); // float 0..1
inline const std::string& Emissivity = persistentKey("ProtectiveGlass.Emissivity");     // float 0..1
// float [0, 1): what the window reflects of the camera's side (Transmission + Emissivity +
// Reflectance <= 1)
inline const std::string& Reflectance = persistentKey("ProtectiveGlass.Reflectance");
// With OwnTemperature (bool) on the window is at Temperature (Temperature); off, at the reflected
// temperature.
inline const std::string& OwnTemperature = persistentKey("ProtectiveGlass.OwnTemperature");
inline const std::string& Temperature = persistentKey("ProtectiveGlass.Temperature");
} // namespace ProtectiveGlass

namespace Gallery {
inline const std::string& ForceUpdate = persistentKey("Gallery.ForceUpdate");       // bool
inline const std::string& ActiveFilename = persistentKey("Gallery.ActiveFilename"); // std::string
// Re-analysis of the shown image: with Active (bool) true its temperatures are recomputed for
// Emissivity (float, (0, 1]) and ReflectedTemperature (Temperature) instead of the stored ones,
// and for Distance (float, metres; 0: as taken) through the air at AirTemperature (Temperature)
// and Humidity (Relation), when AirGiven (bool), else the air the image was taken in.
namespace Reanalysis {
inline const std::string& Active = persistentKey("Gallery.Reanalysis.Active");
inline const std::string& Emissivity = persistentKey("Gallery.Reanalysis.Emissivity");
inline const std::string& ReflectedTemperature = persistentKey("Gallery.Reanalysis.ReflectedTemperature");
inline const std::string& Distance = persistentKey("Gallery.Reanalysis.Distance");
inline const std::string& AirGiven = persistentKey("Gallery.Reanalysis.AirGiven");
inline const std::string& AirTemperature = persistentKey("Gallery.Reanalysis.AirTemperature");
inline const std::string& Humidity = persistentKey("Gallery.Reanalysis.Humidity");
} // namespace Reanalysis
} // namespace Gallery

// Measurement points: <Point>::MeasPoint (MeasPoint), ::Position (cv::Point_<int>), ::Visible (bool).
namespace MeasPoints {
#define NORDA_MEASPOINT_KEYS(P)                                                                              \
    namespace P {                                                                                            \
    inline const std::string& MeasPoint = persistentKey("MeasPoints." #P ".MeasPoint");                      \
    inline const std::string& Position = persistentKey("MeasPoints." #P ".Position");                        \
    inline const std::string& Visible = persistentKey("MeasPoints." #P ".Visible");                          \
    }
NORDA_MEASPOINT_KEYS(HotSpot)
NORDA_MEASPOINT_KEYS(ColdSpot)
NORDA_MEASPOINT_KEYS(CenterSpot)
NORDA_MEASPOINT_KEYS(LaserSpot)
NORDA_MEASPOINT_KEYS(MeasPoint1)
NORDA_MEASPOINT_KEYS(MeasPoint2)
NORDA_MEASPOINT_KEYS(MeasPoint3)
NORDA_MEASPOINT_KEYS(MeasPoint4)
NORDA_MEASPOINT_KEYS(MeasPoint5)
NORDA_MEASPOINT_KEYS(DeltaT1)
NORDA_MEASPOINT_KEYS(DeltaT2)
#undef NORDA_MEASPOINT_KEYS
// Local object parameters of a user point: <Point>::LocalParameters (bool: the point's value is
// computed with its own emissivity, reflected temperature and distance instead of the image's),
// ::Emissivity (float, (0, 1]), ::ReflectedTemperature (Temperature), ::Distance (float, metres;
// used while the image's air correction is on), ::Material (std::string, the emissivity's material).
#define NORDA_LOCAL_PARAMETER_KEYS(P)                                                                        \
    namespace P {                                                                                            \
    inline const std::string& LocalParameters = persistentKey("MeasPoints." #P ".LocalParameters");          \
    inline const std::string& Emissivity = persistentKey("MeasPoints." #P ".Emissivity");                    \
    inline const std::string& ReflectedTemperature =                                                         \
        persistentKey("MeasPoints." #P ".ReflectedTemperature");                                             \
    inline const std::string& Distance = persistentKey("MeasPoints." #P ".Distance");                        \
    inline const std::string& Material = persistentKey("MeasPoints." #P ".Material");                        \
    }
NORDA_LOCAL_PARAMETER_KEYS(MeasPoint1)
NORDA_LOCAL_PARAMETER_KEYS(MeasPoint2)
NORDA_LOCAL_PARAMETER_KEYS(MeasPoint3)
NORDA_LOCAL_PARAMETER_KEYS(MeasPoint4)
NORDA_LOCAL_PARAMETER_KEYS(MeasPoint5)
#undef NORDA_LOCAL_PARAMETER_KEYS
} // namespace MeasPoints

namespace DeltaT {
inline const std::string& Active = persistentKey("DeltaT.Active"); // bool
inline const std::string& Mode = persistentKey("DeltaT.Mode"); // std::string: PointPoint or PointReference
inline const std::string& PointPoint = persistentKey("PointPoint");         // value
inline const std::string& PointReference = persistentKey("PointReference"); // value
// The two results delta-T compares (std::string, a result's name: HotSpot, ColdSpot, CenterSpot,
// MeasPoint1..5, DeltaT1, DeltaT2, UserArea1..3 (its mean)); the difference First - Second in
// kelvin (float, result).
inline const std::string& First = persistentKey("DeltaT.First");
inline const std::string& Second = persistentKey("DeltaT.Second");
inline const std::string& Difference = persistentKey("DeltaT.Difference");
} // namespace DeltaT

namespace MeasAreas {
namespace CenterArea {
inline const std::string& Visible = persistentKey("MeasAreas.CenterArea.Visible");   // bool
inline const std::string& MeasArea = persistentKey("MeasAreas.CenterArea.MeasArea"); // MeasArea
inline const std::string& Rect = persistentKey("MeasAreas.CenterArea.Rect");         // cv::Rect_<int>
} // namespace CenterArea
// User measurement areas: <Area>::Visible (bool), ::Rect (cv::Rect_<int>, image pixels), ::MeasArea
// (MeasArea, result), and local object parameters as for user points: ::LocalParameters (bool),
// ::Emissivity (float, (0, 1]), ::ReflectedTemperature (Temperature), ::Distance (float, metres),
// ::Material (std::string).
#define NORDA_USERAREA_KEYS(A)                                                                               \
    namespace A {                                                                                            \
    inline const std::string& Visible = persistentKey("MeasAreas." #A ".Visible");                           \
    inline const std::string& Rect = persistentKey("MeasAreas." #A ".Rect");                                 \
    inline const std::string& MeasArea = persistentKey("MeasAreas." #A ".MeasArea");                         \
    inline const std::string& LocalParameters = persistentKey("MeasAreas." #A ".LocalParameters");           \
    inline const std::string& Emissivity = persistentKey("MeasAreas." #A ".Emissivity");                     \
    inline const std::string& ReflectedTemperature = persistentKey("MeasAreas." #A ".ReflectedTemperature"); \
    inline const std::string& Distance = persistentKey("MeasAreas." #A ".Distance");                         \
    inline const std::string& Material = persistentKey("MeasAreas." #A ".Material");                         \
    }
NORDA_USERAREA_KEYS(UserArea1)
NORDA_USERAREA_KEYS(UserArea2)
NORDA_USERAREA_KEYS(UserArea3)
#undef NORDA_USERAREA_KEYS
} // namespace MeasAreas

namespace Scaling {
inline const std::string& Mode = persistentKey("Scaling.Mode"); // std::string: Auto, Manual or AutoSpanHint
inline const std::string& Auto = persistentKey("Auto");         // value
inline const std::string& Manual = persistentKey("Manual");     // value
inline const std::string& AutoSpanHint = persistentKey("AutoSpanHint"); // value
inline const std::string& TempMin = persistentKey("Scaling.TempMin");   // Temperature
inline const std::string& TempMax = persistentKey("Scaling.TempMax");   // Temperature
inline const std::string& Min = persistentKey("Scaling.Min");           // unsigned short (pixel value)
inline const std::string& Max = persistentKey("Scaling.Max");           // unsigned short (pixel value)
inline const std::string& TempIn = persistentKey("Scaling.TempIn");     // Temperature (inside)
inline const std::string& TempOut = persistentKey("Scaling.TempOut");   // Temperature (outside)
} // namespace Scaling

namespace Palette {
inline const std::string& ActivePalette = persistentKey("Palette.ActivePalette"); // std::string
inline const std::string& Colors =
    persistentKey("Palette.Colors"); // std::vector<unsigned char>: 256 RGB triples
} // namespace Palette

namespace Alarm {
inline const std::string& AlarmBottomActive = persistentKey("Alarm.AlarmBottomActive"); // bool
inline const std::string& AlarmTopActive = persistentKey("Alarm.AlarmTopActive");       // bool
inline const std::string& AlarmTopColor = persistentKey("Alarm.AlarmTopColor"); // unsigned int 0x00RRGGBB
inline const std::string& AlarmBottomColor =
    persistentKey("Alarm.AlarmBottomColor"); // unsigned int 0x00RRGGBB
inline const std::string& AlarmBottomValue = persistentKey("Alarm.AlarmBottomValue"); // Temperature
inline const std::string& AlarmTopValue = persistentKey("Alarm.AlarmTopValue");       // Temperature
} // namespace Alarm

namespace Isotherme {
inline const std::string& IsothermeActive = persistentKey("Isotherme.IsothermeActive"); // bool
inline const std::string& IsothermeColor =
    persistentKey("Isotherme.IsothermeColor"); // unsigned int 0x00RRGGBB
inline const std::string& IsothermeTopValue = persistentKey("Isotherme.IsothermeTopValue"); // Temperature
inline const std::string& IsothermeBottomValue =
    persistentKey("Isotherme.IsothermeBottomValue"); // Temperature
} // namespace Isotherme

namespace Miscellaneous {
inline const std::string& ImageCounter = persistentKey("Miscellaneous.ImageCounter"); // unsigned int
inline const std::string& LastImageFileName = persistentKey("Miscellaneous.LastImageFileName"); // std::string
inline const std::string& SaveImageMode = persistentKey("Miscellaneous.SaveImageMode"); // bool: preview mode
inline const std::string& SpinnerVisible = persistentKey("Miscellaneous.SpinnerVisible");             // bool
inline const std::string& SuperResolution = persistentKey("Miscellaneous.SuperResolution");           // bool
inline const std::string& SuperResolutionCount = persistentKey("Miscellaneous.SuperResolutionCount"); // int
inline const std::string& SuperResolutionDeleteRequest =
    persistentKey("Miscellaneous.SuperResolutionDeleteRequest"); // vector<string>
inline const std::string& WarnSrMovementDetected =
    persistentKey("Miscellaneous.WarnSrMovementDetected");                                    // bool
inline const std::string& ErrorImageSaving = persistentKey("Miscellaneous.ErrorImageSaving"); // bool
inline const std::string& ImageRealSave = persistentKey("Miscellaneous.ImageRealSave");       // bool
inline const std::string& SaveJpeg = persistentKey("Miscellaneous.SaveJpeg");                 // bool
} // namespace Miscellaneous

namespace PlaceTag {
inline const std::string& SiteInUse = persistentKey("PlaceTag.SiteInUse");           // bool
inline const std::string& MeasSiteFolder = persistentKey("PlaceTag.MeasSiteFolder"); // std::string
} // namespace PlaceTag

namespace Images {
inline const std::string& GuiJpeg =
    persistentKey("Images.GuiJpeg"); // cv::Mat CV_8UC4, 240 x 320 ARGB overlay
// unsigned long long, milliseconds since 1970-01-01 UTC: when the frame was taken (frame metadata).
// A saved image carries it as its date and time, and the overlay of its picture shows it.
inline const std::string& DateTime = persistentKey("Images.DateTime");
} // namespace Images

namespace Viscam {
namespace Resolution {
inline const std::string& Qvga = persistentKey("QVGA");   // value: 320 x 240
inline const std::string& Vga = persistentKey("VGA");     // value: 640 x 480
inline const std::string& Xga = persistentKey("XGA");     // value: 1024 x 768
inline const std::string& Qsxga = persistentKey("QSXGA"); // value: 2592 x 1944
} // namespace Resolution
inline const std::string& CurrentImageResolution =
    persistentKey("Viscam.CurrentImageResolution"); // std::string
inline const std::string& MaximumImageLatency =
    persistentKey("Viscam.MaximumImageLatency");                             // float, milliseconds
inline const std::string& CaptureTime = persistentKey("Viscam.CaptureTime"); // float, milliseconds (metadata)
// Frame metadata of visual frames: the moment the frame shows, in milliseconds on the clock of
// DeviceInfo.Uptime (unsigned long long), and the camera's frame counter (unsigned long long).
inline const std::string& Timestamp = persistentKey("Viscam.Timestamp");
inline const std::string& FrameCounter = persistentKey("Viscam.FrameCounter");
} // namespace Viscam

// Infrared-visual registration (vision/registration).
namespace Registration {
// std::string: path of the registration calibration (registration.json); the laser position,
// emission marker and fusion elements load it, and again when the key changes.
inline const std::string& CalibrationFile = persistentKey("Registration.CalibrationFile");
// float, metres: the distance of the scene when no laser distance is at hand.
inline const std::string& Distance = persistentKey("Registration.Distance");
// bool: register at the laser's distance while the spot is seen.
inline const std::string& UseLaserDistance = persistentKey("Registration.UseLaserDistance");
} // namespace Registration

// The laser pointer's spot (DetectLaserPositionElement); the infrared position and visibility go
// to MeasPoints.LaserSpot.Position/Visible.
namespace Laser {
inline const std::string& Distance = persistentKey("Laser.Distance"); // float, metres; 0 without a spot
inline const std::string& InfraredPosition =
    persistentKey("Laser.InfraredPosition"); // std::vector<double> {x, y}, sub-pixel
inline const std::string& VisualPosition =
    persistentKey("Laser.VisualPosition"); // cv::Point_<int>, visual frame pixels
inline const std::string& Status =
    persistentKey("Laser.Status"); // std::string: "Found" or why not (see the element)
} // namespace Laser

// Emissivity from a reference label (EmissionMarkerElement).
namespace EmissionMarker {
inline const std::string& Emissivity =
    persistentKey("EmissionMarker.Emissivity"); // Relation: the surface's, mark 0 when valid
inline const std::string& Status =
    persistentKey("EmissionMarker.Status"); // std::string: "Valid" or why not (see the element)
inline const std::string& SurfaceTemperature =
    persistentKey("EmissionMarker.SurfaceTemperature"); // Temperature (true)
inline const std::string& Rect =
    persistentKey("EmissionMarker.Rect"); // cv::Rect_<int>: the label in the infrared image
inline const std::string& MarkerEmissivity =
    persistentKey("EmissionMarker.MarkerEmissivity");                  // float: the label's own
inline const std::string& Size = persistentKey("EmissionMarker.Size"); // float, metres: the label's side
// cv::Point_<int>, infrared pixels: the label nearest to it is measured (the user taps it).
inline const std::string& SearchPoint = persistentKey("EmissionMarker.SearchPoint");
// bool, a command: true copies a valid emissivity into Environment.EmissivityValue (then false).
inline const std::string& Apply = persistentKey("EmissionMarker.Apply");
} // namespace EmissionMarker

// Fusion of the visual image into the display image (FusionElement).
namespace Fusion {
inline const std::string& Mode = persistentKey("Fusion.Mode"); // std::string: one of the values below
inline const std::string& Off = persistentKey("Off");          // value: the infrared image alone
inline const std::string& PictureInPicture =
    persistentKey("PictureInPicture");                              // value: infrared inside the visual image
inline const std::string& AlphaBlend = persistentKey("AlphaBlend"); // value: both, weighted by Alpha
inline const std::string& Edges = persistentKey("Edges");           // value: visual edges over the infrared
inline const std::string& Alpha =
    persistentKey("Fusion.Alpha"); // float 0..1: weight of the infrared image in AlphaBlend
inline const std::string& InJpeg =
    persistentKey("Fusion.InJpeg"); // bool: the saved JPEG shows the fusion too
// std::vector<double>, a result: in picture in picture, where the infrared image's first and last
// pixel centres lie in the display (left, top, right, bottom), so that marks in infrared
// coordinates can be drawn over it; empty while the infrared image fills the display.
inline const std::string& InfraredPlacement = persistentKey("Fusion.InfraredPlacement");
} // namespace Fusion

} // namespace Id

namespace Cmd {
inline const std::string& ApplicationControlGroup =
    persistentKey("ApplicationControl");                                        // callable name of the host
inline const std::string& SaveUserSettings = persistentKey("SaveUserSettings"); // command of that callable
} // namespace Cmd

// Activity key of an element: its type name followed by ".Active" ("TnrElement.Active").
inline std::string activityKey(const std::string& typeName) {
    return typeName + ".Active";
}

} // namespace norda::exp
