#include "nordalib/vision/measurement/LocalParameterConversion.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/ObjectParameterKeys.h"

namespace norda::vision {

namespace Id = exp::Id;
using Temperature = exp::quantity::Temperature<exp::MarkedFloat>;

namespace {

template <typename T> bool read(const exp::DataStorage<std::string>& meta, const std::string& key, T& out) {
    auto v = meta.getVariant(key);
    if (!v || !v->holds<T>())
        return false;
    out = v->value<T>();
    return true;
}

} // namespace

bool LocalParameterConversion::setFrame(const exp::DataStorage<std::string>& meta) {
    std::vector<double> planck;
    float emissivity = 0.0f;
    Temperature reflected;
    if (!read(meta, Id::Radiometry::Planck, planck) || (planck.size() != 5 && planck.size() != 6) ||
        !read(meta, Id::Environment::EmissivityValue, emissivity) ||
        !read(meta, Id::Environment::ReflectedTemperature, reflected)) {
        m_model.reset();
        return false;
    }
    ObjectParameters global = ObjectParameterKeys::read(meta);
    global.emissivity = emissivity;
    global.reflectedK = reflected.kelvin();
    try {
        global.validate();
    } catch (const std::exception&) {
        m_model.reset();
        return false;
    }
    if (!m_model || planck != m_planck || !(global == m_global)) {
        m_tables.clear();
        m_planck = planck;
        m_global = global;
        m_model.emplace(PlanckConstants::fromVector(planck));
    }
    return true;
}

ObjectParameters LocalParameterConversion::local(double emissivity, double reflectedK,
                                                 double distanceM) const {
    ObjectParameters p = m_global;
    p.emissivity = emissivity;
    p.reflectedK = reflectedK;
    if (p.distanceM > 0.0) // the frame's air correction is on: the mark's own path through its air
        p.distanceM = distanceM;
    p.validate();
    return p;
}

uint16_t LocalParameterConversion::pixel(uint16_t raw, const ObjectParameters& local) const {
    return m_model->convertPixel(raw, m_global, local);
}

const cv::Mat_<uint16_t>& LocalParameterConversion::table(const ObjectParameters& local) {
    const auto key = std::make_tuple(local.emissivity, local.reflectedK, local.distanceM);
    auto it = m_tables.find(key);
    if (it != m_tables.end())
        return it->second;
    // Every encoded value once: the re-analysis of a ramp is the table.
    cv::Mat_<uint16_t> ramp(1, 65536);
    for (int i = 0; i < 65536; ++i)
        ramp(0, i) = static_cast<uint16_t>(i);
    if (m_tables.size() >= 16)
        m_tables.clear();
    return m_tables.emplace(key, m_model->apply(ramp, m_global, local)).first->second;
}

} // namespace norda::vision
