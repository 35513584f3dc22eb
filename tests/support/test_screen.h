// Screens for tests: pictures that own their pixels, filled from a seed.
// Only the SDK's Screen: the engine's tests use these too.
#pragma once

#include <cstdint>
#include <vector>

#include "orrery/types.h"

namespace nimbo::testing {

// A screen that owns its pixels.
struct OwnedScreen {
  OwnedScreen(int32_t width, int32_t height, uint32_t fill = 0);
  orrery::Screen screen;
  std::vector<uint32_t> pixels;
  uint32_t& At(int32_t x, int32_t y) { return pixels[size_t(y) * screen.width + x]; }
};

// Pseudo-random pixels from a seed (all four bytes random).
void FillRandom(OwnedScreen& s, uint32_t seed);

}  // namespace nimbo::testing
