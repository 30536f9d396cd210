#include "apps/nordacam/PlaybackMetadataElement.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/keys/KeySchema.h"
#include "nordalib/core/keys/Keys.h"

#include "nordalib/vision/imageio/ImageDecoderPxM.h"

namespace nordacam {

using namespace norda::exp;
using namespace norda::exp::streaming;

PlaybackMetadataElement::PlaybackMetadataElement(DataProxy<std::string>& store,
                                                 std::vector<DataStorage<std::string>> recorded)
    : StreamingElement({STREAMING_DATATYPE_RAW}, {}, "PlaybackMetadata", &store, false, 0), m_store(store),
      m_recorded(std::move(recorded)) {}

bool PlaybackMetadataElement::process(FrameMap& inputs, FrameMap&) {
    auto& frame = inputs[STREAMING_DATATYPE_RAW];
    if (!frame)
        return false;
    uint64_t counter = m_delivered;
    std::shared_ptr<Variant> cnt;
    if (frame->getMetaDate("FrameCnt", cnt) && cnt->holds<unsigned long long>())
        counter = cnt->value<unsigned long long>();
    ++m_delivered;

    bool haveRecorded = false;
    if (!m_recorded.empty()) {
        const size_t n = m_recorded.size();
        const size_t index = n == 1 ? 0 : static_cast<size_t>((counter + 1) % n);
        const auto& recorded = m_recorded[index];
        for (const auto& [key, value] : recorded)
            if (key != "FrameCnt" && !frame->isMetaDateAvailable(key))
                frame->addMetaDate(key, value);
        haveRecorded = frame->isMetaDateAvailable(Id::Shutter::State);
    }
    if (!haveRecorded) {
        for (const auto& keySpec : keySchema())
            if (keySpec.rawFrame && !frame->isMetaDateAvailable(keySpec.name))
                frame->addMetaDate(keySpec.name, m_store.get(keySpec.name));
        if (!frame->isMetaDateAvailable(Id::Shutter::State))
            frame->addMetaDate(Id::Shutter::State, makeVariant(Id::Shutter::StateIdle));
        if (!frame->isMetaDateAvailable(Id::Shutter::Closed))
            frame->addMetaDate(Id::Shutter::Closed, makeVariant(false));
    }
    // The store shows the played frame's shutter state, as it shows the live camera's.
    std::shared_ptr<Variant> state;
    if (frame->getMetaDate(Id::Shutter::State, state) && state->holds<std::string>() &&
        m_store.getValue<std::string>(Id::Shutter::State) != state->value<std::string>())
        m_store.set(Id::Shutter::State, state, true);
    return true;
}

std::vector<DataStorage<std::string>> PlaybackMetadataElement::readRecording(const std::string& file) {
    std::vector<DataStorage<std::string>> out;
    norda::vision::ImageDecoderPxM decoder;
    if (!decoder.open(file))
        NORDA_THROW("can not open " + file, "nordacam::PlaybackMetadataElement::readRecording");
    cv::Mat frame;
    while (decoder.grab(frame, nullptr))
        out.push_back(decoder.getMetaData());
    decoder.close();
    return out;
}

} // namespace nordacam
