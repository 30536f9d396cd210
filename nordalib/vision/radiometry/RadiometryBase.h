#pragma once
// RadiometryBase: turns offset-corrected detector frames into temperature frames.
//
// The measurement conditions of a frame (emissivity, reflected temperature, board and shutter
// temperatures, range, protective glass, lens) arrive through setData() and are kept in a
// CuratorStorage whose validators reject values of the wrong type or outside their physical range;
// the air path and the window's reflectance and temperature through setAirPath().
// processFrame() evaluates the camera model of RadiometricTools for the active measurement range;
// because the model maps every signal value independently, it is tabulated once per set of
// conditions (65536 entries, signal -> encoded temperature) and a frame costs one table read per
// pixel. The table is rebuilt only when a condition changed.
//
// Output encoding: pixel = round(T[K] / resolution), clamped to 1..65535; with resolution 0.01 this
// is the encoding of RadiometricTools. A signal with no physical temperature reads 0 (below
// absolute zero) or 65535 (beyond the top of the curve).
//
// A range whose calibration has a board lag term (RadiometricTools) gets a BoardLag filter fed with
// the board temperature and uptime of every frame; its value when the shutter last closed is taken
// from the first frame whose board or shutter temperature at shuttering differs from the previous
// frame's. Frames without uptime leave the lag unknown: the settled form of the drift applies.
//
// The calibration constants are read at construction from calibrationPath +
// RadiometricCalibration::kFileName; a missing or invalid file throws.

#include "nordalib/core/datatypes/CuratorStorage.h"
#include "nordalib/vision/imgproc/LookupTable16.h"
#include "nordalib/vision/radiometry/BoardLag.h"
#include "nordalib/vision/radiometry/RadiometricCalibration.h"
#include "nordalib/vision/radiometry/RadiometryId.h"

#include <opencv2/core.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace norda::vision {

class RadiometryBase {
public:
    RadiometryBase(unsigned short cols, unsigned short rows, float resolution,
                   const std::string& calibrationPath);
    virtual ~RadiometryBase();
    RadiometryBase(const RadiometryBase&) = delete;
    RadiometryBase& operator=(const RadiometryBase&) = delete;

    // Stores one measurement condition. Throws the Variant type error when the value is not of the
    // id's type (see RadiometryId.h) and a norda::Exception naming the id when it is out of range.
    void setData(unsigned id, const std::shared_ptr<exp::Variant>& value);
    const exp::CuratorStorage& data() const { return m_data; }
    // The air path and the external window's reflectance and temperatures (ObjectParameters'
    // distance, air, humidity, airTauSet, pgReflectance, pgK, pgReflectedK) of the next frames; the
    // surface and glass values of `path` are ignored, they come from setData(). Throws like
    // ObjectParameters::validate.
    void setAirPath(const ObjectParameters& path);
    // Model parameters (RadiometryId::SlowFrameActive); validated like the data.
    exp::CuratorStorage& parameters() { return m_parameters; }
    const exp::CuratorStorage& parameters() const { return m_parameters; }

    // CV_16S frame of the model's size -> CV_16U temperature frame.
    cv::Mat_<unsigned short> processFrame(cv::Mat_<short>& raw);

    // The conditions and range constants the next frame would use (throws like processFrame when
    // data is missing).
    RadiometricConditions conditions() const;
    const RangeCalibration& activeRange() const;
    const RadiometricCalibration& calibration() const { return m_calibration; }
    const std::string& calibrationFile() const { return m_calibrationFile; }
    float resolution() const { return m_resolution; }
    // Number of tables begun so far, one for each change of conditions (diagnostics and tests).
    unsigned tableBuilds() const { return m_tableBuilds; }

protected:
    // Type-specific additions to the conditions (lens, frame mode) and data the type requires.
    virtual void completeConditions(RadiometricConditions& conditions) const = 0;
    virtual std::vector<unsigned> requiredData() const = 0;
    // The conditions every model needs: emissivity, reflected, board and shutter temperatures,
    // range, board slope and protective glass.
    static std::vector<unsigned> commonRequiredData();

    double kelvinOf(unsigned id) const;
    [[noreturn]] void fail(const std::string& message, const char* function) const;

private:
    // The entries of the signals from..to.
    void buildTable(const RangeCalibration& range, const RadiometricConditions& conditions, int from, int to);
    void followBoardLag();

    unsigned short m_cols;
    unsigned short m_rows;
    float m_resolution;
    std::string m_calibrationFile;
    RadiometricCalibration m_calibration;
    exp::CuratorStorage m_data;
    exp::CuratorStorage m_parameters;
    ObjectParameters m_airPath;
    struct Lag {
        BoardLag filter;
        double atShuttering = 0.0;
    };
    std::map<unsigned, Lag> m_lags;                   // per range with a lag term
    std::pair<double, double> m_shuttering{0.0, 0.0}; // board and shutter at shuttering, last frame

    LookupTable16 m_table; // indexed by the signal as unsigned 16-bit
    bool m_tableValid = false;
    unsigned m_tableRange = 0;
    RadiometricConditions m_tableConditions;
    int m_tableLow = 1, m_tableHigh = 0; // the signals whose entries are filled
    unsigned m_tableBuilds = 0;
};

} // namespace norda::vision
