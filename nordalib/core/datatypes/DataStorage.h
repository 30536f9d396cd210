#pragma once
// DataStorage<K>: metadata of a frame, and generally a small ordered map from key to Variant.
//
// Keys are normally stored flat ("Shutter.State"). A key may also address a nested storage: when
// the full key is not present, the lookup splits it with discriminate() and descends into the
// group's entry, which must itself hold a DataStorage. Copies share the Variants (values are
// replaced, not modified, by convention).

#include "nordalib/core/datatypes/Discriminate.h"
#include "nordalib/core/datatypes/Variant.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace norda::exp {

class DataStorageBase {
public:
    virtual ~DataStorageBase() = default;
    virtual size_t size() const = 0;
    virtual std::vector<std::string> keyList() const = 0;
    virtual std::shared_ptr<Variant> variantAt(const std::string& key) const = 0;
};

template <typename K> class DataStorage : public DataStorageBase {
public:
    using Map = std::map<K, std::shared_ptr<Variant>>;

    DataStorage() = default;
    DataStorage(const DataStorage&) = default;
    DataStorage& operator=(const DataStorage&) = default;
    DataStorage(DataStorage&& o) noexcept : m_map(std::move(o.m_map)) { o.m_map.clear(); }
    DataStorage& operator=(DataStorage&& o) noexcept {
        if (this != &o) {
            m_map = std::move(o.m_map);
            o.m_map.clear();
        }
        return *this;
    }

    // Typed read by exact type: "Could not find parameter <key>" or "type does not match: a != b".
    template <typename T> T get(const K& key) const {
        auto v = lookup(key);
        if (!v)
            fail("Could not find parameter " + key);
        if (v->type() != typeid(T))
            fail("type does not match: " + v->typeName() + " != " + typeName(typeid(T)));
        return v->template value<T>();
    }
    // The stored Variant, or nullptr when absent.
    std::shared_ptr<Variant> getVariant(const K& key) const { return lookup(key); }
    bool contains(const K& key) const { return lookup(key) != nullptr; }

    void set(const K& key, std::shared_ptr<Variant> value) { m_map[key] = std::move(value); }
    template <typename T> void setValue(const K& key, T value) {
        m_map[key] = std::make_shared<Variant_<std::decay_t<T>>>(std::move(value));
    }
    bool remove(const K& key) { return m_map.erase(key) > 0; }
    void clear() { m_map.clear(); }

    size_t size() const override { return m_map.size(); }
    bool empty() const { return m_map.empty(); }
    std::vector<std::string> keyList() const override {
        std::vector<std::string> keys;
        keys.reserve(m_map.size());
        for (const auto& [k, v] : m_map)
            keys.push_back(k);
        return keys;
    }
    std::shared_ptr<Variant> variantAt(const std::string& key) const override { return lookup(key); }
    typename Map::const_iterator begin() const { return m_map.begin(); }
    typename Map::const_iterator end() const { return m_map.end(); }
    const Map& map() const { return m_map; }

    bool operator==(const DataStorage& o) const {
        if (m_map.size() != o.m_map.size())
            return false;
        for (auto a = m_map.begin(), b = o.m_map.begin(); a != m_map.end(); ++a, ++b) {
            if (a->first != b->first || !a->second != !b->second)
                return false;
            if (a->second && !(*a->second == *b->second))
                return false;
        }
        return true;
    }

private:
    std::shared_ptr<Variant> lookup(const K& key) const {
        auto it = m_map.find(key);
        if (it != m_map.end())
            return it->second;
        auto gi = discriminate(key);
        if (gi.group.empty())
            return nullptr;
        auto g = m_map.find(gi.group);
        if (g == m_map.end() || !g->second)
            return nullptr;
        if (g->second->type() != typeid(DataStorage<K>))
            fail("not a valid storage type: " + gi.group + "\ntype: " + g->second->typeName() +
                 "\nexpected type: " + typeName(typeid(DataStorage<K>)));
        return g->second->template value<DataStorage<K>>().lookup(gi.item);
    }

    [[noreturn]] static void fail(const std::string& message) {
        throw Exception(message,
                        formatLocation("nordalib/core/datatypes/DataStorage", __LINE__,
                                       "norda::exp::DataStorage<class std::basic_string<char,struct "
                                       "std::char_traits<char>,class std::allocator<char> > >::get"));
    }

    Map m_map;
};

template <> struct Serializer<DataStorage<std::string>> {
    static constexpr bool available = true;
    static std::string tag() { return "DataStorage"; }
    // Every value must be of a registered type; anything else throws naming the key.
    static void write(MemoryBinary& m, const DataStorage<std::string>& v, Endianness e);
    static DataStorage<std::string> read(MemoryBinary& m, Endianness e);
    static std::string toText(const DataStorage<std::string>& v);
    static DataStorage<std::string> fromText(const std::string& s);
};

} // namespace norda::exp
