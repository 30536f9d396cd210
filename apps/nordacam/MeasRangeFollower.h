#pragma once
// Follows the active measurement range as a camera does.
//
// When Id::ActiveMeasRange::Name changes in the store (the range automatics or the user), the
// range's settings are copied from Id::MeasRangePool into the Id::ActiveMeasRange keys (borders,
// filter tuning) and the detector is told to switch its gain. A range the pool does not hold is
// refused: the previous range is written back and the refusal is logged.

#include "nordalib/core/dataproxy/DataProxy.h"

#include <atomic>
#include <functional>

namespace norda::logging {
class Logger;
}

namespace nordacam {

class MeasRangeFollower {
public:
    // `onSwitch` runs on the store's notifier thread after the keys were copied.
    MeasRangeFollower(norda::exp::DataProxy<std::string>& store, std::function<void(unsigned char)> onSwitch);
    ~MeasRangeFollower();

    unsigned char active() const { return m_active.load(); }

private:
    void follow(unsigned char range);

    norda::exp::DataProxy<std::string>& m_store;
    std::function<void(unsigned char)> m_onSwitch;
    std::atomic<unsigned char> m_active;
    std::shared_ptr<norda::logging::Logger> m_log;
    norda::exp::Subscription m_subscription; // last: dropped first
};

} // namespace nordacam
