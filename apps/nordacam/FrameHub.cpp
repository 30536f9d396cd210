#include "apps/nordacam/FrameHub.h"

namespace nordacam {

void FrameHub::publish(Data data) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_data = std::move(data);
        ++m_sequence;
    }
    m_cv.notify_all();
}

FrameHub::Data FrameHub::waitNewer(uint64_t& seen, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_cv.wait_for(lock, timeout, [&] { return m_closed || (m_sequence > seen && m_data); }))
        return nullptr;
    if (m_closed)
        return nullptr;
    seen = m_sequence;
    return m_data;
}

FrameHub::Data FrameHub::latest() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_data;
}

uint64_t FrameHub::published() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_sequence;
}

void FrameHub::close() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
    }
    m_cv.notify_all();
}

bool FrameHub::closed() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_closed;
}

void FrameHub::setDemandCallback(std::function<void(bool)> callback) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_demand = std::move(callback);
}

int FrameHub::readers() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_readers;
}

FrameHub::Reader::Reader(FrameHub& hub) : m_hub(hub) {
    // Arrivals and departures are serialised so that start and stop reach the stream in order.
    std::lock_guard<std::mutex> order(hub.m_demandMutex);
    std::function<void(bool)> demand;
    {
        std::lock_guard<std::mutex> lock(hub.m_mutex);
        if (hub.m_readers++ == 0)
            demand = hub.m_demand;
    }
    if (demand)
        demand(true);
}

FrameHub::Reader::~Reader() {
    std::lock_guard<std::mutex> order(m_hub.m_demandMutex);
    std::function<void(bool)> demand;
    {
        std::lock_guard<std::mutex> lock(m_hub.m_mutex);
        if (--m_hub.m_readers == 0)
            demand = m_hub.m_demand;
    }
    if (demand)
        demand(false);
}

} // namespace nordacam
