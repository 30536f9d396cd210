#include "nordalib/vision/rix/RixReanalysis.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/Keys.h"

namespace norda::vision {

using namespace norda::exp;

namespace {

template <typename T> bool generic(const Rix& rix, const std::string& key, T& out) {
    auto v = rix.getGeneric(key);
    if (!v || v->type() != typeid(T))
        return false;
    out = v->value<T>();
    return true;
}

} // namespace

ObjectParameters RixReanalysis::storedParameters(const Rix& rix) {
    ObjectParameters p;
    p.emissivity = rix.getEmissivityOriginal();
    p.reflectedK = rix.getReflectedTempOriginal().kelvin();
    bool glass = false;
    float tau = 1.0f, emis = 0.0f;
    if (generic(rix, Id::ProtectiveGlass::Attached, glass) && glass &&
        generic(rix, Id::ProtectiveGlass::Transmission, tau) &&
        generic(rix, Id::ProtectiveGlass::Emissivity, emis)) {
        p.tauPg = tau;
        p.emisPg = emis;
    }
    return p;
}

PlanckConstants RixReanalysis::planckConstants(const Rix& rix) {
    std::vector<double> c;
    if (!generic(rix, Id::Radiometry::Planck, c) || c.size() != 5)
        NORDA_THROW("the image carries no Planck constants (" + Id::Radiometry::Planck +
                        " with R1, R2, B, F, O); it can not be re-analysed",
                    "norda::vision::RixReanalysis::planckConstants");
    return PlanckConstants{c[0], c[1], c[2], c[3], c[4]};
}

cv::Mat_<uint16_t> RixReanalysis::temperatures(const Rix& rix, const ObjectParameters& to,
                                               const cv::Mat& emissivity) {
    const Reanalysis model(planckConstants(rix));
    const ObjectParameters from = storedParameters(rix);
    if (emissivity.empty())
        return model.apply(rix.getRadiometricImage(), from, to);
    return model.apply(rix.getRadiometricImage(), from, to, emissivity);
}

} // namespace norda::vision
