// Texture sides, blur passes and light maps of a material layer.
#include "render3d/texture_build.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace nimbo {

int32_t TextureSide(int32_t size) {
  int32_t side = 2;
  while (side < size && side < 1024) side *= 2;
  return side;
}

int32_t PictureSide(int32_t size, int32_t output) {
  const int32_t s = size > 0 ? size : output;
  return std::clamp(s, 1, 1024);
}

int32_t BlurPassCount(float blur) {
  int32_t passes = 0;
  // Single precision like the layer's own field, so a blur typed as a
  // multiple of 0.07 stops exactly there (0.14 gives two passes).
  for (float counter = 0.0f; counter < blur && passes < kMaxBlurPasses; counter += 0.07f) ++passes;
  return passes;
}

void BlurPicture(uint32_t* pixels, int32_t stride, int32_t w, int32_t h, int32_t passes, const MaterialKernels& k,
                 std::vector<uint32_t>& scratch) {
  if (w < 3 || h < 3 || passes <= 0) return;  // every pixel is a border pixel
  scratch.resize(size_t(w) * size_t(h));
  for (int32_t pass = 0; pass < passes; ++pass) {
    for (int32_t y = 0; y < h; ++y)
      std::memcpy(&scratch[size_t(y) * size_t(w)], pixels + size_t(y) * size_t(stride), size_t(w) * 4);
    for (int32_t y = 1; y + 1 < h; ++y) {
      const uint32_t* row = &scratch[size_t(y) * size_t(w)];
      k.blur_row(row - w, row, row + w, pixels + size_t(y) * size_t(stride), size_t(w));
    }
  }
}

void BuildLightMap(uint32_t* map, int32_t w, int32_t h, const TextureLayer& layer, const MaterialKernels& k) {
  const uint32_t base = uint32_t(layer.base_clr) & 0xFFFFFFu;
  std::fill(map, map + size_t(w) * size_t(h), base);
  const LightVec dir = LightVector(layer.l_x, layer.l_y);
  SphereLight diffuse;
  diffuse.dir = dir;
  diffuse.color = layer.diff_clr;
  diffuse.squarings = layer.diff;
  SphereLight specular = diffuse;
  specular.color = layer.spec_clr;
  specular.squarings = layer.spec_power;
  specular.specular = true;
  for (int32_t y = 0; y < h; ++y) {
    uint32_t* row = map + size_t(y) * size_t(w);
    if (layer.diff_clr != 0) k.sphere_light_row(row, w, h, y, diffuse);
    if (layer.spec_clr != 0) k.sphere_light_row(row, w, h, y, specular);
  }
}

void ApplyLightMap(const uint32_t* map, uint32_t* pixels, int32_t stride, int32_t w, int32_t h,
                   const MaterialKernels& k) {
  for (int32_t y = 0; y < h; ++y)
    k.apply_light_map(map + size_t(y) * size_t(w), pixels + size_t(y) * size_t(stride), size_t(w));
}

void InvertPicture(uint32_t* pixels, int32_t stride, int32_t w, int32_t h) {
  for (int32_t y = 0; y < h; ++y) {
    uint32_t* row = pixels + size_t(y) * size_t(stride);
    for (int32_t x = 0; x < w; ++x) row[x] ^= 0xFFFFFFu;
  }
}

bool FinishPictureLayer(uint32_t* pixels, int32_t stride, int32_t w, int32_t h, const TextureLayer& layer,
                        bool loaded, const MaterialKernels& k, std::vector<uint32_t>& scratch) {
  try {
    if (loaded) BlurPicture(pixels, stride, w, h, BlurPassCount(layer.blur), k, scratch);
    scratch.resize(size_t(w) * size_t(h));
  } catch (const std::bad_alloc&) {
    return false;
  }
  BuildLightMap(scratch.data(), w, h, layer, k);
  ApplyLightMap(scratch.data(), pixels, stride, w, h, k);
  return true;
}

}  // namespace nimbo
