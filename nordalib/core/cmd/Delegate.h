#pragma once
// IDelegate: one command handler. Delegate<R, Args...>: a typed handler bound to a std::function.
//
// check() demands exactly as many arguments as parameters and the exact held type for each
// (no conversion: an int does not satisfy an unsigned short). call() unpacks each argument with
// Variant::value, so a mismatch throws "Variant-type (...)!= Template-type (...)", and wraps a
// result into a new Variant_<R> (nullptr for void handlers).

#include "nordalib/core/cmd/ParameterPack.h"

#include <functional>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

namespace norda::exp::cmd {

class IDelegate {
public:
    virtual ~IDelegate() = default;
    virtual bool check(const ParameterPack& parameters) const = 0;
    virtual std::shared_ptr<Variant> call(const ParameterPack& parameters) = 0;
    virtual bool hasReturnValue() const = 0;
    virtual size_t getNumberOfParameter() const = 0;
};

template <typename R, typename... Args> class Delegate : public IDelegate {
public:
    explicit Delegate(std::function<R(Args...)> function) : m_function(std::move(function)) {}

    bool check(const ParameterPack& parameters) const override {
        if (parameters.size() != sizeof...(Args))
            return false;
        return checkTypes(parameters, std::index_sequence_for<Args...>{});
    }
    std::shared_ptr<Variant> call(const ParameterPack& parameters) override {
        return invoke(parameters, std::index_sequence_for<Args...>{});
    }
    bool hasReturnValue() const override { return !std::is_void_v<R>; }
    size_t getNumberOfParameter() const override { return sizeof...(Args); }

private:
    template <size_t... I>
    static bool checkTypes([[maybe_unused]] const ParameterPack& p, std::index_sequence<I...>) {
        return ((p[I] && p[I]->type() == typeid(std::decay_t<Args>)) && ...);
    }
    template <size_t... I>
    std::shared_ptr<Variant> invoke([[maybe_unused]] const ParameterPack& p, std::index_sequence<I...>) {
        if constexpr (std::is_void_v<R>) {
            m_function(p[I]->template value<std::decay_t<Args>>()...);
            return nullptr;
        } else {
            return std::make_shared<Variant_<R>>(m_function(p[I]->template value<std::decay_t<Args>>()...));
        }
    }

    std::function<R(Args...)> m_function;
};

} // namespace norda::exp::cmd
