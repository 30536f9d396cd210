#include "nordalib/core/datatypes/CuratorStorage.h"

namespace norda::exp {

void CuratorStorage::fail(const std::string& message, const char* function) {
    throw Exception(message, formatLocation("nordalib/core/datatypes/CuratorStorage", __LINE__, function));
}

Curator& CuratorStorage::find(unsigned int id) {
    auto it = m_curators.find(id);
    if (it == m_curators.end())
        fail("Curator ID =" + std::to_string(id) + " not found", "norda::exp::CuratorStorage::find");
    return it->second;
}

const Curator& CuratorStorage::find(unsigned int id) const {
    return const_cast<CuratorStorage*>(this)->find(id);
}

void CuratorStorage::addCurator(unsigned int id, std::shared_ptr<Variant> initial) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_curators.count(id))
        fail("Try to add already existing Curator! ID =" + std::to_string(id),
             "norda::exp::CuratorStorage::addCurator");
    m_curators[id].value = std::move(initial);
}

bool CuratorStorage::contains(unsigned int id) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_curators.count(id) > 0;
}

std::shared_ptr<Variant> CuratorStorage::getVariant(unsigned int id) const {
    std::function<std::shared_ptr<Variant>()> generator;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        const Curator& c = find(id);
        if (!c.generator)
            return c.value;
        generator = c.generator;
    }
    return generator(); // outside the lock: a generator may read other curators
}

void CuratorStorage::set(unsigned int id, const std::shared_ptr<Variant>& value) {
    std::lock_guard<std::mutex> lock(m_mutex);
    Curator& c = find(id);
    if (c.validator && !c.validator(value))
        fail("Value " + (value ? value->typeName() : std::string("empty")) +
                 " rejected by the range validator of Curator ID =" + std::to_string(id),
             "norda::exp::CuratorStorage::set");
    c.value = value;
}

void CuratorStorage::setGenerator(unsigned int id, std::function<std::shared_ptr<Variant>()> generator) {
    std::lock_guard<std::mutex> lock(m_mutex);
    find(id).generator = std::move(generator);
}

void CuratorStorage::setSourceFile(unsigned int id, const std::string& path) {
    std::lock_guard<std::mutex> lock(m_mutex);
    find(id).sourceFile = path;
}

std::string CuratorStorage::getSourceFile(unsigned int id) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return find(id).sourceFile;
}

} // namespace norda::exp
