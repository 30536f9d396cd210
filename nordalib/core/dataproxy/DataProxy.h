#pragma once
// DataProxy<K>: the shared parameter store.
//
// Keys are hierarchical ("Shutter.State"): the part before the first dot names a group, itself a
// DataProxy held in a Variant; setting a key inside a group that does not exist creates it.
// Values are std::shared_ptr<Variant>; set() replaces the value and, with notify, posts the new
// value to the key's observers, which run on the store's notifier thread (SingleTaskUpdatePolicy),
// never on the setter's. flush() waits for everything posted so far.
//
// Failures (norda::Exception): "value: <key> could not be found!" (get of a missing key),
// "Group <g> is not a valid proxy" (a group part names a plain value), "could not find element"
// (subscribe to a missing key).

#include "nordalib/core/dataproxy/CachedDataElement.h"
#include "nordalib/core/dataproxy/Dispatcher.h"
#include "nordalib/core/dataproxy/Observer.h"
#include "nordalib/core/dataproxy/SingleTaskUpdatePolicy.h"
#include "nordalib/core/datatypes/Discriminate.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace norda::exp {

template <typename K> class DataProxy {
public:
    using Entry = CachedDataElement<K, SingleTaskUpdatePolicy>;

    DataProxy();
    // A group inside another store shares that store's notifier.
    explicit DataProxy(std::shared_ptr<SingleTaskUpdatePolicy> policy);
    ~DataProxy();
    DataProxy(const DataProxy&) = delete;
    DataProxy& operator=(const DataProxy&) = delete;

    void set(const K& key, const Variant& value, bool notify);
    void set(const K& key, std::shared_ptr<Variant> value, bool notify);
    template <typename T> void setValue(const K& key, T value, bool notify = true) {
        set(key, std::make_shared<Variant_<std::decay_t<T>>>(std::move(value)), notify);
    }

    std::shared_ptr<Variant> get(const K& key) const;
    template <typename T> T getValue(const K& key) const { return get(key)->template value<T>(); }
    bool contains(const K& key) const;
    // Removes a key or a whole group; observers of removed keys are no longer called.
    bool remove(const K& key);

    Subscription subscribe(const K& key, Observer observer);
    template <typename T> Subscription subscribeValue(const K& key, std::function<void(const T&)> callback) {
        return subscribe(key, FunctorFactory::createTypedTransmitter<T>(std::move(callback)));
    }

    // Throws (message: the qualified function name) when the prefix already has a dispatcher.
    void registerDispatcher(const K& prefix, std::shared_ptr<Dispatcher<K>> dispatcher);

    void flush() { m_policy->flush(); }
    const std::shared_ptr<SingleTaskUpdatePolicy>& policy() const { return m_policy; }

    // Every key holding a value, with full group paths, sorted.
    std::vector<K> keys() const;

private:
    struct Located;
    // Finds the entry of `key`, descending into groups; with `create`, missing groups and the
    // entry itself are created. Returns nullptr when absent and not created.
    std::shared_ptr<Entry> locate(const K& key, bool create, std::shared_ptr<Variant>* keepAlive) const;
    std::shared_ptr<Entry> localEntry(const K& item, bool create) const;
    void collectKeys(const K& prefix, std::vector<K>& out) const;

    std::shared_ptr<SingleTaskUpdatePolicy> m_policy;
    mutable std::mutex m_mutex;
    mutable std::unordered_map<K, std::shared_ptr<Entry>> m_table;
    std::map<K, std::shared_ptr<Dispatcher<K>>> m_dispatchers;
};

extern template class DataProxy<std::string>;

} // namespace norda::exp
