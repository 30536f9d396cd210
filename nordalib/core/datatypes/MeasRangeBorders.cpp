#include "nordalib/core/datatypes/MeasRangeBorders.h"

namespace norda::exp {

std::string Serializer<MeasRangeBorders>::toText(const MeasRangeBorders& v) {
    std::string out;
    for (const MarkedFloat* f : {&v.toleranceTop, &v.toleranceBottom, &v.displayTop, &v.displayBottom}) {
        if (!out.empty())
            out += ',';
        out += MemoryAcsii::escape(Serializer<MarkedFloat>::toText(*f));
    }
    return out;
}

MeasRangeBorders Serializer<MeasRangeBorders>::fromText(const std::string& s) {
    auto parts = MemoryAcsii::splitEscaped(s);
    if (parts.size() != 4)
        NORDA_THROW("not a MeasRangeBorders: \"" + s + "\"", "norda::exp::intern::fromStringTimpl");
    MeasRangeBorders v;
    MarkedFloat* fields[] = {&v.toleranceTop, &v.toleranceBottom, &v.displayTop, &v.displayBottom};
    for (size_t i = 0; i < 4; ++i)
        *fields[i] = Serializer<MarkedFloat>::fromText(MemoryAcsii::unescape(parts[i]));
    return v;
}

} // namespace norda::exp
