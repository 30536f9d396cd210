#include "nordalib/core/datatypes/Frame.h"

#include <iostream>

namespace norda::exp {

Frame::Frame(const cv::Mat& data) : m_data(data) {}

Frame::Frame(const cv::Mat& data, DataStorage<std::string>&& metaData)
    : m_data(data), m_metaData(std::move(metaData)) {}

Frame::~Frame() = default;

DataStorage<std::string> Frame::releaseMetaData() {
    DataStorage<std::string> out(std::move(m_metaData));
    m_metaData.clear();
    return out;
}

bool Frame::isMetaDateAvailable(const std::string& key) const {
    return m_metaData.contains(key);
}

bool Frame::getMetaDate(const std::string& key, std::shared_ptr<Variant>& value) const {
    auto v = m_metaData.getVariant(key);
    if (!v)
        return false;
    value = std::move(v);
    return true;
}

void Frame::addMetaDate(const std::string& key, std::shared_ptr<Variant> value) {
    if (m_metaData.contains(key)) {
        std::cout << "Warning: MetaData already available: " << key << std::endl;
        return;
    }
    m_metaData.set(key, std::move(value));
}

bool Frame::removeMetaDate(const std::string& key) {
    return m_metaData.remove(key);
}

void Frame::replaceMetaDate(const std::string& key, std::shared_ptr<Variant> value) {
    m_metaData.remove(key);
    m_metaData.set(key, std::move(value));
}

std::unique_ptr<Frame> Frame::clone() const {
    auto meta = m_metaData;
    return std::make_unique<Frame>(m_data.clone(), std::move(meta));
}

} // namespace norda::exp
