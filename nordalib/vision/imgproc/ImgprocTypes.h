#pragma once
// What the image-processing library hands to the framework: its persistable types (BadPixel and
// lists of them) for the VariantRegistry, and its defaults (an empty bad-pixel list, the iron
// palette) for setDefaultParameters. Done once when the library is loaded; registerImgprocTypes() may
// be called again at any time and does nothing then.

namespace norda::vision {

void registerImgprocTypes();

} // namespace norda::vision

// Referenced by static builds so that the linker keeps the types and defaults (see CMakeLists.txt).
extern "C" const int norda_imgproc_types;
