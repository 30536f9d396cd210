#pragma once
// ParameterPack: the ordered argument list of a command.

#include "nordalib/core/datatypes/Variant.h"

#include <initializer_list>
#include <memory>
#include <vector>

namespace norda::exp::cmd {

class ParameterPack {
public:
    ParameterPack() = default;
    ParameterPack(std::initializer_list<std::shared_ptr<Variant>> args) : m_args(args) {}

    void add(std::shared_ptr<Variant> arg) { m_args.push_back(std::move(arg)); }
    template <typename T> void addValue(T value) {
        add(std::make_shared<Variant_<std::decay_t<T>>>(std::move(value)));
    }
    size_t size() const { return m_args.size(); }
    bool empty() const { return m_args.empty(); }
    const std::shared_ptr<Variant>& operator[](size_t i) const { return m_args.at(i); }

private:
    std::vector<std::shared_ptr<Variant>> m_args;
};

} // namespace norda::exp::cmd
