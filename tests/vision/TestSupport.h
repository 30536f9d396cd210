#pragma once
// Helpers shared by the vision tests: temporary folders, log capture, frame metadata.

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/logging/Logger.h"
#include "tests/support/Messages.h"
#include "tests/support/TempDir.h"

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

inline std::string calibrationDir() {
    return std::string(NORDA_SOURCE_DIR) + "/data/calibration/";
}

} // namespace norda::test
