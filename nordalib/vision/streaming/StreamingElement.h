#pragma once
// StreamingElement: the base of every pipeline element.
//
// The host calls process(inputs, outputs) once per cycle; the element takes the frames of its
// declared input slots, puts its results into the output map and returns whether it completed its
// cycle. Inputs are read with the map's subscript operator, so the host must fill every declared
// input slot before calling. Outputs replace whatever the slot held.
//
// Constructor arguments: input slots, output slots, element name, parameter store (may be null),
// `blocking` (set for sources, sinks and elements that may block the calling thread on pacing,
// file or network I/O or a lock shared with other threads) and `priority` (a scheduling hint of
// the host; 0 for most elements).

#include "nordalib/core/dataproxy/DataProxy.h"
#include "nordalib/vision/streaming/StreamingDatatype.h"

#include <string>
#include <vector>

namespace norda::exp::streaming {

class StreamingElement {
public:
    StreamingElement(std::vector<STREAMING_DATATYPE> inputs, std::vector<STREAMING_DATATYPE> outputs,
                     const std::string& name, DataProxy<std::string>* const dataProxy, bool blocking,
                     int priority);
    virtual ~StreamingElement();
    StreamingElement(const StreamingElement&) = delete;
    StreamingElement& operator=(const StreamingElement&) = delete;

    virtual void setName(const std::string& name);
    virtual bool process(FrameMap& inputs, FrameMap& outputs) = 0;

    std::string getName() const;
    // Called once by the host before the first cycle.
    void start();
    bool isStarted() const { return m_started; }

    const std::vector<STREAMING_DATATYPE>& getInputTypes() const { return m_inputs; }
    const std::vector<STREAMING_DATATYPE>& getOutputTypes() const { return m_outputs; }
    DataProxy<std::string>* getDataProxy() const { return m_dataProxy; }
    bool isBlocking() const { return m_blocking; }
    int getPriority() const { return m_priority; }

protected:
    // Moves the frame of `from` in `inputs` to `to` in `outputs` (pass-through). The input entry is
    // left empty; the previous output occupant is destroyed; nothing happens for the same entry.
    static void passThrough(FrameMap& inputs, STREAMING_DATATYPE from, FrameMap& outputs,
                            STREAMING_DATATYPE to);
    // Stores a newly built frame in `outputs[slot]`, destroying the previous occupant.
    static void emit(FrameMap& outputs, STREAMING_DATATYPE slot, std::unique_ptr<Frame> frame);

private:
    std::vector<STREAMING_DATATYPE> m_inputs;
    std::vector<STREAMING_DATATYPE> m_outputs;
    std::string m_name;
    DataProxy<std::string>* m_dataProxy;
    bool m_blocking;
    int m_priority;
    bool m_started = false;
};

} // namespace norda::exp::streaming
