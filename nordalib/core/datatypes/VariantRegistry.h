#pragma once
// Decoding of stored values back into Variants of the type they were written from.
//
// A stored value carries its Serializer tag ("f32", "string", "Temperature", ...). The registry
// maps tags back to types: the framework's types are registered when the registry is first used
// (VariantRegistry.cpp); the vision libraries register theirs with add<T>() when the library is
// loaded (vision/imgproc/ImgprocTypes.cpp).

#include "nordalib/core/datatypes/Variant.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace norda::exp {

class VariantRegistry {
public:
    static VariantRegistry& instance();

    template <typename T> void add() {
        Codec c;
        c.fromBinary = [](MemoryBinary& m, Endianness e) -> std::shared_ptr<Variant> {
            return std::make_shared<Variant_<T>>(Serializer<T>::read(m, e));
        };
        c.fromText = [](const std::string& s) -> std::shared_ptr<Variant> {
            return std::make_shared<Variant_<T>>(Serializer<T>::fromText(s));
        };
        std::lock_guard<std::mutex> lock(m_mutex);
        m_codecs[Serializer<T>::tag()] = std::move(c);
    }

    bool knows(const std::string& tag) const;
    // Throw "unknown type tag" for tags nobody registered.
    std::shared_ptr<Variant> fromBinary(const std::string& tag, MemoryBinary& m, Endianness e) const;
    std::shared_ptr<Variant> fromText(const std::string& tag, const std::string& text) const;

private:
    VariantRegistry();
    struct Codec {
        std::function<std::shared_ptr<Variant>(MemoryBinary&, Endianness)> fromBinary;
        std::function<std::shared_ptr<Variant>(const std::string&)> fromText;
    };
    const Codec& codec(const std::string& tag) const;
    mutable std::mutex m_mutex;
    std::map<std::string, Codec> m_codecs;
};

// A self-describing value: tag, payload length (u32), payload. Values of unknown tags are skipped
// on reading (nullptr is returned), so newer files stay readable by older readers.
void writeVariant(MemoryBinary& m, const Variant& value, Endianness e = Endianness::no_swap);
std::shared_ptr<Variant> readVariant(MemoryBinary& m, Endianness e = Endianness::no_swap);

} // namespace norda::exp
