#pragma once
// Keys of frame metadata that no element keeps in the parameter store.

#include <string>

namespace norda::exp::Id::Images {

// unsigned long long, milliseconds since 1970-01-01 UTC: when the frame was taken. A saved image
// carries it as its date and time, and the overlay of its picture shows it.
inline const std::string DateTime = "Images.DateTime";

} // namespace norda::exp::Id::Images
