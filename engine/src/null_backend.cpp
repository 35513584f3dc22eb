#include "null_backend.h"

#include <algorithm>

namespace nb3d {

bool NullBackend::SetTarget(int32_t w, int32_t h, std::string*) {
  width = w;
  height = h;
  return true;
}

uint32_t NullBackend::CreateTexture(int32_t, int32_t, bool, bool, const uint32_t*, int32_t) {
  textures.insert(next_texture_);
  return next_texture_++;
}

void NullBackend::Clear(const float color[4]) {
  auto byte = [](float c) { return uint32_t(std::clamp(c, 0.0f, 1.0f) * 255.0f + 0.5f); };
  clear_pixel = byte(color[3]) << 24 | byte(color[0]) << 16 | byte(color[1]) << 8 | byte(color[2]);
}

void NullBackend::Draw(const DrawCall& call) {
  ++draws;
  last_draw = call;
  last_draw.vertices = nullptr;  // the caller's memory; gone after the call
  last_draw.indices = nullptr;
}

bool NullBackend::ReadPixels(uint32_t* pixels, std::string*) {
  std::fill(pixels, pixels + size_t(width) * size_t(height), clear_pixel);
  return true;
}

}  // namespace nb3d
