#pragma once
// LocalParameterConversion: temperatures of one spot or area computed with its own emissivity,
// reflected temperature and distance while the image keeps the global ones.
//
// The frame's temperatures were computed with the frame's object parameters (metadata
// Environment.*, ProtectiveGlass.*, read by ObjectParameterKeys) in the range
// whose Planck constants it carries (Radiometry.Planck). Reanalysis converts a temperature from
// those parameters to the local ones; the air and the glass stay as the frame had them. Areas
// convert every pixel through a 65536-entry table, kept per set of local parameters until the
// frame's constants or parameters change.

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/vision/radiometry/Reanalysis.h"

#include <opencv2/core.hpp>

#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

namespace norda::vision {

class LocalParameterConversion {
public:
    // Takes the frame's Planck constants and object parameters; false (and no conversion
    // possible) when the metadata lacks them or they are out of range.
    bool setFrame(const exp::DataStorage<std::string>& metaData);
    bool available() const { return m_model.has_value(); }
    const ObjectParameters& frameParameters() const { return m_global; }

    // The frame's parameters with another emissivity, reflected temperature (kelvin) and distance;
    // throws norda::Exception naming the parameter when they are out of range. The distance counts
    // only when the frame was taken with the air correction on (its own distance above 0);
    // otherwise the mark, like the frame, has no air path.
    ObjectParameters local(double emissivity, double reflectedK, double distanceM) const;

    // One encoded pixel under `local` (requires available()).
    uint16_t pixel(uint16_t raw, const ObjectParameters& local) const;
    // The table of every encoded value under `local` (requires available()).
    const cv::Mat_<uint16_t>& table(const ObjectParameters& local);

private:
    std::optional<Reanalysis> m_model;
    ObjectParameters m_global;
    std::vector<double> m_planck;
    std::map<std::tuple<double, double, double>, cv::Mat_<uint16_t>> m_tables;
};

} // namespace norda::vision
