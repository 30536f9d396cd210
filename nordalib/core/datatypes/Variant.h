#pragma once
// Variant: a type-erased value that knows its held type. Variant_<T> holds one T (or const T).
//
// Every value of the parameter store, of frame metadata and of command arguments travels as a
// std::shared_ptr<Variant>. Reading is exact: value<T>() succeeds only when T is the held type
// (a const-held value is accepted for its non-const type); convert<T>() performs arithmetic
// conversions. Types with a Serializer (core/memory/Memory.h) can be written to binary and text.

#include "nordalib/core/datatypes/TypeName.h"
#include "nordalib/core/exception/Exception.h"
#include "nordalib/core/memory/Memory.h"

#include <memory>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace norda::exp {

class Variant {
public:
    virtual ~Variant() = default;

    // The held type without const.
    virtual const std::type_info& type() const noexcept = 0;
    virtual bool isConst() const noexcept = 0;
    std::string typeName() const { return (isConst() ? "const " : "") + exp::typeName(type()); }

    template <typename T> bool holds() const noexcept { return type() == typeid(std::remove_cv_t<T>); }

    // Exact-type read; throws "Variant-type (<held>)!= Template-type (<T>)".
    template <typename T> const T& value() const {
        using U = std::remove_cv_t<T>;
        if (type() != typeid(U))
            throwTypeMismatch(exp::typeName<T>());
        return *static_cast<const U*>(caddress_imp());
    }
    // Mutable access; refused for const-held data.
    template <typename T> T& valueRef() {
        using U = std::remove_cv_t<T>;
        if (type() != typeid(U))
            throwTypeMismatch(exp::typeName<T>());
        return *static_cast<U*>(address());
    }

    // Arithmetic conversion (bool, integers, floating point) or an exact-type copy; anything else
    // throws "<held> is not convertible to<T>".
    template <typename T> T convert() const {
        if (type() == typeid(T))
            return value<T>();
        if constexpr (std::is_arithmetic_v<T>) {
            long double v = 0;
            if (arithmeticValue(v))
                return std::is_same_v<T, bool> ? static_cast<T>(v != 0) : static_cast<T>(v);
        }
        throwNotConvertible(exp::typeName<T>());
    }

    bool operator==(const Variant& other) const { return equal_imp(other); }
    bool operator!=(const Variant& other) const { return !equal_imp(other); }

    void serialize(MemoryBinary& out, Endianness e = Endianness::no_swap) const { serialize_imp(out, e); }
    std::string toString() const { return toString_imp(); }
    size_t sizeofT() const { return sizeofT_imp(); }
    // A new variant holding a copy of the value.
    std::shared_ptr<Variant> clone() const { return clone_imp(); }
    // A new variant that takes over the value; this one is left holding a moved-from value.
    std::shared_ptr<Variant> move() { return moveImpl(); }
    void* address() { return address_imp(); }
    const void* address() const { return caddress_imp(); }

    // The Serializer tag of the held type ("" when the type cannot be stored).
    virtual std::string typeTag() const = 0;

protected:
    virtual bool equal_imp(const Variant& other) const = 0;
    virtual void serialize_imp(MemoryBinary& out, Endianness e) const = 0;
    virtual std::string toString_imp() const = 0;
    virtual size_t sizeofT_imp() const = 0;
    virtual std::shared_ptr<Variant> clone_imp() const = 0;
    virtual std::shared_ptr<Variant> moveImpl() = 0;
    virtual void* address_imp() = 0;
    virtual const void* caddress_imp() const noexcept = 0;
    // Value as long double when the held type is arithmetic.
    virtual bool arithmeticValue(long double& out) const noexcept = 0;

    [[noreturn]] void throwTypeMismatch(const std::string& requested) const;
    [[noreturn]] void throwNotConvertible(const std::string& requested) const;
};

template <typename T> class Variant_ final : public Variant {
public:
    using value_type = std::remove_const_t<T>;

    template <typename U = value_type, typename = std::enable_if_t<std::is_copy_constructible_v<U>>>
    explicit Variant_(const value_type& v) : m_value(v) {}
    template <typename U = value_type, typename = std::enable_if_t<std::is_move_constructible_v<U>>>
    explicit Variant_(value_type&& v) : m_value(std::move(v)) {}
    template <typename... Args>
    explicit Variant_(std::in_place_t, Args&&... args) : m_value(std::forward<Args>(args)...) {}

    const std::type_info& type() const noexcept override { return typeid(value_type); }
    bool isConst() const noexcept override { return std::is_const_v<T>; }
    const value_type& get() const noexcept { return m_value; }

    std::string typeTag() const override {
        if constexpr (isSerializable<value_type>)
            return Serializer<value_type>::tag();
        else
            return {};
    }

protected:
    bool equal_imp(const Variant& other) const override {
        if constexpr (std::is_same_v<value_type, cv::Mat>) {
            if (other.type() != type())
                return false;
            const cv::Mat& a = m_value;
            const cv::Mat& b = *static_cast<const cv::Mat*>(other.address());
            if (a.size != b.size || a.type() != b.type())
                return false;
            if (a.empty())
                return true;
            return cv::norm(a.reshape(1), b.reshape(1), cv::NORM_INF) == 0;
        } else if constexpr (std::equality_comparable<value_type>) {
            if (other.type() != type())
                return false;
            return m_value == *static_cast<const value_type*>(other.address());
        } else {
            NORDA_THROW("no comparison operator available for type:" + typeName(),
                        "norda::exp::Variant_<T>::equal_imp");
        }
    }
    void serialize_imp(MemoryBinary& out, Endianness e) const override {
        if constexpr (isSerializable<value_type>)
            Serializer<value_type>::write(out, m_value, e);
        else
            NORDA_THROW("type '" + typeName() + "' can not be serialized",
                        "norda::exp::Variant_<T>::serialize_imp");
    }
    std::string toString_imp() const override { return intern::toStringTimpl(m_value); }
    size_t sizeofT_imp() const override {
        if constexpr (std::is_trivially_copyable_v<value_type>)
            return sizeof(value_type);
        else
            NORDA_THROW("sizeT not available for this type:" + typeName(),
                        "norda::exp::Variant_<T>::sizeofT_imp");
    }
    std::shared_ptr<Variant> clone_imp() const override {
        if constexpr (std::is_copy_constructible_v<value_type>)
            return std::make_shared<Variant_<T>>(m_value);
        else
            NORDA_THROW("type '" + typeName() + "' can not be copied", "norda::exp::Variant_<T>::clone_imp");
    }
    std::shared_ptr<Variant> moveImpl() override {
        if constexpr (std::is_const_v<T>)
            NORDA_THROW("A variant holding const data can not be moved!",
                        "norda::exp::Variant_<const T>::moveImpl");
        else if constexpr (std::is_move_constructible_v<value_type>)
            return std::make_shared<Variant_<T>>(std::move(m_value));
        else
            NORDA_THROW("type '" + typeName() + "' can not be moved", "norda::exp::Variant_<T>::moveImpl");
    }
    void* address_imp() override {
        if constexpr (std::is_const_v<T>)
            NORDA_THROW("Can't get void* address pointer from const data!",
                        "norda::exp::Variant_<const T>::address_imp");
        else
            return &m_value;
    }
    const void* caddress_imp() const noexcept override { return &m_value; }
    bool arithmeticValue(long double& out) const noexcept override {
        if constexpr (std::is_arithmetic_v<value_type>) {
            out = static_cast<long double>(m_value);
            return true;
        } else {
            return false;
        }
    }

private:
    T m_value;
};

// Shorthand: std::make_shared<Variant_<T>>(value) with T deduced.
template <typename T> std::shared_ptr<Variant> makeVariant(T&& value) {
    using U = std::decay_t<T>;
    return std::make_shared<Variant_<U>>(std::forward<T>(value));
}

// Shorthand for string literals.
inline std::shared_ptr<Variant> makeVariant(const char* value) {
    return std::make_shared<Variant_<std::string>>(std::string(value));
}

} // namespace norda::exp
