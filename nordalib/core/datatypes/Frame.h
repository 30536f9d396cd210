#pragma once
// Frame: one image travelling through a pipeline cycle, with its metadata.
//
// The matrix is reference counted (copying it out shares pixels). The metadata moves from an
// element's input frame to its output frame with releaseMetaData(), so values written by early
// elements (shutter state, radiometric settings, measurement results) reach later ones.

#include "nordalib/core/datatypes/DataStorage.h"

#include <opencv2/core.hpp>

#include <memory>
#include <string>

namespace norda::exp {

class Frame {
public:
    explicit Frame(const cv::Mat& data);
    Frame(const cv::Mat& data, DataStorage<std::string>&& metaData);
    virtual ~Frame();

    cv::Mat& getFrameData() { return m_data; }
    const cv::Mat& getFrameData() const { return m_data; }

    // Moves the metadata out; the frame keeps an empty store.
    DataStorage<std::string> releaseMetaData();
    const DataStorage<std::string>& getMetaData() const { return m_metaData; }
    DataStorage<std::string>& getMetaData() { return m_metaData; }

    bool isMetaDateAvailable(const std::string& key) const;
    // False (and `value` untouched) when absent.
    bool getMetaDate(const std::string& key, std::shared_ptr<Variant>& value) const;
    // A key that is already present keeps its old value; a warning line goes to standard output.
    void addMetaDate(const std::string& key, std::shared_ptr<Variant> value);
    bool removeMetaDate(const std::string& key);
    // Remove-then-add: the fresh value replaces any old one.
    void replaceMetaDate(const std::string& key, std::shared_ptr<Variant> value);

    // Deep copy: pixels cloned, metadata shared value by value.
    std::unique_ptr<Frame> clone() const;

private:
    cv::Mat m_data;
    DataStorage<std::string> m_metaData;
};

} // namespace norda::exp
