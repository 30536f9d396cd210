#include "nordalib/vision/streaming/SocketServerElement.h"

#include <iostream>
#include <shared_mutex>

namespace norda::exp::streaming {

SocketServerElement::SocketServerElement(STREAMING_DATATYPE slot, Sender sender, cmd::CommandProxy& commands,
                                         const std::string& name, int frameDrops)
    : StreamingElement({slot}, {}, name, nullptr, true, 21), cmd::ICallable(name), m_slot(slot),
      m_sender(std::move(sender)), m_commands(commands), m_name(name), m_frameDrops(frameDrops) {
    const cmd::DelegateDescription startDescription(
        "Start", typeid(bool), "Start stream",
        {cmd::PackParameterDescription(0, typeid(unsigned int), "u32NumFrames", "number of frames")});
    const cmd::DelegateDescription stopDescription("Stop", typeid(void), "Stop stream", {});
    registerDelegate(
        new cmd::Delegate<bool, unsigned int>([this](unsigned int frames) { return startStream(frames); }),
        startDescription);
    registerDelegate(new cmd::Delegate<void>([this] { stopStream(); }), stopDescription);
    m_commands.registerCallable(this, false);
}

SocketServerElement::~SocketServerElement() {
    m_commands.unregisterCallable(m_name);
    {
        // waits for a command in flight, then shuts later ones out
        std::unique_lock<std::shared_mutex> dying(liveness()->mutex);
        liveness()->alive = false;
    }
    m_sender = nullptr;
}

void SocketServerElement::setCompression(bool compression) {
    m_compression = compression;
}

void SocketServerElement::setFrameDrops(int frameDrops) {
    m_frameDrops = frameDrops;
}

bool SocketServerElement::startStream(unsigned int frames) {
    m_framesToSend = frames;
    m_streaming = true;
    return true;
}

void SocketServerElement::stopStream() {
    m_streaming = false;
    m_framesToSend = 0;
}

bool SocketServerElement::process(FrameMap& inputs, FrameMap& /*outputs*/) {
    const int drops = m_frameDrops;
    if (drops > 0) {
        --m_dropCounter;
        if (m_dropCounter < 1)
            m_dropCounter = drops;
        else if (m_dropCounter != drops)
            return false;
    }
    auto& entry = inputs[m_slot];
    if (!m_sender || !m_streaming || !entry)
        return false;
    const unsigned int toSend = m_framesToSend;
    try {
        m_sender(*entry, static_cast<unsigned long long>(toSend), m_compression);
    } catch (const std::exception& e) {
        std::cout << e.what() << std::endl;
        return false;
    }
    if (toSend == 1) {
        m_framesToSend = 0;
        m_streaming = false;
    } else if (toSend >= 2) {
        m_framesToSend = toSend - 1;
    }
    return false;
}

} // namespace norda::exp::streaming
