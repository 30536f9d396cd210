#pragma once
// Every parameter of the physical camera simulator in one place, with its default and where that
// default comes from. docs/simulator.md gives the equations each one enters.
//
// Units: wavelengths in micrometres, temperatures in degrees Celsius unless a name says kelvin,
// radiance in W m^-2 sr^-1 (in-band) or W m^-2 sr^-1 um^-1 (spectral), distances in metres.

#include <opencv2/core.hpp>

#include <array>

namespace nordacam::sim::physics {

// The wavelength grid every band integral runs over and the detector's spectral response.
struct BandParameters {
    // Grid: wide enough that the soft edges have fallen to nothing at its ends.
    double gridLoUm = 6.0, gridHiUm = 16.0, gridStepUm = 0.025;
    // Half-power wavelengths of the response: the long-wave window of uncooled microbolometers
    // (7.5-14 um, as data sheets of such detectors state it).
    double cutOnUm = 7.5, cutOffUm = 14.0;
    // Width of each logistic edge (10 %-90 % over about 4.4 widths, i.e. ~0.7 um: the slope of a
    // multilayer band-pass filter's edge).
    double edgeWidthUm = 0.15;
};

// Temperature -> in-band radiance tables (one per spectral weight and condition).
struct TableParameters {
    double loC = -80.0, hiC = 1200.0; // the span objects and the camera's parts may have
    double stepK = 0.5;               // linear interpolation error below 1e-5 relative (see docs)
};

// Air between object and camera.
struct AirParameters {
    double temperatureC = 20.0;
    double relativeHumidity = 0.5; // 0..1
    double pressureKPa = 101.325;  // standard atmosphere
    double co2Ppm = 420.0;         // present-day global mean mixing ratio
    // Water-vapour continuum, self-broadened, after the empirical fit of Roberts, Selby and
    // Biberman (Applied Optics 15, 1976) for the 8-14 um window: C(nu, 296 K) = a + b exp(-beta nu)
    // in cm^2 molecule^-1 atm^-1, foreign (N2) broadening gamma, temperature factor
    // exp(T0 (1/T - 1/296)).
    double continuumA = 1.25e-22, continuumB = 1.67e-19, continuumBetaCm = 7.87e-3;
    double continuumGamma = 0.002, continuumT0 = 1800.0;
    // Line absorption at the window's edges, Goody's random band model with band-averaged
    // strength k(nu) = K exp(-|nu - nu0| / s) (m^2 kg^-1) falling off from the band centre and line
    // parameter y = pi alpha / delta at 1 atm. Approximate values chosen so that a 1 km horizontal
    // path at 10 g/m^3 of water reproduces the band edges of standard low-resolution transmission
    // spectra (about 0.2 at 7.5 um, 0.6 at 8 um; CO2: about 0.8 at 13 um, 0.2 at 14 um). Not a
    // line-by-line calculation.
    double waterLineK = 3600.0, waterLineCentreCm = 1595.0, waterLineWidthCm = 36.0; // H2O 6.3 um band
    double co2LineK = 990.0, co2LineCentreCm = 667.0, co2LineWidthCm = 13.9;         // CO2 15 um band
    double lineY = 0.1;
    bool operator==(const AirParameters&) const = default;
};

// Lens, protective window and point-spread function.
struct OpticsParameters {
    double fNumber = 1.0; // fast long-wave lenses are f/1.0-1.2
    // Spectral transmission of an AR-coated germanium lens: a broad maximum with a drop towards
    // both band edges, tau(l) = peak - drop ((l - centre) / halfWidth)^2.
    double lensPeakTransmission = 0.95, lensEdgeDrop = 0.06, lensCentreUm = 10.75, lensHalfWidthUm = 3.25;
    double lensReflectance = 0.01; // the rest, 1 - tau - rho, is the lens's emissivity
    // Protective window (flat across the band): transmission, reflectance, emissivity the rest.
    bool window = false;
    double windowTransmission = 0.90, windowReflectance = 0.05;
    // Point-spread function: a Gaussian core (diffraction of f/1 at 10 um, about 0.25 px of 17 um,
    // widened by aberrations and defocus) plus a faint wide Gaussian (scatter), whose share of the
    // energy makes the size-of-source effect.
    double psfCoreSigmaPx = 0.7;
    double psfWingFraction = 0.05;
    double psfWingSigmaPx = 8.0;
};

// Brown-Conrady lens distortion (normalised image coordinates).
struct DistortionParameters {
    double fx = 560.0, fy = 560.0, cx = 319.5, cy = 239.5; // 17 um pixels, 9.5 mm focal length
    double k1 = -0.18, k2 = 0.06, k3 = 0.0;                // a mild barrel, as a wide-angle lens has
    double p1 = 0.0004, p2 = -0.0003;                      // a slight decentring
};

// The microbolometer array and its read-out.
struct DetectorParameters {
    int width = 640, height = 480;
    // Counts per W m^-2 sr^-1 of net absorbed in-band radiance at the reference focal-plane
    // temperature, chosen so that a scene change near 30 C gives about 40 counts/K in range 1 (the
    // sensitivity the chain's existing calibration has).
    double responsivity = 250.0;
    double referenceFpaC = 30.0;
    // Responsivity follows the bolometer's temperature coefficient of resistance, which for
    // vanadium-oxide and amorphous-silicon films is -Ea / (k T^2): R(T) = R0 (Tref / T)^2.
    double responsivityExponent = 2.0;
    std::array<double, 3> rangeGain{1.0, 1.0, 0.25}; // index = measurement range (1, 2)
    // Compressive read-out: counts = s (1 + nonLinearity s / 10000).
    double nonLinearity = -0.01;
    // Dark level, its spread and its drift.
    double darkLevel = 8000.0;        // mid-scale of a 14-bit converter
    double offsetSpread = 80.0;       // pixel-to-pixel, one sigma (counts)
    double offsetBowl = 300.0;        // a smooth bowl towards the corners
    double offsetPerFpaK = 6.0;       // counts per kelvin of focal-plane warming, mean
    double offsetPerFpaKSpread = 1.0; // its pixel-to-pixel spread
    double offsetPerBoardK = 12.0;    // the read-out electronics' drift with the board
    double gainSpread = 0.002;        // pixel-to-pixel responsivity, one sigma
    double columnOffsetSpread = 25.0; // column amplifiers (counts)
    double columnDriftSpread = 0.5;   // their drift, counts per kelvin of board warming
    double noise = 2.0;               // temporal noise, one sigma (counts): NETD about 50 mK
    int deadPixels = 8, stuckPixels = 4;
    int stuckValue = 16383;
    unsigned seed = 42;
};

// The camera body's temperatures: warm-up after switching on and how the parts follow the board.
struct ThermalParameters {
    double ambientC = 21.0;
    double boardRiseK = 18.0; // the board settles this far above ambient
    double boardTimeConstantS = 90.0;
    double fpaAboveBoardK = 1.5; // the focal plane sits on the board, a little warmer
    // Steady share of the board's rise above ambient and time constant of each part.
    double housingShare = 0.85, housingTimeConstantS = 150.0;
    double lensShare = 0.40, lensTimeConstantS = 300.0;
    double windowShare = 0.10, windowTimeConstantS = 300.0;
};

// The shutter: a flat plate between lens and detector, near-black, following the housing.
struct ShutterParameters {
    double emissivity = 0.98;    // black-anodised or painted metal
    double timeConstantS = 60.0; // a thin plate on a slender arm lags the housing
    double belowHousingK = 0.5;  // it loses a little to the cooler lens in front of it
};

// A blackbody calibration source.
struct BlackbodyParameters {
    double emissivity = 0.995; // a cavity-type source
    double distance = 0.3;     // close to the lens, filling the view
};

} // namespace nordacam::sim::physics

namespace nordacam::sim::physics {

// All of the camera's parameters.
struct CameraParameters {
    BandParameters band;
    TableParameters table;
    OpticsParameters optics;
    DistortionParameters distortion;
    DetectorParameters detector;
    ThermalParameters thermal;
    ShutterParameters shutter;
    BlackbodyParameters blackbody;
};

} // namespace nordacam::sim::physics

namespace nordacam::sim::physics {

// The laser pointer and the visual camera that sees its spot (optional model; see LaserSpot).
struct LaserParameters {
    double powerW = 1e-3; // class 2 pointer: at most 1 mW
    double wavelengthUm = 0.635;
    double waistRadiusM = 1.5e-3;          // 1/e^2 radius at the exit
    double divergenceRad = 1.0e-3;         // full angle (1/e^2), typical of a collimated diode
    cv::Vec3d origin{0.0, 0.042, 0.0};     // beside the visual lens, metres (camera coordinates)
    cv::Vec3d direction{0.0, -0.002, 1.0}; // tilted slightly towards the optical axis
};

struct VisualSensorParameters {
    DistortionParameters lens{1200.0, 1200.0, 319.5, 239.5, -0.1, 0.02, 0.0, 0.0, 0.0}; // 640 x 480 readout
    int width = 640, height = 480;
    double fNumber = 2.4;
    double pixelPitchM = 2.2e-6 * 4; // binned 4 x 4 from a 2.2 um sensor
    double exposureS = 0.001;
    double quantumEfficiency = 0.5; // red channel of a CMOS sensor at 635 nm
    double fullWellElectrons = 40000.0;
    double psfSigmaPx = 0.8;
    double ambientIrradianceW = 2.0; // in the red channel's band: indoor lighting of a few hundred lux
    bool speckle = true;
    unsigned seed = 11;
};

// The visual camera beside the infrared one and the laser pointer, in the infrared camera's
// coordinates (x right, y down, z along its axis; metres). The geometry is the one the older scene
// simulator's rig has, so that the live host's visual camera and this rig agree.
struct RigParameters {
    // The visual sensor at full size (2.2 um pixels, 4.1 mm lens) and its lens: a wider field than
    // the infrared lens, barrel distortion, a slight decentring.
    int visualWidth = 2592, visualHeight = 1944;
    DistortionParameters visualLens{1852.0, 1852.0, 1301.3, 968.2, -0.115, 0.021, 0.0, 0.0004, -0.0003};
    double visualPixelPitchM = 2.2e-6;
    cv::Vec3d rotationDeg{0.25, -0.40, 0.15};    // visual axes turned about x, y, z (assembly tolerance)
    cv::Vec3d translation{0.045, -0.006, 0.004}; // the visual lens's position: the baseline
    // The laser pointer below the lenses, its axis tilted 2 mrad upwards (not parallel to either camera).
    cv::Vec3d laserOrigin{0.020, 0.042, 0.010};
    cv::Vec3d laserDirection{0.0, -0.002, 1.0};
    // The printed target as the visual camera sees it (8-bit grey): white plate, black dots, a grey
    // room behind; the lens's blur and the sensor's noise.
    double plateGrey = 210.0, printGrey = 25.0, roomGrey = 110.0;
    double blurSigmaPx = 0.8, noiseGrey = 2.0;
    unsigned seed = 7;
};

} // namespace nordacam::sim::physics
