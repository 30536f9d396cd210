#include "nordalib/vision/imgproc/DistortionCorrection.h"

#include "nordalib/core/exception/Exception.h"

#if defined(__GNUC__) && defined(__x86_64__)
#include <immintrin.h>
#define NORDA_DISTORTION_AVX2 1
#endif

namespace norda::vision {

namespace {
// The plain loop: pixels first..n-1.
template <typename T>
void resample(const int16_t* __restrict off, const uint32_t* __restrict top,
              const uint32_t* __restrict bottom, const T* __restrict src, T* __restrict dst, size_t first,
              size_t n, size_t cols) {
    for (size_t i = first; i < n; ++i) {
        const T* s = src + (static_cast<ptrdiff_t>(i) + off[i]);
        const T* b = s + cols;
        const uint32_t v = uint32_t(s[0]) * (top[i] & 0xFFFFu) + 32768u + uint32_t(b[1]) * (bottom[i] >> 16) +
                           uint32_t(s[1]) * (top[i] >> 16) + uint32_t(b[0]) * (bottom[i] & 0xFFFFu);
        dst[i] = static_cast<T>(v >> 16);
    }
}

#ifdef NORDA_DISTORTION_AVX2
// Eight 16-bit output pixels a step. One 32-bit gather at s fetches in[s] | in[s+1] << 16, one at
// s + cols the pair below; 16-bit multiplies against the packed weights give the low and high
// halves of all eight products of each pair, which add up in 32-bit lanes to exactly the plain
// loop's sum. Returns the number of pixels done.
__attribute__((target("avx2"))) size_t resampleAvx2(const int16_t* __restrict off,
                                                    const uint32_t* __restrict top,
                                                    const uint32_t* __restrict bottom, const uint16_t* src,
                                                    uint16_t* __restrict dst, size_t n, size_t cols) {
    const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i low16 = _mm256_set1_epi32(0xFFFF);
    const __m256i half = _mm256_set1_epi32(32768);
    const int* above = reinterpret_cast<const int*>(src);
    const int* below = reinterpret_cast<const int*>(src + cols);
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256i rel = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(off + i)));
        const __m256i s =
            _mm256_add_epi32(_mm256_add_epi32(rel, lane), _mm256_set1_epi32(static_cast<int>(i)));
        const __m256i pa = _mm256_i32gather_epi32(above, s, 2);
        const __m256i pb = _mm256_i32gather_epi32(below, s, 2);
        const __m256i wa = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(top + i));
        const __m256i wb = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bottom + i));
        const __m256i loA = _mm256_mullo_epi16(pa, wa), hiA = _mm256_mulhi_epu16(pa, wa);
        const __m256i loB = _mm256_mullo_epi16(pb, wb), hiB = _mm256_mulhi_epu16(pb, wb);
        // Each 32-bit lane holds two 16-bit halves; fold them: sum of low halves + sum of high halves << 16.
        const __m256i lo =
            _mm256_add_epi32(_mm256_add_epi32(_mm256_and_si256(loA, low16), _mm256_srli_epi32(loA, 16)),
                             _mm256_add_epi32(_mm256_and_si256(loB, low16), _mm256_srli_epi32(loB, 16)));
        const __m256i hi =
            _mm256_add_epi32(_mm256_add_epi32(_mm256_and_si256(hiA, low16), _mm256_srli_epi32(hiA, 16)),
                             _mm256_add_epi32(_mm256_and_si256(hiB, low16), _mm256_srli_epi32(hiB, 16)));
        const __m256i v =
            _mm256_srli_epi32(_mm256_add_epi32(_mm256_add_epi32(lo, half), _mm256_slli_epi32(hi, 16)), 16);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i),
                         _mm_packus_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)));
    }
    return i;
}

const bool kHaveAvx2 = __builtin_cpu_supports("avx2");
#endif
} // namespace

template <typename T>
DistortionCorrection<T>::DistortionCorrection(const std::string& path, uint16_t rows, uint16_t cols)
    : DistortionCorrection(DistortionTable::load(path, rows, cols)) {}

template <typename T>
DistortionCorrection<T>::DistortionCorrection(const DistortionTable& table)
    : m_rows(table.rows()), m_cols(table.cols()) {
    auto planes = std::make_shared<Planes>();
    const auto& entries = table.entries();
    planes->offset.reserve(entries.size());
    planes->top.reserve(entries.size());
    planes->bottom.reserve(entries.size());
    for (const DistortionEntry& e : entries) {
        planes->offset.push_back(e.offset);
        planes->top.push_back(e.w00 | uint32_t(e.w01) << 16);
        planes->bottom.push_back(e.w10 | uint32_t(e.w11) << 16);
    }
    m_planes = std::move(planes);
}

template <typename T> void DistortionCorrection<T>::prepare(const cv::Mat& in, cv::Mat& out) const {
    constexpr int type = cv::DataType<T>::type;
    if (in.type() != type || !in.isContinuous())
        NORDA_THROW("distortion correction needs a continuous single-channel frame of type " +
                        std::to_string(type),
                    "norda::vision::DistortionCorrection::processImpl");
    if (out.rows != in.rows || out.cols != in.cols || out.type() != type || !out.data || out.data == in.data)
        out.create(in.rows, in.cols, type);
    const size_t n = m_planes ? m_planes->offset.size() : 0;
    if (n != in.total() || (m_planes && m_cols != in.cols))
        throw norda::Exception("Input image size does not fit to distortion data size!",
                               norda::formatLocation("nordalib/vision/imgproc/DistortionCorrection", 129,
                                                     "norda::vision::DistortionCorrection::processImpl"));
}

template <typename T> void DistortionCorrection<T>::processImpl(const cv::Mat& in, cv::Mat& out) const {
    prepare(in, out);
    const Planes& p = *m_planes;
    const size_t n = p.offset.size();
    size_t done = 0;
#ifdef NORDA_DISTORTION_AVX2
    // The gathers index with 32-bit lanes.
    if constexpr (sizeof(T) == 2)
        if (kHaveAvx2 && n < (size_t(1) << 31) - 65536)
            done = resampleAvx2(p.offset.data(), p.top.data(), p.bottom.data(), in.ptr<uint16_t>(0),
                                out.ptr<uint16_t>(0), n, static_cast<size_t>(in.cols));
#endif
    resample<T>(p.offset.data(), p.top.data(), p.bottom.data(), in.ptr<T>(0), out.ptr<T>(0), done, n,
                static_cast<size_t>(in.cols));
}

template <typename T> void DistortionCorrection<T>::processReference(const cv::Mat& in, cv::Mat& out) const {
    prepare(in, out);
    const Planes& p = *m_planes;
    resample<T>(p.offset.data(), p.top.data(), p.bottom.data(), in.ptr<T>(0), out.ptr<T>(0), 0,
                p.offset.size(), static_cast<size_t>(in.cols));
}

template class DistortionCorrection<unsigned short>;
template class DistortionCorrection<unsigned char>;

} // namespace norda::vision
