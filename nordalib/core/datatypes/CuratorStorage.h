#pragma once
// CuratorStorage: parameters keyed by numeric ID, each kept by a Curator that may carry a
// generator (computes the value on read), a range validator (guards writes) and the file the
// value came from. Radiometric models keep their measurement conditions here; the offset element
// keeps its calibration files here.

#include "nordalib/core/datatypes/Variant.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace norda::exp {

struct Curator {
    std::shared_ptr<Variant> value;
    std::function<std::shared_ptr<Variant>()> generator;
    std::function<bool(const std::shared_ptr<Variant>&)> validator;
    std::string sourceFile;
};

class CuratorStorage {
public:
    // "Try to add already existing Curator! ID =<id>" when the ID is taken.
    void addCurator(unsigned int id, std::shared_ptr<Variant> initial = nullptr);
    bool contains(unsigned int id) const;

    // The value (from the generator when one is set), exact type required.
    template <typename T> T get(unsigned int id) const {
        auto v = getVariant(id);
        if (!v || v->type() != typeid(T))
            fail("Requested data type does not match (data type:" +
                     (v ? v->typeName() : std::string("empty")) + "!= template type:" + typeName(typeid(T)),
                 "norda::exp::CuratorStorage::get");
        return v->template value<T>();
    }
    std::shared_ptr<Variant> getVariant(unsigned int id) const;

    // Replaces the value; a validator that rejects it makes this throw and keeps the old value.
    void set(unsigned int id, const std::shared_ptr<Variant>& value);

    template <typename T> void setRangeValidator(unsigned int id, std::function<bool(const T&)> validator) {
        std::lock_guard<std::mutex> lock(m_mutex);
        Curator& c = find(id);
        if (c.value && c.value->type() != typeid(T))
            fail(std::string("Data type does not match!") + "Validator type:" + typeName(typeid(T)) +
                     "!= Curator type:" + c.value->typeName(),
                 "norda::exp::CuratorStorage::setRangeValidator");
        c.validator = [validator](const std::shared_ptr<Variant>& v) {
            return v && v->type() == typeid(T) && validator(v->template value<T>());
        };
    }
    void setGenerator(unsigned int id, std::function<std::shared_ptr<Variant>()> generator);
    void setSourceFile(unsigned int id, const std::string& path);
    std::string getSourceFile(unsigned int id) const;

private:
    Curator& find(unsigned int id);
    const Curator& find(unsigned int id) const;
    [[noreturn]] static void fail(const std::string& message, const char* function);

    mutable std::mutex m_mutex;
    std::map<unsigned int, Curator> m_curators;
};

} // namespace norda::exp
