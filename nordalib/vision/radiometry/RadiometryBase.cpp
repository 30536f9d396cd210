#include "nordalib/vision/radiometry/RadiometryBase.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/radiometry/ObjectSignal.h"

#include <cmath>
#include <functional>

namespace norda::vision {

namespace {
using exp::Variant;
using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;

// Physical limits of the conditions: beyond these a value is an error upstream, not a condition.
constexpr double kMinKelvin = 150.0;
constexpr double kMaxKelvin = 2000.0;

bool plausibleKelvin(const Temperature& t) {
    const double k = t.kelvin();
    return std::isfinite(k) && k >= kMinKelvin && k <= kMaxKelvin;
}

// The value type of each id, checked with Variant::value<T>() so that a mismatch reports the
// framework's "Variant-type (...)!= Template-type (...)" error.
void checkType(unsigned id, const Variant& v) {
    switch (id) {
    case RadiometryId::Emis:
    case RadiometryId::TBoardSlope:
    case RadiometryId::TauPg:
    case RadiometryId::EmisPg:
        (void)v.value<float>();
        break;
    case RadiometryId::Treflected:
    case RadiometryId::TboardCurrent:
    case RadiometryId::TboardShuttering:
    case RadiometryId::TShutterShuttering:
    case RadiometryId::TlensCurrent:
        (void)v.value<Temperature>();
        break;
    case RadiometryId::MeasRange:
    case RadiometryId::LensIndex:
        (void)v.value<unsigned char>();
        break;
    case RadiometryId::UpTime:
        (void)v.value<unsigned long long>();
        break;
    case RadiometryId::LensSerial:
        (void)v.value<std::string>();
        break;
    case RadiometryId::SlowFrameActive:
        (void)v.value<bool>();
        break;
    default:
        break;
    }
}

void addValidators(exp::CuratorStorage& s) {
    s.setRangeValidator<float>(RadiometryId::Emis, [](const float& e) { return e > 0.0f && e <= 1.0f; });
    for (unsigned id : {RadiometryId::Treflected, RadiometryId::TboardCurrent, RadiometryId::TboardShuttering,
                        RadiometryId::TShutterShuttering, RadiometryId::TlensCurrent})
        s.setRangeValidator<Temperature>(id, plausibleKelvin);
    s.setRangeValidator<unsigned char>(RadiometryId::MeasRange, [](const unsigned char&) { return true; });
    s.setRangeValidator<unsigned long long>(RadiometryId::UpTime,
                                            [](const unsigned long long&) { return true; });
    s.setRangeValidator<float>(RadiometryId::TBoardSlope, [](const float& v) { return std::isfinite(v); });
    s.setRangeValidator<unsigned char>(RadiometryId::LensIndex, [](const unsigned char&) { return true; });
    s.setRangeValidator<std::string>(RadiometryId::LensSerial, [](const std::string&) { return true; });
    s.setRangeValidator<float>(RadiometryId::TauPg, [](const float& t) { return t > 0.0f && t <= 1.0f; });
    s.setRangeValidator<float>(RadiometryId::EmisPg, [](const float& e) { return e >= 0.0f && e < 1.0f; });
}
} // namespace

RadiometryBase::RadiometryBase(unsigned short cols, unsigned short rows, float resolution,
                               const std::string& calibrationPath)
    : m_cols(cols), m_rows(rows), m_resolution(resolution),
      m_calibrationFile(calibrationPath + RadiometricCalibration::kFileName) {
    if (cols == 0 || rows == 0)
        fail("image size " + std::to_string(cols) + "x" + std::to_string(rows) + " is empty",
             "norda::vision::RadiometryBase::RadiometryBase");
    if (!(resolution > 0.0f) || !std::isfinite(resolution))
        fail("temperature resolution " + std::to_string(resolution) + " must be positive",
             "norda::vision::RadiometryBase::RadiometryBase");
    m_calibration = RadiometricCalibration::load(m_calibrationFile);
    for (const auto& [n, range] : m_calibration.ranges)
        if (range.boardLagGain != 0.0)
            m_lags.emplace(n, Lag{BoardLag(range.boardLagTimeConstantS, range.boardLagShare)});
    for (unsigned id = 0; id < RadiometryId::Count; ++id) {
        if (id == RadiometryId::SlowFrameActive)
            continue;
        m_data.addCurator(id);
        m_data.setSourceFile(id, m_calibrationFile);
    }
    addValidators(m_data);
    m_parameters.addCurator(RadiometryId::SlowFrameActive, std::make_shared<exp::Variant_<bool>>(false));
    m_parameters.setRangeValidator<bool>(RadiometryId::SlowFrameActive, [](const bool&) { return true; });
}

RadiometryBase::~RadiometryBase() = default;

void RadiometryBase::fail(const std::string& message, const char* function) const {
    NORDA_THROW(message, function);
}

void RadiometryBase::setData(unsigned id, const std::shared_ptr<exp::Variant>& value) {
    if (id >= RadiometryId::Count || id == RadiometryId::SlowFrameActive)
        fail("unknown radiometry data id " + std::to_string(id), "norda::vision::RadiometryBase::setData");
    if (!value)
        fail("radiometry data " + RadiometryId::name(id) + " is empty",
             "norda::vision::RadiometryBase::setData");
    checkType(id, *value);
    try {
        m_data.set(id, value);
    } catch (const norda::Exception&) {
        fail("radiometry data " + RadiometryId::name(id) + " = " + value->toString() + " is out of range",
             "norda::vision::RadiometryBase::setData");
    }
}

void RadiometryBase::setAirPath(const ObjectParameters& path) {
    ObjectParameters p = path;
    p.emissivity = 1.0;
    p.reflectedK = 293.15;
    p.tauPg = 1.0 - p.pgReflectance; // the reflectance alone, the glass is checked with its data
    p.emisPg = 0.0;
    p.validate();
    m_airPath = p;
}

double RadiometryBase::kelvinOf(unsigned id) const {
    return m_data.get<Temperature>(id).kelvin();
}

const RangeCalibration& RadiometryBase::activeRange() const {
    if (!m_data.getVariant(RadiometryId::MeasRange))
        fail("radiometry data MeasRange is not set", "norda::vision::RadiometryBase::activeRange");
    const unsigned range = m_data.get<unsigned char>(RadiometryId::MeasRange);
    auto it = m_calibration.ranges.find(range);
    if (it == m_calibration.ranges.end())
        fail("no calibration for measurement range " + std::to_string(range) + " in " + m_calibrationFile,
             "norda::vision::RadiometryBase::activeRange");
    return it->second;
}

RadiometricConditions RadiometryBase::conditions() const {
    for (unsigned id : requiredData())
        if (!m_data.getVariant(id))
            fail("radiometry data " + RadiometryId::name(id) + " is not set",
                 "norda::vision::RadiometryBase::conditions");
    RadiometricConditions c;
    static_cast<ObjectParameters&>(c) = m_airPath; // the surface and glass values follow
    c.emissivity = m_data.get<float>(RadiometryId::Emis);
    c.reflectedK = kelvinOf(RadiometryId::Treflected);
    c.boardCurrentK = kelvinOf(RadiometryId::TboardCurrent);
    c.boardShutteringK = kelvinOf(RadiometryId::TboardShuttering);
    c.shutterK = kelvinOf(RadiometryId::TShutterShuttering);
    c.boardSlope = m_data.get<float>(RadiometryId::TBoardSlope);
    if (auto lag = m_lags.find(m_data.get<unsigned char>(RadiometryId::MeasRange));
        lag != m_lags.end() && lag->second.filter.started()) {
        // To 0.1 mK, so that a settled camera keeps its table while the lag creeps. The housing
        // fills the detector's view outside the lens's cone: at f/1 a kelvin of it weighs up to 9
        // kelvins of an object's (a -20 C object, the housing at 50 C; 15 at f/1.3), so 0.05 mK of
        // rounding stays below 1 mK. A warming camera's housing moves up to about 1.5 mK a frame at
        // 30 frames a second: the table then follows every frame (RadiometryBench).
        c.boardLagK = std::round(lag->second.filter.value() * 1e4) / 1e4;
        c.boardLagShutteringK = std::round(lag->second.atShuttering * 1e4) / 1e4;
    }
    c.tauPg = m_data.get<float>(RadiometryId::TauPg);
    c.emisPg = m_data.get<float>(RadiometryId::EmisPg);
    if (c.tauPg + c.emisPg > 1.0 + 1e-6)
        fail("protective glass transmission " + std::to_string(c.tauPg) + " and emissivity " +
                 std::to_string(c.emisPg) + " add up to more than 1",
             "norda::vision::RadiometryBase::conditions");
    completeConditions(c);
    return c;
}

cv::Mat_<unsigned short> RadiometryBase::processFrame(cv::Mat_<short>& raw) {
    if (raw.empty() || raw.rows != m_rows || raw.cols != m_cols)
        fail("frame size " + std::to_string(raw.cols) + "x" + std::to_string(raw.rows) +
                 " does not match the radiometry model's " + std::to_string(m_cols) + "x" +
                 std::to_string(m_rows),
             "norda::vision::RadiometryBase::processFrame");
    const RangeCalibration& range = activeRange();
    followBoardLag();
    const RadiometricConditions c = conditions();
    const unsigned rangeNumber = m_data.get<unsigned char>(RadiometryId::MeasRange);
    if (!m_tableValid || rangeNumber != m_tableRange || !(c == m_tableConditions)) {
        m_tableRange = rangeNumber;
        m_tableConditions = c;
        m_tableValid = true;
        m_tableLow = 1; // no entry yet
        m_tableHigh = 0;
        ++m_tableBuilds;
    }
    // The board temperature changes the conditions every few frames, and a frame's signals span a
    // small part of the 65536: the table is filled for the signals that occur.
    double lo = 0, hi = 0;
    cv::minMaxIdx(raw, &lo, &hi);
    if (m_tableLow > m_tableHigh) {
        buildTable(range, c, int(lo), int(hi));
        m_tableLow = int(lo);
        m_tableHigh = int(hi);
    }
    if (int(lo) < m_tableLow) {
        buildTable(range, c, int(lo), m_tableLow - 1);
        m_tableLow = int(lo);
    }
    if (int(hi) > m_tableHigh) {
        buildTable(range, c, m_tableHigh + 1, int(hi));
        m_tableHigh = int(hi);
    }
    cv::Mat out;
    m_table.apply(raw, out);
    return out;
}

void RadiometryBase::buildTable(const RangeCalibration& range, const RadiometricConditions& c, int from,
                                int to) {
    // Everything but the signal is constant for the table: fold it into s -> a * s + b for the
    // object's Planck signal, so each entry costs one logarithm.
    const auto& p = range.planck;
    const ObjectSignal front(p, c);
    const double base =
        RadiometricTools::planckSignal(p, c.shutterK) - RadiometricTools::driftSignal(range, c);
    const double lens = (1.0 - c.lensTransmission) * RadiometricTools::planckSignal(p, c.lensK);
    // object = (((s / gain + base) - lens) / tauL - front.offset) / front.gain, gain the detector's
    const double a = 1.0 / (c.lensTransmission * front.gain()) / RadiometricTools::detectorGain(range, c);
    const double b = ((base - lens) / c.lensTransmission - front.offset()) / front.gain();
    if (!std::isfinite(a) || !std::isfinite(b))
        fail("measurement conditions give no finite signal model (emissivity " +
                 std::to_string(c.emissivity) + ")",
             "norda::vision::RadiometryBase::buildTable");
    const double inv = 1.0 / m_resolution;
    const double r = p.R1 / p.R2;
    for (int s = from; s <= to; ++s) {
        const double object = a * s + b + p.O;
        unsigned short v;
        if (!(object > 0.0)) {
            v = 0;
        } else {
            const double arg = r / object + p.F;
            if (!(arg > 1.0)) {
                v = 65535;
            } else {
                const double counts = std::round((p.B / std::log(arg) - p.T0) * inv);
                v = counts >= 65535.0 ? 65535 : counts < 1.0 ? 1 : static_cast<unsigned short>(counts);
            }
        }
        m_table[static_cast<unsigned short>(s)] = v;
    }
}

void RadiometryBase::followBoardLag() {
    if (m_lags.empty() || !m_data.getVariant(RadiometryId::UpTime) ||
        !m_data.getVariant(RadiometryId::TBoardSlope) || !m_data.getVariant(RadiometryId::TboardCurrent) ||
        !m_data.getVariant(RadiometryId::TboardShuttering) ||
        !m_data.getVariant(RadiometryId::TShutterShuttering))
        return;
    const double uptimeS = double(m_data.get<unsigned long long>(RadiometryId::UpTime)) / 1000.0;
    const double board = kelvinOf(RadiometryId::TboardCurrent);
    const std::pair<double, double> shuttering{kelvinOf(RadiometryId::TboardShuttering),
                                               kelvinOf(RadiometryId::TShutterShuttering)};
    const double slopeKPerS = m_data.get<float>(RadiometryId::TBoardSlope) / 60.0;
    const bool shutterClosed = shuttering != m_shuttering;
    m_shuttering = shuttering;
    for (auto& [n, lag] : m_lags) {
        const bool restart = !lag.filter.started() || uptimeS < lag.filter.lastUptimeS();
        lag.filter.update(uptimeS, board, slopeKPerS);
        // The filter barely moves between the shutter's closing and the next frame. Started since,
        // the frame's drift is the settled one: the estimate moved as far as the board.
        if (restart)
            lag.atShuttering = lag.filter.value() - (board - shuttering.first);
        else if (shutterClosed)
            lag.atShuttering = lag.filter.value();
    }
}

std::vector<unsigned> RadiometryBase::commonRequiredData() {
    return {RadiometryId::Emis,
            RadiometryId::Treflected,
            RadiometryId::TboardCurrent,
            RadiometryId::TboardShuttering,
            RadiometryId::TShutterShuttering,
            RadiometryId::MeasRange,
            RadiometryId::TBoardSlope,
            RadiometryId::TauPg,
            RadiometryId::EmisPg};
}

} // namespace norda::vision
