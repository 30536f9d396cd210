#pragma once
// Measurements the host reads back: the published results of the measurement stage, and the
// temperatures of the simulated objects measured in the radiometric frame against their truth.

#include "apps/nordacam/Camera.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace nordacam {

struct SpotReading {
    std::string name;
    bool valid = false;
    int x = 0, y = 0;
    float celsius = 0.0f;
    unsigned mark = 0; // validity mark of the measurement stage (0 valid)
};

// Hot spot, cold spot and centre spot from the store (what the user interface shows).
std::vector<SpotReading> readSpots(const norda::exp::DataProxy<std::string>& store);

struct ObjectReading {
    std::string name;
    float trueC = 0.0f;
    float measuredC = 0.0f; // mean over the object's interior
    float peakC = 0.0f;     // hottest (coldest for the cold object) pixel of the interior
    int pixels = 0;
};

// The simulated objects measured in a snapshot's radiometric frame (positions of the undistorted
// image). Empty when the snapshot has no radiometric frame or no truth.
std::vector<ObjectReading> measureObjects(const Camera::Snapshot& snapshot);

// Whether the camera was past its warm-up when the snapshot's frame was taken.
bool warm(const Camera::Snapshot& snapshot);

nlohmann::json toJson(const SpotReading& s);
nlohmann::json toJson(const ObjectReading& o);

} // namespace nordacam
