// nordalib.pxm: raw-frame recordings read with the library's decoder and written with its writer.
//
// A recording is indexed when it is opened: one pass steps from header to header (the decoder's
// skip(), which checks each header as a full read does), so len() is known and any frame is one
// seek and one decode away. Frames are the decoder's own buffers, handed to NumPy without a copy.
#include "python/src/Arrays.h"
#include "python/src/Bindings.h"
#include "python/src/Values.h"

#include "nordalib/core/exception/Exception.h"
#include "nordalib/vision/imageio/ImageDecoderPxM.h"
#include "nordalib/vision/imageio/ImageIO.h"
#include "nordalib/vision/imageio/PxmFormat.h"

#include <fmt/format.h>

#include <mutex>
#include <vector>

namespace nordapy {

using norda::vision::ImageDecoderPxM;
using norda::vision::ImageIO;

namespace {

// A frame's metadata as read, made into Python values only when asked for: a program going through
// a recording for its pixels pays nothing for the metadata it never looks at.
class FrameMetadata {
public:
    explicit FrameMetadata(norda::exp::DataStorage<std::string> storage) : m_storage(std::move(storage)) {}
    py::object values() const { return toPython(m_storage); }

private:
    norda::exp::DataStorage<std::string> m_storage;
};

class Recording {
public:
    explicit Recording(std::string path) : m_path(std::move(path)) {
        requireReadable(m_path);
        py::gil_scoped_release release;
        if (!m_decoder.open(m_path))
            throw os_error("can not open " + m_path); // raced away since the check
        for (uint64_t start = m_decoder.position(); m_decoder.skip(); start = m_decoder.position())
            m_offsets.push_back(start);
        m_truncated = m_decoder.wasTruncated();
        m_next = m_offsets.size();
    }

    size_t size() const { return m_offsets.size(); }
    bool truncated() const { return m_truncated; }
    const std::string& path() const { return m_path; }

    py::tuple read(py::ssize_t index) {
        const py::ssize_t n = py::ssize_t(m_offsets.size());
        if (index < -n || index >= n)
            throw py::index_error(fmt::format("frame {} of a recording of {} frames", index, n));
        const size_t i = size_t(index < 0 ? index + n : index);
        cv::Mat frame;
        norda::exp::DataStorage<std::string> meta;
        {
            py::gil_scoped_release release;
            std::lock_guard<std::mutex> lock(m_mutex);
            // Sequential reads continue where the last one ended; others seek to the frame.
            if ((m_next != i && !m_decoder.seek(m_offsets[i], i)) || !m_decoder.grab(frame, nullptr)) {
                m_next = m_offsets.size();
                throw os_error(fmt::format(
                    "{}: frame {} can no longer be read; the file changed since it was opened", m_path, i));
            }
            m_next = i + 1;
            meta = m_decoder.getMetaData();
        }
        return py::make_tuple(toArray(frame, true), FrameMetadata(std::move(meta)));
    }

    void close() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_decoder.close();
        m_offsets.clear();
        m_next = 0;
    }

private:
    std::string m_path;
    ImageDecoderPxM m_decoder;
    std::vector<uint64_t> m_offsets; // file offset of every complete frame
    bool m_truncated = false;
    size_t m_next = 0; // frame the decoder reads next without seeking
    std::mutex m_mutex;
};

class Writer {
public:
    explicit Writer(std::string path) : m_io(0) {
        try {
            m_io.open(path);
        } catch (const norda::Exception& e) {
            throw os_error(e.what()); // the system refused the file
        }
    }

    void write(py::handle image, py::handle metadata) {
        const ArrayView view =
            viewArray(image, "frame", {CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F}, 0);
        if (view.mat.cols > norda::vision::pxm::kMaxDimension ||
            view.mat.rows > norda::vision::pxm::kMaxDimension)
            throw py::value_error(fmt::format("argument 'frame' of {} x {} exceeds the PXM limit of {} x {}",
                                              view.mat.cols, view.mat.rows, norda::vision::pxm::kMaxDimension,
                                              norda::vision::pxm::kMaxDimension));
        std::shared_ptr<norda::exp::DataStorage<std::string>> meta;
        if (!metadata.is_none())
            meta = std::make_shared<norda::exp::DataStorage<std::string>>(
                storageFromPython(metadata, "metadata"));
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_io.isOpen())
            throw py::value_error("the writer is closed");
        try {
            m_io.setMetaData(meta);
            m_io.write(view.mat, "");
        } catch (const norda::Exception& e) {
            throw os_error(e.what());
        }
    }

    void close() {
        py::gil_scoped_release release;
        std::lock_guard<std::mutex> lock(m_mutex);
        try {
            m_io.close();
        } catch (const norda::Exception& e) {
            throw os_error(e.what());
        }
    }

    uint64_t frames() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_io.framesWritten();
    }

private:
    ImageIO m_io;
    std::mutex m_mutex;
};

} // namespace

void bindPxm(py::module_& m) {
    py::class_<FrameMetadata>(m, "_FrameMetadata").def("values", &FrameMetadata::values);

    py::class_<Recording>(m, "_Recording")
        .def(py::init([](py::handle path) { return std::make_unique<Recording>(pathArgument(path)); }),
             py::arg("path"))
        .def("__len__", &Recording::size)
        .def("read", &Recording::read, py::arg("index"))
        .def("close", &Recording::close)
        .def_property_readonly("truncated", &Recording::truncated)
        .def_property_readonly("path", &Recording::path);

    py::class_<Writer>(m, "_Writer")
        .def(py::init([](py::handle path) { return std::make_unique<Writer>(pathArgument(path)); }),
             py::arg("path"))
        .def("write", &Writer::write, py::arg("frame"), py::arg("metadata") = py::none())
        .def("close", &Writer::close)
        .def_property_readonly("frames", &Writer::frames);
}

} // namespace nordapy
