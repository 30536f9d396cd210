#pragma once
// ObjectParameterKeys: the one mapping between the object-parameter keys (Environment.*,
// ProtectiveGlass.*) and ObjectParameters, for frame metadata, saved images and re-analysis alike.
//
// Read: a key that is missing reads as its old meaning: no AirCorrection, no air (distance 0);
// no Reflectance or OwnTemperature, a window that reflects nothing at the reflected temperature;
// no Attached glass, no window. The air temperature and humidity are read whenever present (the
// humidity view's air is the same air), so that a re-analysis that adds a distance to an image
// taken without air correction uses the air it was taken in.

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/vision/radiometry/ObjectParameters.h"

#include <functional>
#include <memory>
#include <string>

namespace norda::vision {

class ObjectParameterKeys {
public:
    using Lookup = std::function<std::shared_ptr<exp::Variant>(const std::string&)>;
    using Store = std::function<void(const std::string&, std::shared_ptr<exp::Variant>)>;

    // The parameters the keys describe. Emissivity and reflected temperature stay at `base`'s
    // when their keys are missing. Values of the wrong type count as missing. Not validated.
    static ObjectParameters read(const Lookup& lookup, ObjectParameters base = {});
    static ObjectParameters read(const exp::DataStorage<std::string>& meta, ObjectParameters base = {});
    // Writes the window and air keys of `p` (not emissivity and reflected temperature, which
    // images keep in fields of their own); humidity as a fraction, temperatures in °C. Without an
    // air path, its distance is left as it was.
    static void writeAirAndWindow(const ObjectParameters& p, const Store& store);
};

} // namespace norda::vision
