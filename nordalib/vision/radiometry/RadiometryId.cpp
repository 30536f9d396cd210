#include "nordalib/vision/radiometry/RadiometryId.h"

namespace norda::vision {

std::string RadiometryId::name(unsigned id) {
    static const char* const names[Count] = {
        "Emis",         "Treflected", "TboardCurrent", "TboardShuttering", "TShutterShuttering",
        "MeasRange",    "UpTime",     "TBoardSlope",   "LensIndex",        "LensSerial",
        "TlensCurrent", "TauPg",      "EmisPg",        "SlowFrameActive"};
    return id < Count ? names[id] : "id " + std::to_string(id);
}

} // namespace norda::vision
