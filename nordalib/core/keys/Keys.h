#pragma once
// Parameter keys of the library: Id::<Group>::<Key> is the text "<Group>.<Key>".
//
// Value types (the elements read them with exactly these types; setDefaultParameters writes them):
//   Temperature = quantity::Temperature<MarkedFloat>, Relation = quantity::Relation<MarkedFloat>.
// Constants marked "value" are not keys but values a key takes (shutter states, scaling modes, ...).

#include <string>

namespace norda::exp {

namespace Id {

namespace Shutter {
inline const std::string State = "Shutter.State";             // string: one of the State* values
inline const std::string Closed = "Shutter.Closed";           // bool (frame metadata)
inline const std::string OffsetFrame = "Shutter.OffsetFrame"; // cv::Mat CV_16U
inline const std::string StateIdle = "Idle";                  // value: shutter open
inline const std::string StateClosing = "Closing";            // value
inline const std::string StateCaptureOffsetFrame =
    "CaptureOffsetFrame";                          // value: shutter closed, offset frames
inline const std::string StateOpening = "Opening"; // value: written after a completed capture
} // namespace Shutter

namespace Streaming {
inline const std::string DisableOffset = "Streaming.DisableOffset"; // bool
inline const std::string UpdateValues = "Streaming.UpdateValues";   // bool: reload calibration data
inline const std::string WarmUp = "Streaming.WarmUp";               // bool
} // namespace Streaming

namespace IrSensor {
inline const std::string BadPixelList = "IrSensor.BadPixelList"; // std::vector<vision::BadPixel>
} // namespace IrSensor

namespace IrImage {
inline const std::string Cols = "IrImage.Cols"; // unsigned short
inline const std::string Rows = "IrImage.Rows"; // unsigned short
inline const std::string Min = "IrImage.Min";   // Temperature
inline const std::string Max = "IrImage.Max";   // Temperature
inline const std::string Med = "IrImage.Med";   // Temperature
} // namespace IrImage

namespace ActiveMeasRange {
inline const std::string Name = "ActiveMeasRange.Name";                 // unsigned char: range number, 0 none
inline const std::string TnrGain = "ActiveMeasRange.TnrGain";           // unsigned char
inline const std::string TnrAlpha = "ActiveMeasRange.TnrAlpha";         // unsigned short (Q11)
inline const std::string ToleranceTop = "ActiveMeasRange.ToleranceTop"; // Temperature
inline const std::string ToleranceBottom = "ActiveMeasRange.ToleranceBottom"; // Temperature
inline const std::string DisplayTop = "ActiveMeasRange.DisplayTop";           // Temperature
inline const std::string DisplayBottom = "ActiveMeasRange.DisplayBottom";     // Temperature
inline const std::string Top = "ActiveMeasRange.Top";                         // Temperature
inline const std::string Bottom = "ActiveMeasRange.Bottom";                   // Temperature
} // namespace ActiveMeasRange

// DataStorage<std::string>: one entry per range, keyed by the range number as decimal text ("1",
// "2"); each entry is a DataStorage holding the ActiveMeasRange keys' item names ("Name",
// "ToleranceTop", ...) with the range's values.
inline const std::string MeasRangePool = "MeasRangePool";

namespace MeasRangeSettings {
inline const std::string EnableAutoRange = "MeasRangeSettings.EnableAutoRange"; // bool
} // namespace MeasRangeSettings

namespace SprElement {
inline const std::string Active = "SprElement.Active";         // bool
inline const std::string Threshold = "SprElement.Threshold";   // short
inline const std::string LineLimit = "SprElement.LineLimit";   // short
inline const std::string FrameLimit = "SprElement.FrameLimit"; // short (also the spatial filter's gain)
} // namespace SprElement
namespace SnrElement {
inline const std::string Active = "SnrElement.Active"; // bool
} // namespace SnrElement
inline const std::string SprElementGroup = "SprElement";
inline const std::string SnrElementGroup = "SnrElement";

namespace DeviceFeatures {
inline const std::string FastFrameAvailable = "DeviceFeatures.FastFrameAvailable"; // bool
} // namespace DeviceFeatures

namespace DeviceInfo {
inline const std::string Uptime = "DeviceInfo.Uptime"; // unsigned long long, milliseconds
} // namespace DeviceInfo

namespace Environment {
inline const std::string EmissivityValue = "Environment.EmissivityValue";           // float
inline const std::string ReflectedTemperature = "Environment.ReflectedTemperature"; // Temperature
inline const std::string Humidity = "Environment.Humidity";                         // Relation
inline const std::string HumidityModeActive = "Environment.HumidityModeActive";     // bool
inline const std::string Temperature = "Environment.Temperature";                   // Temperature (air)
} // namespace Environment

namespace Temperatures {
namespace Current {
inline const std::string TBoardSens50 = "Temperatures.Current.TBoardSens50"; // Temperature
inline const std::string TBoardSlope = "Temperatures.Current.TBoardSlope";   // float, kelvin per minute
inline const std::string TLens = "Temperatures.Current.TLens";               // Temperature
} // namespace Current
namespace Shuttering {
inline const std::string TBoardSens50 = "Temperatures.Shuttering.TBoardSens50"; // Temperature
inline const std::string TShutter = "Temperatures.Shuttering.TShutter";         // Temperature
} // namespace Shuttering
inline const std::string Validity = "Temperatures.Validity"; // bool (frame metadata)
} // namespace Temperatures

namespace Radiometry {
// std::vector<double> {R1, R2, B, F, O}: the Planck constants of the range a temperature frame was
// computed in (frame metadata, saved with images so that they can be re-analysed later).
inline const std::string Planck = "Radiometry.Planck";
} // namespace Radiometry

namespace ActiveLens {
inline const std::string Attached = "ActiveLens.Attached"; // bool
inline const std::string Index = "ActiveLens.Index";       // unsigned char, 0 = no valid lens
inline const std::string Serial = "ActiveLens.Serial";     // std::string
} // namespace ActiveLens

namespace ProtectiveGlass {
inline const std::string Attached = "ProtectiveGlass.Attached";         // bool
inline const std::string Transmission = "ProtectiveGlass.Transmission"; // float 0..1
inline const std::string Emissivity = "ProtectiveGlass.Emissivity";     // float 0..1
} // namespace ProtectiveGlass

namespace Gallery {
inline const std::string ForceUpdate = "Gallery.ForceUpdate";       // bool
inline const std::string ActiveFilename = "Gallery.ActiveFilename"; // std::string
// Re-analysis of the shown image: with Active (bool) true its temperatures are recomputed for
// Emissivity (float, (0, 1]) and ReflectedTemperature (Temperature) instead of the stored ones.
namespace Reanalysis {
inline const std::string Active = "Gallery.Reanalysis.Active";
inline const std::string Emissivity = "Gallery.Reanalysis.Emissivity";
inline const std::string ReflectedTemperature = "Gallery.Reanalysis.ReflectedTemperature";
} // namespace Reanalysis
} // namespace Gallery

// Measurement points: <Point>::MeasPoint (MeasPoint), ::Position (cv::Point_<int>), ::Visible (bool).
namespace MeasPoints {
#define NORDA_MEASPOINT_KEYS(P)                                                                              \
    namespace P {                                                                                            \
    inline const std::string MeasPoint = "MeasPoints." #P ".MeasPoint";                                      \
    inline const std::string Position = "MeasPoints." #P ".Position";                                        \
    inline const std::string Visible = "MeasPoints." #P ".Visible";                                          \
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
// computed with its own emissivity and reflected temperature instead of the image's),
// ::Emissivity (float, (0, 1]), ::ReflectedTemperature (Temperature).
#define NORDA_LOCAL_PARAMETER_KEYS(P)                                                                        \
    namespace P {                                                                                            \
    inline const std::string LocalParameters = "MeasPoints." #P ".LocalParameters";                          \
    inline const std::string Emissivity = "MeasPoints." #P ".Emissivity";                                    \
    inline const std::string ReflectedTemperature = "MeasPoints." #P ".ReflectedTemperature";                \
    }
NORDA_LOCAL_PARAMETER_KEYS(MeasPoint1)
NORDA_LOCAL_PARAMETER_KEYS(MeasPoint2)
NORDA_LOCAL_PARAMETER_KEYS(MeasPoint3)
NORDA_LOCAL_PARAMETER_KEYS(MeasPoint4)
NORDA_LOCAL_PARAMETER_KEYS(MeasPoint5)
#undef NORDA_LOCAL_PARAMETER_KEYS
} // namespace MeasPoints

namespace DeltaT {
inline const std::string Active = "DeltaT.Active";          // bool
inline const std::string Mode = "DeltaT.Mode";              // std::string: PointPoint or PointReference
inline const std::string PointPoint = "PointPoint";         // value
inline const std::string PointReference = "PointReference"; // value
// The two results delta-T compares (std::string, a result's name: HotSpot, ColdSpot, CenterSpot,
// MeasPoint1..5, DeltaT1, DeltaT2, UserArea1..3 (its mean)); the difference First - Second in
// kelvin (float, result).
inline const std::string First = "DeltaT.First";
inline const std::string Second = "DeltaT.Second";
inline const std::string Difference = "DeltaT.Difference";
} // namespace DeltaT

namespace MeasAreas {
namespace CenterArea {
inline const std::string Visible = "MeasAreas.CenterArea.Visible";   // bool
inline const std::string MeasArea = "MeasAreas.CenterArea.MeasArea"; // MeasArea
inline const std::string Rect = "MeasAreas.CenterArea.Rect";         // cv::Rect_<int>
} // namespace CenterArea
// User measurement areas: <Area>::Visible (bool), ::Rect (cv::Rect_<int>, image pixels), ::MeasArea
// (MeasArea, result), and local object parameters as for user points: ::LocalParameters (bool),
// ::Emissivity (float, (0, 1]), ::ReflectedTemperature (Temperature).
#define NORDA_USERAREA_KEYS(A)                                                                               \
    namespace A {                                                                                            \
    inline const std::string Visible = "MeasAreas." #A ".Visible";                                           \
    inline const std::string Rect = "MeasAreas." #A ".Rect";                                                 \
    inline const std::string MeasArea = "MeasAreas." #A ".MeasArea";                                         \
    inline const std::string LocalParameters = "MeasAreas." #A ".LocalParameters";                           \
    inline const std::string Emissivity = "MeasAreas." #A ".Emissivity";                                     \
    inline const std::string ReflectedTemperature = "MeasAreas." #A ".ReflectedTemperature";                 \
    }
NORDA_USERAREA_KEYS(UserArea1)
NORDA_USERAREA_KEYS(UserArea2)
NORDA_USERAREA_KEYS(UserArea3)
#undef NORDA_USERAREA_KEYS
} // namespace MeasAreas

namespace Scaling {
inline const std::string Mode = "Scaling.Mode";         // std::string: Auto, Manual or AutoSpanHint
inline const std::string Auto = "Auto";                 // value
inline const std::string Manual = "Manual";             // value
inline const std::string AutoSpanHint = "AutoSpanHint"; // value
inline const std::string TempMin = "Scaling.TempMin";   // Temperature
inline const std::string TempMax = "Scaling.TempMax";   // Temperature
inline const std::string Min = "Scaling.Min";           // unsigned short (pixel value)
inline const std::string Max = "Scaling.Max";           // unsigned short (pixel value)
inline const std::string TempIn = "Scaling.TempIn";     // Temperature (inside)
inline const std::string TempOut = "Scaling.TempOut";   // Temperature (outside)
} // namespace Scaling

namespace Palette {
inline const std::string ActivePalette = "Palette.ActivePalette"; // std::string
inline const std::string Colors = "Palette.Colors"; // std::vector<unsigned char>: 256 RGB triples
} // namespace Palette

namespace Alarm {
inline const std::string AlarmBottomActive = "Alarm.AlarmBottomActive"; // bool
inline const std::string AlarmTopActive = "Alarm.AlarmTopActive";       // bool
inline const std::string AlarmTopColor = "Alarm.AlarmTopColor";         // unsigned int 0x00RRGGBB
inline const std::string AlarmBottomColor = "Alarm.AlarmBottomColor";   // unsigned int 0x00RRGGBB
inline const std::string AlarmBottomValue = "Alarm.AlarmBottomValue";   // Temperature
inline const std::string AlarmTopValue = "Alarm.AlarmTopValue";         // Temperature
} // namespace Alarm

namespace Isotherme {
inline const std::string IsothermeActive = "Isotherme.IsothermeActive";           // bool
inline const std::string IsothermeColor = "Isotherme.IsothermeColor";             // unsigned int 0x00RRGGBB
inline const std::string IsothermeTopValue = "Isotherme.IsothermeTopValue";       // Temperature
inline const std::string IsothermeBottomValue = "Isotherme.IsothermeBottomValue"; // Temperature
} // namespace Isotherme

namespace Miscellaneous {
inline const std::string ImageCounter = "Miscellaneous.ImageCounter";                 // unsigned int
inline const std::string LastImageFileName = "Miscellaneous.LastImageFileName";       // std::string
inline const std::string SaveImageMode = "Miscellaneous.SaveImageMode";               // bool: preview mode
inline const std::string SpinnerVisible = "Miscellaneous.SpinnerVisible";             // bool
inline const std::string SuperResolution = "Miscellaneous.SuperResolution";           // bool
inline const std::string SuperResolutionCount = "Miscellaneous.SuperResolutionCount"; // int
inline const std::string SuperResolutionDeleteRequest =
    "Miscellaneous.SuperResolutionDeleteRequest";                                         // vector<string>
inline const std::string WarnSrMovementDetected = "Miscellaneous.WarnSrMovementDetected"; // bool
inline const std::string ErrorImageSaving = "Miscellaneous.ErrorImageSaving";             // bool
inline const std::string ImageRealSave = "Miscellaneous.ImageRealSave";                   // bool
inline const std::string SaveJpeg = "Miscellaneous.SaveJpeg";                             // bool
} // namespace Miscellaneous

namespace PlaceTag {
inline const std::string SiteInUse = "PlaceTag.SiteInUse";           // bool
inline const std::string MeasSiteFolder = "PlaceTag.MeasSiteFolder"; // std::string
} // namespace PlaceTag

namespace Images {
inline const std::string GuiJpeg = "Images.GuiJpeg"; // cv::Mat CV_8UC4, 240 x 320 ARGB overlay
} // namespace Images

namespace Viscam {
namespace Resolution {
inline const std::string Qvga = "QVGA";   // value: 320 x 240
inline const std::string Vga = "VGA";     // value: 640 x 480
inline const std::string Xga = "XGA";     // value: 1024 x 768
inline const std::string Qsxga = "QSXGA"; // value: 2592 x 1944
} // namespace Resolution
inline const std::string CurrentImageResolution = "Viscam.CurrentImageResolution"; // std::string
inline const std::string MaximumImageLatency = "Viscam.MaximumImageLatency";       // float, milliseconds
inline const std::string CaptureTime = "Viscam.CaptureTime"; // float, milliseconds (metadata)
// Frame metadata of visual frames: the moment the frame shows, in milliseconds on the clock of
// DeviceInfo.Uptime (unsigned long long), and the camera's frame counter (unsigned long long).
inline const std::string Timestamp = "Viscam.Timestamp";
inline const std::string FrameCounter = "Viscam.FrameCounter";
} // namespace Viscam

// Infrared-visual registration (vision/registration).
namespace Registration {
// std::string: path of the registration calibration (registration.json); the laser position,
// emission marker and fusion elements load it, and again when the key changes.
inline const std::string CalibrationFile = "Registration.CalibrationFile";
// float, metres: the distance of the scene when no laser distance is at hand.
inline const std::string Distance = "Registration.Distance";
// bool: register at the laser's distance while the spot is seen.
inline const std::string UseLaserDistance = "Registration.UseLaserDistance";
} // namespace Registration

// The laser pointer's spot (DetectLaserPositionElement); the infrared position and visibility go
// to MeasPoints.LaserSpot.Position/Visible.
namespace Laser {
inline const std::string Distance = "Laser.Distance";                 // float, metres; 0 without a spot
inline const std::string InfraredPosition = "Laser.InfraredPosition"; // std::vector<double> {x, y}, sub-pixel
inline const std::string VisualPosition = "Laser.VisualPosition";     // cv::Point_<int>, visual frame pixels
inline const std::string Status = "Laser.Status"; // std::string: "Found" or why not (see the element)
} // namespace Laser

// Emissivity from a reference label (EmissionMarkerElement).
namespace EmissionMarker {
inline const std::string Emissivity =
    "EmissionMarker.Emissivity"; // Relation: the surface's, mark 0 when valid
inline const std::string Status =
    "EmissionMarker.Status"; // std::string: "Valid" or why not (see the element)
inline const std::string SurfaceTemperature = "EmissionMarker.SurfaceTemperature"; // Temperature (true)
inline const std::string Rect = "EmissionMarker.Rect"; // cv::Rect_<int>: the label in the infrared image
inline const std::string MarkerEmissivity = "EmissionMarker.MarkerEmissivity"; // float: the label's own
inline const std::string Size = "EmissionMarker.Size"; // float, metres: the label's side
// cv::Point_<int>, infrared pixels: the label nearest to it is measured (the user taps it).
inline const std::string SearchPoint = "EmissionMarker.SearchPoint";
// bool, a command: true copies a valid emissivity into Environment.EmissivityValue (then false).
inline const std::string Apply = "EmissionMarker.Apply";
} // namespace EmissionMarker

// Fusion of the visual image into the display image (FusionElement).
namespace Fusion {
inline const std::string Mode = "Fusion.Mode";                  // std::string: one of the values below
inline const std::string Off = "Off";                           // value: the infrared image alone
inline const std::string PictureInPicture = "PictureInPicture"; // value: infrared inside the visual image
inline const std::string AlphaBlend = "AlphaBlend";             // value: both, weighted by Alpha
inline const std::string Edges = "Edges";                       // value: visual edges over the infrared
inline const std::string Alpha = "Fusion.Alpha";   // float 0..1: weight of the infrared image in AlphaBlend
inline const std::string InJpeg = "Fusion.InJpeg"; // bool: the saved JPEG shows the fusion too
// std::vector<double>, a result: in picture in picture, where the infrared image's first and last
// pixel centres lie in the display (left, top, right, bottom), so that marks in infrared
// coordinates can be drawn over it; empty while the infrared image fills the display.
inline const std::string InfraredPlacement = "Fusion.InfraredPlacement";
} // namespace Fusion

} // namespace Id

namespace Cmd {
inline const std::string ApplicationControlGroup = "ApplicationControl"; // callable name of the host
inline const std::string SaveUserSettings = "SaveUserSettings";          // command of that callable
} // namespace Cmd

// Activity key of an element: its type name followed by ".Active" ("TnrElement.Active").
inline std::string activityKey(const std::string& typeName) {
    return typeName + ".Active";
}

} // namespace norda::exp
