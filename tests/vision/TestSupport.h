#pragma once
// Helpers shared by the vision tests: temporary folders, log capture, frame metadata.

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/logging/Logger.h"
#include "nordalib/vision/registration/Registration.h"
#include "tests/support/Messages.h"
#include "tests/support/TempDir.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace norda::test {

// The folder of a TempDir as a calibration path (with a trailing separator).
inline std::string slashed(const TempDir& dir) {
    return dir.path().string() + "/";
}

struct LogRecord {
    std::string logger;
    logging::LogLevel level;
    std::string message;
};

// Captures every log record while alive.
class LogCapture {
public:
    LogCapture() {
        logging::Logger::setListener(
            [this](const std::string& l, logging::LogLevel lv, const std::string& m) {
                std::lock_guard<std::mutex> lock(m_mutex);
                m_records.push_back({l, lv, m});
            });
    }
    ~LogCapture() { logging::Logger::setListener({}); }
    std::vector<LogRecord> records() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_records;
    }
    int count(const std::string& message) const {
        int n = 0;
        for (const auto& r : records())
            n += r.message == message;
        return n;
    }
    bool has(logging::LogLevel level, const std::string& message) const {
        for (const auto& r : records())
            if (r.level == level && r.message == message)
                return true;
        return false;
    }
    // Records starting with `prefix`, of the given level or any.
    int countPrefix(const std::string& prefix, std::optional<logging::LogLevel> level = {}) const {
        int n = 0;
        for (const auto& r : records())
            n += r.message.rfind(prefix, 0) == 0 && (!level || r.level == *level);
        return n;
    }
    void clear() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_records.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<LogRecord> m_records;
};

inline exp::quantity::Temperature<exp::MarkedFloat> celsius(float t) {
    return exp::quantity::Temperature<exp::MarkedFloat>(exp::MarkedFloat(t));
}

// Metadata of an offset-corrected frame as the host attaches it.
inline exp::DataStorage<std::string> radiometricMeta(float emissivity = 0.95f, float reflected = 20.0f,
                                                     unsigned char range = 1, bool glass = false) {
    using namespace exp;
    DataStorage<std::string> m;
    m.setValue(Id::Shutter::State, Id::Shutter::StateIdle);
    m.setValue(Id::Environment::EmissivityValue, emissivity);
    m.setValue(Id::Environment::ReflectedTemperature, celsius(reflected));
    m.setValue(Id::Temperatures::Current::TBoardSens50, celsius(31.0f));
    m.setValue(Id::Temperatures::Shuttering::TBoardSens50, celsius(30.0f));
    m.setValue(Id::Temperatures::Shuttering::TShutter, celsius(25.0f));
    m.setValue<unsigned char>(Id::ActiveMeasRange::Name, range);
    m.setValue<unsigned long long>(Id::DeviceInfo::Uptime, 600000ull);
    m.setValue(Id::Temperatures::Current::TBoardSlope, 0.2f);
    m.setValue(Id::ActiveLens::Attached, true);
    m.setValue<unsigned char>(Id::ActiveLens::Index, 1);
    m.setValue(Id::ActiveLens::Serial, std::string("L25-000001"));
    m.setValue(Id::Temperatures::Current::TLens, celsius(27.0f));
    m.setValue(Id::ProtectiveGlass::Attached, glass);
    m.setValue(Id::ProtectiveGlass::Transmission, 0.92f);
    m.setValue(Id::ProtectiveGlass::Emissivity, 0.05f);
    return m;
}

// A camera rig like the simulator's: the visual lens 45 mm beside the infrared lens, slightly
// turned, with barrel distortion; the laser below.
inline vision::Registration testRig() {
    vision::Registration r;
    r.infrared = {cv::Size(640, 480), 560, 560, 319.5, 239.5};
    r.visual = {cv::Size(2592, 1944), 1852, 1852, 1301.3, 968.2, -0.115, 0.021, 0.0004, -0.0003, 0};
    cv::Rodrigues(cv::Vec3d(0.004, -0.007, 0.0026), r.rotation);
    r.translation = {0.045, -0.006, 0.004};
    r.laserOrigin = {0.02, 0.042, 0.01};
    r.laserDirection = {0, 0, 1};
    return r;
}

// A camera's matrix at a frame size: the same field of view, pixel centres kept in place.
inline cv::Matx33d cameraMatrixAt(const vision::CameraModel& c, cv::Size size) {
    const double s = double(size.width) / c.size.width;
    return {c.fx * s, 0, (c.cx + 0.5) * s - 0.5, 0, c.fy * s, (c.cy + 0.5) * s - 0.5, 0, 0, 1};
}

// An RGB image as the visual camera delivers it: UYVY (U Y0 V Y1), BT.601 by OpenCV.
inline cv::Mat rgbToUyvy(const cv::Mat& rgb) {
    cv::Mat bgr, yuv, uyvy(rgb.size(), CV_8UC2);
    cv::cvtColor(rgb, bgr, cv::COLOR_RGB2BGR);
    cv::cvtColor(bgr, yuv, cv::COLOR_BGR2YUV);
    for (int y = 0; y < rgb.rows; ++y)
        for (int x = 0; x + 1 < rgb.cols; x += 2) {
            const auto a = yuv.at<cv::Vec3b>(y, x), b = yuv.at<cv::Vec3b>(y, x + 1);
            uyvy.at<cv::Vec2b>(y, x) = {uchar((a[1] + b[1]) / 2), a[0]};
            uyvy.at<cv::Vec2b>(y, x + 1) = {uchar((a[2] + b[2]) / 2), b[0]};
        }
    return uyvy;
}

inline std::string calibrationDir() {
    return std::string(NORDA_SOURCE_DIR) + "/data/calibration/";
}

} // namespace norda::test
