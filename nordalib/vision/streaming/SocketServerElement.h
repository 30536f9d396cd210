#pragma once
// SocketServerElement: hands the frames of one slot to an outgoing stream while one is requested.
//
// The transport belongs to the host: the element calls the sender with the frame (which stays in
// the input map), the frames-to-send count before this frame (0 = unlimited) and the compression
// switch. Commands (callable name = the element's name): "Start" n opens the gate for n frames
// (0 = until "Stop") and returns true; "Stop" closes it. Frame drops N > 0 pass every N-th frame,
// the first one after construction always. Slots: input = the constructor's slot, no outputs;
// every cycle returns false. A sender's std::exception is printed on standard output and the
// frame is not counted. The destructor unregisters the callable by name.
//
// Commands and setters only store one field each; the next cycle reads it (the fields are
// atomic, so this is race-free without a lock).

#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/cmd/ICallable.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <atomic>
#include <functional>
#include <string>

namespace norda::exp::streaming {

class SocketServerElement : public StreamingElement, public cmd::ICallable {
public:
    using Sender = std::function<void(Frame&, unsigned long long, bool)>;

    SocketServerElement(STREAMING_DATATYPE slot, Sender sender, cmd::CommandProxy& commands,
                        const std::string& name, int frameDrops);
    ~SocketServerElement() override;

    void setCompression(bool compression);
    // The drop counter keeps running; the new setting applies from its next wrap.
    void setFrameDrops(int frameDrops);

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    bool startStream(unsigned int frames);
    void stopStream();

    STREAMING_DATATYPE m_slot;
    Sender m_sender;
    cmd::CommandProxy& m_commands;
    std::string m_name;
    std::atomic<bool> m_streaming{false};
    std::atomic<unsigned int> m_framesToSend{0};
    std::atomic<int> m_frameDrops;
    int m_dropCounter = 0;
    std::atomic<bool> m_compression{false};
};

} // namespace norda::exp::streaming
