#include "apps/nordacam/MeasRangeFollower.h"

#include "nordalib/core/keys/DefaultParameters.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/logging/Logger.h"

namespace nordacam {

using namespace norda::exp;

MeasRangeFollower::MeasRangeFollower(DataProxy<std::string>& store,
                                     std::function<void(unsigned char)> onSwitch)
    : m_store(store), m_onSwitch(std::move(onSwitch)),
      m_active(store.getValue<unsigned char>(Id::ActiveMeasRange::Name)),
      m_log(norda::logging::Logger::createSharedLogger("MEASRANGE", true)) {
    // The settings file may have chosen another range than the defaults: apply it once.
    activateMeasRange(m_store, m_active.load());
    if (m_onSwitch)
        m_onSwitch(m_active.load());
    m_subscription = m_store.subscribeValue<unsigned char>(Id::ActiveMeasRange::Name,
                                                           [this](const unsigned char& r) { follow(r); });
}

MeasRangeFollower::~MeasRangeFollower() {
    m_subscription.reset();
}

void MeasRangeFollower::follow(unsigned char range) {
    // activateMeasRange writes the name again: that echo is the range already applied.
    const unsigned char previous = m_active.load();
    if (range == previous)
        return;
    try {
        m_active = range;
        activateMeasRange(m_store, range);
    } catch (const std::exception& e) {
        m_active = previous;
        m_log->log(norda::logging::LogLevel::error, "measurement range {} refused: {}",
                   static_cast<unsigned>(range), e.what());
        m_store.setValue<unsigned char>(Id::ActiveMeasRange::Name, previous, true);
        return;
    }
    m_log->log(norda::logging::LogLevel::info, "measurement range {} active", static_cast<unsigned>(range));
    if (m_onSwitch)
        m_onSwitch(range);
}

} // namespace nordacam
