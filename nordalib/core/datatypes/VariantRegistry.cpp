#include "nordalib/core/datatypes/VariantRegistry.h"

#include "nordalib/core/datatypes/DataStorage.h"
#include "nordalib/core/datatypes/MeasArea.h"
#include "nordalib/core/datatypes/MeasPoint.h"
#include "nordalib/core/datatypes/MeasRangeBorders.h"
#include "nordalib/core/datatypes/Quantity.h"
#include "nordalib/core/datatypes/Version.h"

namespace norda::exp {

VariantRegistry::VariantRegistry() {
    add<bool>();
    add<char>();
    add<signed char>();
    add<unsigned char>();
    add<short>();
    add<unsigned short>();
    add<int>();
    add<unsigned int>();
    add<long>();
    add<unsigned long>();
    add<long long>();
    add<unsigned long long>();
    add<float>();
    add<double>();
    add<std::string>();
    add<std::vector<std::string>>();
    add<std::vector<char>>();
    add<std::vector<unsigned char>>();
    add<std::vector<unsigned short>>();
    add<std::vector<int>>();
    add<std::vector<float>>();
    add<std::vector<double>>();
    add<cv::Mat>();
    add<cv::Point_<int>>();
    add<cv::Rect_<int>>();
    add<MarkedFloat>();
    add<quantity::Temperature<MarkedFloat>>();
    add<quantity::Relation<MarkedFloat>>();
    add<MeasPoint>();
    add<MeasArea>();
    add<MeasRangeBorders>();
    add<Version>();
    add<DataStorage<std::string>>();
}

VariantRegistry& VariantRegistry::instance() {
    static VariantRegistry registry;
    return registry;
}

bool VariantRegistry::knows(const std::string& tag) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_codecs.count(tag) > 0;
}

const VariantRegistry::Codec& VariantRegistry::codec(const std::string& tag) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_codecs.find(tag);
    if (it == m_codecs.end())
        NORDA_THROW("unknown type tag '" + tag + "'", "norda::exp::VariantRegistry::codec");
    return it->second; // entries are never removed
}

std::shared_ptr<Variant> VariantRegistry::fromBinary(const std::string& tag, MemoryBinary& m,
                                                     Endianness e) const {
    return codec(tag).fromBinary(m, e);
}

std::shared_ptr<Variant> VariantRegistry::fromText(const std::string& tag, const std::string& text) const {
    return codec(tag).fromText(text);
}

namespace {
// Nesting guard: stored values may contain storages that contain values ...; damaged or hostile
// input must not be able to recurse the reader off its stack.
thread_local int t_depth = 0;
constexpr int kMaxDepth = 32;
struct DepthGuard {
    DepthGuard() {
        if (++t_depth > kMaxDepth) {
            --t_depth;
            NORDA_THROW("stored values nested deeper than " + std::to_string(kMaxDepth),
                        "norda::exp::readVariant");
        }
    }
    ~DepthGuard() { --t_depth; }
};
} // namespace

void writeVariant(MemoryBinary& m, const Variant& value, Endianness e) {
    auto tag = value.typeTag();
    if (tag.empty())
        NORDA_THROW("type '" + value.typeName() + "' can not be serialized", "norda::exp::writeVariant");
    MemoryBinary payload;
    value.serialize(payload, e);
    m.writeString(tag, e);
    m.writeScalar<uint32_t>(static_cast<uint32_t>(payload.size()), e);
    m.write(payload.data().data(), payload.size());
}

std::shared_ptr<Variant> readVariant(MemoryBinary& m, Endianness e) {
    DepthGuard guard;
    auto tag = m.readString(e);
    auto length = m.readCount(1, e);
    auto& registry = VariantRegistry::instance();
    if (!registry.knows(tag)) {
        m.skip(length);
        return nullptr;
    }
    MemoryBinary payload(m.data().data() + m.readPosition(), length);
    m.skip(length);
    auto value = registry.fromBinary(tag, payload, e);
    if (payload.remaining() != 0)
        NORDA_THROW("stored value of type '" + tag + "' has " + std::to_string(payload.remaining()) +
                        " unexpected trailing bytes",
                    "norda::exp::readVariant");
    return value;
}

} // namespace norda::exp
