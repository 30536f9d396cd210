#pragma once
// The reflected temperature found in the live hall as a thermographer finds it, and what it is
// worth against the simulator's truth.
//
// Once the camera is warm, a user area on the crumpled foil, read with emissivity 1 (the air left
// uncorrected), gives the surroundings' apparent temperature; its mean over the first frames goes
// into Environment.ReflectedTemperature. From then on two user areas read the painted panel
// (emissivity 0.6) in the same frames, one with the camera's default reflected temperature and
// one with the measured: what the measurement gains, shown on an object that reflects 40 %.
// User areas 1 to 3 are the figure's; without the simulator it does nothing.

#include "apps/nordacam/Camera.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <ostream>

namespace nordacam {

class ReflectedTemperatureFigure {
public:
    static constexpr int kFoilFrames = 10; // frames averaged on the foil

    // Places the areas (before the camera starts).
    explicit ReflectedTemperatureFigure(Camera& camera);
    // Gives the keys it set their values back, in the settings file too when a save (an image's)
    // wrote them there: the next run starts from the user's own settings.
    ~ReflectedTemperatureFigure();
    ReflectedTemperatureFigure(const ReflectedTemperatureFigure&) = delete;
    ReflectedTemperatureFigure& operator=(const ReflectedTemperatureFigure&) = delete;

    // A snapshot of the running camera; uses each warm frame with the shutter open once.
    void sample(const Snapshot& snapshot);
    // Whether the snapshot's frame was converted with the measured reflected temperature (always,
    // when the figure is off); the other live figures count only such frames.
    bool applied(const Snapshot& snapshot) const;
    void print(std::ostream& out) const;

private:
    struct Sums {
        double sum = 0, worst = 0;
        int n = 0;
        void add(double e) {
            sum += e;
            worst = std::max(worst, std::abs(e));
            ++n;
        }
        double mean() const { return n ? sum / n : 0.0; }
    };

    void set(const std::string& key, std::shared_ptr<norda::exp::Variant> value);

    Camera& m_camera;
    bool m_active = false;
    std::map<std::string, std::shared_ptr<norda::exp::Variant>> m_before; // the user's values
    unsigned long long m_lastFrame = ~0ull;
    float m_defaultC = 0; // the reflected temperature the camera started with
    bool m_measured = false;
    float m_measuredC = 0;
    Sums m_foil, m_panelDefault, m_panelMeasured; // foil: readings; panel: errors
};

} // namespace nordacam
