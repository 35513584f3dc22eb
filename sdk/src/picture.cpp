// The host SDK's picture loader: decoding is the installed decoder's job,
// resampling is done here.
#include "orrery/picture.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace orrery {
namespace {
std::atomic<PictureDecoder*> g_decoder{nullptr};

// Bilinear blend of four pixels, each byte on its own, weights in 1/256.
uint32_t Blend(uint32_t p00, uint32_t p10, uint32_t p01, uint32_t p11, uint32_t fx, uint32_t fy) {
  uint32_t out = 0;
  for (int shift = 0; shift < 32; shift += 8) {
    uint32_t a = (p00 >> shift) & 0xFF, b = (p10 >> shift) & 0xFF;
    uint32_t c = (p01 >> shift) & 0xFF, d = (p11 >> shift) & 0xFF;
    uint32_t top = a * (256 - fx) + b * fx;
    uint32_t bottom = c * (256 - fx) + d * fx;
    uint32_t v = (top * (256 - fy) + bottom * fy + 32768) >> 16;
    out |= std::min<uint32_t>(v, 255) << shift;
  }
  return out;
}
}  // namespace

PictureDecoder* GetPictureDecoder() { return g_decoder.load(); }
void SetPictureDecoder(PictureDecoder* decoder) { g_decoder = decoder; }

bool COrrBmp::LoadFromFile(const char* path) {
  PictureDecoder* decoder = g_decoder.load();
  if (!decoder || !path) return false;
  int32_t w = 0, h = 0;
  std::vector<uint32_t> pixels;
  if (!decoder->Decode(path, &w, &h, &pixels)) return false;
  if (w <= 0 || h <= 0 || pixels.size() != size_t(w) * size_t(h)) return false;
  width_ = w;
  height_ = h;
  pixels_ = std::move(pixels);
  return true;
}

bool COrrBmp::Resize(int32_t width, int32_t height) {
  if (width < 1 || height < 1 || pixels_.empty()) return false;
  std::vector<uint32_t> out(size_t(width) * size_t(height));
  for (int32_t y = 0; y < height; ++y) {
    double sy = std::max(0.0, (y + 0.5) * height_ / height - 0.5);
    int32_t y0 = std::min<int32_t>(int32_t(sy), height_ - 1), y1 = std::min(y0 + 1, height_ - 1);
    uint32_t fy = uint32_t((sy - y0) * 256);
    for (int32_t x = 0; x < width; ++x) {
      double sx = std::max(0.0, (x + 0.5) * width_ / width - 0.5);
      int32_t x0 = std::min<int32_t>(int32_t(sx), width_ - 1), x1 = std::min(x0 + 1, width_ - 1);
      uint32_t fx = uint32_t((sx - x0) * 256);
      const uint32_t* r0 = &pixels_[size_t(y0) * width_];
      const uint32_t* r1 = &pixels_[size_t(y1) * width_];
      out[size_t(y) * width + x] = Blend(r0[x0], r0[x1], r1[x0], r1[x1], fx, fy);
    }
  }
  width_ = width;
  height_ = height;
  pixels_ = std::move(out);
  return true;
}

}  // namespace orrery
