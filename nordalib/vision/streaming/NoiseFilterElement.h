#pragma once
// NoiseFilterElement: what TnrElement, SprElement and SnrElement share. Each wraps one noise filter
// of the image-processing library, runs it on the offset-corrected frame (slot 2 in and out),
// needs the parameter store, and binds store keys to the filter's tuning through observers.
//
// The filter and the observers live here, the observers declared after the filter so that they
// are gone before it. An element whose observers call its own setters detaches them first thing
// in its destructor (stopObserving), before it stops being that element.

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/streaming/StreamingElement.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace norda::exp::streaming {

template <typename Filter> class NoiseFilterElement : public StreamingElement {
public:
    const Filter& filter() const { return m_filter; }

protected:
    // `location`: the concrete element's constructor, where a missing store is reported.
    template <typename... FilterArgs>
    NoiseFilterElement(const std::string& name, DataProxy<std::string>* dataProxy,
                       const std::string& location, FilterArgs&&... filterArgs)
        : StreamingElement({STREAMING_DATATYPE_CORRECTED}, {STREAMING_DATATYPE_CORRECTED}, name, dataProxy,
                           false, 0),
          m_filter(std::forward<FilterArgs>(filterArgs)...) {
        if (!dataProxy)
            throw Exception("Pointer to DataProxy is mandatory for this element!", location);
    }

    // Applies every value later written to `key` with `apply`.
    template <typename T> void observe(const std::string& key, std::function<void(const T&)> apply) {
        m_observers.push_back(getDataProxy()->template subscribeValue<T>(key, std::move(apply)));
    }
    void stopObserving() { m_observers.clear(); }

    // Filters slot 2 into a new frame that takes over the input's metadata; the input frame stays,
    // without its metadata.
    void filterIntoNewFrame(FrameMap& inputs, FrameMap& outputs) {
        auto& input = inputs[STREAMING_DATATYPE_CORRECTED];
        cv::Mat result;
        m_filter.process(input->getFrameData(), result);
        emit(outputs, STREAMING_DATATYPE_CORRECTED,
             std::make_unique<Frame>(result, input->releaseMetaData()));
    }

    Filter m_filter;

private:
    std::vector<Subscription> m_observers; // after the filter: detached before it goes
};

} // namespace norda::exp::streaming
