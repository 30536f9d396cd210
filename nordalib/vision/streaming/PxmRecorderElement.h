#pragma once
// PxmRecorderElement: records the frames of one slot into a PXM sequence file on command.
//
// Commands (callable name = the element's name): "Start" (file name, frame count with 0 for
// unlimited, minimum delay between frames in ms, capture-while-shutter flag) opens the file;
// "Stop" ends the recording, and the next cycle closes the file. While recording, every cycle
// writes the frame with its metadata: with a delay of 0 every frame; with a delay, only frames
// whose metadata says the shutter is open (Id::Shutter::Closed false or absent), at least the
// delay apart and a full delay after the shutter last was closed. The state callback reports
// true on start and false when the file is closed; the progress callback gets the remaining count
// on every recording cycle. Both run with the element's mutex held and must not call back into
// the element. The capture-while-shutter flag is kept with the recording but does not change
// which frames are written. Slots: input = the constructor's slot, no outputs; every cycle returns
// false (a sink has nothing to hand on). The commands are never unregistered.
//
// A "Start" on a file that cannot be created throws the writer's exception through the command
// and leaves the element idle; a "Start" during a recording is ignored. Write errors propagate
// out of process.

#include "nordalib/core/cmd/CommandProxy.h"
#include "nordalib/core/cmd/ICallable.h"
#include "nordalib/vision/imageio/ImageIO.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace norda::exp::streaming {

class PxmRecorderElement : public StreamingElement, public cmd::ICallable {
public:
    PxmRecorderElement(STREAMING_DATATYPE slot, const std::string& name, cmd::CommandProxy& commands,
                       std::function<void(bool)> stateCallback,
                       std::function<void(unsigned long long)> progressCallback);
    ~PxmRecorderElement() override;

    void start(std::string fileName, unsigned long long frames, unsigned short delayMs,
               bool captureWhileShutter);
    void stop();

    unsigned long long getRemainingFrames();
    // Milliseconds since the last written or closed-shutter frame, wrapping at 65535.
    unsigned short getTimeDiffSinceLastShutter();

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    unsigned short timeDiffLocked() const;
    void writeFrame(Frame& frame);

    std::unique_ptr<vision::ImageIO> m_writer;
    unsigned long long m_remainingFrames = 0;
    unsigned short m_delayMs = 0;
    bool m_captureWhileShutter = false;
    int64_t m_timeStampNs = 0;
    std::mutex m_mutex;
    std::function<void(bool)> m_stateCallback;
    std::function<void(unsigned long long)> m_progressCallback;
    STREAMING_DATATYPE m_slot;
    std::string m_name;
};

} // namespace norda::exp::streaming
