#include "nordalib/vision/radiometry/ObjectParameterKeys.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/Keys.h"

namespace norda::vision {

namespace Id = exp::Id;
using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;
using Relation = exp::quantity::Relation<exp::MarkedFloat>;

namespace {

template <typename T> bool get(const ObjectParameterKeys::Lookup& lookup, const std::string& key, T& out) {
    auto v = lookup(key);
    if (!v || !v->holds<T>())
        return false;
    out = v->value<T>();
    return true;
}

Temperature celsius(double kelvin) {
    return Temperature(exp::MarkedFloat(static_cast<float>(kelvin - 273.15)));
}

} // namespace

ObjectParameters ObjectParameterKeys::read(const Lookup& lookup, ObjectParameters p) {
    float f = 0.0f;
    Temperature t;
    if (get(lookup, Id::Environment::EmissivityValue, f))
        p.emissivity = f;
    if (get(lookup, Id::Environment::ReflectedTemperature, t))
        p.reflectedK = t.kelvin();

    bool on = false;
    float tau = 1.0f, emis = 0.0f;
    p.tauPg = 1.0;
    p.emisPg = 0.0;
    p.pgReflectance = 0.0;
    p.pgK.reset();
    if (get(lookup, Id::ProtectiveGlass::Attached, on) && on &&
        get(lookup, Id::ProtectiveGlass::Transmission, tau) &&
        get(lookup, Id::ProtectiveGlass::Emissivity, emis)) {
        p.tauPg = tau;
        p.emisPg = emis;
        if (get(lookup, Id::ProtectiveGlass::Reflectance, f))
            p.pgReflectance = f;
        bool own = false;
        if (get(lookup, Id::ProtectiveGlass::OwnTemperature, own) && own &&
            get(lookup, Id::ProtectiveGlass::Temperature, t))
            p.pgK = t.kelvin();
    }

    on = false;
    p.distanceM = 0.0;
    if (get(lookup, Id::Environment::AirCorrection, on) && on && get(lookup, Id::Environment::Distance, f))
        p.distanceM = f;
    if (get(lookup, Id::Environment::Temperature, t))
        p.airK = t.kelvin();
    Relation rh;
    if (get(lookup, Id::Environment::Humidity, rh))
        p.humidityPercent = rh.getValue().toFloat() * 100.0;
    return p;
}

ObjectParameters ObjectParameterKeys::read(const exp::DataStorage<std::string>& meta, ObjectParameters base) {
    return read([&meta](const std::string& key) { return meta.getVariant(key); }, base);
}

void ObjectParameterKeys::writeAirAndWindow(const ObjectParameters& p, const Store& store) {
    const bool glass = p.tauPg != 1.0 || p.emisPg != 0.0 || p.pgReflectance != 0.0 || p.pgK;
    store(Id::ProtectiveGlass::Attached, exp::makeVariant(glass));
    store(Id::ProtectiveGlass::Transmission, exp::makeVariant(static_cast<float>(p.tauPg)));
    store(Id::ProtectiveGlass::Emissivity, exp::makeVariant(static_cast<float>(p.emisPg)));
    store(Id::ProtectiveGlass::Reflectance, exp::makeVariant(static_cast<float>(p.pgReflectance)));
    store(Id::ProtectiveGlass::OwnTemperature, exp::makeVariant(p.pgK.has_value()));
    if (p.pgK)
        store(Id::ProtectiveGlass::Temperature, exp::makeVariant(celsius(*p.pgK)));
    store(Id::Environment::AirCorrection, exp::makeVariant(p.distanceM > 0.0));
    if (p.distanceM > 0.0)
        store(Id::Environment::Distance, exp::makeVariant(static_cast<float>(p.distanceM)));
    store(Id::Environment::Temperature, exp::makeVariant(celsius(p.airK)));
    store(Id::Environment::Humidity,
          exp::makeVariant(Relation(exp::MarkedFloat(static_cast<float>(p.humidityPercent / 100.0)))));
}

} // namespace norda::vision
