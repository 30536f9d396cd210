#include "nordalib/vision/streaming/PxmRecorderElement.h"

#include "nordalib/core/keys/Keys.h"

#include <chrono>
#include <shared_mutex>

namespace norda::exp::streaming {

namespace {
int64_t nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
} // namespace

PxmRecorderElement::PxmRecorderElement(STREAMING_DATATYPE slot, const std::string& name,
                                       cmd::CommandProxy& commands, std::function<void(bool)> stateCallback,
                                       std::function<void(unsigned long long)> progressCallback)
    : StreamingElement({slot}, {}, "PxmRecorderElement", nullptr, true, 0), cmd::ICallable(name),
      m_stateCallback(std::move(stateCallback)), m_progressCallback(std::move(progressCallback)),
      m_slot(slot), m_name(name) {
    // "bCaptShutter" shares index 2 with "u16Delay"; clients read the descriptions this way.
    const std::set<cmd::PackParameterDescription> startParameters = {
        cmd::PackParameterDescription(0, typeid(std::string), "strFilename", "pxm filename"),
        cmd::PackParameterDescription(1, typeid(unsigned long long), "u64NumFrames",
                                      "number of frames to capture"),
        cmd::PackParameterDescription(2, typeid(unsigned short), "u16Delay",
                                      "delay between frames to capture"),
        cmd::PackParameterDescription(2, typeid(bool), "bCaptShutter", "capture always while shutter")};
    const cmd::DelegateDescription startDescription("Start", typeid(void), "start pxm recording",
                                                    startParameters);
    const cmd::DelegateDescription stopDescription("Stop", typeid(void), "stop pxm recording", {});
    registerDelegate(new cmd::Delegate<void, std::string, unsigned long long, unsigned short, bool>(
                         [this](std::string file, unsigned long long frames, unsigned short delay,
                                bool shutter) { start(std::move(file), frames, delay, shutter); }),
                     startDescription);
    registerDelegate(new cmd::Delegate<void>([this] { stop(); }), stopDescription);
    commands.registerCallable(this, false);
}

// Commands are shut out first (waiting for one in flight), so none reaches a member being torn
// down; the writer (if any) then closes its file and the callbacks go before the base parts.
PxmRecorderElement::~PxmRecorderElement() {
    {
        std::unique_lock<std::shared_mutex> dying(liveness()->mutex);
        liveness()->alive = false;
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_writer.reset();
    m_stateCallback = nullptr;
    m_progressCallback = nullptr;
}

void PxmRecorderElement::start(std::string fileName, unsigned long long frames, unsigned short delayMs,
                               bool captureWhileShutter) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_writer)
        return;
    auto writer = std::make_unique<vision::ImageIO>(8);
    writer->open(fileName); // throws when the file cannot be created; nothing has changed then
    writer->getEncoder().setOption(vision::PxmEncoder::Option::Plain, 0);
    m_writer = std::move(writer);
    m_delayMs = delayMs;
    m_captureWhileShutter = captureWhileShutter;
    m_timeStampNs = nowNs();
    m_remainingFrames = frames == 0 ? 18446744073709551615ull : frames;
    if (m_stateCallback)
        m_stateCallback(true);
}

void PxmRecorderElement::stop() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_remainingFrames = 0;
}

unsigned long long PxmRecorderElement::getRemainingFrames() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_remainingFrames;
}

unsigned short PxmRecorderElement::getTimeDiffSinceLastShutter() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return timeDiffLocked();
}

unsigned short PxmRecorderElement::timeDiffLocked() const {
    return static_cast<unsigned short>((nowNs() - m_timeStampNs) / 1000000);
}

bool PxmRecorderElement::process(FrameMap& inputs, FrameMap& /*outputs*/) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_writer)
        return false;
    auto& entry = inputs[m_slot];
    if (m_remainingFrames != 0 && entry) {
        if (m_delayMs == 0) {
            writeFrame(*entry);
            --m_remainingFrames;
        } else {
            std::shared_ptr<Variant> closed;
            const bool shutterClosed = entry->getMetaDate(Id::Shutter::Closed, closed) && closed &&
                                       closed->holds<bool>() && closed->value<bool>();
            if (shutterClosed) {
                m_timeStampNs = nowNs();
            } else if (m_delayMs < timeDiffLocked()) {
                writeFrame(*entry);
                --m_remainingFrames;
                m_timeStampNs = nowNs();
            }
        }
    }
    if (m_remainingFrames == 0) {
        m_writer.reset();
        if (m_stateCallback)
            m_stateCallback(false);
    }
    if (m_progressCallback)
        m_progressCallback(m_remainingFrames);
    return false;
}

void PxmRecorderElement::writeFrame(Frame& frame) {
    m_writer->setMetaData(std::make_shared<DataStorage<std::string>>(frame.releaseMetaData()));
    m_writer->write(frame.getFrameData(), "");
}

} // namespace norda::exp::streaming
