#pragma once
// Frame slots: the key under which a frame travels through one pipeline cycle, and the frame map.

#include "nordalib/core/datatypes/Frame.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace norda::exp::streaming {

enum STREAMING_DATATYPE : int32_t {
    STREAMING_DATATYPE_RAW = 0,          // raw detector frame, CV_16UC1
    STREAMING_DATATYPE_CORRECTED = 2,    // offset-corrected frame, CV_16SC1
    STREAMING_DATATYPE_RAD = 3,          // radiometric frame, CV_16UC1
    STREAMING_DATATYPE_RAD_CONST = 4,    // radiometric frame after measurement, CV_16UC1
    STREAMING_DATATYPE_RGB = 5,          // display image, CV_8UC3
    STREAMING_DATATYPE_YUV422 = 6,       // visual frame, UYVY, CV_8UC2
    STREAMING_DATATYPE_YUV422_HIRES = 7, // full-resolution visual frame, UYVY, CV_8UC2
};

using FrameMap = std::map<STREAMING_DATATYPE, std::unique_ptr<Frame>>;

// "STREAMING_DATATYPE_RAW", ... ("STREAMING_DATATYPE_<n>" for values without a name).
std::string toString(STREAMING_DATATYPE slot);

} // namespace norda::exp::streaming
