#include "apps/nordacam/WarmUpRuns.h"

#include "apps/nordacam/BlackbodyShots.h"
#include "apps/nordacam/FactoryViewFolder.h"
#include "apps/nordacam/sim/physics/PhysicalCamera.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace nordacam {

namespace {
namespace phys = sim::physics;
using nlohmann::json;
// The shutter closes this often; frames this long after each closing.
constexpr double kShutterPeriodS = 30.0;
constexpr double kFramesAfterS[] = {5.0, 15.0, 28.0};
} // namespace

WarmUpRuns::WarmUpRuns(FactoryViewOptions options) : m_options(std::move(options)) {}

void WarmUpRuns::write(phys::PhysicalCamera& camera, const std::string& dir, json& views, json& logs) const {
    const double emissivity = camera.parameters().blackbody.emissivity;
    const auto& k = FactoryViews::kRegion;
    const cv::Rect region(k[0], k[1], k[2], k[3]);
    const double endS = m_options.reduced ? 300.0 : 600.0;
    for (const auto& band : factory::bandsOf(m_options.ranges))
        for (size_t run = 0; run < m_options.warmUpAmbientsC.size(); ++run) {
            const double ambientC = m_options.warmUpAmbientsC[run];
            // A blackbody a little above the chamber's air in one run, well above it in the next.
            const double blackbodyC = band.bottomC + (band.topC - band.bottomC) * (run % 2 ? 0.45 : 0.3);
            const std::string logName = fmt::format("r{}-ambient{:.0f}", band.range, ambientC);
            // The board sensor's log, once a second from switching on.
            phys::ThermalParameters thermal = camera.parameters().thermal;
            thermal.ambientC = ambientC;
            phys::CameraThermal sensor(thermal, camera.parameters().shutter);
            json log = json::array();
            for (double t = 0.0; t <= endS + 1e-9; t += 1.0) {
                sensor.runTo(t);
                log.push_back({t, sensor.temperatures().boardC});
            }
            logs[logName] = log;
            for (double shutterAt = kShutterPeriodS; shutterAt < endS; shutterAt += kShutterPeriodS) {
                phys::WarmUpView r;
                r.blackbodyC = blackbodyC;
                r.ambientC = ambientC;
                r.shutterAtS = shutterAt;
                r.range = static_cast<int>(band.range);
                for (double after : kFramesAfterS)
                    r.timesS.push_back(shutterAt + after);
                const auto seq = camera.warmUpView(r);
                const std::string shutterFile = fmt::format("{}-shutter{:.0f}.pxm", logName, shutterAt);
                factory::writeFrames(dir + shutterFile, {seq.shutter.front()(region).clone()});
                for (const auto& f : seq.frames) {
                    const std::string name = fmt::format("{}-t{:.0f}", logName, f.timeS);
                    factory::writeFrames(dir + name + ".pxm", {f.raw(region).clone()});
                    const auto& t = f.temperatures;
                    views.push_back({{"name", name},
                                     {"range", band.range},
                                     {"blackbody", blackbodyC},
                                     {"board", t.boardC},
                                     {"boardAtShutter", seq.shutterTemperatures.boardC},
                                     {"shutter", seq.shutterTemperatures.shutterC},
                                     {"emissivity", emissivity},
                                     {"reflected", ambientC},
                                     {"lensTransmission", factory::lensTransmission(camera)},
                                     {"lens", t.lensC},
                                     {"boardLog", logName},
                                     {"uptime", f.timeS},
                                     {"shutterUptime", shutterAt},
                                     {"file", name + ".pxm"},
                                     {"shutterFile", shutterFile}});
                }
            }
            if (m_options.progress)
                m_options.progress(fmt::format("warm-up run {}: range {}, chamber at {:.0f} °C, blackbody at "
                                               "{:.0f} °C, shutter every {:.0f} s to {:.0f} s",
                                               logName, band.range, ambientC, blackbodyC, kShutterPeriodS,
                                               endS));
        }
}

} // namespace nordacam
