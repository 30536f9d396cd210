#include "nordalib/vision/imgproc/DistortionCorrection.h"
#include "nordalib/core/utils/TargetClones.h"

#include "nordalib/core/exception/Exception.h"

namespace norda::vision {

namespace {
// out[i] = (in[s] w00 + 32768 + in[b+1] w11 + in[s+1] w01 + in[b] w10) >> 16, s = i + offset,
// b = s + cols, unsigned 32-bit. Built for AVX2 as well, chosen at load time.
template <typename T>
NORDA_TARGET_CLONES_AVX2 void resample(const DistortionEntry* __restrict e, const T* __restrict src,
                                       T* __restrict dst, size_t n, size_t cols) {
    for (size_t i = 0; i < n; ++i, ++e) {
        __builtin_prefetch(e + 96); // the table (10 bytes a pixel) outgrows the cache at full frames
        const T* s = src + (static_cast<ptrdiff_t>(i) + e->offset);
        const T* b = s + cols;
        const uint32_t v = uint32_t(s[0]) * e->w00 + 32768u + uint32_t(b[1]) * e->w11 +
                           uint32_t(s[1]) * e->w01 + uint32_t(b[0]) * e->w10;
        dst[i] = static_cast<T>(v >> 16);
    }
}
} // namespace

template <typename T>
DistortionCorrection<T>::DistortionCorrection(const std::string& path, uint16_t rows, uint16_t cols)
    : m_table(std::make_shared<const DistortionTable>(DistortionTable::load(path, rows, cols))) {}

template <typename T>
DistortionCorrection<T>::DistortionCorrection(DistortionTable table)
    : m_table(std::make_shared<const DistortionTable>(std::move(table))) {}

template <typename T> void DistortionCorrection<T>::processImpl(const cv::Mat& in, cv::Mat& out) const {
    constexpr int type = cv::DataType<T>::type;
    if (in.type() != type || !in.isContinuous())
        NORDA_THROW("distortion correction needs a continuous single-channel frame of type " +
                        std::to_string(type),
                    "norda::vision::DistortionCorrection::processImpl");
    if (out.rows != in.rows || out.cols != in.cols || out.type() != type || !out.data || out.data == in.data)
        out.create(in.rows, in.cols, type);
    const size_t n = m_table ? m_table->entries().size() : 0;
    if (n != in.total() || (m_table && m_table->cols() != in.cols))
        throw norda::Exception("Input image size does not fit to distortion data size!",
                               norda::formatLocation("nordalib/vision/imgproc/DistortionCorrection", 129,
                                                     "norda::vision::DistortionCorrection::processImpl"));
    resample<T>(m_table->entries().data(), in.ptr<T>(0), out.ptr<T>(0), n, static_cast<size_t>(in.cols));
}

template class DistortionCorrection<unsigned short>;
template class DistortionCorrection<unsigned char>;

} // namespace norda::vision
