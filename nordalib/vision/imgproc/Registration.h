#pragma once
// What the image-processing library hands to the framework: its persistable types (BadPixel and
// lists of them) for the VariantRegistry, and its defaults (an empty bad-pixel list, the iron
// palette) for setDefaultParameters. Done once when the library is loaded; registerImgproc() may
// be called again at any time and does nothing then.

namespace norda::vision {

void registerImgproc();

} // namespace norda::vision

// Referenced by static builds so that the linker keeps the registration (see CMakeLists.txt).
extern "C" const int norda_imgproc_registration;
