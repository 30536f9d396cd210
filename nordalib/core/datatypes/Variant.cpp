#include "nordalib/core/datatypes/Variant.h"

namespace norda::exp {

void Variant::throwTypeMismatch(const std::string& requested) const {
    throw Exception(
        std::string("Variant-type (") + typeName() + ")" + "!= Template-type (" + requested + ")",
        formatLocation("nordalib/core/datatypes/Variant", __LINE__, "norda::exp::Variant::value"));
}

void Variant::throwNotConvertible(const std::string& requested) const {
    throw Exception(
        typeName() + " is not convertible to" + requested,
        formatLocation("nordalib/core/datatypes/Variant", __LINE__, "norda::exp::Variant_<T>::convert"));
}

} // namespace norda::exp
