#pragma once
// WindowingElement: cuts a centred window of fixed size out of a one-channel 16-bit frame.
//
// Slots: input and output as given. The window is copied into a new CV_16UC1 frame that carries
// the input's metadata. The frame is passed on unchanged (the very object) when it is empty or
// when it already matches the window in at least one dimension: a frame equal in width but taller
// than the window, or the reverse, goes on uncut. This is how the host relies on it and is kept.
// A frame smaller than the window in either dimension throws
// "Windowing Failed! ROI outside of current image! <cols>, <rows>" and writes nothing.

#include "nordalib/vision/streaming/StreamingElement.h"

#include <cstdint>

namespace norda::exp::streaming {

class WindowingElement : public StreamingElement {
public:
    WindowingElement(uint16_t width, uint16_t height, STREAMING_DATATYPE input, STREAMING_DATATYPE output);

    // Takes effect with the next cycle.
    void setWindowSize(uint16_t width, uint16_t height);

    bool process(FrameMap& inputs, FrameMap& outputs) override;

private:
    uint16_t m_width;
    uint16_t m_height;
    STREAMING_DATATYPE m_input;
    STREAMING_DATATYPE m_output;
};

} // namespace norda::exp::streaming
