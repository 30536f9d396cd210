#pragma once
// Camera families with their own radiometric model: type A (fixed optics, lens effects in the range
// constants) and type B (interchangeable lenses with per-lens constants and a slow-frame mode).

namespace norda::vision {

enum RadiometricCamType : int {
    RadiometricCamTypeA = 0,
    RadiometricCamTypeB = 1,
};

} // namespace norda::vision
