#include "nordalib/vision/registration/RegistrationCache.h"

#include <exception>

namespace norda::vision {

const Registration* RegistrationCache::get(const std::string& file) {
    if (m_tried && file == m_file)
        return m_registration.get();
    m_tried = true;
    m_file = file;
    m_error.clear();
    try {
        auto loaded = std::make_unique<Registration>(Registration::load(file));
        m_registration = std::move(loaded);
    } catch (const std::exception& e) {
        m_registration.reset();
        m_error = e.what();
    }
    return m_registration.get();
}

} // namespace norda::vision
