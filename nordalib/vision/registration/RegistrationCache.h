#pragma once
// RegistrationCache: the registration calibration a user of it needs every frame, loaded once per
// file name. The file is read when a name is first asked for or when the name changes; a file that
// cannot be read is not tried again until the name changes, and why it failed stays readable for
// the caller to report. Users keeping tables per calibration (Fusion) compare its values, not its
// address.

#include "nordalib/vision/registration/Registration.h"

#include <memory>
#include <string>

namespace norda::vision {

class RegistrationCache {
public:
    // The calibration in `file`, or nullptr when it cannot be read (error() says why).
    const Registration* get(const std::string& file);
    const std::string& error() const { return m_error; }

private:
    std::unique_ptr<Registration> m_registration;
    std::string m_file, m_error;
    bool m_tried = false;
};

} // namespace norda::vision
