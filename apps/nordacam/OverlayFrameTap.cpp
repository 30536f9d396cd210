#include "apps/nordacam/OverlayFrameTap.h"

#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/keys/Keys.h"
#include "nordalib/core/utils/FileUtils.h"

namespace nordacam {

using namespace norda::exp;
using namespace norda::exp::streaming;

OverlayFrameTap::OverlayFrameTap(OverlayPublisher& publisher)
    : StreamingElement({STREAMING_DATATYPE_RGB}, {}, "OverlayFrameTap", nullptr, false, 0),
      m_publisher(publisher) {}

bool OverlayFrameTap::process(FrameMap& inputs, FrameMap& /*outputs*/) {
    const auto& frame = inputs[STREAMING_DATATYPE_RGB];
    if (!frame || frame->getFrameData().empty())
        return false;
    if (!frame->isMetaDateAvailable(Id::Images::DateTime))
        frame->getMetaData().setValue(Id::Images::DateTime, norda::utils::getSystemDateTime());
    m_publisher.frameShown(frame->getMetaData(), frame->getFrameData().size());
    return false;
}

} // namespace nordacam
