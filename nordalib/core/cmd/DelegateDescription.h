#pragma once
// Descriptions of commands and their parameters, for help texts and remote clients.

#include <set>
#include <string>
#include <typeindex>
#include <typeinfo>

namespace norda::exp::cmd {

class PackParameterDescription {
public:
    PackParameterDescription(unsigned int index, const std::type_info& type, const std::string& name,
                             const std::string& description)
        : m_index(index), m_type(type), m_name(name), m_description(description) {}

    unsigned int getIndex() const { return m_index; }
    std::type_index getType() const { return m_type; }
    const std::string& getName() const { return m_name; }
    const std::string& getDescription() const { return m_description; }

    // Ordered by index, then name: two descriptions that share an index are both kept.
    bool operator<(const PackParameterDescription& o) const {
        return m_index != o.m_index ? m_index < o.m_index : m_name < o.m_name;
    }

private:
    unsigned int m_index;
    std::type_index m_type;
    std::string m_name;
    std::string m_description;
};

class DelegateDescription {
public:
    DelegateDescription(const std::string& name, const std::type_info& returnType,
                        const std::string& description, const std::set<PackParameterDescription>& parameters)
        : m_name(name), m_returnType(returnType), m_description(description), m_parameters(parameters) {}

    const std::string& getName() const { return m_name; }
    std::type_index getReturnType() const { return m_returnType; }
    const std::string& getDescription() const { return m_description; }
    const std::set<PackParameterDescription>& getParameters() const { return m_parameters; }

private:
    std::string m_name;
    std::type_index m_returnType;
    std::string m_description;
    std::set<PackParameterDescription> m_parameters;
};

} // namespace norda::exp::cmd
