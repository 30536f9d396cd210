#include "apps/nordacam/BlackbodyShots.h"

#include "nordalib/core/exception/Exception.h"

#include <algorithm>
#include <string>

namespace nordacam::factory {

namespace phys = sim::physics;

namespace {
constexpr Band kBands[] = {{1, -20.0, 150.0}, {2, 0.0, 350.0}};
} // namespace

std::vector<Band> bandsOf(const std::vector<unsigned>& ranges) {
    std::vector<Band> bands;
    for (unsigned r : ranges) {
        auto b =
            std::find_if(std::begin(kBands), std::end(kBands), [&](const Band& b) { return b.range == r; });
        if (b == std::end(kBands))
            NORDA_THROW("measurement range " + std::to_string(r) + " is not 1 or 2",
                        "nordacam::FactoryViews");
        bands.push_back(*b);
    }
    return bands;
}

std::vector<double> temperatures(const Band& b, int n, bool midpoints) {
    std::vector<double> t;
    const double step = (b.topC - b.bottomC) / (n - 1);
    for (int i = 0; i < (midpoints ? n - 1 : n); ++i)
        t.push_back(b.bottomC + step * (i + (midpoints ? 0.5 : 0.0)));
    return t;
}

Shot shoot(phys::PhysicalCamera& camera, double blackbodyC, double boardC, double warmingK, unsigned range,
           int frames) {
    phys::BlackbodyView r;
    r.blackbodyC = blackbodyC;
    r.boardC = boardC;
    r.range = static_cast<int>(range);
    r.frames = 0;
    r.shutterFrames = 1;
    Shot s;
    s.shutter = camera.blackbodyView(r);
    r.boardC = boardC + warmingK;
    r.frames = frames;
    r.shutterFrames = 0;
    s.scene = camera.blackbodyView(r);
    return s;
}

norda::vision::RadiometricConditions conditions(const Shot& s, double emissivity, double lensTransmission) {
    norda::vision::RadiometricConditions c;
    c.lensTransmission = lensTransmission;
    c.lensK = s.scene.temperatures.lensC + kCelsius;
    c.emissivity = emissivity;
    c.reflectedK = s.scene.temperatures.ambientC + kCelsius; // the chamber around the source
    c.shutterK = s.shutter.temperatures.shutterC + kCelsius;
    c.boardCurrentK = s.scene.temperatures.boardC + kCelsius;
    c.boardShutteringK = s.shutter.temperatures.boardC + kCelsius;
    return c;
}

double lensTransmission(const phys::PhysicalCamera& camera) {
    return camera.lensPathRadiance(30.0) / camera.detectorRadiance(30.0);
}

} // namespace nordacam::factory
