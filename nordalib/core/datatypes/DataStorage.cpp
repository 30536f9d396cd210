#include "nordalib/core/datatypes/DataStorage.h"

#include "nordalib/core/datatypes/VariantRegistry.h"

namespace norda::exp {

void Serializer<DataStorage<std::string>>::write(MemoryBinary& m, const DataStorage<std::string>& v,
                                                 Endianness e) {
    m.writeScalar<uint32_t>(static_cast<uint32_t>(v.size()), e);
    for (const auto& [key, value] : v) {
        if (!value || value->typeTag().empty())
            NORDA_THROW("metadata " + key + " of type '" +
                            (value ? value->typeName() : std::string("empty")) + "' can not be serialized",
                        "norda::exp::Memory::serializeT");
        m.writeString(key, e);
        writeVariant(m, *value, e);
    }
}

DataStorage<std::string> Serializer<DataStorage<std::string>>::read(MemoryBinary& m, Endianness e) {
    DataStorage<std::string> out;
    auto n = m.readCount(8, e);
    for (uint32_t i = 0; i < n; ++i) {
        auto key = m.readString(e);
        auto value = readVariant(m, e);
        if (value)
            out.set(key, value);
    }
    return out;
}

std::string Serializer<DataStorage<std::string>>::toText(const DataStorage<std::string>& v) {
    MemoryBinary m;
    write(m, v, Endianness::no_swap);
    return MemoryAcsii::toBase64(m.data().data(), m.size());
}

DataStorage<std::string> Serializer<DataStorage<std::string>>::fromText(const std::string& s) {
    MemoryBinary m(MemoryAcsii::fromBase64(s));
    return read(m, Endianness::no_swap);
}

} // namespace norda::exp
