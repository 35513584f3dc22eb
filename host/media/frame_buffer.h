// FrameBuffer: a picture the host owns, in the screen layout effects use
// (0xAARRGGBB words, rows top to bottom, no padding, the first on a 64-byte
// boundary), viewable as a Screen.
#pragma once

#include <cstdint>

#include "runtime/aligned_vector.h"
#include "orrery/types.h"

namespace nimbo::host {

struct FrameBuffer {
  int32_t width = 0;
  int32_t height = 0;
  AlignedVector<uint32_t> pixels;

  FrameBuffer() = default;
  FrameBuffer(int32_t w, int32_t h, uint32_t fill = 0) { Reset(w, h, fill); }

  void Reset(int32_t w, int32_t h, uint32_t fill = 0) {
    width = w;
    height = h;
    pixels.assign(size_t(w) * size_t(h), fill);
  }
  // Resizes without clearing when the size already matches.
  void EnsureSize(int32_t w, int32_t h) {
    if (w != width || h != height) Reset(w, h);
  }
  uint32_t& At(int32_t x, int32_t y) { return pixels[size_t(y) * size_t(width) + size_t(x)]; }
  uint32_t At(int32_t x, int32_t y) const { return pixels[size_t(y) * size_t(width) + size_t(x)]; }
  orrery::Screen AsScreen() { return {width, height, pixels.data()}; }
};

}  // namespace nimbo::host
