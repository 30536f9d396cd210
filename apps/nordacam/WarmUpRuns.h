#pragma once
// WarmUpRuns: the warm-up part of the factory's radiometry views. Per measurement range and per
// chamber air temperature (FactoryViewOptions::warmUpAmbientsC) the camera is switched on cold in
// the climate chamber and looks at a blackbody while it warms up; the shutter closes every 30 s and
// three views follow each closing (only the measured region stored). The board sensor's log, once
// a second from switching on, goes beside them: the fit needs the board's history, not just its
// temperature at the view, to learn how the camera lags its board.

#include "apps/nordacam/FactoryViews.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace nordacam::sim::physics {
class PhysicalCamera;
}

namespace nordacam {

class WarmUpRuns {
public:
    explicit WarmUpRuns(FactoryViewOptions options);

    // Writes the runs' frames into `dir` (a folder path ending in '/'), appends their views to
    // `views` and each run's board log to `logs` (views.json's "views" and "boardLogs").
    void write(sim::physics::PhysicalCamera& camera, const std::string& dir, nlohmann::json& views,
               nlohmann::json& logs) const;

private:
    FactoryViewOptions m_options;
};

} // namespace nordacam
