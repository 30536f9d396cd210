#include "apps/nordacam/LiveSnapshot.h"

#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/vision/radiometry/RadiometricTools.h"

namespace nordacam {

using namespace norda::exp;
using namespace norda::exp::streaming;

void LiveSnapshot::onCycle(const FrameMap& frames, uint64_t cycle) {
    const auto now = std::chrono::steady_clock::now();
    if (m_lastCycleTime.time_since_epoch().count() != 0) {
        const double dt = std::chrono::duration<double>(now - m_lastCycleTime).count();
        if (dt > 0)
            m_fps = m_fps == 0.0 ? 1.0 / dt : 0.9 * m_fps + 0.1 / dt;
    }
    m_lastCycleTime = now;

    auto find = [&](STREAMING_DATATYPE slot) -> const Frame* {
        auto it = frames.find(slot);
        return it != frames.end() && it->second ? it->second.get() : nullptr;
    };
    const Frame* rad = find(STREAMING_DATATYPE_RAD_CONST);
    if (!rad)
        rad = find(STREAMING_DATATYPE_RAD);
    const Frame* rgb = find(STREAMING_DATATYPE_RGB);

    std::lock_guard<std::mutex> lock(m_mutex);
    m_snapshot.cycle = cycle;
    m_snapshot.fps = m_fps;
    if (rad && !rad->getFrameData().empty()) {
        m_snapshot.rad = rad->getFrameData().clone();
        // The palette moves the metadata on to the display image.
        m_snapshot.meta = rgb && rad->getMetaData().size() == 0 ? rgb->getMetaData() : rad->getMetaData();
        auto counter = m_snapshot.meta.getVariant("FrameCnt");
        if (counter && counter->holds<unsigned long long>())
            m_snapshot.frame = counter->value<unsigned long long>();
        if (m_sim)
            m_snapshot.truth = m_sim->truth();
        // The visual camera's results of the same cycle as the truth.
        if (m_visual) {
            m_snapshot.laserVisible = m_store.getValue<bool>(Id::MeasPoints::LaserSpot::Visible);
            m_snapshot.laser = m_store.getValue<cv::Point_<int>>(Id::MeasPoints::LaserSpot::Position);
            const auto position = m_store.getValue<std::vector<double>>(Id::Laser::InfraredPosition);
            if (position.size() == 2)
                m_snapshot.laserPosition = {position[0], position[1]};
            m_snapshot.laserDistance = m_store.getValue<float>(Id::Laser::Distance);
            m_snapshot.markerStatus = m_store.getValue<std::string>(Id::EmissionMarker::Status);
            m_snapshot.markerEmissivity =
                m_store.getValue<quantity::Relation<MarkedFloat>>(Id::EmissionMarker::Emissivity)
                    .getValue()
                    .toFloat();
            m_snapshot.markerRect = m_store.getValue<cv::Rect_<int>>(Id::EmissionMarker::Rect);
        }
    }
    if (rgb && !rgb->getFrameData().empty())
        m_snapshot.rgb = rgb->getFrameData().clone();
    if (const Frame* visual = find(STREAMING_DATATYPE_YUV422))
        m_snapshot.visual = visual->getFrameData(); // never written into again: shared, not copied
}

Snapshot LiveSnapshot::get() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_snapshot;
}

float LiveSnapshot::temperatureAt(int x, int y) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    const cv::Mat& rad = m_snapshot.rad;
    if (rad.empty())
        throw NotAvailable("a radiometric frame");
    if (x < 0 || y < 0 || x >= rad.cols || y >= rad.rows)
        throw std::out_of_range("position " + std::to_string(x) + "," + std::to_string(y) +
                                " is outside the " + std::to_string(rad.cols) + "x" +
                                std::to_string(rad.rows) + " image");
    return norda::vision::RadiometricTools::getFloat(rad.at<uint16_t>(y, x));
}

} // namespace nordacam
