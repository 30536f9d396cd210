// Settings of the host on arbitrary text: the input as a settings file (JSON) and each of its
// lines as a `--set KEY=VALUE` option, applied to a camera's store with the camera's own checks;
// the store's observers (palette, measurement range) then run on what got through. Anything but a
// SettingsError escaping is a find.
#include "FuzzSupport.h"
#include "apps/nordacam/Camera.h"

#include <cstdlib>
#include <sstream>

namespace {

nordacam::Camera* g_camera = nullptr;

nordacam::Camera& camera() {
    return *g_camera;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    setenv("NORDA_LOG_LEVEL", "off", 0);
    g_camera = &norda::fuzz::hostForThisProcess<nordacam::Camera>([] {
        nordacam::CameraOptions o;
        o.realTime = false;
        return o;
    }());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto& settings = camera().settings();
    const auto& path = norda::fuzz::writeScratch(data, size);
    try {
        settings.loadFile(path);
    } catch (const nordacam::SettingsError&) {
    }
    std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
    std::string line;
    while (std::getline(lines, line)) {
        try {
            settings.applyAssignment(line);
        } catch (const nordacam::SettingsError&) {
        }
    }
    camera().store().flush();
    (void)settings.userSettings().dump();
    return 0;
}
